#include "tools/kt/ini_check.h"

#include <cctype>
#include <vector>

#include "tools/kt/output.h"

namespace kt::tool {
namespace {

// The writer's line reader: bytes up to a line feed; the end of the file or
// a byte 0xFF before one ends the copy for good.
class WriterLines {
 public:
  explicit WriterLines(const std::string& text) : text_(text) {}
  std::optional<std::string> Next() {
    const std::size_t start = at_;
    while (at_ < text_.size()) {
      const char c = text_[at_++];
      if (c == '\n') {
        // The writer handles the line as a C text: a NUL byte ends it.
        const std::string line = text_.substr(start, at_ - 1 - start);
        return line.substr(0, line.find('\0'));
      }
      if (static_cast<unsigned char>(c) == 0xFF) break;
    }
    at_ = text_.size();
    return std::nullopt;
  }

 private:
  const std::string& text_;
  std::size_t at_ = 0;
};

// The file's lines as a reader of text sees them: split at line feeds, a
// last line without one included.
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\n') {
      lines.push_back(text.substr(start, at - start));
      start = at + 1;
    }
  }
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

bool SameIgnoringCase(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (std::toupper(static_cast<unsigned char>(a[i])) !=
        std::toupper(static_cast<unsigned char>(b[i]))) {
      return false;
    }
  }
  return true;
}

// A line shown in a message: cut when long (control bytes are escaped
// where messages are printed).
std::string Shown(const std::string& line) {
  constexpr std::size_t kShown = 60;
  return "\"" + (line.size() > kShown ? line.substr(0, kShown) + "..." : line) + "\"";
}

std::string LineNumber(std::size_t number) { return "line " + std::to_string(number); }

std::optional<std::string> CheckNames(const std::string& section, const std::string& key,
                                      const std::string& value) {
  const auto has_break = [](const std::string& text) {
    return text.find_first_of("\r\n") != std::string::npos;
  };
  if (section.empty()) return "the section name is empty";
  if (has_break(section)) return "the section name holds a line break";
  if (section.find(']') != std::string::npos) {
    return "the section name holds ']', where its header line would end";
  }
  if (section.size() == 1) return "a one-character section name is never found by the reader";
  if (key.empty()) return "the key is empty";
  if (has_break(key)) return "the key holds a line break";
  if (key.find('=') != std::string::npos) return "the key holds '=', where its line would split";
  if (key.size() == 1) return "a one-character key is written but can never be read back";
  const auto first = static_cast<unsigned char>(key[0]);
  if (first == ';' || first == '#' || first == '[') {
    return std::string("the key begins with '") + key[0] +
           "', which makes its line a comment or a section header";
  }
  if (first <= ' ' || first >= 0x80) {
    return "the key begins with a blank or a byte that the reader passes over";
  }
  if (has_break(value)) {
    return "the value holds a line break: it would add lines to the file, and readers "
           "would see only its first part";
  }
  return std::nullopt;
}

// The first line that readers take for "[section]" (case ignored, blanks
// before it skipped, anything after its ']' ignored); 0 when none.
std::size_t ReaderHeader(const std::vector<std::string>& lines, const std::string& section) {
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    std::size_t at = 0;
    while (at < line.size() && (line[at] == ' ' || line[at] == '\t')) ++at;
    if (at == line.size() || line[at] != '[') continue;
    const std::size_t close = line.find_first_of("]\r", at + 1);
    if (close == std::string::npos || line[close] != ']') continue;
    if (SameIgnoringCase(line.substr(at + 1, close - at - 1), section)) return i + 1;
  }
  return 0;
}

}  // namespace

IniPrediction PredictIniWrite(const std::optional<std::string>& content, const std::string& section,
                              const std::string& key, const std::string& value) {
  IniPrediction result;
  const std::string entry = key + "=" + value + "\n";
  if (!content) {
    result.output = "[" + section + "]\n" + entry;
    return result;
  }
  WriterLines lines(*content);
  const auto put = [&](const std::string& line) {
    result.output += line;
    result.output += '\n';
  };
  const std::string header = "[" + section + "]";
  std::optional<std::string> line;
  while ((line = lines.Next())) {
    ++result.lines_read;
    put(*line);
    if (*line == header) break;
  }
  bool done = false;
  if (!line) {
    result.output += "\n" + header + "\n" + entry;
    result.section_appended = true;
    done = true;
  }
  while (!done && (line = lines.Next())) {
    ++result.lines_read;
    if (line->compare(0, key.size(), key) == 0) {
      result.replaced = result.lines_read;
      result.replaced_text = *line;
      result.output += entry;
      done = true;
    } else if (line->empty()) {
      result.output += entry;
      put(*line);
      done = true;
    } else {
      put(*line);
    }
  }
  if (!done) {
    result.output += entry;
  } else {
    while ((line = lines.Next())) {
      ++result.lines_read;
      put(*line);
    }
  }
  result.lines_dropped = Lines(*content).size() - result.lines_read;
  return result;
}

std::optional<std::string> CheckIniWrite(const std::optional<std::string>& content,
                                         const std::string& section, const std::string& key,
                                         const std::string& value, IniReader read_back) {
  if (std::optional<std::string> problem = CheckNames(section, key, value)) return problem;
  const std::vector<std::string> lines = content ? Lines(*content) : std::vector<std::string>{};
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].find('\0') != std::string::npos) {
      return LineNumber(i + 1) + " holds a NUL byte: the writer would cut the line there";
    }
  }
  const IniPrediction prediction = PredictIniWrite(content, section, key, value);
  if (prediction.lines_dropped != 0) {
    const std::size_t first = prediction.lines_read + 1;
    if (lines[first - 1].find('\xFF') != std::string::npos) {
      return LineNumber(first) +
             " holds a byte 0xFF: the writer stops copying there and would drop " +
             (prediction.lines_dropped == 1
                  ? "it"
                  : "it and the " + Plural(prediction.lines_dropped - 1, "line") + " after it");
    }
    return "the last line (" + LineNumber(first) + ", " + Shown(lines[first - 1]) +
           ") has no final line feed: the writer would drop it";
  }
  if (prediction.replaced && prediction.replaced_text.compare(0, key.size() + 1, key + "=") != 0) {
    return LineNumber(*prediction.replaced) + " " + Shown(prediction.replaced_text) +
           " only begins with the key " + key + ": the writer would replace it";
  }
  if (prediction.section_appended) {
    if (const std::size_t header = ReaderHeader(lines, section); header != 0) {
      return LineNumber(header) + " " + Shown(lines[header - 1]) + " is section [" + section +
             "] for readers, but the writer knows only the exact line \"[" + section +
             "]\" (case, blanks and carriage returns count): it would add a second [" + section +
             "] section at the end, which readers may never see";
    }
  }
  const std::optional<std::string> read = read_back(prediction.output, section, key);
  if (!read || *read != value) {
    return "after the write, readers would " +
           (read ? "get " + Shown(*read) : std::string("not find the key")) + " instead of " +
           Shown(value);
  }
  return std::nullopt;
}

}  // namespace kt::tool
