// Test seams kept inside the library but never exported: forced failures of
// allocations and stream calls, and the reset of every process-wide table.
// In deployment nothing arms a fault, and ShouldFail is one load and a test.
#include <array>

#include "frame/frame_internal.h"

namespace kt::testing {
namespace {

constexpr int kFaultKinds = static_cast<int>(Fault::kCount);

struct FaultState {
  int delay = -1;           // successful calls left before the failure; -1 disarmed
  bool persistent = false;  // keep failing once the delay has run out
  int calls_seen = 0;       // calls since arming
};

std::array<FaultState, kFaultKinds> g_faults{};
bool g_any_armed = false;

void RecomputeAnyArmed() {
  g_any_armed = false;
  for (const FaultState& f : g_faults) g_any_armed = g_any_armed || f.delay >= 0;
}

}  // namespace

void ArmFault(Fault fault, int delay, bool persistent) {
  FaultState& f = g_faults[static_cast<int>(fault)];
  f.delay = delay < 0 ? 0 : delay;
  f.persistent = persistent;
  f.calls_seen = 0;
  g_any_armed = true;
}

void DisarmFault(Fault fault) {
  g_faults[static_cast<int>(fault)].delay = -1;
  RecomputeAnyArmed();
}

void DisarmAllFaults() {
  for (FaultState& f : g_faults) f.delay = -1;
  g_any_armed = false;
}

int FaultCallsSeen(Fault fault) { return g_faults[static_cast<int>(fault)].calls_seen; }

void ResetAll() {
  DisarmAllFaults();
  ResetTraces();
  ResetStartup();
  ResetFileSlots();
  ResetDictionary();
  ResetZones();
}

}  // namespace kt::testing

namespace kt::frame {

bool ShouldFail(testing::Fault fault) noexcept {
  using testing::g_any_armed;
  if (!g_any_armed) return false;
  testing::FaultState& f = testing::g_faults[static_cast<int>(fault)];
  if (f.delay < 0) return false;
  ++f.calls_seen;
  if (f.delay > 0) {
    --f.delay;
    return false;
  }
  if (!f.persistent) testing::DisarmFault(fault);
  return true;
}

}  // namespace kt::frame
