// A copy of a measurement history that another thread keeps writing, taken a
// slice at a time: the writer's mutex is held only while one slice of every
// array is copied, so a copy of a day of history never holds up the audio
// thread for longer than one slice. Memory for the copy is grown outside the
// mutex.
//
// Between two slices the writer may append steps (they are copied by later
// slices) or, in timeline mode, measure a position again (each entry copied
// holds the value of its position at the time of its slice). A reset or a
// restored history (MeasurementHistory::generation) starts the copy again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "history/MeasurementHistory.h"

namespace velorum {

class HistorySnapshot {
 public:
  // Entries of each 10 ms array copied per hold of the mutex (a tenth as many
  // of each 100 ms array): about 0.7 MB, a fraction of a millisecond.
  static constexpr std::size_t kSlice10 = 32768;
  static constexpr std::size_t kSlice100 = kSlice10 / 10;

  struct Stats {
    std::size_t holds = 0;         // times the mutex was taken
    std::size_t largestSlice = 0;  // most entries of one array copied under one hold
    int restarts = 0;              // copies started again after a reset or restore
  };

  // Copies `source`, guarded by `mutex`, into `copy` (whose arrays are replaced).
  template <class Mutex>
  static Stats Take(const MeasurementHistory& source, Mutex& mutex, MeasurementHistory& copy) {
    Progress progress;
    Start(copy);
    for (;;) {
      Reserve(progress, copy);
      std::lock_guard<Mutex> lock(mutex);
      if (CopySlice(source, copy, progress)) break;
    }
    return progress.stats;
  }

  // Gives the arrays of `live` room for at least `headroom10` more 10 ms
  // steps (a tenth as many blocks) without the writer ever reallocating:
  // when one runs short, a larger copy is made a slice at a time and swapped
  // in under the mutex; the old buffers are freed after it is released.
  // Returns true when the arrays were replaced.
  template <class Mutex>
  static bool GrowAhead(MeasurementHistory& live, Mutex& mutex, std::size_t headroom10) {
    std::size_t size10 = 0;
    {
      std::lock_guard<Mutex> lock(mutex);
      if (!Short(live, headroom10)) return false;
      size10 = live.Size10();
    }
    // Twice the length, so that growing stays rare as the history gets long.
    MeasurementHistory larger;
    Progress progress;
    progress.headroom10 = headroom10 + size10;
    for (;;) {
      Reserve(progress, larger);
      std::lock_guard<Mutex> lock(mutex);
      if (CopySlice(live, larger, progress)) {
        SwapArrays(live, larger);
        break;
      }
    }
    return true;
  }

 private:
  struct Progress {
    bool started = false;
    std::uint64_t generation = 0;
    std::size_t known10 = 0;  // source lengths seen at the last hold
    std::size_t known100 = 0;
    std::size_t headroom10 = 0;  // room to leave beyond the source lengths
    Stats stats;
  };
  static bool Short(const MeasurementHistory& live, std::size_t headroom10);
  static void SwapArrays(MeasurementHistory& live, MeasurementHistory& larger);
  static void Start(MeasurementHistory& copy);
  // Outside the mutex: room for the next slice of every array.
  static void Reserve(const Progress& progress, MeasurementHistory& copy);
  // Under the mutex: copies the next slice; true when the copy is complete.
  static bool CopySlice(const MeasurementHistory& source, MeasurementHistory& copy, Progress& progress);
};

}  // namespace velorum
