// Runs the built kt binary as a separate process and collects its exit
// status and both outputs.
#ifndef KT_TESTS_TOOLS_RUN_KT_H_
#define KT_TESTS_TOOLS_RUN_KT_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/kt_test.h"

namespace kt::test {

struct KtRun {
  int status = -1;  // exit status; 128 + signal number when killed
  std::string out;
  std::string err;
};

// The kt under test: $KT_TOOL, else the one installed in the build tree's
// scratch prefix, else the built one.
std::string ToolPath();

// Standard input's bytes (none: /dev/null), and a file for standard output
// instead of the run's `out`.
struct KtStreams {
  std::string stdin_text;
  std::string stdout_path;
};

// Runs kt with `args` in directory `cwd`, with the environment of the tests
// changed by `env` (an empty value removes the variable).
KtRun RunKt(const std::vector<std::string>& args, const std::string& cwd,
            const std::map<std::string, std::string>& env = {}, const KtStreams& streams = {});

// The source tree, for the sample dictionary and the development keys.
std::string SourcePath(const std::string& relative);

// A scratch directory to run kt in, and the sample dictionary compiled on
// demand.
class KtTool : public ::testing::Test {
 protected:
  KtRun Run(const std::vector<std::string>& args,
            const std::map<std::string, std::string>& env = {}, const KtStreams& streams = {}) {
    return RunKt(args, dir_.path().string(), env, streams);
  }
  std::string File(const std::string& name) const { return dir_.File(name); }
  // Compiles the sample dictionary into `name` in the scratch directory.
  void CompileSample(const std::string& name, const std::vector<std::string>& more = {}) {
    std::vector<std::string> args = {"tables", "compile", SourcePath(kSample), "-o", name};
    args.insert(args.end(), more.begin(), more.end());
    const KtRun run = Run(args);
    ASSERT_EQ(run.status, 0) << run.err;
  }

  static constexpr const char* kSample = "tests/data/sample_dictionary.txt";
  ScratchDir dir_;
};

}  // namespace kt::test

#endif  // KT_TESTS_TOOLS_RUN_KT_H_
