#include "analysis/AudioDecoderMediaFoundation.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
// The Media Foundation headers rely on the Windows and COM headers before them.
// clang-format off
#include <windows.h>
#include <objbase.h>
#include <propidl.h>
#include <mfapi.h>
#include <mferror.h>
#include <mfidl.h>
#include <mfobjects.h>
#include <mfreadwrite.h>
// clang-format on

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <iterator>
#include <new>
#include <numeric>

namespace velorum {
namespace {

// The identifiers this decoder uses, defined here so that neither the GUID
// libraries nor the import libraries of Media Foundation are linked.
constexpr GUID kNullFormat = {0x00000000, 0x0000, 0x0000, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}};
constexpr GUID kMajorType = {0x48eba18e, 0xf8c9, 0x4687, {0xbf, 0x11, 0x0a, 0x74, 0xc9, 0xf9, 0x6a, 0x8f}};
constexpr GUID kSubtype = {0xf7e34c9a, 0x42e8, 0x4714, {0xb7, 0x4b, 0xcb, 0x29, 0xd7, 0x2c, 0x35, 0xe5}};
constexpr GUID kSampleSize = {0xdad3ab78, 0x1990, 0x408b, {0xbc, 0xe2, 0xeb, 0xa6, 0x73, 0xda, 0xcc, 0x10}};
constexpr GUID kChannels = {0x37e48bf5, 0x645e, 0x4c5b, {0x89, 0xde, 0xad, 0xa9, 0xe2, 0x9b, 0x69, 0x6a}};
constexpr GUID kSamplesPerSecond = {
    0x5faeeae7, 0x0290, 0x4c31, {0x9e, 0x8a, 0xc5, 0x34, 0xf6, 0x8d, 0x9d, 0xba}};
constexpr GUID kBitsPerSample = {
    0xf2deb57f, 0x40fa, 0x4764, {0xaa, 0x33, 0xed, 0x4f, 0x2d, 0x1f, 0xf6, 0x69}};
constexpr GUID kDuration = {0x6c990d33, 0xbb8e, 0x477a, {0x85, 0x98, 0x0d, 0x5d, 0x96, 0xfc, 0xd8, 0x8a}};
constexpr GUID kMediaTypeAudio = {
    0x73647561, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
constexpr GUID kAudioFormatPcm = {
    0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
constexpr GUID kAudioFormatFloat = {
    0x00000003, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};

constexpr DWORD kFirstAudioStream = static_cast<DWORD>(MF_SOURCE_READER_FIRST_AUDIO_STREAM);
constexpr DWORD kAllStreams = static_cast<DWORD>(MF_SOURCE_READER_ALL_STREAMS);
constexpr DWORD kMediaSource = static_cast<DWORD>(MF_SOURCE_READER_MEDIASOURCE);
constexpr int64_t kHundredNsPerSecond = 10'000'000;
constexpr uint32_t kMaxChannels = 256;
constexpr uint32_t kMaxSampleRate = 4'000'000;
// Reads that bring neither audio nor the end (stream ticks of a gap) before
// a call gives up.
constexpr int kMaxEmptyReads = 1024;

// The entry points, resolved once per process. A missing library leaves its
// pointers empty and the decoder refuses every file.
struct MediaFoundationApi {
  decltype(&::CoInitializeEx) coInitializeEx = nullptr;
  decltype(&::CoUninitialize) coUninitialize = nullptr;
  decltype(&::PropVariantClear) propVariantClear = nullptr;
  decltype(&::MFStartup) startup = nullptr;
  decltype(&::MFShutdown) shutdown = nullptr;
  decltype(&::MFCreateMediaType) createMediaType = nullptr;
  decltype(&::MFCreateSourceReaderFromURL) createSourceReaderFromUrl = nullptr;

  bool usable() const {
    return coInitializeEx && coUninitialize && propVariantClear && startup && shutdown && createMediaType &&
           createSourceReaderFromUrl;
  }
};

HMODULE loadSystemLibrary(const wchar_t* name) {
  // Only the system folder is searched; Windows without the search flags
  // (7 before its 2011 loader update) answers ERROR_INVALID_PARAMETER.
  HMODULE module = LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (!module && GetLastError() == ERROR_INVALID_PARAMETER) module = LoadLibraryW(name);
  return module;
}

template <typename Function>
void resolve(HMODULE module, const char* name, Function& out) {
  if (!module) return;
  // Through the generic function pointer type, which converts to any other.
  out = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

MediaFoundationApi loadApi() {
  // The libraries stay loaded for the life of the process.
  MediaFoundationApi api;
  const HMODULE ole = loadSystemLibrary(L"ole32.dll");
  const HMODULE platform = loadSystemLibrary(L"mfplat.dll");
  const HMODULE readwrite = loadSystemLibrary(L"mfreadwrite.dll");
  resolve(ole, "CoInitializeEx", api.coInitializeEx);
  resolve(ole, "CoUninitialize", api.coUninitialize);
  resolve(ole, "PropVariantClear", api.propVariantClear);
  resolve(platform, "MFStartup", api.startup);
  resolve(platform, "MFShutdown", api.shutdown);
  resolve(platform, "MFCreateMediaType", api.createMediaType);
  resolve(readwrite, "MFCreateSourceReaderFromURL", api.createSourceReaderFromUrl);
  return api;
}

const MediaFoundationApi& mediaFoundation() {
  static const MediaFoundationApi api = loadApi();
  return api;
}

// Holds one COM reference and releases it at the end of the scope.
template <typename T>
class ComRef {
 public:
  ComRef() = default;
  ~ComRef() {
    if (ptr_) ptr_->Release();
  }
  ComRef(const ComRef&) = delete;
  ComRef& operator=(const ComRef&) = delete;
  T** put() { return &ptr_; }
  T* get() const { return ptr_; }
  T* operator->() const { return ptr_; }
  explicit operator bool() const { return ptr_ != nullptr; }

 private:
  T* ptr_ = nullptr;
};

bool sameGuid(const GUID& a, const GUID& b) {
  return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}

uint32_t attribute(IMFAttributes* attributes, const GUID& key, uint32_t fallback) {
  UINT32 value = 0;
  return SUCCEEDED(attributes->GetUINT32(key, &value)) ? value : fallback;
}

// A time in 100 ns units as the nearest frame, without overflow for any time.
int64_t hundredNsToFrames(int64_t time, uint32_t rate) {
  const bool negative = time < 0;
  const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(time) : static_cast<uint64_t>(time);
  const uint64_t whole = magnitude / kHundredNsPerSecond;
  const uint64_t part = magnitude % kHundredNsPerSecond;
  const uint64_t frames = whole * rate + (part * rate + kHundredNsPerSecond / 2) / kHundredNsPerSecond;
  const auto signedFrames = static_cast<int64_t>(std::min<uint64_t>(frames, INT64_MAX));
  return negative ? -signedFrames : signedFrames;
}

// Seeks go to frames whose start is a whole number of 100 ns units, so that
// the source cannot round the time to the frame before or after it: every
// multiple of this many frames qualifies (3 at 48 kHz, 441 at 44.1 kHz).
uint64_t exactTimeFrames(uint32_t rate) {
  return rate / std::gcd<uint64_t>(rate, kHundredNsPerSecond);
}

// The start of a frame that exactTimeFrames() divides, in 100 ns units.
int64_t exactFrameTime(uint64_t frame, uint32_t rate) {
  const uint64_t step = exactTimeFrames(rate);
  const uint64_t unitsPerStep = kHundredNsPerSecond / std::gcd<uint64_t>(rate, kHundredNsPerSecond);
  const uint64_t steps = frame / step;
  if (steps > static_cast<uint64_t>(INT64_MAX) / unitsPerStep) return INT64_MAX;
  return static_cast<int64_t>(steps * unitsPerStep);
}

int64_t saturatingSubtract(int64_t a, int64_t b) {
  if (b < 0 && a > INT64_MAX + b) return INT64_MAX;
  if (b > 0 && a < INT64_MIN + b) return INT64_MIN;
  return a - b;
}

}  // namespace

bool AudioDecoderMediaFoundation::available() {
  return mediaFoundation().usable();
}

AudioDecoderMediaFoundation::~AudioDecoderMediaFoundation() {
  release();
}

void AudioDecoderMediaFoundation::release() {
  const MediaFoundationApi& api = mediaFoundation();
  if (currentMediaType_) {
    currentMediaType_->Release();
    currentMediaType_ = nullptr;
  }
  if (sourceReader_) {
    sourceReader_->Release();
    sourceReader_ = nullptr;
  }
  if (mediaFoundationStarted_) {
    api.shutdown();
    mediaFoundationStarted_ = false;
  }
  if (comInitialized_) {
    api.coUninitialize();
    comInitialized_ = false;
  }
  dropCarryOver();
  sampleBuffer_.clear();
  sampleBufferSize_ = 0;
  totalDuration_ = 0;
  bytesPerFrame_ = 0;
  streamPosition = 0;
  endOfStream = false;
  seekPending = false;
  seekTarget = 0;
  firstTimestamp_ = 0;
  firstTimestampKnown_ = false;
}

bool AudioDecoderMediaFoundation::open(const std::string& filePath) {
  try {
    release();
    path = filePath;
    format_ = AudioFormat{};
    truncated_ = false;
    lengthEstimated_ = false;
    if (openReader() && configureStream()) return true;
  } catch (...) {
    // An allocation failed: refused like any other file.
  }
  release();
  return false;
}

bool AudioDecoderMediaFoundation::openReader() {
  const MediaFoundationApi& api = mediaFoundation();
  if (!api.usable() || path.empty() || path.find('\0') != std::string::npos || path.size() > INT_MAX)
    return false;
  // The source reader takes URLs too; only files on disk are decoded here,
  // never a stream that a scheme handler would fetch from the network.
  if (path.find("://") != std::string::npos) return false;
  // UTF-8 to UTF-16; a path that does not fit with its terminator, or that
  // is not valid UTF-8, is refused.
  const int units =
      MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.data(), static_cast<int>(path.size()),
                          widePath_, static_cast<int>(std::size(widePath_)) - 1);
  if (units <= 0) return false;
  widePath_[units] = L'\0';

  // Apartment-threaded, as a host's own threads usually are; the source
  // reader is free-threaded, so reads from another thread need no marshalling.
  const HRESULT com = api.coInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  if (SUCCEEDED(com))
    comInitialized_ = true;
  else if (com != RPC_E_CHANGED_MODE)  // the thread's COM stays as its owner set it up
    return false;
  if (FAILED(api.startup(MF_VERSION, MFSTARTUP_FULL))) return false;
  mediaFoundationStarted_ = true;
  return SUCCEEDED(api.createSourceReaderFromUrl(widePath_, nullptr, &sourceReader_)) && sourceReader_;
}

bool AudioDecoderMediaFoundation::configureStream() {
  const MediaFoundationApi& api = mediaFoundation();
  sourceReader_->SetStreamSelection(kAllStreams, FALSE);
  if (FAILED(sourceReader_->SetStreamSelection(kFirstAudioStream, TRUE))) return false;  // no audio stream
  {
    ComRef<IMFMediaType> native;
    if (FAILED(sourceReader_->GetNativeMediaType(kFirstAudioStream, 0, native.put())) || !native)
      return false;
    const uint32_t bits = attribute(native.get(), kBitsPerSample, 0);
    bitsPerSampleNative = bits > 0 && bits <= 64 ? static_cast<int32_t>(bits) : 16;
  }
  // Floats when the decoder delivers them, else 16-bit integers, else
  // integers of whatever width the decoder chooses.
  bool accepted = false;
  for (const Output wanted : {Output::Float32, Output::Int16, Output::Int32}) {
    ComRef<IMFMediaType> type;
    if (FAILED(api.createMediaType(type.put())) || !type) return false;
    type->SetGUID(kMajorType, kMediaTypeAudio);
    type->SetGUID(kSubtype, wanted == Output::Float32 ? kAudioFormatFloat : kAudioFormatPcm);
    if (wanted != Output::Int32) type->SetUINT32(kBitsPerSample, wanted == Output::Float32 ? 32 : 16);
    if (SUCCEEDED(sourceReader_->SetCurrentMediaType(kFirstAudioStream, nullptr, type.get()))) {
      accepted = true;
      break;
    }
  }
  if (!accepted) return false;
  channelCount = 0;
  sampleRateHz = 0;
  if (!readCurrentType()) return false;
  sourceReader_->SetStreamSelection(kFirstAudioStream, TRUE);
  const uint32_t sampleBytes = attribute(currentMediaType_, kSampleSize, 32);
  sampleBuffer_.assign(std::clamp<uint32_t>(sampleBytes, 2, 1u << 20) / 2, 0);

  PROPVARIANT duration;
  PropVariantInit(&duration);
  if (SUCCEEDED(sourceReader_->GetPresentationAttribute(kMediaSource, kDuration, &duration))) {
    if (duration.vt == VT_UI8 && duration.uhVal.QuadPart <= static_cast<ULONGLONG>(INT64_MAX))
      totalDuration_ = static_cast<int64_t>(duration.uhVal.QuadPart);
    api.propVariantClear(&duration);
  }

  int64_t frames = 0;
  if (totalDuration_ > 0) {
    // The duration, in samples over all channels, truncated; then rounded
    // up to whole frames.
    const double samples =
        std::trunc(static_cast<double>(totalDuration_) / kHundredNsPerSecond * sampleRateHz * channelCount);
    // A damaged duration must not overflow the count.
    frames = static_cast<int64_t>(std::min(std::ceil(samples / channelCount), 0x1p62));
    // A stream that yields no audio at all is refused now; what was
    // decoded to find out waits in the carry-over store.
    while (carryOver.size() == carryOverRead)
      if (!decodeMore()) return false;
  } else {
    frames = countFramesToEnd([this] { return decodeMore(); });
    if (frames <= 0 || !seek(0)) return false;
  }
  format_.sampleRate = sampleRateHz;
  format_.channels = channelCount;
  format_.totalFrames = static_cast<uint64_t>(std::max<int64_t>(frames, 0));
  format_.bitsPerSample = -1;
  format_.timeReference = 0;
  lengthEstimated_ = true;
  return true;
}

bool AudioDecoderMediaFoundation::readCurrentType() {
  if (currentMediaType_) {
    currentMediaType_->Release();
    currentMediaType_ = nullptr;
  }
  if (FAILED(sourceReader_->GetCurrentMediaType(kFirstAudioStream, &currentMediaType_)) || !currentMediaType_)
    return false;
  GUID subtype{};
  if (FAILED(currentMediaType_->GetGUID(kSubtype, &subtype))) return false;
  const bool isFloat = sameGuid(subtype, kAudioFormatFloat);
  if (!isFloat && !sameGuid(subtype, kAudioFormatPcm)) return false;
  const uint32_t channels = attribute(currentMediaType_, kChannels, 0);
  const uint32_t rate = attribute(currentMediaType_, kSamplesPerSecond, 0);
  const uint32_t bits = attribute(currentMediaType_, kBitsPerSample, isFloat ? 32 : 16);
  if (channels == 0 || channels > kMaxChannels || rate == 0 || rate > kMaxSampleRate) return false;
  if (isFloat && bits == 32)
    output_ = Output::Float32;
  else if (!isFloat && bits == 16)
    output_ = Output::Int16;
  else if (!isFloat && bits == 24)
    output_ = Output::Int24;
  else if (!isFloat && bits == 32)
    output_ = Output::Int32;
  else
    return false;
  // A stream may change its sample layout, never its channels or rate.
  if ((channelCount != 0 && channels != channelCount) || (sampleRateHz != 0 && rate != sampleRateHz))
    return false;
  channelCount = channels;
  sampleRateHz = rate;
  bytesPerFrame_ = channels * (bits / 8);
  return true;
}

bool AudioDecoderMediaFoundation::decodeMore() {
  if (!sourceReader_ || endOfStream) return false;
  int typeChanges = 0;
  for (int emptyReads = 0; emptyReads < kMaxEmptyReads;) {
    DWORD streamIndex = 0;
    DWORD flags = 0;
    LONGLONG timestamp = 0;
    ComRef<IMFSample> sample;
    const HRESULT hr =
        sourceReader_->ReadSample(kFirstAudioStream, 0, &streamIndex, &flags, &timestamp, sample.put());
    if (FAILED(hr) || (flags & MF_SOURCE_READERF_ERROR)) {
      endOfStream = true;
      return false;
    }
    if (flags & MF_SOURCE_READERF_CURRENTMEDIATYPECHANGED) {
      // Once per sample; a second change in a row ends this call.
      if (++typeChanges > 1) return false;
      if (!readCurrentType()) {
        endOfStream = true;
        return false;
      }
    }
    bool appended = false;
    if (!sample) {
      ++emptyReads;
    } else {
      typeChanges = 0;
      ComRef<IMFMediaBuffer> buffer;
      BYTE* bytes = nullptr;
      DWORD length = 0;
      if (FAILED(sample->ConvertToContiguousBuffer(buffer.put())) || !buffer ||
          FAILED(buffer->Lock(&bytes, nullptr, &length))) {
        endOfStream = true;
        return false;
      }
      const size_t units = (static_cast<size_t>(length) + 1) / 2;
      try {
        if (sampleBuffer_.size() < units) sampleBuffer_.resize(units);
      } catch (...) {
        buffer->Unlock();
        throw;
      }
      if (length > 0) std::memcpy(sampleBuffer_.data(), bytes, length);
      sampleBufferSize_ = units;
      buffer->Unlock();
      appended = appendSample(reinterpret_cast<const uint8_t*>(sampleBuffer_.data()), length, timestamp);
    }
    if (flags & MF_SOURCE_READERF_ENDOFSTREAM) {
      endOfStream = true;
      return appended;
    }
    if (appended) return true;
  }
  return false;
}

bool AudioDecoderMediaFoundation::appendSample(const uint8_t* bytes, size_t byteCount, int64_t timestamp) {
  const size_t frames = bytesPerFrame_ > 0 ? byteCount / bytesPerFrame_ : 0;
  if (frames == 0) return false;
  compactCarryOver();
  const size_t old = carryOver.size();
  const size_t count = frames * channelCount;
  carryOver.resize(old + count);
  float* out = carryOver.data() + old;
  switch (output_) {
    case Output::Float32:
      std::memcpy(out, bytes, count * sizeof(float));
      break;
    case Output::Int16: {
      // 16-bit samples are scaled by the native stream's bit depth (16 when
      // it states none), as the meter always has, so that readings of such
      // files stay what they were.
      const float scale = 1.0f / std::ldexp(1.0f, std::clamp<int32_t>(bitsPerSampleNative, 8, 32) - 1);
      for (size_t i = 0; i < count; ++i) {
        int16_t v = 0;
        std::memcpy(&v, bytes + 2 * i, sizeof v);
        out[i] = static_cast<float>(v) * scale;
      }
      break;
    }
    case Output::Int24:
      for (size_t i = 0; i < count; ++i) {
        const uint8_t* b = bytes + 3 * i;
        // The three little-endian bytes in the top of a 32-bit word keep the sign.
        const uint32_t word = (uint32_t{b[0]} << 8) | (uint32_t{b[1]} << 16) | (uint32_t{b[2]} << 24);
        out[i] = static_cast<float>(static_cast<double>(static_cast<int32_t>(word)) / 2147483648.0);
      }
      break;
    case Output::Int32:
      for (size_t i = 0; i < count; ++i) {
        int32_t v = 0;
        std::memcpy(&v, bytes + 4 * i, sizeof v);
        out[i] = static_cast<float>(static_cast<double>(v) / 2147483648.0);
      }
      break;
  }

  if (!firstTimestampKnown_) {
    firstTimestamp_ = timestamp;
    firstTimestampKnown_ = true;
  }
  if (seekPending) {
    // Frames count from the stream's first time stamp, which some
    // sources place after 0 (an AAC encoder's priming, say).
    const int64_t at = hundredNsToFrames(saturatingSubtract(timestamp, firstTimestamp_), sampleRateHz);
    if (at < seekTarget) {
      // The sample began before the target: drop its front, or all of
      // it and wait for the sample that reaches the target.
      const uint64_t early = static_cast<uint64_t>(seekTarget) - static_cast<uint64_t>(at);
      const size_t drop = static_cast<size_t>(std::min<uint64_t>(frames, early)) * channelCount;
      carryOver.erase(carryOver.begin() + static_cast<std::ptrdiff_t>(old),
                      carryOver.begin() + static_cast<std::ptrdiff_t>(old + drop));
      seekPending = early >= frames;
    } else {
      seekPending = false;
      if (at > seekTarget && at - seekTarget <= static_cast<int64_t>(sampleRateHz) * 60) {
        // It began after the target: fill the gap with silence. A
        // gap longer than a minute is taken for a bad time stamp.
        carryOver.insert(carryOver.begin() + static_cast<std::ptrdiff_t>(old),
                         static_cast<size_t>(at - seekTarget) * channelCount, 0.0f);
      }
    }
  }
  return carryOver.size() > carryOverRead;
}

int64_t AudioDecoderMediaFoundation::read(float* dst, int64_t frames) {
  if (!sourceReader_) return 0;
  return deliverFrames(dst, frames, [this] { return decodeMore(); });
}

bool AudioDecoderMediaFoundation::seek(uint64_t frame) {
  if (!sourceReader_ || sampleRateHz == 0) return false;
  frame = std::min<uint64_t>(frame, INT64_MAX);
  // The source goes to a frame about 100 ms before the target whose time
  // is exact; the frames up to the target are decoded and dropped. The
  // lead lets decoders that need the audio before a point (the overlap of
  // AAC and Opus, MP3's bit reservoir) settle before the target. A stream
  // whose time stamps begin below 0 is entered that much earlier.
  const uint64_t lead = std::min<uint64_t>(frame, sampleRateHz / 10);
  const uint64_t landing = (frame - lead) - (frame - lead) % exactTimeFrames(sampleRateHz);
  int64_t time = exactFrameTime(landing, sampleRateHz);
  if (firstTimestamp_ < 0) time = saturatingSubtract(time, -firstTimestamp_);
  sourceReader_->Flush(kFirstAudioStream);
  PROPVARIANT position;
  PropVariantInit(&position);
  position.vt = VT_I8;
  position.hVal.QuadPart = std::max<int64_t>(time, 0);
  dropCarryOver();
  if (FAILED(sourceReader_->SetCurrentPosition(kNullFormat, position))) {
    // Flushed and not moved: nothing sensible follows.
    endOfStream = true;
    seekPending = false;
    return false;
  }
  endOfStream = false;
  seekPending = true;
  seekTarget = static_cast<int64_t>(frame);
  streamPosition = static_cast<int64_t>(frame);
  return true;
}

}  // namespace velorum
