#include "export/WavNormalizer.h"

#include "analysis/AudioFileReader.h"
#include "analysis/EngineFeeder.h"
#include "analysis/OfflineAnalysis.h"
#include "analysis/Utf8Path.h"
#include "engine/LoudnessEngine.h"
#include "export/ExportWriter.h"

#include <sndfile.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

namespace velorum {
namespace {

constexpr int kBlock = 16384;

int subtypeFor(int32_t bits, bool floatOutput)
{
    if (floatOutput || bits == 32 || bits == 64)
        return SF_FORMAT_FLOAT;
    if (bits > 0 && bits <= 16)
        return SF_FORMAT_PCM_16;
    return SF_FORMAT_PCM_24;
}

int bytesPerSample(int subtype)
{
    return subtype == SF_FORMAT_PCM_16 ? 2 : subtype == SF_FORMAT_PCM_24 ? 3 : 4;
}

std::string dbText(double value)
{
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.1f", std::round(value * 10.0) / 10.0);
    return buffer;
}

} // namespace

bool NeedsRf64(uint64_t frames, int channels, int bytesPerSample)
{
    // Room kept below 4 GiB for the RIFF, fmt and bext chunks around the data.
    constexpr uint64_t kLimit = 0xFFFFFFFFull - 4096;
    if (channels <= 0 || bytesPerSample <= 0)
        return false;
    const uint64_t frameBytes = static_cast<uint64_t>(channels) * static_cast<uint64_t>(bytesPerSample);
    return frames > kLimit / frameBytes;
}

NormalizeResult NormalizeFile(const NormalizeRequest& request)
{
    NormalizeResult result;
    auto progress = [&](int value) {
        if (request.progress)
            request.progress(value);
    };

    // Pass 1: the measurement, with the same driver as every analysis.
    LoudnessEngine source;
    source.SetEcoMode(request.ecoTruePeak);
    source.SetDialogueEnabled(false);   // the gain follows the level-gated loudness
    OfflineAnalysis analysis(source);
    OfflineAnalysis::Request job;
    job.paths = {request.input};
    job.blockFrames = kBlock;
    if (!analysis.start(job)) {
        result.message = "The file could not be opened.";
        return result;
    }
    while (analysis.running()) {
        progress(analysis.progress() / 2);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    analysis.wait();
    if (analysis.state() != OfflineAnalysis::Done) {
        result.message = analysis.message();
        return result;
    }
    const OfflineAnalysis::FileInfo info = analysis.fileInfo();
    result.sourceIntegrated = source.Integrated();
    result.sourceTruePeak = source.TruePeakMax();
    if (!(result.sourceIntegrated > -70.0)) {
        result.message = "The file has no measurable loudness (below -70 LUFS); it can't be normalized.";
        return result;
    }
    result.gainDb = request.targetLufs - result.sourceIntegrated;
    const float gain = static_cast<float>(std::pow(10.0, result.gainDb / 20.0));

    // The output file: the writer's rules for existing and locked files.
    if (PathExistsUtf8(request.output)) {
        if (request.confirmReplace && !request.confirmReplace(kReplaceQuestion)) {
            result.message = "The existing file was kept.";
            return result;
        }
        if (FileInUse(request.output)) {
            result.message = kInUseMessage;
            return result;
        }
    }

    AudioFileReader reader;
    if (!reader.open(request.input) || !reader.prepare(kBlock)) {
        result.message = "The file could not be opened.";
        return result;
    }
    const int channels = static_cast<int>(reader.channels());
    const int subtype = subtypeFor(reader.bitsPerSample(), request.floatOutput);
    result.rf64 = request.forceRf64 || NeedsRf64(reader.totalFrames(), channels, bytesPerSample(subtype));

    SF_INFO out;
    std::memset(&out, 0, sizeof out);
    out.samplerate = static_cast<int>(reader.sampleRate());
    out.channels = channels;
    out.format = (result.rf64 ? SF_FORMAT_RF64 : SF_FORMAT_WAV) | subtype;
    const std::string temp = request.output + ".part";
    SNDFILE* file = OpenSoundFileUtf8(temp, SFM_WRITE, &out);
    if (!file) {
        result.message = kCouldNotCreateMessage;
        return result;
    }
    const bool clip = subtype != SF_FORMAT_FLOAT;
    sf_command(file, SFC_SET_CLIPPING, nullptr, clip ? SF_TRUE : SF_FALSE);
    if (info.timeReference != 0) {
        SF_BROADCAST_INFO bext;
        std::memset(&bext, 0, sizeof bext);
        bext.time_reference_low = static_cast<uint32_t>(info.timeReference & 0xFFFFFFFFu);
        bext.time_reference_high = static_cast<uint32_t>(info.timeReference >> 32);
        std::snprintf(bext.description, sizeof bext.description, "Normalized to %s LUFS",
                      dbText(request.targetLufs).c_str());
        sf_command(file, SFC_SET_BROADCAST_INFO, &bext, sizeof bext);
    }

    // Pass 2: gain, write, and measure what was written.
    LoudnessEngine written;
    written.SetEcoMode(request.ecoTruePeak);
    written.SetDialogueEnabled(false);
    EngineFeeder::configure(written, static_cast<double>(reader.sampleRate()), info.layoutIndex, channels);
    EngineFeeder feeder(written, channels, kBlock);
    std::vector<float> block(static_cast<size_t>(kBlock) * static_cast<size_t>(channels));
    bool ok = true;
    for (;;) {
        if (!reader.readBlock()) {
            ok = false;
            break;
        }
        const int frames = reader.framesRead();
        if (frames <= 0)
            break;
        const float* in = reader.buffer();
        const size_t n = static_cast<size_t>(frames) * static_cast<size_t>(channels);
        for (size_t i = 0; i < n; ++i) {
            float v = in[i] * gain;
            if (clip)
                v = std::clamp(v, -1.0f, 1.0f);
            block[i] = v;
        }
        if (sf_writef_float(file, block.data(), frames) != frames) {
            ok = false;
            break;
        }
        feeder.feed(block.data(), frames);
        progress(50 + reader.progress() / 2);
    }
    const bool closed = sf_close(file) == 0;
    // The source is done with: on Windows an open file can't be replaced, and
    // the output may be the source itself.
    reader.close();
    if (!ok || !closed || !ReplaceFileUtf8(temp, request.output)) {
        RemoveFileUtf8(temp);
        result.message = ok ? kCouldNotCreateMessage : "The file could not be opened.";
        return result;
    }
    progress(100);
    result.ok = true;
    written.FinishProgramme();   // the written programme's values with the final gates
    result.resultIntegrated = written.Integrated();
    result.resultTruePeak = written.TruePeakMax();
    if (result.resultTruePeak > request.truePeakMax) {
        result.truePeakWarning = true;
        result.message = "Warning: the true peak of the normalized file (" + dbText(result.resultTruePeak) +
                         " dBTP) exceeds the maximum of " + dbText(request.truePeakMax) + " dBTP.";
    }
    return result;
}

} // namespace velorum
