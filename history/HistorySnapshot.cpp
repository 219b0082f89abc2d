#include "history/HistorySnapshot.h"

#include <algorithm>
#include <vector>

namespace velorum {

namespace {

// Calls f(sourceArray, copyArray, isTenMs) for every array of a history.
template <class Source, class Copy, class F>
void ForEachArray(Source& s, Copy& c, F&& f) {
  f(s.momentary, c.momentary, true);
  f(s.shortTerm, c.shortTerm, true);
  f(s.truePeak, c.truePeak, true);
  f(s.dynamics, c.dynamics, true);
  f(s.stepFlags, c.stepFlags, true);
  f(s.stateFlags, c.stateFlags, true);
  f(s.speechFlags, c.speechFlags, true);
  f(s.momentaryPower, c.momentaryPower, false);
  f(s.shortTermPower, c.shortTermPower, false);
  f(s.integrated, c.integrated, false);
  f(s.loudnessRange, c.loudnessRange, false);
  f(s.blockFlags, c.blockFlags, false);
  f(s.dialogueMomentaryPower, c.dialogueMomentaryPower, false);
  f(s.dialogueShortTermPower, c.dialogueShortTermPower, false);
  f(s.dialogueIntegrated, c.dialogueIntegrated, false);
  f(s.dialogueRange, c.dialogueRange, false);
  f(s.dialogueFlags, c.dialogueFlags, false);
}

template <class T>
void Grow(std::vector<T>& v, std::size_t need) {
  if (v.capacity() >= need) return;
  v.reserve(std::max(need, v.capacity() + v.capacity() / 2));
}

}  // namespace

void HistorySnapshot::Start(MeasurementHistory& copy) {
  const MeasurementHistory empty;
  ForEachArray(empty, copy, [](const auto&, auto& c, bool) { c.clear(); });
}

void HistorySnapshot::Reserve(const Progress& p, MeasurementHistory& copy) {
  const MeasurementHistory empty;
  ForEachArray(empty, copy, [&](const auto&, auto& c, bool tenMs) {
    const std::size_t known = tenMs ? p.known10 : p.known100;
    const std::size_t slice = tenMs ? kSlice10 : kSlice100;
    const std::size_t headroom = tenMs ? p.headroom10 : p.headroom10 / 10;
    Grow(c, std::max(known, c.size()) + slice + headroom);
  });
}

bool HistorySnapshot::Short(const MeasurementHistory& live, std::size_t headroom10) {
  bool isShort = false;
  ForEachArray(live, live, [&](const auto& a, const auto&, bool tenMs) {
    isShort = isShort || a.capacity() - a.size() < (tenMs ? headroom10 : headroom10 / 10);
  });
  return isShort;
}

void HistorySnapshot::SwapArrays(MeasurementHistory& live, MeasurementHistory& larger) {
  ForEachArray(live, larger, [](auto& a, auto& b, bool) { a.swap(b); });
}

bool HistorySnapshot::CopySlice(const MeasurementHistory& source, MeasurementHistory& copy, Progress& p) {
  ++p.stats.holds;
  bool restart = p.started && source.generation != p.generation;
  ForEachArray(source, copy,
               [&](const auto& s, const auto& c, bool) { restart = restart || s.size() < c.size(); });
  if (restart) {
    ++p.stats.restarts;
    Start(copy);
  }
  p.started = true;
  p.generation = source.generation;
  bool complete = true;
  ForEachArray(source, copy, [&](const auto& s, auto& c, bool tenMs) {
    const std::size_t slice = tenMs ? kSlice10 : kSlice100;
    // Never more than the room reserved outside the mutex.
    const std::size_t n = std::min({slice, s.size() - c.size(), c.capacity() - c.size()});
    c.insert(c.end(), s.begin() + static_cast<std::ptrdiff_t>(c.size()),
             s.begin() + static_cast<std::ptrdiff_t>(c.size() + n));
    p.stats.largestSlice = std::max(p.stats.largestSlice, n);
    complete = complete && c.size() == s.size();
  });
  p.known10 = source.Size10();
  p.known100 = source.Size100();
  if (!complete) return false;
  copy.start10 = source.start10;
  copy.start100 = source.start100;
  copy.startKnown = source.startKnown;
  copy.timelineMode = source.timelineMode;
  copy.end10 = source.end10;
  copy.end100 = source.end100;
  copy.current100 = source.current100;
  copy.generation = source.generation;
  return true;
}

}  // namespace velorum
