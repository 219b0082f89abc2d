// Mutated manifests from the corpus: bytes flipped, cut, repeated and
// spliced. None may crash the parser (run under AddressSanitizer), and
// whatever it accepts must still keep every bound.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "update/UpdateManifest.h"

namespace velorum {
namespace {

std::vector<std::string> Corpus() {
  std::vector<std::string> seeds;
  for (const auto& e :
       std::filesystem::directory_iterator(std::string(VELORUM_SOURCE_DIR) + "/tests/update/corpus")) {
    std::ifstream in(e.path(), std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    seeds.push_back(text.str());
  }
  std::sort(seeds.begin(), seeds.end());
  return seeds;
}

std::string Mutate(std::string s, std::mt19937& rng, const std::vector<std::string>& seeds) {
  auto pick = [&](size_t n) { return n == 0 ? size_t(0) : size_t(rng() % n); };
  static const char* const kTokens[] = {"{",
                                        "}",
                                        "[",
                                        "]",
                                        "\"",
                                        ",",
                                        ":",
                                        "\\u0000",
                                        "\\ud800",
                                        "null",
                                        "1e999",
                                        "-0",
                                        "\"https://a.example/\"",
                                        "\"99.99.99\"",
                                        "\xff",
                                        "\xc3"};
  for (int edits = 1 + int(rng() % 4); edits > 0; --edits) {
    const size_t at = pick(s.size() + 1);
    switch (rng() % 6) {
      case 0:
        if (!s.empty()) s[pick(s.size())] ^= char(1 << (rng() % 8));
        break;
      case 1:
        s.resize(at);
        break;
      case 2:
        s.insert(at, kTokens[pick(std::size(kTokens))]);
        break;
      case 3:
        if (at < s.size()) s.erase(at, pick(16) + 1);
        break;
      case 4: {
        const std::string& other = seeds[pick(seeds.size())];
        const size_t from = pick(other.size());
        s.insert(at, other.substr(from, pick(64) + 1));
        break;
      }
      default:
        if (at < s.size()) {
          s.insert(at, s.substr(at, std::min<size_t>(s.size() - at, 4096)));  // repeat a tail
        }
    }
  }
  return s;
}

TEST(ManifestMutation, NeverCrashesAndKeepsItsBounds) {
  const std::vector<std::string> seeds = Corpus();
  ASSERT_GE(seeds.size(), 3u);
  std::mt19937 rng(20261124);
  int accepted = 0;
  for (int i = 0; i < 6000; ++i) {
    const std::string text = Mutate(seeds[size_t(i) % seeds.size()], rng, seeds);
    std::string error;
    const std::optional<UpdateManifest> m = ParseUpdateManifest(text, error);
    if (!m) {
      EXPECT_FALSE(error.empty());
      continue;
    }
    ++accepted;
    EXPECT_LE(m->news.size(), kMaxNewsItems);
    if (m->latest) {
      EXPECT_TRUE(IsAllowedUrl(m->download, false));
    }
    EXPECT_LE(m->notes.size(), 2000u);
    for (const NewsItem& n : m->news) {
      EXPECT_LE(n.title.size(), 120u);
      EXPECT_LE(n.text.size(), 1000u);
      EXPECT_TRUE(n.link.empty() || IsAllowedUrl(n.link, false));
    }
  }
  // Some mutations stay valid (a changed letter in a text): both paths ran.
  EXPECT_GT(accepted, 0);
  EXPECT_LT(accepted, 6000);
}

}  // namespace
}  // namespace velorum
