#include "support/fault_loop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "frame/frame_internal.h"
#include "kt_frame.h"
#include "support/kt_test.h"

#if defined(__SANITIZE_ADDRESS__)
#define KT_TEST_HAVE_LSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KT_TEST_HAVE_LSAN 1
#endif
#endif

#ifdef KT_TEST_HAVE_LSAN
extern "C" int __lsan_do_recoverable_leak_check();
#endif

namespace kt::test {
namespace {

using kt::testing::Fault;
using Snapshot = std::vector<std::optional<std::string>>;

Snapshot Take(const std::vector<std::string>& paths) {
  Snapshot files;
  for (const std::string& path : paths) {
    files.push_back(std::filesystem::exists(path) ? std::optional(ReadFile(path)) : std::nullopt);
  }
  return files;
}

std::string Show(const std::optional<std::string>& file) {
  return file ? "\"" + *file + "\"" : "(no file)";
}

// One run with a fault armed; true when the fault fired.
bool RunOnce(const FaultedOperation& op, Fault kind, int delay, bool persistent,
             const Snapshot& before, const Snapshot& complete, std::int64_t kept) {
  SCOPED_TRACE(::testing::Message() << (kind == Fault::kAlloc ? "allocation" : "I/O call")
                                    << " number " << delay + 1
                                    << (persistent ? " and every later one" : "") << " fails");
  op.prepare();
  const std::int64_t memory = kt::frame::AllocatedTotal();
  const int handles = kt::testing::OpenHandles();
  kt::testing::ArmFault(kind, delay, persistent);
  const std::uint16_t status = op.run();
  const bool fired = kt::testing::FaultCallsSeen(kind) > delay;
  kt::testing::DisarmAllFaults();
  const kt::testing::FailedSite site = kt::testing::LastFailedSite();
  SCOPED_TRACE(::testing::Message() << "status 0x" << std::hex << status << std::dec
                                    << ", first failure at " << (site.file ? site.file : "-")
                                    << ":" << site.line);

  if (status != KT_OK) {
    EXPECT_NE(std::find(op.failures.begin(), op.failures.end(), status), op.failures.end())
        << "status 0x" << std::hex << status << " is not one the operation may return";
  }
  EXPECT_LE(std::int64_t{kt::frame::AllocatedTotal()} - memory, kept) << "blocks lost";
  EXPECT_EQ(kt::testing::OpenHandles(), handles) << "streams left open";
  const Snapshot after = Take(op.targets);
  for (std::size_t i = 0; i < after.size(); ++i) {
    if (status == KT_OK) {
      EXPECT_EQ(after[i], complete[i]) << op.targets[i] << " incomplete: " << Show(after[i]);
    } else {
      EXPECT_TRUE(after[i] == before[i] || after[i] == complete[i])
          << op.targets[i] << " neither untouched nor complete: " << Show(after[i]);
    }
  }
  // Removing a scratch file fails only when the removal itself was failed.
  const bool removal_failed = site.file != nullptr && site.fault == Fault::kUnlink;
  for (const std::string& path : op.leftovers) {
    EXPECT_TRUE(persistent || removal_failed || !std::filesystem::exists(path))
        << path << " left behind";
  }
  // The library works again: the same operation, untouched, succeeds.
  op.prepare();
  EXPECT_EQ(op.run(), KT_OK) << "the operation fails once the fault is gone";
  EXPECT_EQ(Take(op.targets), complete);
  return fired;
}

}  // namespace

int RunFaultLoops(const FaultedOperation& op) {
  op.prepare();
  const Snapshot before = Take(op.targets);
  const std::int64_t memory = kt::frame::AllocatedTotal();
  const int handles = kt::testing::OpenHandles();
  EXPECT_EQ(op.run(), KT_OK) << "the untouched operation fails";
  // What a successful run keeps by design (a start's directory copies).
  const std::int64_t kept = kt::frame::AllocatedTotal() - memory;
  EXPECT_EQ(kt::testing::OpenHandles(), handles);
  const Snapshot complete = Take(op.targets);

  int runs = 1;
  constexpr int kLimit = 20000;  // far above any operation's call count
  for (Fault kind : {Fault::kAlloc, Fault::kAnyIo}) {
    for (bool persistent : {false, true}) {
      for (int delay = 0; delay < kLimit; ++delay) {
        ++runs;
        if (!RunOnce(op, kind, delay, persistent, before, complete, kept)) break;
        if (::testing::Test::HasFatalFailure()) return runs;
      }
    }
  }
  EXPECT_TRUE(NoLeaks());
  return runs;
}

bool NoLeaks() {
#ifdef KT_TEST_HAVE_LSAN
  return __lsan_do_recoverable_leak_check() == 0;
#else
  return true;
#endif
}

}  // namespace kt::test
