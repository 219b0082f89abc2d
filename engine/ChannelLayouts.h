// Channel layouts known to the meter: display names, short channel names and
// the per-position amplitude weights of the loudness sum.
#pragma once

#include <array>
#include <string_view>

namespace velorum {

inline constexpr int kMaxChannels = 24;

// Amplitude weight of side and rear surround channels: +1.5 dB, so that the
// channel's power counts 1.41254 times.
inline constexpr double kSurroundWeight = 1.1885022274370185;

struct ChannelLayout {
  int index = 0;                                         // position in the layout table
  const char* name = "";                                 // e.g. "5.1 (L R C LFE Ls Rs)"
  int channelCount = 0;                                  // 1 .. 24
  std::array<const char*, kMaxChannels> channelNames{};  // short names, "" past channelCount
  std::array<double, kMaxChannels> weights{};            // 0.0 past channelCount
};

// Number of layouts in the table; indices run from 0 to LayoutCount() - 1.
int LayoutCount();

// The layout at `index`; an index outside the table yields the stereo layout.
const ChannelLayout& LayoutAt(int index);

// The automatic choice for a channel count: the first layout with exactly that
// many channels, otherwise the first with more, otherwise the largest one.
// Counts below 1 are taken as 1.
int LayoutForChannelCount(int channels);

// Index of the layout with this display name, or -1.
int LayoutByName(std::string_view name);

// Weight of one short channel name by the rule: LFE channels 0.0, side and
// rear surrounds kSurroundWeight, every other channel (fronts, centres,
// heights, bottoms) 1.0.
double WeightForChannelName(std::string_view shortName);

// Index of the layout whose short names match `names` in order (used to match
// multi-mono file sets), or -1.
int LayoutByChannelNames(const std::string_view* names, int count);

}  // namespace velorum
