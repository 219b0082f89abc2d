#include "export/DeliverableFormat.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "analysis/Utf8Path.h"

namespace velorum {
namespace {

std::string LowerExtension(const std::string& path) {
  const size_t slash = path.find_last_of("/\\");
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  std::string ext = path.substr(dot);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

}  // namespace

Container SniffContainer(const std::string& path) {
  std::FILE* f = OpenFileUtf8(path, "rb");
  if (!f) return Container::Other;
  char head[12] = {};
  const size_t got = std::fread(head, 1, sizeof head, f);
  std::fclose(f);
  if (got < 12) return Container::Other;
  const bool riff =
      !std::memcmp(head, "RIFF", 4) || !std::memcmp(head, "RF64", 4) || !std::memcmp(head, "BW64", 4);
  if (riff && !std::memcmp(head + 8, "WAVE", 4)) return Container::Wav;
  if (!std::memcmp(head, "fLaC", 4)) return Container::Flac;
  if (!std::memcmp(head, "FORM", 4) &&
      (!std::memcmp(head + 8, "AIFF", 4) || !std::memcmp(head + 8, "AIFC", 4)))
    return Container::Aiff;
  return Container::Other;
}

Container OutputContainerFor(Container source) {
  return source == Container::Other ? Container::Wav : source;
}

const char* ContainerName(Container container) {
  switch (container) {
    case Container::Wav:
      return "WAV";
    case Container::Flac:
      return "FLAC";
    case Container::Aiff:
      return "AIFF";
    case Container::Other:
      break;
  }
  return "other";
}

const char* DefaultExtension(Container container) {
  switch (container) {
    case Container::Flac:
      return ".flac";
    case Container::Aiff:
      return ".aiff";
    default:
      return ".wav";
  }
}

bool ExtensionFits(Container container, const std::string& path) {
  const std::string ext = LowerExtension(path);
  switch (container) {
    case Container::Wav:
      return ext == ".wav" || ext == ".bwf" || ext == ".rf64";
    case Container::Flac:
      return ext == ".flac";
    case Container::Aiff:
      return ext == ".aif" || ext == ".aiff";
    case Container::Other:
      break;
  }
  return false;
}

std::string OutputNameIn(const std::string& folder, const std::string& input, Container container) {
  const size_t slash = input.find_last_of("/\\");
  std::string name = slash == std::string::npos ? input : input.substr(slash + 1);
  const std::string ext = LowerExtension(name);
  if (!ExtensionFits(container, name)) {
    if (!ext.empty()) name.resize(name.size() - ext.size());
    name += DefaultExtension(container);
  }
  if (folder.empty()) return name;
  const char last = folder.back();
  return folder + (last == '/' || last == '\\' ? "" : "/") + name;
}

}  // namespace velorum
