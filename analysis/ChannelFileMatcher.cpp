#include "analysis/ChannelFileMatcher.h"

#include <algorithm>
#include <cctype>

#include "engine/ChannelLayouts.h"

namespace velorum {
namespace {

std::string upper(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return s;
}

bool suffixNames(const std::string& suffix, const char* channelName) {
  const std::string s = upper(suffix);
  const std::string n = upper(channelName);
  if (s.empty()) return false;
  if (s == n) return true;
  // Common spellings of other tools for the same positions.
  if (n == "LFE" || n == "LFE1") return s == "LFE" || s == "LFE1" || s == "SUB" || s == "SW";
  if (n == "M") return s == "C" || s == "MONO";
  if (n == "LRS") return s == "LSR";
  if (n == "RRS") return s == "RSR";
  return false;
}

// Assigns files to the channels of one layout; returns false when they can't be.
bool assign(const std::vector<std::string>& paths, const ChannelLayout& layout, bool strict,
            ChannelFileMatch& out) {
  const size_t count = static_cast<size_t>(layout.channelCount);
  if (paths.size() != count) return false;
  out.paths.assign(count, std::string());
  out.names.clear();
  for (size_t c = 0; c < count; ++c) out.names.emplace_back(layout.channelNames[c]);
  std::vector<const std::string*> unmatched;
  for (const std::string& p : paths) {
    const std::string suffix = channelSuffix(p);
    size_t channel = count;
    for (size_t c = 0; c < count; ++c)
      if (suffixNames(suffix, layout.channelNames[c])) {
        channel = c;
        break;
      }
    if (channel == count) {
      if (strict) return false;
      unmatched.push_back(&p);
      continue;
    }
    if (!out.paths[channel].empty()) return false;  // two files claim the same channel
    out.paths[channel] = p;
  }
  size_t next = 0;
  for (size_t c = 0; c < count && next < unmatched.size(); ++c)
    if (out.paths[c].empty()) out.paths[c] = *unmatched[next++];
  return true;
}

}  // namespace

std::string channelSuffix(const std::string& path) {
  const size_t slash = path.find_last_of("/\\");
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const size_t dot = name.find_last_of('.');
  if (dot != std::string::npos && dot > 0) name.resize(dot);
  const size_t sep = name.find_last_of("._- ");
  if (sep == std::string::npos) return std::string();
  return name.substr(sep + 1);
}

ChannelFileMatch matchChannelFiles(const std::vector<std::string>& paths, uint32_t layoutIndex, bool strict) {
  ChannelFileMatch match;
  if (paths.empty()) return match;
  const int count = static_cast<int>(paths.size());
  if (layoutIndex == 0xFFFFFFFFu) {
    for (int i = 0; i < LayoutCount(); ++i) {
      const ChannelLayout& layout = LayoutAt(i);
      if (layout.channelCount == count && assign(paths, layout, true, match)) {
        match.ok = true;
        match.layoutIndex = static_cast<uint32_t>(i);
        return match;
      }
    }
    if (strict) return match;
    layoutIndex = static_cast<uint32_t>(LayoutForChannelCount(count));
  }
  if (layoutIndex >= static_cast<uint32_t>(LayoutCount())) return match;
  match.ok = assign(paths, LayoutAt(static_cast<int>(layoutIndex)), strict, match);
  match.layoutIndex = layoutIndex;
  return match;
}

}  // namespace velorum
