#include "plugin/HostTable.h"

#include <cctype>
#include <string>

namespace velorum {

namespace {

struct HostEntry {
  const char* pattern;  // lower case
  HostCode code;
};

constexpr HostEntry kHosts[] = {
    {"reaper", kHostReaper},
    {"cubase", kHostCubase},
    {"nuendo", kHostNuendo},
    {"live", kHostLive},
    {"fruity", kHostFL},
    {"fl studio", kHostFL},
    {"studio one", kHostStudioOne},
    {"sound forge", kHostSoundForge},
    {"wavelab", kHostWavelab},
    {"bitwig", kHostBitwig},
    {"audition", kHostAudition},
    {"vegas", kHostVegas},
    {"resolve", kHostResolve},
    {"samplitude", kHostSamplitude},
    {"velorum host", kHostHarness},
    {"premiere", kHostPremiere},
};

}  // namespace

HostCode IdentifyHost(std::string_view productString) {
  std::string lower;
  lower.reserve(productString.size());
  for (char c : productString)
    lower.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  for (const HostEntry& h : kHosts) {
    if (lower.find(h.pattern) != std::string::npos) return h.code;
  }
  return kHostUnknown;
}

}  // namespace velorum
