// SQLite-style fault loops over a whole public operation: the n-th
// allocation, then the n-th stream, descriptor or file-system call, is made
// to fail (once, then from the n-th call on), for n = 1, 2, ... until the
// operation runs untouched. After every run the library must have returned a
// status its header names, given back every block it does not keep by design,
// closed every stream, left each target file as it was or complete, and must
// run the operation again successfully.
#ifndef KT_TESTS_SUPPORT_FAULT_LOOP_H_
#define KT_TESTS_SUPPORT_FAULT_LOOP_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kt::test {

struct FaultedOperation {
  // Puts the target files back as they were before the operation.
  std::function<void()> prepare = [] {};
  // The operation, from rest to rest (files closed, library stopped, blocks
  // handed out freed): its first failing status, KT_OK on success.
  std::function<std::uint16_t()> run;
  // The statuses other than KT_OK that the operation may return.
  std::vector<std::uint16_t> failures;
  // Files that must hold, after each run, either their content from before
  // the operation or that of the untouched run (a missing file counts as a
  // content of its own).
  std::vector<std::string> targets;
  // Scratch files that must be gone after each run, unless their removal
  // was the call that failed, or every call from the n-th on failed.
  std::vector<std::string> leftovers;
};

// Runs the loops; failures are reported through GoogleTest. Returns the
// number of runs made.
int RunFaultLoops(const FaultedOperation& operation);

// True when no block allocated since the process started is unreachable
// (LeakSanitizer's verdict), or when the build has no LeakSanitizer.
bool NoLeaks();

}  // namespace kt::test

#endif  // KT_TESTS_SUPPORT_FAULT_LOOP_H_
