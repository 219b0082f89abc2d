// The normalised WAV export: the written file measures at the target, keeps
// format and time reference, warns when its true peak is too high, switches
// to RF64 where plain WAV's 32-bit sizes end, and takes UTF-8 file names.
#include <gtest/gtest.h>

#include <array>
#include <fstream>

#include "analysis/AudioFileReader.h"
#include "analysis/AudioFixtures.h"
#include "analysis/OfflineAnalysis.h"
#include "export/WavNormalizer.h"

namespace velorum {
namespace {

double measure(const std::string& path) {
  LoudnessEngine engine;
  OfflineAnalysis analysis(engine);
  OfflineAnalysis::Request request;
  request.paths = {path};
  EXPECT_TRUE(analysis.run(request)) << analysis.message();
  return engine.Integrated();
}

TEST(WavNormalizer, QuietFileIsBroughtToTheTarget) {
  test::TempDir dir;
  std::vector<float> s = test::programme(2, 48000, 48000 * 8);
  for (float& v : s) v *= 0.25f;  // about -12 dB
  ASSERT_TRUE(test::writeWav(dir.file("in.wav"), 2, 48000, s));

  NormalizeRequest request;
  request.input = dir.file("in.wav");
  request.output = dir.file("out.wav");
  request.targetLufs = -23.0;
  int lastProgress = -1;
  request.progress = [&](int p) {
    EXPECT_GE(p, lastProgress);
    lastProgress = p;
  };
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

TEST(WavNormalizer, GainStopsAtTheTruePeakMaximum) {
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
  EXPECT_FALSE(r.truePeakWarning);
  EXPECT_TRUE(r.gainLowered);
  EXPECT_LE(r.resultTruePeak, -1.0);
  EXPECT_GT(r.resultTruePeak, -1.2);
  EXPECT_NEAR(r.shortfallLu, -3.0 - r.resultIntegrated, 1e-9);
  AudioFileReader out;
  ASSERT_TRUE(out.open(request.output));
  EXPECT_EQ(out.bitsPerSample(), 32);
  EXPECT_NEAR(measure(request.output), r.resultIntegrated, 0.01);
}

TEST(WavNormalizer, SilenceAndUnreadableInputsAreRefused) {
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
  EXPECT_EQ(r.message, "The file could not be opened. It does not exist.");
}

// A 16-bit stereo programme of four seconds with a bext time reference.
void writeBextFile(const std::string& in, uint64_t timeReference) {
  SF_INFO info{};
  info.samplerate = 48000;
  info.channels = 2;
  info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  SNDFILE* f = test::openSound(in, SFM_WRITE, &info);
  ASSERT_NE(f, nullptr);
  SF_BROADCAST_INFO bext{};
  bext.time_reference_low = static_cast<uint32_t>(timeReference & 0xFFFFFFFFu);
  bext.time_reference_high = static_cast<uint32_t>(timeReference >> 32);
  sf_command(f, SFC_SET_BROADCAST_INFO, &bext, sizeof bext);
  const std::vector<float> s = test::programme(2, 48000, 48000 * 4);
  sf_writef_float(f, s.data(), 48000 * 4);
  sf_close(f);
}

TEST(WavNormalizer, TimeReferenceIsKept) {
  test::TempDir dir;
  const std::string in = dir.file("bext.wav");
  writeBextFile(in, 172800000u);  // 01:00:00:00 at 48 kHz

  NormalizeRequest request;
  request.input = in;
  request.output = dir.file("out.wav");
  ASSERT_TRUE(NormalizeFile(request).ok);
  AudioFileReader out;
  ASSERT_TRUE(out.open(request.output));
  EXPECT_EQ(out.timeReference(), 172800000u);
  EXPECT_EQ(out.bitsPerSample(), 16);
}

TEST(WavNormalizer, SourceCanBeReplacedByItsNormalisedSelf) {
  // Saving over the analysed file itself: the source is read to its end
  // before the finished file takes its place (on Windows an open file
  // can't be replaced).
  test::TempDir dir;
  const std::string path = dir.file("take.wav");
  std::vector<float> s = test::programme(2, 48000, 48000 * 5);
  for (float& v : s) v *= 0.5f;
  ASSERT_TRUE(test::writeWav(path, 2, 48000, s));
  NormalizeRequest request;
  request.input = path;
  request.output = path;
  request.targetLufs = -16.0;
  const NormalizeResult r = NormalizeFile(request);
  ASSERT_TRUE(r.ok) << r.message;
  EXPECT_NEAR(measure(path), -16.0, 0.05);
  EXPECT_FALSE(std::filesystem::exists(TemporaryNameFor(path)));
}

TEST(WavNormalizer, Rf64StartsWhereThePlainWavSizesEnd) {
  // 4 GiB less the 4 KiB kept for the header chunks, in bytes of sample data.
  constexpr uint64_t limit = 0xFFFFFFFFull - 4096;
  struct Case {
    int channels, bytes;
  };
  for (const Case c : {Case{1, 2}, Case{2, 3}, Case{6, 3}, Case{8, 4}, Case{24, 4}, Case{5, 3}}) {
    const uint64_t frameBytes = static_cast<uint64_t>(c.channels * c.bytes);
    const uint64_t lastPlain = limit / frameBytes;
    EXPECT_FALSE(NeedsRf64(lastPlain, c.channels, c.bytes)) << c.channels << "x" << c.bytes;
    EXPECT_TRUE(NeedsRf64(lastPlain + 1, c.channels, c.bytes)) << c.channels << "x" << c.bytes;
    EXPECT_LE(lastPlain * frameBytes, limit);
    EXPECT_GT((lastPlain + 1) * frameBytes, limit);
  }
  // Programmes people deliver: four hours of 48 kHz 24-bit stereo still fit
  // a WAV file (4.15 GB, below 4 GiB), five hours don't (5.18 GB); an hour of
  // 24 channels of float at 48 kHz (16.6 GB) is RF64, an hour of 16-bit mono
  // is not.
  EXPECT_FALSE(NeedsRf64(4ull * 3600 * 48000, 2, 3));
  EXPECT_TRUE(NeedsRf64(5ull * 3600 * 48000, 2, 3));
  EXPECT_TRUE(NeedsRf64(3600ull * 48000, 24, 4));
  EXPECT_FALSE(NeedsRf64(3600ull * 48000, 1, 2));
  // Frame counts near the top of the range don't wrap around.
  EXPECT_TRUE(NeedsRf64(~0ull, 24, 4));
  EXPECT_TRUE(NeedsRf64(~0ull / 2, 2, 3));
  EXPECT_FALSE(NeedsRf64(0, 2, 3));
}

std::array<char, 4> fourcc(const std::string& path, std::streamoff offset) {
  std::array<char, 4> id{};
  std::ifstream in(std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary);
  if (!in.seekg(offset) || !in.read(id.data(), 4)) id.fill(0);
  return id;
}

TEST(WavNormalizer, ForcedRf64ReadsBackLikeThePlainWav) {
  test::TempDir dir;
  const std::string in = dir.file("bext.wav");
  const uint64_t timeReference = 10ull * 3600 * 48000;  // 10:00:00:00 at 48 kHz
  writeBextFile(in, timeReference);

  NormalizeRequest request;
  request.input = in;
  request.output = dir.file("plain.wav");
  const NormalizeResult plain = NormalizeFile(request);
  ASSERT_TRUE(plain.ok) << plain.message;
  EXPECT_FALSE(plain.rf64);
  request.output = dir.file("forced.wav");
  request.forceRf64 = true;
  const NormalizeResult forced = NormalizeFile(request);
  ASSERT_TRUE(forced.ok) << forced.message;
  EXPECT_TRUE(forced.rf64);

  const std::array<char, 4> riff{'R', 'I', 'F', 'F'}, rf64{'R', 'F', '6', '4'}, ds64{'d', 's', '6', '4'};
  EXPECT_EQ(fourcc(dir.file("plain.wav"), 0), riff);
  EXPECT_EQ(fourcc(dir.file("forced.wav"), 0), rf64);
  EXPECT_EQ(fourcc(dir.file("forced.wav"), 12), ds64);  // the first chunk after "RF64", size, "WAVE"

  AudioFileReader a, b;
  ASSERT_TRUE(a.open(dir.file("plain.wav")));
  ASSERT_TRUE(b.open(dir.file("forced.wav")));
  EXPECT_EQ(b.kind(), AudioFileReader::KindWav);
  EXPECT_EQ(b.totalFrames(), a.totalFrames());
  EXPECT_EQ(b.channels(), 2u);
  EXPECT_EQ(b.sampleRate(), 48000u);
  EXPECT_EQ(b.bitsPerSample(), 16);
  EXPECT_EQ(b.timeReference(), timeReference);
  ASSERT_TRUE(a.prepare(4096));
  ASSERT_TRUE(b.prepare(4096));
  uint64_t frames = 0;
  for (;;) {
    ASSERT_TRUE(a.readBlock());
    ASSERT_TRUE(b.readBlock());
    ASSERT_EQ(a.framesRead(), b.framesRead());
    if (a.framesRead() == 0) break;
    for (int i = 0; i < a.framesRead() * 2; ++i)
      ASSERT_EQ(a.buffer()[i], b.buffer()[i]) << "sample " << frames * 2 + static_cast<uint64_t>(i);
    frames += static_cast<uint64_t>(a.framesRead());
  }
  EXPECT_EQ(frames, 48000u * 4);
  EXPECT_DOUBLE_EQ(forced.resultIntegrated, plain.resultIntegrated);
  EXPECT_DOUBLE_EQ(forced.resultTruePeak, plain.resultTruePeak);
  EXPECT_DOUBLE_EQ(measure(dir.file("forced.wav")), measure(dir.file("plain.wav")));
}

TEST(WavNormalizer, UnicodeNamesAreReadWrittenAndReplaced) {
  test::TempDir dir;
  const std::string in = dir.file(
      "Pr\xc3\xbc"
      "fung \xe9\x9f\xb3.wav");                                   // "Prüfung 音.wav"
  const std::string out = dir.file("Norm\xc3\xa9 \xce\xa9.wav");  // "Normé Ω.wav"
  writeBextFile(in, 48000);
  NormalizeRequest request;
  request.input = in;
  request.output = out;
  request.targetLufs = -23.0;
  ASSERT_TRUE(NormalizeFile(request).ok);
  // The second run asks before it replaces the file of that name.
  int asked = 0;
  request.targetLufs = -30.0;
  request.confirmReplace = [&](const std::string&) { return ++asked > 0; };
  const NormalizeResult again = NormalizeFile(request);
  ASSERT_TRUE(again.ok) << again.message;
  EXPECT_EQ(asked, 1);
  EXPECT_NEAR(measure(out), -30.0, 0.05);
  // The folder holds the two names as written, and no temporary file.
  std::vector<std::string> names;
  const std::filesystem::path folder(std::u8string(dir.path().begin(), dir.path().end()));
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::u8string name = entry.path().filename().u8string();
    names.emplace_back(name.begin(), name.end());
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"Norm\xc3\xa9 \xce\xa9.wav",
                                             "Pr\xc3\xbc"
                                             "fung \xe9\x9f\xb3.wav"}));
}

}  // namespace
}  // namespace velorum
