// Mean-square window over the last L values: a ring of L + 1 entries and a
// running sum kept by one addition and one subtraction per value.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

namespace velorum {

class SlidingWindow {
public:
    // Sizes the ring for `length` values (at least 1) and empties it.
    void Resize(int length) {
        length_ = length < 1 ? 1 : length;
        ring_.assign(static_cast<std::size_t>(length_) + 1, 0.0);
        Clear();
    }
    void Clear() {
        pos_ = 0;
        fill_ = 0;
        sum_ = 0.0;
    }

    void Push(double v) {
        const int size = length_ + 1;
        ring_[static_cast<std::size_t>(pos_)] = v;
        if (++pos_ == size) pos_ = 0;
        double dropped = 0.0;
        if (fill_ < size) ++fill_;
        if (fill_ == size) dropped = ring_[static_cast<std::size_t>(pos_)];
        sum_ = (v + sum_) - dropped;
    }

    void Push(const double* v, int n) {
        const int size = length_ + 1;
        int i = 0;
        while (i < n && fill_ < size) Push(v[i++]);
        // Full ring: the value dropped is the one after the write position.
        double* ring = ring_.data();
        double sum = sum_;
        int pos = pos_;
        while (i < n) {
            const int run = std::min(n - i, size - 1 - pos);
            for (int j = 0; j < run; ++j) {
                const double x = v[i + j];
                ring[pos + j] = x;
                sum = (x + sum) - ring[pos + j + 1];
            }
            i += run;
            pos += run;
            if (i < n) {  // write the last slot; the oldest is then slot 0
                const double x = v[i++];
                ring[pos] = x;
                sum = (x + sum) - ring[0];
                pos = 0;
            }
        }
        sum_ = sum;
        pos_ = pos;
    }

    // Sum / L, after flushing a denormal sum to 0.0.
    double MeanSquare() {
        if (std::fabs(sum_) < DBL_MIN) sum_ = 0.0;
        return sum_ / static_cast<double>(length_);
    }

    int Length() const { return length_; }
    // The window holds L values.
    bool Full() const { return fill_ >= length_; }
    double Sum() const { return sum_; }

private:
    std::vector<double> ring_{0.0, 0.0};
    int length_ = 1;
    int pos_ = 0;
    int fill_ = 0;
    double sum_ = 0.0;
};

}  // namespace velorum
