// Host identification: the host's product string, matched against a small
// table of known hosts, gives a host code that switches a few host-specific
// behaviours. Unknown hosts get kHostUnknown and the default behaviour.
#pragma once

#include <string_view>

namespace velorum {

enum HostCode : int {
  kHostUninitialized = -1,
  kHostUnknown = 0,
  kHostReaper = 1,
  kHostCubase = 2,
  kHostNuendo = 3,
  kHostLive = 4,
  kHostFL = 5,
  kHostStudioOne = 6,
  // Hosts that hand more input pins than they fill: only the first two
  // inputs are passed through to the outputs.
  kHostSoundForge = 7,
  kHostWavelab = 8,
  kHostBitwig = 9,
  kHostAudition = 10,
  kHostVegas = 11,
  kHostResolve = 12,
  kHostSamplitude = 13,
  kHostHarness = 20,
  // Video editors whose reported position jitters by up to a second between
  // blocks: the transport tracker allows one more second before it sees a jump.
  kHostPremiere = 36,
};

// Matches a host product string (case-insensitive substring match).
HostCode IdentifyHost(std::string_view productString);

}  // namespace velorum
