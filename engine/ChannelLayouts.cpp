#include "engine/ChannelLayouts.h"

#include <initializer_list>
#include <vector>

namespace velorum {

namespace {

struct LayoutEntry {
  const char* name;
  std::initializer_list<const char*> channels;
};

// Short names: L R C front left/right/centre; Lc Rc front left/right of
// centre; Lw Rw front wides; LFE (LFE1, LFE2) low-frequency effects;
// S mono surround; Ls Rs surrounds; Lss Rss side surrounds; Lrs Rrs rear
// surrounds; Cs rear centre; Ltf Rtf Ctf top front; Ltm Rtm top middle;
// Ltr Rtr Ctr top rear; Tc top centre; Lts Rts top sides; Lbf Rbf Cbf bottom
// front; M mono.
const LayoutEntry kEntries[] = {
    {"1.0 (M)", {"M"}},
    {"2.0 (L R)", {"L", "R"}},
    {"3.0 (L R C)", {"L", "R", "C"}},
    {"4.0 (L R C S)", {"L", "R", "C", "S"}},
    {"Quad (L R Ls Rs)", {"L", "R", "Ls", "Rs"}},
    {"5.0 (L R C Ls Rs)", {"L", "R", "C", "Ls", "Rs"}},
    {"5.1 (L R C LFE Ls Rs)", {"L", "R", "C", "LFE", "Ls", "Rs"}},
    {"5.1 (L R Ls Rs C LFE)", {"L", "R", "Ls", "Rs", "C", "LFE"}},
    {"6.1 (L R C LFE Ls Rs Cs)", {"L", "R", "C", "LFE", "Ls", "Rs", "Cs"}},
    {"7.1 (L R C LFE Lss Rss Lrs Rrs)", {"L", "R", "C", "LFE", "Lss", "Rss", "Lrs", "Rrs"}},
    {"7.1.2 (L R C LFE Lss Rss Lrs Rrs Ltm Rtm)",
     {"L", "R", "C", "LFE", "Lss", "Rss", "Lrs", "Rrs", "Ltm", "Rtm"}},
    {"7.1.4 (L R C LFE Lss Rss Lrs Rrs Ltf Rtf Ltr Rtr)",
     {"L", "R", "C", "LFE", "Lss", "Rss", "Lrs", "Rrs", "Ltf", "Rtf", "Ltr", "Rtr"}},
    {"9.1.6 (L R C LFE Lss Rss Lrs Rrs Lw Rw Ltf Rtf Ltm Rtm Ltr Rtr)",
     {"L", "R", "C", "LFE", "Lss", "Rss", "Lrs", "Rrs", "Lw", "Rw", "Ltf", "Rtf", "Ltm", "Rtm", "Ltr",
      "Rtr"}},
    {"22.2 (L R C LFE1 Lrs Rrs Lc Rc Cs LFE2 Lss Rss Ltf Rtf Ctf Tc Ltr Rtr Lts Rts Ctr Lbf Rbf Cbf)",
     {"L",   "R",   "C",   "LFE1", "Lrs", "Rrs", "Lc",  "Rc",  "Cs",  "LFE2", "Lss", "Rss",
      "Ltf", "Rtf", "Ctf", "Tc",   "Ltr", "Rtr", "Lts", "Rts", "Ctr", "Lbf",  "Rbf", "Cbf"}},
    {"5.0 (L R Ls Rs C)", {"L", "R", "Ls", "Rs", "C"}},
    {"7.0 (L R C Lss Rss Lrs Rrs)", {"L", "R", "C", "Lss", "Rss", "Lrs", "Rrs"}},
    {"7.1 (L R C LFE Ls Rs Lc Rc)", {"L", "R", "C", "LFE", "Ls", "Rs", "Lc", "Rc"}},
};

std::vector<ChannelLayout> BuildTable() {
  std::vector<ChannelLayout> table;
  int index = 0;
  for (const LayoutEntry& entry : kEntries) {
    ChannelLayout layout;
    layout.index = index++;
    layout.name = entry.name;
    layout.channelNames.fill("");
    int c = 0;
    for (const char* ch : entry.channels) {
      if (c >= kMaxChannels) break;
      layout.channelNames[static_cast<std::size_t>(c)] = ch;
      layout.weights[static_cast<std::size_t>(c)] = WeightForChannelName(ch);
      ++c;
    }
    layout.channelCount = c;
    table.push_back(layout);
  }
  return table;
}

const std::vector<ChannelLayout>& Table() {
  static const std::vector<ChannelLayout> table = BuildTable();
  return table;
}

}  // namespace

double WeightForChannelName(std::string_view n) {
  if (n == "LFE" || n == "LFE1" || n == "LFE2") return 0.0;
  if (n == "S" || n == "Ls" || n == "Rs" || n == "Lss" || n == "Rss" || n == "Lrs" || n == "Rrs" || n == "Cs")
    return kSurroundWeight;
  return 1.0;
}

int LayoutCount() {
  return static_cast<int>(Table().size());
}

const ChannelLayout& LayoutAt(int index) {
  const auto& table = Table();
  if (index < 0 || index >= static_cast<int>(table.size())) return table[1];
  return table[static_cast<std::size_t>(index)];
}

int LayoutForChannelCount(int channels) {
  if (channels < 1) channels = 1;
  const auto& table = Table();
  for (const auto& l : table)
    if (l.channelCount == channels) return l.index;
  int best = -1;
  for (const auto& l : table)
    if (l.channelCount > channels &&
        (best < 0 || l.channelCount < table[static_cast<std::size_t>(best)].channelCount))
      best = l.index;
  if (best >= 0) return best;
  int largest = 0;
  for (const auto& l : table)
    if (l.channelCount > table[static_cast<std::size_t>(largest)].channelCount) largest = l.index;
  return largest;
}

int LayoutByName(std::string_view name) {
  for (const auto& l : Table())
    if (name == l.name) return l.index;
  return -1;
}

int LayoutByChannelNames(const std::string_view* names, int count) {
  if (names == nullptr || count <= 0) return -1;
  for (const auto& l : Table()) {
    if (l.channelCount != count) continue;
    bool same = true;
    for (int c = 0; c < count && same; ++c) same = names[c] == l.channelNames[static_cast<std::size_t>(c)];
    if (same) return l.index;
  }
  return -1;
}

}  // namespace velorum
