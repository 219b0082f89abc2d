#include "engine/TruePeakFilter.h"

namespace velorum {

// ITU-R BS.1770-4 Annex 2, 4x over-sampling interpolation filter (48 taps).
const double kShortTruePeakFilter[kShortTruePeakTaps] = {
    // phase 0
    0.0017089843750,
    0.0109863281250,
    -0.0196533203125,
    0.0332031250000,
    -0.0594482421875,
    0.1373291015625,
    0.9721679687500,
    -0.1022949218750,
    0.0476074218750,
    -0.0266113281250,
    0.0148925781250,
    -0.0083007812500,
    // phase 1
    -0.0291748046875,
    0.0292968750000,
    -0.0517578125000,
    0.0891113281250,
    -0.1665039062500,
    0.4650878906250,
    0.7797851562500,
    -0.2003173828125,
    0.1015625000000,
    -0.0582275390625,
    0.0330810546875,
    -0.0189208984375,
    // phase 2
    -0.0189208984375,
    0.0330810546875,
    -0.0582275390625,
    0.1015625000000,
    -0.2003173828125,
    0.7797851562500,
    0.4650878906250,
    -0.1665039062500,
    0.0891113281250,
    -0.0517578125000,
    0.0292968750000,
    -0.0291748046875,
    // phase 3
    -0.0083007812500,
    0.0148925781250,
    -0.0266113281250,
    0.0476074218750,
    -0.1022949218750,
    0.9721679687500,
    0.1373291015625,
    -0.0594482421875,
    0.0332031250000,
    -0.0196533203125,
    0.0109863281250,
    0.0017089843750,
};

namespace {

TruePeakTables BuildTables() {
  TruePeakTables t{};
  // The long table is already tap-major in natural order; it only needs the
  // gain of the zero-stuffing restored.
  for (int i = 0; i < kLongTruePeakTaps; ++i) t.longTapMajor[i] = kLongTruePeakFilter[i] * 4.0;
  // The published table is phase by phase; transpose to tap-major.
  for (int p = 0; p < kTruePeakPhases; ++p)
    for (int k = 0; k < kShortTapsPerPhase; ++k)
      t.shortTapMajor[k * kTruePeakPhases + p] = kShortTruePeakFilter[p * kShortTapsPerPhase + k];
  return t;
}

}  // namespace

const TruePeakTables& TruePeakFilterTables() {
  static const TruePeakTables tables = BuildTables();
  return tables;
}

}  // namespace velorum
