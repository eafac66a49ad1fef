#include "support/kt_test.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "frame/frame_internal.h"
#include "kt_traces.h"

namespace kt::test {

void KtTest::SetUp() { kt::testing::ResetAll(); }
void KtTest::TearDown() { kt::testing::ResetAll(); }

ScratchDir::ScratchDir() {
  static std::atomic<int> counter{0};
  const char* base = std::getenv("KT_TEST_TMPDIR");
  std::filesystem::path root =
      base != nullptr && base[0] != '\0' ? std::filesystem::path(base)
                                         : std::filesystem::temp_directory_path();
  std::filesystem::create_directories(root);
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = info != nullptr ? std::string(info->test_suite_name()) + "." + info->name()
                                     : std::string("kt");
  // Parameterised tests have '/' in their names ("Prefix/Suite", "Test/0"):
  // kept, it would leave the intermediate directories behind.
  std::replace(name.begin(), name.end(), '/', '_');
  path_ = root / (name + "." + std::to_string(getpid()) + "." + std::to_string(counter++));
  std::filesystem::remove_all(path_);
  std::filesystem::create_directories(path_);
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

std::vector<std::uint8_t> Bytes(std::initializer_list<int> values) {
  std::vector<std::uint8_t> bytes;
  for (int v : values) bytes.push_back(static_cast<std::uint8_t>(v));
  return bytes;
}

std::string CaptureTrace(std::initializer_list<std::uint16_t> sub_modules, std::uint8_t level,
                         const std::function<void()>& operation) {
  ScratchDir dir;
  const std::string path = dir.File("trace.txt");
  for (std::uint16_t sub : sub_modules) {
    EXPECT_EQ(KT_usActiverTrace(path.c_str(), "w", 1, sub, level), 0);
  }
  operation();
  EXPECT_EQ(KT_usActiverTrace(path.c_str(), "w", 1, 1, 0), 0);
  std::string text = ReadFile(path);
  const std::string header = "### DEBUT TRACE ###\n";
  const std::string footer = "### FIN TRACE ###\n\n";
  EXPECT_EQ(text.rfind(header, 0), 0u) << text;
  EXPECT_GE(text.size(), header.size() + footer.size()) << text;
  if (text.size() < header.size() + footer.size()) return text;
  EXPECT_EQ(text.substr(text.size() - footer.size()), footer) << text;
  return text.substr(header.size(), text.size() - header.size() - footer.size());
}

}  // namespace kt::test

// Blocks the library keeps for good by design, which the leak checker would
// otherwise report: the dictionary's value texts (never released), the blocks
// a start keeps (directory copies, header blocks), and the group list and
// field records that format control leaves behind on its early returns.
extern "C" __attribute__((used)) const char* __lsan_default_suppressions() {
  return "leak:usInitTabValeur\n"
         "leak:usIAInitialisation\n"
         "leak:KT_usControlerFormatZoneMemoire\n";
}
