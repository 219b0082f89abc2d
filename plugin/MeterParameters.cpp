#include <initializer_list>

#include "plugin/IPlugBase.h"
#include "plugin/MeterParams.h"

namespace velorum {

const char* HistogramModeName(int mode) {
  switch (mode) {
    case kModeTimeCode:
      return "TIME CODE";
    case kModeSystem:
      return "SYSTEM";
    case kModeContinuous:
      return "CONTINUOUS";
    default:
      return "ELAPSED";
  }
}

void DeclareMeterParams(IPlugBase& plug) {
  auto b = [&](std::initializer_list<int> indices, bool def) {
    for (int i : indices) plug.GetParam(i)->InitBool("", def);
  };
  auto n = [&](std::initializer_list<int> indices, int def, int lo, int hi) {
    for (int i : indices) plug.GetParam(i)->InitInt("", def, lo, hi);
  };
  auto d = [&](std::initializer_list<int> indices, double def, double lo, double hi, double step) {
    for (int i : indices) plug.GetParam(i)->InitDouble("", def, lo, hi, step);
  };

  // Parameters whose values are computed at run time or whose roles are the
  // meter's own (see MeterParams.h).
  n({param::kStandard}, 29, -1, 1000);
  n({param::kGraphSaving}, 1, 0, 2);
  b({param::kResetOnJump}, false);
  b({param::kRestartOnJump}, true);
  b({param::kRestartOnLocate}, false);
  b({param::kPaused}, false);
  n({param::kGenerator}, 0, 0, 2);
  d({param::kShownIntegrated}, -120.0, -120.0, 30.0, 1e-9);

  n({1}, 60, 10, 70);
  d({2}, 24.0, 10.0, 70.0, 0.1);
  n({3}, 1, -1, 72);
  b({4, 6, 7, 8}, true);
  b({5}, false);
  n({9}, 0, -1, 1000);
  n({10}, -23, -70, 30);
  n({11}, -70, -70, 30);
  n({12}, 0, 0, 10);
  d({13}, -1.0, -30.0, 10.0, 0.1);
  n({14}, -10, -10, -8);
  b({15, 16}, false);
  n({17}, -23, -60, 30);
  b({18}, true);
  b({19}, false);
  n({20}, 1000, -1, 1000);
  n({21}, 1, -1, 1000);
  b({22, 23, 24, 25}, false);
  b({26, 27}, true);
  n({28}, 0, -1, 1000);
  n({30}, 0, 0, 1000);
  n({31}, 0, 0, 2);
  d({32, 33, 34, 36}, 30.0, -70.0, 30.0, 0.1);
  d({35, 37}, -70.0, -70.0, 30.0, 0.1);
  d({38, 40, 42}, 100.0, 0.0, 100.0, 0.1);
  d({39, 41, 43}, 0.0, 0.0, 100.0, 0.1);
  b({44}, true);
  b({45, 46, 47}, false);
  n({49}, 2, -1, 1000);
  const double steps50[] = {6.0, 8.0, 10.0, 12.0, 14.0, 16.0};
  for (int i = 0; i < 6; ++i) d({50 + i}, steps50[i], 0.0, 100.0, 0.1);
  b({56, 60}, true);
  n({57, 61}, 2, -1, 1000);
  b({59}, false);
  b({62, 63, 64, 65, 66, 67}, true);
  b({69}, true);
  b({68}, false);
  n({70}, 0, -1, 1000);
  n({71}, 1, -1, 1000);
  n({72}, 7, -1, 1000);
  n({73}, 6, -1, 1000);
  n({74}, 0, -1, 1000);
  b({75}, false);
  n({76}, 2, -1, 1000);
  n({77}, 8, 0, 70);
  b({78, 79}, true);
  n({80}, 0, 0, 1);
  b({81, 83}, false);
  d({82}, 0.0, -60.0, 60.0, 0.1);
  b({85, 86}, true);
  b({87, 90, 91}, false);
  n({89}, 0, -1, 1000);
  d({92}, 30.0, -70.0, 30.0, 0.1);
  d({93}, -70.0, -70.0, 30.0, 0.1);
  d({94}, 100.0, 0.0, 100.0, 0.1);
  d({95}, 0.0, 0.0, 100.0, 0.1);
  n({96}, 2, -1, 1000);
  n({97}, 15, 0, 100);
  n({98}, 0, -1, 1000);
  b({99, 100, 102}, false);
  n({101}, 400, 10, 1500);
  b({103, 108}, true);
  n({105}, 6, -1, 1000);
  n({106, 107}, 0, -1, 1000);
  b({110, 114}, false);
  d({111, 112}, -70.0, -70.0, 30.0, 0.1);
  d({113}, -99.0, -99.0, 30.0, 0.1);
  b({115}, true);
  d({116}, 0.0, 0.0, 30.0, 0.1);
  n({117}, 0, -1, 1000);
  n({118, 119}, 0, 0, 1000);
  b({120, 124, 127, 131, 135, 137, 139, 140}, false);
  n({121, 128, 132}, -24, -60, 0);
  n({122, 123, 129, 130}, 1, 0, 60);
  n({125}, -21, -60, 0);
  n({126}, -27, -60, 0);
  d({133, 134}, 0.5, 0.0, 60.0, 0.5);
  n({136}, 8, 0, 60);
  n({138}, -3, -60, 0);
  b({141}, true);
  n({142}, 2, -1, 1000);
  d({143, 144, 146, 147}, 0.0, 0.0, 100000000.0, 1e-9);
  n({145}, 44100, 11025, 384000);
  b({148, 151, 155, 159}, true);
  n({149}, 0, -1, 999999999);
  n({150}, -1, -1, 999999999);
  b({152, 153, 156}, false);
  n({154}, 0, 0, 1);
  n({157}, 1, -1, 1000);
  n({158}, -1, -1, 1000);
  n({160}, 6, -70, 30);
  n({161}, 70, 10, 80);
  n({162}, -50, -70, 30);
  n({163}, -20, -70, 30);
  n({164}, -17, -70, 30);
  n({165}, -14, -70, 30);
  b({166, 168, 175, 178, 180, 184, 186, 203}, true);
  b({167, 169, 170, 171, 174, 177, 188, 189, 191, 196, 197, 198, 200, 201, 202, 208, 210, 211, 213, 214},
    false);
  n({172, 192}, 0, 0, 1000);
  n({173, 176, 187, 190, 206}, 1, -1, 1000);
  n({179, 182, 199}, 0, -1, 1000);
  n({181, 183}, 0, -1, 1000);  // not in the declaration table: plain settings slots
  n({185}, 18, 1, 48);
  n({193}, 60, 0, 100);
  n({194}, 0, -30, 30);
  n({195}, 100, 0, 200);
  n({204}, 0, -180, 180);
  n({205}, 0, -90, 90);
  n({207}, 0, -60, 30);
  n({209}, 0, 0, 86400);
  n({212}, 2, -1, 1000);
}

}  // namespace velorum
