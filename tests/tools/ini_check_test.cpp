// The tool's prediction of the library's ini writer, compared with what the
// writer really makes of each file, quirks included: if the two ever part,
// `kt ini set` would judge a write by the wrong result.
#include "tools/kt/ini_check.h"

#include <stdlib.h>

#include <optional>
#include <string>

#include "kt_frame.h"
#include "support/kt_test.h"

namespace kt::test {
namespace {

TEST(IniCheck, PredictsTheLibraryWriterExactly) {
  struct Case {
    std::optional<std::string> content;
    const char* section;
    const char* key;
  };
  const std::string crlf = "[commun]\r\nkey=1\r\n";
  const Case cases[] = {
      {std::nullopt, "commun", "key"},
      {"", "commun", "key"},
      {"[commun]\nkey=1\n", "commun", "key"},
      {"[commun]\nkey=1\n\n[autre]\nx=1\n", "commun", "new"},
      {"[commun]\nkey=1\n", "autre", "key"},
      {"[commun]\nkey=1\nlast=2", "commun", "other"},
      {"[commun]\nkey=1\nx=\xFF\ny=2\n", "commun", "key"},
      {"[commun]\nrepertoiretravail=/w\n", "commun", "rep"},
      {crlf, "commun", "key"},
      {"[Commun]\nkey=1\n", "commun", "key"},
      {"; comment\n[commun]\n\nkey=1\n", "commun", "key"},
      {"[commun]", "commun", "key"},
      // The writer takes a line as a C text: after a NUL it is "empty".
      {std::string("[commun]\n\0x=1\nkey=1\n", 19), "commun", "key"},
      {"\n\n[commun]\nkey=1\n[commun]\nkey=2\n", "commun", "key"},
  };
  ScratchDir dir;
  setenv("KT_PREFERENCES_DIR", dir.path().c_str(), 1);
  const std::string path = dir.File("f.ini");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.content.value_or("(no file)"));
    std::filesystem::remove(path);
    if (c.content) WriteFile(path, *c.content);
    ASSERT_EQ(KT_bEcrireChaineIni(c.section, c.key, "value", path.c_str()), 1);
    EXPECT_EQ(kt::tool::PredictIniWrite(c.content, c.section, c.key, "value").output,
              ReadFile(path));
  }
  unsetenv("KT_PREFERENCES_DIR");
}

TEST(IniCheck, NamesWhatWouldBeLost) {
  const auto reader = [](const std::string& content, const std::string&,
                         const std::string& key) -> std::optional<std::string> {
    const std::size_t at = content.find("\n" + key + "=");
    if (at == std::string::npos) return std::nullopt;
    const std::size_t start = at + key.size() + 2;
    return content.substr(start, content.find('\n', start) - start);
  };
  EXPECT_EQ(kt::tool::CheckIniWrite(std::string("[commun]\nkey=1\n"), "commun", "key", "2", reader),
            std::nullopt);
  EXPECT_EQ(kt::tool::CheckIniWrite(std::string("[commun]\nkey=1\nz=\xFF\na\nb\n"), "commun", "key",
                                    "2", reader),
            "line 3 holds a byte 0xFF: the writer stops copying there and would drop it and the "
            "2 lines after it");
  // A reader that does not find the value makes the write refused too.
  EXPECT_EQ(kt::tool::CheckIniWrite(std::nullopt, "commun", "key", "2",
                                    [](const std::string&, const std::string&,
                                       const std::string&) -> std::optional<std::string> {
                                      return std::string("other");
                                    }),
            "after the write, readers would get \"other\" instead of \"2\"");
}

}  // namespace
}  // namespace kt::test
