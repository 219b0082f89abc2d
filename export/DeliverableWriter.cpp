#include "export/DeliverableWriter.h"

#include <cstdio>

#include "analysis/Utf8Path.h"
#include "export/RiffChunks.h"

namespace velorum {
namespace {

// The sample format of the copy: the source's depth where it can be written.
void ChooseDepth(int32_t sourceBits, bool sourceFloat, bool floatOutput, WavSampleFormat& f) {
  f.isFloat = floatOutput || sourceFloat;
  if (f.isFloat)
    f.bits = 32;
  else if (sourceBits > 0 && sourceBits <= 16)
    f.bits = 16;
  else if (sourceBits == 32)
    f.bits = 32;
  else
    f.bits = 24;
}

// Chunks of a WAV source that the gain leaves valid; the bext chunk made
// ready for its loudness fields (a new one when the source has none).
void CarryChunks(const std::string& path, const WavStructure& wav, const std::string& description,
                 uint64_t timeReference, DeliverablePlan& plan) {
  bool haveBext = false;
  for (const RiffChunk& chunk : wav.chunks) {
    if (ChunkInvalidatedByGain(chunk.id)) continue;
    WavChunk copy{chunk.id, {}};
    if (!ReadChunkPayload(path, chunk, copy.payload)) continue;
    const bool bext = chunk.id == MakeChunkId("bext");
    if (bext) {
      if (haveBext) continue;
      haveBext = true;
      SetBextLoudness(copy.payload, BextLoudness{});
    }
    // The bext chunk goes before the audio, where its fields are filled in last.
    (chunk.afterData && !bext ? plan.after : plan.before).push_back(std::move(copy));
  }
  if (!haveBext)
    plan.before.insert(plan.before.begin(),
                       WavChunk{MakeChunkId("bext"), NewBext(description, timeReference)});
}

}  // namespace

bool PlanDeliverable(const SourceFacts& source, Container container, bool floatOutput, bool forceRf64,
                     const std::string& description, DeliverablePlan& plan, std::string& error) {
  plan = DeliverablePlan{};
  plan.container = container;
  plan.source = source.path;
  plan.rf64 = forceRf64;
  WavSampleFormat& f = plan.format;
  f.channels = source.channels;
  f.sampleRate = source.sampleRate;
  WavStructure wav;
  const bool wavSource = SniffContainer(source.path) == Container::Wav &&
                         ReadWavStructure(source.path, wav) && wav.format.channels == source.channels;
  const bool sourceFloat =
      wavSource ? wav.format.isFloat : source.bitsPerSample == 32 && container != Container::Flac;
  if (container == Container::Flac && floatOutput) {
    error = "FLAC holds no floating-point samples: --float needs a WAV or AIFF output.";
    return false;
  }
  ChooseDepth(wavSource ? wav.format.bitsPerSample : source.bitsPerSample,
              sourceFloat && container != Container::Flac, floatOutput, f);
  if (container == Container::Flac && f.bits > 24) f.bits = 24;
  if (container != Container::Wav) return true;

  f.extensible = source.channels > 2 || (wavSource && wav.format.extensible);
  f.channelMask = wavSource && wav.format.extensible ? wav.format.channelMask
                                                     : WavFileWriter::DefaultChannelMask(source.channels);
  if (wavSource) {
    const bool same = (wav.format.isPcm || wav.format.isFloat) && wav.format.isFloat == f.isFloat &&
                      wav.format.bitsPerSample == f.bits;
    if (same) plan.fmt = wav.format.raw;  // every byte of the source's format, mask included
    CarryChunks(source.path, wav, description, source.timeReference, plan);
  } else {
    plan.before.push_back(WavChunk{MakeChunkId("bext"), NewBext(description, source.timeReference)});
  }
  return true;
}

bool DeliverableWriter::Open(const std::string& path, const DeliverablePlan& plan) {
  mPath = path;
  mPlan = &plan;
  if (plan.container == Container::Wav) {
    mWav = std::make_unique<WavFileWriter>();
    if (!mWav->Open(path, plan.format, plan.fmt, plan.before, plan.rf64)) return false;
    mBextOffset = mWav->PayloadOffset(MakeChunkId("bext"));
    return true;
  }
  mSndfile = std::make_unique<SndfileWriter>();
  return mSndfile->Open(path, plan.container, plan.format.channels, static_cast<int>(plan.format.sampleRate),
                        plan.format.bits, plan.format.isFloat, plan.source);
}

bool DeliverableWriter::Write(const float* interleaved, int frames) {
  return mWav ? mWav->Write(interleaved, frames) : mSndfile && mSndfile->Write(interleaved, frames);
}

bool DeliverableWriter::Close() {
  return mWav ? mWav->Close(mPlan->after) : mSndfile && mSndfile->Close();
}

bool DeliverableWriter::FillBextLoudness(const BextLoudness& loudness) {
  if (!mWav || mBextOffset == 0) return true;
  std::FILE* f = OpenFileUtf8(mPath, "r+b");
  if (!f) return false;
  const std::vector<uint8_t> fields = BextLoudnessBytes(loudness);
  bool ok = std::fseek(f, static_cast<long>(mBextOffset + kBextLoudnessOffset), SEEK_SET) == 0 &&
            std::fwrite(fields.data(), 1, fields.size(), f) == fields.size();
  ok = std::fclose(f) == 0 && ok;
  return ok;
}

}  // namespace velorum
