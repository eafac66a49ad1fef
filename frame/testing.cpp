// Test seams kept inside the library but never exported: forced failures of
// allocations and stream calls, and the reset of every process-wide table.
// In deployment nothing arms a fault, and ShouldFail is one load and a test.
#include <array>
#include <cstring>

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

// Distinct sites failed so far; more than the library has.
constexpr int kMaxSites = 512;
std::array<FailedSite, kMaxSites> g_sites{};
int g_site_count = 0;
FailedSite g_last_site{nullptr, 0, 0, Fault::kCount};

void NoteFailedSite(const std::source_location& where, Fault fault) {
  g_last_site = {where.file_name(), static_cast<int>(where.line()),
                 static_cast<int>(where.column()), fault};
  for (int i = 0; i < g_site_count; ++i) {
    const FailedSite& s = g_sites[i];
    if (s.line == static_cast<int>(where.line()) && s.column == static_cast<int>(where.column()) &&
        std::strcmp(s.file, where.file_name()) == 0) {
      return;
    }
  }
  if (g_site_count < kMaxSites) {
    g_sites[g_site_count++] = g_last_site;
  }
}

// Counts the call against one armed kind; true when it is to fail.
bool Consume(FaultState& f, Fault fault) {
  if (f.delay < 0) return false;
  ++f.calls_seen;
  if (f.delay > 0) {
    --f.delay;
    return false;
  }
  if (!f.persistent) DisarmFault(fault);
  return true;
}

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

int FailedSiteCount() { return g_site_count; }
FailedSite FailedSiteAt(int index) { return g_sites[index]; }
FailedSite LastFailedSite() { return g_last_site; }
void ForgetFailedSites() { g_site_count = 0; }

void ResetAll() {
  DisarmAllFaults();
  io::ResetSeam();
  ResetTraces();
  ResetStartup();
  ResetFileSlots();
  ResetDictionary();
  ResetZones();
}

}  // namespace kt::testing

namespace kt::frame {

bool ShouldFail(testing::Fault fault, const std::source_location& site) noexcept {
  using testing::Fault;
  using testing::g_faults;
  if (!testing::g_any_armed) return false;
  // Both the kind's own arming and, for I/O, the any-I/O arming count the call.
  bool fail = testing::Consume(g_faults[static_cast<int>(fault)], fault);
  if (fault != Fault::kAlloc) {
    fail = testing::Consume(g_faults[static_cast<int>(Fault::kAnyIo)], Fault::kAnyIo) || fail;
  }
  if (fail) testing::NoteFailedSite(site, fault);
  return fail;
}

}  // namespace kt::frame
