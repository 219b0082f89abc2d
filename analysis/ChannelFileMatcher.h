#pragma once
// Matches the files of a multi-mono set to the channels of a layout by the
// channel suffix of each file name: the token after the last '.', '_', '-' or
// blank of the name without its extension ("mix.L.wav", "mix_Ls.wav",
// "mix-LFE.wav"), compared case-blind against the layout's short channel
// names. A few other tools' spellings are accepted too: "SUB", "SW" and
// "LFE1" for an LFE channel, "C" and "MONO" for the mono channel "M", "Lsr"
// and "Rsr" for the rear surrounds "Lrs" and "Rrs".
//
// With `strict`, every file must carry a distinct suffix of the layout.
// Without it, files with a recognised suffix take their channel and the other
// files fill the remaining channels in the order given. A suffix used twice,
// or a file count that differs from the layout's channel count, always fails.
#include <cstdint>
#include <string>
#include <vector>

namespace velorum {

struct ChannelFileMatch {
  bool ok = false;
  uint32_t layoutIndex = 0;
  std::vector<std::string> paths;  // in channel order
  std::vector<std::string> names;  // short channel names, in channel order
};

// `layoutIndex` 0xFFFFFFFF chooses the layout from the files: the first
// layout with as many channels whose names are exactly the files' suffixes,
// otherwise (not strict) the automatic layout for the file count.
ChannelFileMatch matchChannelFiles(const std::vector<std::string>& paths, uint32_t layoutIndex, bool strict);

// The channel suffix of one path ("" when the name has none).
std::string channelSuffix(const std::string& path);

}  // namespace velorum
