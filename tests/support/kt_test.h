// Shared test helpers: a fixture that clears the library's process-wide
// tables around each test, scratch directories, file helpers and a trace
// capture that returns exactly what one operation wrote to the trace file.
#ifndef KT_TESTS_SUPPORT_KT_TEST_H_
#define KT_TESTS_SUPPORT_KT_TEST_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace kt::test {

// Clears zones, file slots, traces, dictionary and armed faults before and
// after each test.
class KtTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

// A fresh directory, removed with its contents when the object goes.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::string File(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);
std::vector<std::uint8_t> Bytes(std::initializer_list<int> values);

// Activates tracing into a scratch file for the given sub-modules of module 1
// at `level`, runs `operation`, stops tracing and returns the lines written
// between the "### DEBUT TRACE ###" header and the "### FIN TRACE ###" footer.
std::string CaptureTrace(std::initializer_list<std::uint16_t> sub_modules, std::uint8_t level,
                         const std::function<void()>& operation);

}  // namespace kt::test

#endif  // KT_TESTS_SUPPORT_KT_TEST_H_
