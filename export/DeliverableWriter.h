#pragma once
// The file a normalised copy is written to: the plan (container, sample
// format, the source's chunks to carry over) made from the source, and one
// writer for the WAV family and for FLAC/AIFF. After the copy has been
// measured, the bext loudness fields of a WAV copy are filled in place.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "export/BextLoudness.h"
#include "export/DeliverableFormat.h"
#include "export/SndfileWriter.h"
#include "export/WavFileWriter.h"

namespace velorum {

struct SourceFacts {
  std::string path;
  int channels = 0;
  uint32_t sampleRate = 0;
  uint64_t frames = 0;
  int32_t bitsPerSample = -1;  // -1 when the decoder does not say
  uint64_t timeReference = 0;
};

struct DeliverablePlan {
  Container container = Container::Wav;
  WavSampleFormat format;
  std::vector<uint8_t> fmt;  // the source's "fmt " payload when it still fits, else empty
  std::vector<WavChunk> before, after;
  bool rf64 = false;
  std::string source;
};

// False with `error` when the copy can't be made as asked (FLAC has no float
// samples).
bool PlanDeliverable(const SourceFacts& source, Container container, bool floatOutput, bool forceRf64,
                     const std::string& description, DeliverablePlan& plan, std::string& error);

class DeliverableWriter {
 public:
  bool Open(const std::string& path, const DeliverablePlan& plan);
  bool Write(const float* interleaved, int frames);
  bool Close();
  bool Rf64() const { return mWav && mWav->Rf64(); }
  // Writes the loudness fields into the closed file's bext chunk (WAV only;
  // true when there is nothing to write).
  bool FillBextLoudness(const BextLoudness& loudness);

 private:
  std::string mPath;
  const DeliverablePlan* mPlan = nullptr;
  std::unique_ptr<WavFileWriter> mWav;
  std::unique_ptr<SndfileWriter> mSndfile;
  uint64_t mBextOffset = 0;
};

}  // namespace velorum
