// What `kt ini set` checks before it lets the library's writer at a file.
// The writer keeps rules of its own that can lose or hide data: it drops a
// last line without a line feed, stops copying at a byte 0xFF, replaces the
// first line that merely begins with the key, knows a section only by its
// exact "[name]" line, and writes names and values unchecked. The tool
// predicts the writer's result and refuses a write that would change
// anything other than the one line it sets, or that readers would not see.
#ifndef KT_TOOLS_KT_INI_CHECK_H_
#define KT_TOOLS_KT_INI_CHECK_H_

#include <cstddef>
#include <optional>
#include <string>

namespace kt::tool {

// The writer's result on `content` (nullopt: the file does not exist), and
// what it did on the way.
struct IniPrediction {
  std::string output;
  std::size_t lines_read = 0;           // lines the writer copied or replaced
  std::size_t lines_dropped = 0;        // lines of the file it never reached
  std::optional<std::size_t> replaced;  // 1-based line replaced by the new one
  std::string replaced_text;
  bool section_appended = false;  // a new "[section]" went to the end
};
IniPrediction PredictIniWrite(const std::optional<std::string>& content, const std::string& section,
                              const std::string& key, const std::string& value);

// Why the write must not go ahead, naming the line concerned; nullopt when
// it changes only the one line. `read_back` reads a key as the library's
// reader would from a given file content (nullopt when not found).
using IniReader = std::optional<std::string> (*)(const std::string& content,
                                                 const std::string& section,
                                                 const std::string& key);
std::optional<std::string> CheckIniWrite(const std::optional<std::string>& content,
                                         const std::string& section, const std::string& key,
                                         const std::string& value, IniReader read_back);

}  // namespace kt::tool

#endif  // KT_TOOLS_KT_INI_CHECK_H_
