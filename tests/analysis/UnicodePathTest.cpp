// File names are UTF-8 text: every decoder, the multi-mono sets and the
// normaliser open names outside ASCII (on Windows through the wide calls), and
// decode them exactly as they decode the same file under a plain name.
#include <gtest/gtest.h>

#include "analysis/AudioFileReader.h"
#include "analysis/AudioFixtures.h"

namespace velorum {
namespace {

namespace fs = std::filesystem;

fs::path u8(const std::string& utf8) {
  return fs::path(std::u8string(utf8.begin(), utf8.end()));
}

// Every frame a reader delivers, with its format; empty when it can't open.
struct Decoded {
  int kind = AudioFileReader::KindNone;
  AudioFormat format;
  std::vector<float> samples;
};

Decoded decode(const std::string& path) {
  Decoded d;
  AudioFileReader reader;
  if (!reader.open(path) || !reader.prepare(4096)) return d;
  d.kind = reader.kind();
  d.format.sampleRate = reader.sampleRate();
  d.format.channels = reader.channels();
  d.format.totalFrames = reader.totalFrames();
  d.format.bitsPerSample = reader.bitsPerSample();
  while (reader.readBlock() && reader.framesRead() > 0)
    d.samples.insert(d.samples.end(), reader.buffer(),
                     reader.buffer() + static_cast<size_t>(reader.framesRead()) * reader.channels());
  return d;
}

// "Mischung Größe 音" and "Ωmega é": Latin-1, Greek and CJK characters.
const std::string kName =
    "Mischung Gr\xc3\xb6\xc3\x9f"
    "e \xe9\x9f\xb3";
const std::string kOtherName = "\xce\xa9mega \xc3\xa9";

TEST(UnicodePaths, EveryDecoderOpensANonAsciiName) {
  test::TempDir dir;
  const std::vector<float> tone = test::programme(2, 48000, 48000 * 2);
  struct Case {
    std::string ext;
    int kind;
  };
  std::vector<Case> cases{{"wav", AudioFileReader::KindWav}, {"flac", AudioFileReader::KindFlac}};
  ASSERT_TRUE(test::writeWav(dir.file("plain.wav"), 2, 48000, tone));
  ASSERT_TRUE(test::writeFile(dir.file("plain.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, tone));
#ifdef VELORUM_LOSSY_FIXTURES
  // MP3 and Ogg Vorbis made by the build with the ffmpeg command.
  for (const char* ext : {"mp3", "ogg"})
    fs::copy_file(u8(std::string(VELORUM_LOSSY_FIXTURES) + "/tone." + ext),
                  u8(dir.file("plain." + std::string(ext))));
  cases.push_back({"mp3", AudioFileReader::KindMp3});
  cases.push_back({"ogg", AudioFileReader::KindVorbis});
#endif
  for (const Case& c : cases) {
    const std::string plain = dir.file("plain." + c.ext);
    const std::string named = dir.file(kName + "." + c.ext);
    fs::copy_file(u8(plain), u8(named));
    ASSERT_TRUE(fs::exists(u8(named))) << c.ext;
    const Decoded a = decode(plain), b = decode(named);
    EXPECT_EQ(a.kind, c.kind) << c.ext;
    EXPECT_EQ(b.kind, c.kind) << c.ext;
    EXPECT_EQ(b.format.sampleRate, 48000u) << c.ext;
    EXPECT_EQ(b.format.channels, 2u) << c.ext;
    EXPECT_EQ(b.format.totalFrames, a.format.totalFrames) << c.ext;
    EXPECT_EQ(b.format.bitsPerSample, a.format.bitsPerSample) << c.ext;
    EXPECT_GT(b.samples.size(), 48000u * 2) << c.ext;
    EXPECT_TRUE(b.samples == a.samples) << c.ext;
  }
}

TEST(UnicodePaths, WrittenNamesAreTheNamesOnDisk) {
  // A file written under a UTF-8 name is found under that name by the
  // standard library's own path conversion, and read back by the reader.
  test::TempDir dir;
  const std::string named = dir.file(kOtherName + ".wav");
  const std::vector<float> tone = test::programme(1, 44100, 44100);
  ASSERT_TRUE(test::writeWav(named, 1, 44100, tone, SF_FORMAT_FLOAT));
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(u8(dir.path()))) {
    const std::u8string n = entry.path().filename().u8string();
    names.emplace_back(n.begin(), n.end());
  }
  EXPECT_EQ(names, std::vector<std::string>{kOtherName + ".wav"});
  const Decoded d = decode(named);
  EXPECT_EQ(d.kind, AudioFileReader::KindWav);
  EXPECT_TRUE(d.samples == tone);
}

TEST(UnicodePaths, MultiMonoSetWithNonAsciiNames) {
  test::TempDir dir;
  const std::vector<float> stereo = test::programme(2, 48000, 48000);
  std::vector<float> left, right;
  for (size_t i = 0; i < stereo.size(); i += 2) {
    left.push_back(stereo[i]);
    right.push_back(stereo[i + 1]);
  }
  const std::string l = dir.file(kName + ".L.wav"), r = dir.file(kName + ".R.wav");
  ASSERT_TRUE(test::writeWav(l, 1, 48000, left, SF_FORMAT_FLOAT));
  ASSERT_TRUE(test::writeWav(r, 1, 48000, right, SF_FORMAT_FLOAT));
  AudioFileReader reader;
  ASSERT_TRUE(reader.openMultiMono({r, l}, 0xFFFFFFFFu, true)) << reader.error();
  EXPECT_EQ(reader.kind(), AudioFileReader::KindMultiMono);
  EXPECT_EQ(reader.channels(), 2u);
  ASSERT_TRUE(reader.prepare(48000));
  ASSERT_TRUE(reader.readBlock());
  ASSERT_EQ(reader.framesRead(), 48000);
  EXPECT_TRUE(std::equal(stereo.begin(), stereo.end(), reader.buffer()));
}

TEST(UnicodePaths, MalformedUtf8NamesAreRefused) {
  test::TempDir dir;
  ASSERT_TRUE(test::writeWav(dir.file("tone.wav"), 1, 48000, test::programme(1, 48000, 4800)));
  // A lone continuation byte, an overlong form and a cut-off sequence.
  for (const std::string& bad :
       {std::string("\x80tone.wav"), std::string("\xc0\xaftone.wav"), std::string("tone\xe9\x9f.wav")}) {
    AudioFileReader reader;
    EXPECT_FALSE(reader.open(dir.file(bad)));
    EXPECT_EQ(reader.error(), AudioFileReader::ErrorMissing);
    EXPECT_EQ(reader.state(), AudioFileReader::StateFailed);
    EXPECT_FALSE(reader.openMultiMono({dir.file(bad), dir.file("tone.wav")}, 0xFFFFFFFFu, false));
  }
}

}  // namespace
}  // namespace velorum
