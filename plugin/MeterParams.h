// Indices of the meter's internal parameters that have a role in code. None
// is published to the host; they are the settings store of the editor, the
// presets and the saved state. DeclareMeterParams() declares all of them.
#pragma once

namespace velorum {

class IPlugBase;

namespace param {
inline constexpr int kCount = 215;
// The first group of the parameter list (indices 0..kCountA-1); the second
// group holds the rest. Both counts travel in the saved state.
inline constexpr int kCountA = 148;

inline constexpr int kStandard = 0;          // selected standards-table item (29 = "DEFAULT")
inline constexpr int kMeasurementReset = 8;  // set to 1 when a pending reset happened
inline constexpr int kGraphSavingKey = 9;    // with kGraphSaving == 2: history saved when 1
inline constexpr int kUpper = 10;
inline constexpr int kLower = 11;
inline constexpr int kGateMode = 12;  // "10 LU", "DIAL ONLY", "DIAL-RELATIVE"
inline constexpr int kTruePeakMax = 13;
inline constexpr int kRelativeGateLU = 14;  // -10 .. -8, follows kRelativeGate
inline constexpr int kUnitLkfs = 15;
inline constexpr int kTarget = 17;
inline constexpr int kChannelConfig = 20;       // layout index, 1000 = automatic
inline constexpr int kConfigInUse = 21;         // layout actually measured
inline constexpr int kGraphSaving = 29;         // 0 never, 1 always (default), 2 when kGraphSavingKey is 1
inline constexpr int kResetOnJump = 48;         // a transport jump or start restarts the measurement
inline constexpr int kAllowConfigSwitch = 56;   // a pending configuration may be applied
inline constexpr int kRestartOnJump = 58;       // restart filters and windows on a jump (default on)
inline constexpr int kABState = 80;             // 0 = A, 1 = B
inline constexpr int kRestartOnLocate = 84;     // restart also in time-code mode relocations (default off)
inline constexpr int kPaused = 88;              // measurement paused by the user
inline constexpr int kRelativeGate = 96;        // index into {-100, -8, -10} LU
inline constexpr int kMinDialogPercent = 97;    // "MIN DIALOG %" of DIAL-RELATIVE gating
inline constexpr int kEcoTruePeak = 99;         // "Eco True Peak Mode"
inline constexpr int kMomentaryWindowMs = 101;  // momentary window length, 400 ms
inline constexpr int kGenerator = 104;  // internal signal: 0 off, 1 1 kHz sine, 2 pink noise 500 Hz-2 kHz
inline constexpr int kShownIntegrated = 109;     // integrated value the readouts show (LUFS)
inline constexpr int kGeneratorKeepsHost = 114;  // while the signal plays, other outputs keep the host audio
inline constexpr int kSampleRate = 145;
inline constexpr int kElapsedSeconds = 147;
inline constexpr int kResetTimeOfDay = 149;  // seconds since midnight of the last reset
inline constexpr int kPendingConfig = 158;   // configuration waiting to be applied, -1 = none
inline constexpr int kHistogramMode = 172;   // 0 "ELAPSED", 1 "TIME CODE", 2 "SYSTEM", 3 "CONTINUOUS"
}  // namespace param

// Histogram modes.
enum HistogramMode : int { kModeElapsed = 0, kModeTimeCode = 1, kModeSystem = 2, kModeContinuous = 3 };
const char* HistogramModeName(int mode);

// Declares every parameter with its kind, default, range and step.
void DeclareMeterParams(IPlugBase& plug);

}  // namespace velorum
