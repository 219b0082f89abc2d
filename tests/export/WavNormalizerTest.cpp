// The normalised WAV export: the written file measures at the target, keeps
// format and time reference, and warns when its true peak is too high.
#include "analysis/AudioFileReader.h"
#include "analysis/AudioFixtures.h"
#include "analysis/OfflineAnalysis.h"
#include "export/WavNormalizer.h"

#include <gtest/gtest.h>

namespace velorum {
namespace {

double measure(const std::string& path)
{
    LoudnessEngine engine;
    OfflineAnalysis analysis(engine);
    OfflineAnalysis::Request request;
    request.paths = {path};
    EXPECT_TRUE(analysis.run(request)) << analysis.message();
    return engine.Integrated();
}

TEST(WavNormalizer, QuietFileIsBroughtToTheTarget)
{
    test::TempDir dir;
    std::vector<float> s = test::programme(2, 48000, 48000 * 8);
    for (float& v : s)
        v *= 0.25f;   // about -12 dB
    ASSERT_TRUE(test::writeWav(dir.file("in.wav"), 2, 48000, s));

    NormalizeRequest request;
    request.input = dir.file("in.wav");
    request.output = dir.file("out.wav");
    request.targetLufs = -23.0;
    int lastProgress = -1;
    request.progress = [&](int p) { EXPECT_GE(p, lastProgress); lastProgress = p; };
    const NormalizeResult r = NormalizeFile(request);
    ASSERT_TRUE(r.ok) << r.message;
    EXPECT_FALSE(r.truePeakWarning);
    EXPECT_EQ(lastProgress, 100);
    EXPECT_NEAR(r.gainDb, -23.0 - r.sourceIntegrated, 1e-9);
    EXPECT_NEAR(r.resultIntegrated, -23.0, 0.05);
    EXPECT_NEAR(measure(request.output), -23.0, 0.05);

    AudioFileReader out;
    ASSERT_TRUE(out.open(request.output));
    EXPECT_EQ(out.bitsPerSample(), 24);
    EXPECT_EQ(out.channels(), 2u);
    EXPECT_EQ(out.totalFrames(), 48000u * 8);
}

TEST(WavNormalizer, TruePeakAboveTheMaximumWarns)
{
    test::TempDir dir;
    ASSERT_TRUE(test::writeWav(dir.file("in.wav"), 2, 48000, test::programme(2, 48000, 48000 * 6)));
    NormalizeRequest request;
    request.input = dir.file("in.wav");
    request.output = dir.file("loud.wav");
    request.targetLufs = -3.0;
    request.truePeakMax = -1.0;
    request.floatOutput = true;
    const NormalizeResult r = NormalizeFile(request);
    ASSERT_TRUE(r.ok) << r.message;
    EXPECT_TRUE(r.truePeakWarning);
    EXPECT_GT(r.resultTruePeak, -1.0);
    EXPECT_NE(r.message.find("exceeds the maximum of -1.0 dBTP"), std::string::npos) << r.message;
    AudioFileReader out;
    ASSERT_TRUE(out.open(request.output));
    EXPECT_EQ(out.bitsPerSample(), 32);   // float output is not clipped
    EXPECT_NEAR(measure(request.output), -3.0, 0.05);
}

TEST(WavNormalizer, SilenceAndUnreadableInputsAreRefused)
{
    test::TempDir dir;
    ASSERT_TRUE(test::writeWav(dir.file("silent.wav"), 2, 48000, std::vector<float>(48000 * 2 * 4, 0.0f)));
    NormalizeRequest request;
    request.input = dir.file("silent.wav");
    request.output = dir.file("out.wav");
    NormalizeResult r = NormalizeFile(request);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.message.find("no measurable loudness"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(request.output));

    request.input = dir.file("absent.wav");
    r = NormalizeFile(request);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.message, "The file could not be opened.");
}

TEST(WavNormalizer, TimeReferenceIsKept)
{
    test::TempDir dir;
    const std::string in = dir.file("bext.wav");
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(in.c_str(), SFM_WRITE, &info);
    ASSERT_NE(f, nullptr);
    SF_BROADCAST_INFO bext{};
    bext.time_reference_low = 172800000u;   // 01:00:00:00 at 48 kHz
    sf_command(f, SFC_SET_BROADCAST_INFO, &bext, sizeof bext);
    const std::vector<float> s = test::programme(2, 48000, 48000 * 4);
    sf_writef_float(f, s.data(), 48000 * 4);
    sf_close(f);

    NormalizeRequest request;
    request.input = in;
    request.output = dir.file("out.wav");
    ASSERT_TRUE(NormalizeFile(request).ok);
    AudioFileReader out;
    ASSERT_TRUE(out.open(request.output));
    EXPECT_EQ(out.timeReference(), 172800000u);
    EXPECT_EQ(out.bitsPerSample(), 16);
}

} // namespace
} // namespace velorum
