// The peer of the short-file benchmark: a minimal file tool over libebur128
// (integrated loudness, loudness range and true peak of one WAV or FLAC file,
// read with libsndfile), as a shell loop would run it file after file.
#include <ebur128.h>
#include <sndfile.h>

#include <cstdio>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: ebur128_file FILE\n");
    return 64;
  }
  SF_INFO info{};
  SNDFILE* file = sf_open(argv[1], SFM_READ, &info);
  if (!file) {
    std::fprintf(stderr, "%s: %s\n", argv[1], sf_strerror(nullptr));
    return 2;
  }
  ebur128_state* st =
      ebur128_init(static_cast<unsigned>(info.channels), static_cast<unsigned long>(info.samplerate),
                   EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK);
  constexpr int kFrames = 8192;
  std::vector<float> buffer(static_cast<size_t>(kFrames) * static_cast<size_t>(info.channels));
  sf_count_t n;
  while ((n = sf_readf_float(file, buffer.data(), kFrames)) > 0)
    ebur128_add_frames_float(st, buffer.data(), static_cast<size_t>(n));
  double integrated = 0.0, range = 0.0, peak = 0.0, channelPeak = 0.0;
  ebur128_loudness_global(st, &integrated);
  ebur128_loudness_range(st, &range);
  for (unsigned c = 0; c < static_cast<unsigned>(info.channels); ++c) {
    ebur128_true_peak(st, c, &channelPeak);
    if (channelPeak > peak) peak = channelPeak;
  }
  std::printf("%s: %.2f LUFS, %.2f LU, %.6f\n", argv[1], integrated, range, peak);
  ebur128_destroy(&st);
  sf_close(file);
  return 0;
}
