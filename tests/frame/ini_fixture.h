// Fixture of the ini tests: a scratch preferences directory, set through
// $KT_PREFERENCES_DIR for the duration of each test, with file helpers.
#ifndef KT_TESTS_FRAME_INI_FIXTURE_H_
#define KT_TESTS_FRAME_INI_FIXTURE_H_

#include <cstdlib>
#include <optional>
#include <string>

#include "kt_frame.h"
#include "support/kt_test.h"

namespace kt::test {

class IniTest : public KtTest {
 protected:
  void SetUp() override {
    KtTest::SetUp();
    if (const char* old = std::getenv("KT_PREFERENCES_DIR")) saved_ = old;
    setenv("KT_PREFERENCES_DIR", prefs_.path().c_str(), 1);
  }
  void TearDown() override {
    if (saved_) {
      setenv("KT_PREFERENCES_DIR", saved_->c_str(), 1);
    } else {
      unsetenv("KT_PREFERENCES_DIR");
    }
    KtTest::TearDown();
  }

  // A file of the preferences directory, by its relative name.
  std::string Prefs(const std::string& name) const { return prefs_.File(name); }
  void Put(const std::string& content, const std::string& name = "t.ini") {
    WriteFile(Prefs(name), content);
  }
  std::string Contents(const std::string& name = "t.ini") const { return ReadFile(Prefs(name)); }

  // GetIniString on t.ini into a buffer of exactly size + 1 characters, so
  // that the sanitizer sees any write past it.
  std::string Get(const char* section, const char* key, std::uint32_t size = 200,
                  const char* fallback = "?", const char* file = "t.ini") {
    std::string buffer(size + 1, '#');
    const std::uint32_t length = GetIniString(section, key, fallback, buffer.data(), size, file);
    const std::string text = buffer.c_str();
    EXPECT_EQ(length, text.size());
    return text;
  }

  ScratchDir prefs_;

 private:
  std::optional<std::string> saved_;
};

}  // namespace kt::test

#endif  // KT_TESTS_FRAME_INI_FIXTURE_H_
