// Plain C++ variant of the hot loops; the reference for the vector ones.
#include <cfloat>
#include <cmath>
#include <cstring>

#include "engine/Kernels.h"

namespace velorum {

void KWeightingBank::ClearState() {
    std::memset(x1a, 0, sizeof x1a);
    std::memset(x2a, 0, sizeof x2a);
    std::memset(y1a, 0, sizeof y1a);
    std::memset(y2a, 0, sizeof y2a);
    std::memset(x1b, 0, sizeof x1b);
    std::memset(x2b, 0, sizeof x2b);
    std::memset(y1b, 0, sizeof y1b);
    std::memset(y2b, 0, sizeof y2b);
}

void TruePeakRing::Clear() {
    std::memset(samples, 0, sizeof samples);
    write = -1;
}

namespace kernels {

namespace {

// Exactly 0.0 when the biased exponent is zero (zero or denormal).
inline double Flush(double y) { return std::fabs(y) < DBL_MIN ? 0.0 : y; }

}  // namespace

void KWeightChannels(KWeightingBank& k, const double* const* x, int first, int last, int n, double* const* power) {
    for (int c = first; c < last; ++c) {
        double x1a = k.x1a[c], x2a = k.x2a[c], y1a = k.y1a[c], y2a = k.y2a[c];
        double x1b = k.x1b[c], x2b = k.x2b[c], y1b = k.y1b[c], y2b = k.y2b[c];
        const double b0a = k.b0a[c], b1a = k.b1a[c], b2a = k.b2a[c], a1a = k.a1a[c], a2a = k.a2a[c];
        const double b0b = k.b0b[c], b1b = k.b1b[c], b2b = k.b2b[c], a1b = k.a1b[c], a2b = k.a2b[c];
        const double w = k.weight[c];
        const double* in = x[c];
        double* out = power[c];
        for (int i = 0; i < n; ++i) {
            const double xi = in[i];
            const double ya = Flush(((((b0a * xi + b1a * x1a) + b2a * x2a) - a2a * y2a) - a1a * y1a));
            x2a = x1a;
            x1a = xi;
            y2a = y1a;
            y1a = ya;
            const double yb = Flush(((((b0b * ya + b1b * x1b) + b2b * x2b) - a2b * y2b) - a1b * y1b));
            x2b = x1b;
            x1b = ya;
            y2b = y1b;
            y1b = yb;
            const double v = yb * w;
            out[i] = v * v;
        }
        k.x1a[c] = x1a, k.x2a[c] = x2a, k.y1a[c] = y1a, k.y2a[c] = y2a;
        k.x1b[c] = x1b, k.x2b[c] = x2b, k.y1b[c] = y1b, k.y2b[c] = y2b;
    }
}

namespace {

void KWeightScalar(KWeightingBank& k, const double* const* x, int channels, int n, double* const* power) {
    KWeightChannels(k, x, 0, channels, n, power);
}

void SumScalar(const double* const* power, int channels, int n, double* total) {
    for (int i = 0; i < n; ++i) total[i] = 0.0;
    for (int c = 0; c < channels; ++c)
        for (int i = 0; i < n; ++i) total[i] += power[c][i];
}

inline double Larger(double v, double peak) { return v > peak ? v : peak; }

// One phase: four partial sums over the taps k = q (mod 4), each in
// ascending k from its first product, combined as (s0 + s1) + (s2 + s3).
// Every variant sums in exactly this order.
inline double Phase(const double* t, int p, const double* win, int taps) {
    double s0 = t[0 + p] * win[0], s1 = t[4 + p] * win[1], s2 = t[8 + p] * win[2], s3 = t[12 + p] * win[3];
    int k = 4;
    for (; k + 4 <= taps; k += 4) {
        s0 = s0 + t[4 * k + p] * win[k];
        s1 = s1 + t[4 * (k + 1) + p] * win[k + 1];
        s2 = s2 + t[4 * (k + 2) + p] * win[k + 2];
        s3 = s3 + t[4 * (k + 3) + p] * win[k + 3];
    }
    if (k < taps) s0 = s0 + t[4 * k + p] * win[k];
    if (k + 1 < taps) s1 = s1 + t[4 * (k + 1) + p] * win[k + 1];
    if (k + 2 < taps) s2 = s2 + t[4 * (k + 2) + p] * win[k + 2];
    return (s0 + s1) + (s2 + s3);
}

double TruePeakScalar(const double* t, int taps, TruePeakRing& r, const double* x, int n, double peak) {
    int w = r.write;
    for (int i = 0; i < n; ++i) {
        const double xi = x[i];
        w = (w + 1) & (TruePeakRing::kSlots - 1);
        r.samples[w] = xi;
        r.samples[w + TruePeakRing::kSlots] = xi;
        if (w == 0) r.samples[2 * TruePeakRing::kSlots] = xi;
        const double* win = r.samples + w + TruePeakRing::kSlots + 1 - taps;
        for (int p = 0; p < 4; ++p) peak = Larger(std::fabs(Phase(t, p, win, taps)), peak);
        peak = Larger(std::fabs(xi), peak);
    }
    r.write = w;
    return peak;
}

}  // namespace

const KernelSet kScalar{KWeightScalar, SumScalar, TruePeakScalar};

}  // namespace kernels
}  // namespace velorum
