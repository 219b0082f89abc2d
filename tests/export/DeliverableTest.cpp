// The normalised copy as a deliverable: loudness and true peak together
// (checked by libebur128), the source's container, format chunk, channel
// mask and metadata kept, the bext loudness fields filled, wrong names and
// damaged sources refused cleanly.
#include <gtest/gtest.h>

#include "NormalizerFixtures.h"
#include "analysis/AudioFileReader.h"
#include "export/BextLoudness.h"
#include "export/DeliverableFormat.h"
#include "export/RiffChunks.h"
#include "export/WavNormalizer.h"

namespace velorum {
namespace {

NormalizeResult Normalize(const std::string& in, const std::string& out, double target, double ceiling,
                          bool limit = false, bool floatOutput = false) {
  NormalizeRequest request;
  request.input = in;
  request.output = out;
  request.targetLufs = target;
  request.truePeakMax = ceiling;
  request.limit = limit;
  request.floatOutput = floatOutput;
  return NormalizeFile(request);
}

TEST(Deliverable, GainStopsAtTheCeilingAndStatesTheShortfall) {
  struct Case {
    const char* what;
    double drive, gain, target, ceiling;
    bool floatOutput, expectLowered;
  };
  const Case cases[] = {
      {"dynamic mix to -14 under -1", 0.0, 0.25, -14.0, -1.0, false, true},
      {"dynamic mix to -23 under -1", 0.0, 0.25, -23.0, -1.0, false, false},
      {"loud master to -7 under -1", 1.5, 0.9, -7.0, -1.0, false, true},
      {"loud master to -16 under -2, float", 1.5, 0.9, -16.0, -2.0, true, false},
      {"dynamic mix to -10 under -3, float", 0.0, 0.25, -10.0, -3.0, true, true},
  };
  test::TempDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string in = dir.file("in.wav"), out = dir.file("out.wav");
    ASSERT_TRUE(test::writeWav(in, 2, 48000, test::Music(2, 48000, 12.0, c.drive, c.gain)));
    const NormalizeResult r = Normalize(in, out, c.target, c.ceiling, false, c.floatOutput);
    ASSERT_TRUE(r.ok) << r.message;
    EXPECT_EQ(r.gainLowered, c.expectLowered);
    const test::PeerReading peer = test::Peer(out);
    EXPECT_LE(peer.truePeakDb, c.ceiling);
    EXPECT_LE(r.resultTruePeak, c.ceiling);
    EXPECT_NEAR(peer.integrated, c.target - r.shortfallLu, 0.1);
    if (c.expectLowered) {
      // The gain stops where the source's true peak meets the ceiling.
      EXPECT_NEAR(r.gainDb, c.ceiling - r.sourceTruePeak, 0.1);
      EXPECT_NEAR(r.shortfallLu, c.target - r.sourceIntegrated - r.gainDb, 0.05);
    } else {
      EXPECT_EQ(r.shortfallLu, 0.0);
    }
  }
}

TEST(Deliverable, LimiterMeetsTargetAndCeilingOnLoudMusic) {
  struct Case {
    double drive, target, ceiling;
  };
  test::TempDir dir;
  for (const Case c : {Case{1.5, -8.0, -1.0}, Case{1.5, -7.0, -1.0}, Case{0.0, -12.0, -2.0}}) {
    SCOPED_TRACE(c.target);
    const std::string in = dir.file("in.wav"), out = dir.file("out.wav");
    ASSERT_TRUE(
        test::writeWav(in, 2, 44100, test::Music(2, 44100, 12.0, c.drive, c.drive > 0.0 ? 0.9 : 0.5, 3)));
    const NormalizeResult r = Normalize(in, out, c.target, c.ceiling, true);
    ASSERT_TRUE(r.ok) << r.message;
    EXPECT_GT(r.limiterReductionDb, 0.0);
    EXPECT_FALSE(r.gainLowered);
    const test::PeerReading peer = test::Peer(out);
    EXPECT_NEAR(peer.integrated, c.target, 0.1);
    EXPECT_NEAR(r.resultTruePeak, c.ceiling, 0.1);
    EXPECT_NEAR(peer.truePeakDb, c.ceiling, 0.2);
    EXPECT_LE(peer.truePeakDb, c.ceiling);
  }
}

// A 5.1 BWF from a recorder: extensible format with its mask, bext version 1
// with originator and coding history, iXML, then the audio, LIST/INFO, cue
// points, axml and a PEAK chunk (which a gain makes wrong).
std::vector<test::RawChunk> SurroundSource() {
  std::vector<uint8_t> bext(602, 0);
  const std::string description = "Take 3, scene 12";
  const std::string originator = "Field Recorder";
  std::copy(description.begin(), description.end(), bext.begin());
  std::copy(originator.begin(), originator.end(), bext.begin() + 256);
  bext[338] = 0x00, bext[339] = 0xB8, bext[340] = 0x4C, bext[341] = 0x0A;  // time reference 172800000
  bext[346] = 1;
  for (size_t i = 0; i < 64; ++i) bext[348 + i] = static_cast<uint8_t>(i * 7 + 1);  // UMID
  const std::vector<uint8_t> history = test::Bytes("A=PCM,F=48000,W=24,M=5.1,T=recorder\r\n");
  bext.insert(bext.end(), history.begin(), history.end());
  std::vector<uint8_t> info = test::Bytes("INFOINAM");
  test::PutLe(info, 9, 4);
  for (uint8_t b : test::Bytes("The Take")) info.push_back(b);
  info.push_back(0);
  info.push_back(0);  // pad
  std::vector<uint8_t> cue;
  test::PutLe(cue, 1, 4);
  for (uint64_t v : {1ull, 48000ull}) test::PutLe(cue, v, 4);
  for (uint8_t b : test::Bytes("data")) cue.push_back(b);
  for (uint64_t v : {0ull, 0ull, 48000ull}) test::PutLe(cue, v, 4);
  std::vector<float> music = test::Music(6, 48000, 6.0, 0.0, 0.3);
  return {{"JUNK", std::vector<uint8_t>(28, 0)},
          {"fmt ", test::ExtensibleFormat(6, 48000, 0x3F)},
          {"bext", bext},
          {"iXML", test::Bytes("<?xml version=\"1.0\"?><BWFXML><SCENE>12</SCENE><TAKE>3</TAKE></BWFXML>")},
          {"data", test::Pcm24(music)},
          {"LIST", info},
          {"cue ", cue},
          {"axml", test::Bytes("<ebuCoreMain/>")},
          {"PEAK", std::vector<uint8_t>(8 + 8 * 6, 1)}};
}

TEST(Deliverable, SurroundBwfKeepsItsMaskAndEveryChunkButTheLoudnessFields) {
  test::TempDir dir;
  const std::string in = dir.file("take3.wav"), out = dir.file("take3 norm.bwf");
  const std::vector<test::RawChunk> source = SurroundSource();
  ASSERT_TRUE(test::WriteRiff(in, source));
  const NormalizeResult r = Normalize(in, out, -24.0, -2.0);
  ASSERT_TRUE(r.ok) << r.message;
  EXPECT_EQ(r.container, Container::Wav);
  EXPECT_EQ(r.bits, 24);

  const std::vector<test::RawChunk> copy = test::ReadRiff(out);
  for (const char* id : {"fmt ", "iXML", "LIST", "cue ", "axml"}) {
    SCOPED_TRACE(id);
    ASSERT_NE(test::Find(copy, id), nullptr);
    EXPECT_EQ(test::Find(copy, id)->payload, test::Find(source, id)->payload);  // byte for byte
  }
  EXPECT_EQ(test::Find(copy, "PEAK"), nullptr);
  WavStructure wav;
  ASSERT_TRUE(ReadWavStructure(out, wav));
  EXPECT_TRUE(wav.format.extensible);
  EXPECT_EQ(wav.format.channelMask, 0x3Fu);

  // bext: every byte kept but the version (now 2) and the five loudness fields.
  std::vector<uint8_t> want = test::Find(source, "bext")->payload;
  const std::vector<uint8_t>& got = test::Find(copy, "bext")->payload;
  ASSERT_EQ(got.size(), want.size());
  want[kBextVersionOffset] = 2;
  std::copy_n(got.begin() + kBextLoudnessOffset, kBextLoudnessBytes, want.begin() + kBextLoudnessOffset);
  EXPECT_EQ(got, want);
  const BextLoudness fields = ReadBextLoudness(got);
  EXPECT_NEAR(fields.integrated, r.resultIntegrated, 0.006);
  EXPECT_NEAR(fields.loudnessRange, r.resultRange, 0.006);
  EXPECT_NEAR(fields.truePeakMax, r.resultTruePeak, 0.006);
  EXPECT_NEAR(fields.momentaryMax, r.resultMomentaryMax, 0.006);
  EXPECT_NEAR(fields.shortTermMax, r.resultShortTermMax, 0.006);
  EXPECT_NEAR(fields.integrated, -24.0, 0.05);
  EXPECT_NEAR(test::Peer(out).integrated, -24.0, 0.1);

  AudioFileReader reader;
  ASSERT_TRUE(reader.open(out));
  EXPECT_EQ(reader.channels(), 6u);
}

TEST(Deliverable, ContainerFamilyIsKeptAndNamesMustFit) {
  test::TempDir dir;
  const std::vector<float> music = test::Music(2, 44100, 5.0, 0.0, 0.3);
  ASSERT_TRUE(test::writeFile(dir.file("a.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 44100, music));
  ASSERT_TRUE(test::writeFile(dir.file("a.aiff"), SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 2, 44100, music));
  ASSERT_TRUE(test::writeFile(dir.file("a.ogg"), SF_FORMAT_OGG | SF_FORMAT_VORBIS, 2, 44100, music));
  struct Case {
    const char *in, *out;
    bool ok;
    Container written;
    bool converted;
    bool floatOutput;
  };
  const Case cases[] = {
      {"a.flac", "b.flac", true, Container::Flac, false, false},
      {"a.aiff", "b.aif", true, Container::Aiff, false, false},
      {"a.ogg", "b.wav", true, Container::Wav, true, false},
      {"a.flac", "c.wav", false, Container::Flac, false, false},  // a FLAC copy under a WAV name
      {"a.ogg", "c.ogg", false, Container::Wav, true, false},     // Ogg can't be written: WAV
      {"a.flac", "c.flac", false, Container::Flac, false, true},  // FLAC has no float samples
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.in) + " -> " + c.out);
    const NormalizeResult r = Normalize(dir.file(c.in), dir.file(c.out), -20.0, -1.0, false, c.floatOutput);
    ASSERT_EQ(r.ok, c.ok) << r.message;
    if (!c.ok) {
      EXPECT_EQ(r.messageFile, dir.file(c.out));
      EXPECT_FALSE(std::filesystem::exists(dir.file(c.out)));
      continue;
    }
    EXPECT_EQ(r.container, c.written);
    EXPECT_EQ(r.convertedToWav, c.converted);
    EXPECT_EQ(SniffContainer(dir.file(c.out)), c.written);
    EXPECT_NEAR(test::Peer(dir.file(c.out)).integrated, -20.0, 0.1);
  }
  for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    EXPECT_EQ(entry.path().string().find(".part"), std::string::npos) << entry.path();
}

// Damaged headers: sizes, ids and format fields changed at random, files cut
// short. Each is normalised or refused with a message; nothing crashes and no
// temporary file stays behind.
TEST(Deliverable, MutatedSourcesAreNormalisedOrRefused) {
  test::TempDir dir;
  std::vector<test::RawChunk> chunks = SurroundSource();
  chunks[1].payload = test::ExtensibleFormat(2, 8000, 0x3);
  chunks[4].payload = test::Pcm24(test::Music(2, 8000, 1.5, 0.0, 0.3));
  const std::string base = dir.file("base.wav");
  ASSERT_TRUE(test::WriteRiff(base, chunks));
  std::ifstream in(base, std::ios::binary);
  const std::vector<char> original((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::mt19937 random(2026);
  int written = 0, refused = 0;
  for (int i = 0; i < 120; ++i) {
    std::vector<char> bytes = original;
    const int edits = 1 + static_cast<int>(random() % 4);
    for (int e = 0; e < edits; ++e) {
      // Mostly the header and chunk heads (the first 800 bytes), sometimes anywhere.
      const size_t span = random() % 4 ? 800 : bytes.size();
      bytes[random() % span] = static_cast<char>(random());
    }
    if (i % 5 == 0) bytes.resize(random() % bytes.size());
    const std::string path = dir.file("m.wav"), out = dir.file("m out.wav");
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    WavStructure wav;
    ReadWavStructure(path, wav);
    std::filesystem::remove(out);
    const NormalizeResult r = Normalize(path, out, -23.0, -1.0);
    if (r.ok) {
      ++written;
      AudioFileReader reader;
      EXPECT_TRUE(reader.open(out)) << i;
    } else {
      ++refused;
      EXPECT_FALSE(r.message.empty());
      EXPECT_FALSE(std::filesystem::exists(out));
    }
    EXPECT_FALSE(std::filesystem::exists(TemporaryNameFor(out))) << i;
  }
  EXPECT_GT(written, 0);
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace velorum
