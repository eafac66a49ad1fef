// The readable description of a dictionary and its compiler into a tables
// file (the form "tablebin.vkt" has), through the library's own binary file
// writers. Used by `kt tables compile`, `kt demo` and the test helpers.
//
// Text format, one directive per line; blank lines and lines whose first
// non-blank character is '#' are ignored, leading blanks are allowed:
//
//   tables VERSION REQUIRED COMMENT...  header of the file: its version and the
//                                       lowest library version that may read
//                                       it (4 digits each), then a comment
//   header F3 F4 F6 F7                  optional: the four free fields of the
//                                       header line, exactly 5, 8, 5 and 10
//                                       characters (default: blanks)
//   group ID                            a group, 1 to 65535; its fields follow
//   field TYPE MIN MAX [code=N] [attribute=N]
//                                       a field of the current group: TYPE N
//                                       numeric, A alphanumeric, L letters or
//                                       D date; MIN and MAX bound the
//                                       significant length, 0 to 65535 (MAX 0:
//                                       no bound); code=1 makes an empty field
//                                       fail when MIN is not 0; the attribute
//                                       is carried to callers unchanged
//   value TEXT                          an allowed value of the current field:
//                                       the rest of the line after one blank
//
// A group's fields and a field's values are written as consecutive records,
// so the index ranges of the compiled tables are consecutive by construction.
#ifndef KT_TOOLS_KT_DICTIONARY_SOURCE_H_
#define KT_TOOLS_KT_DICTIONARY_SOURCE_H_

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kt::tool {

struct FieldSource {
  char type = 'A';
  std::uint16_t min = 0;
  std::uint16_t max = 0;
  std::int32_t code = 0;
  std::int32_t attribute = 0;
  std::vector<std::string> values;
  bool operator==(const FieldSource&) const = default;
};

struct GroupSource {
  std::uint16_t id = 0;
  std::vector<FieldSource> fields;
  bool operator==(const GroupSource&) const = default;
};

// Widths of the free header fields 3, 4, 6 and 7.
inline constexpr std::array<std::size_t, 4> kFreeFieldWidths = {5, 8, 5, 10};

struct DictionarySource {
  std::string version = "0100";
  std::string required_version = "0100";
  std::string comment = "dictionary";
  std::array<std::string, 4> free_fields = {std::string(5, ' '), std::string(8, ' '),
                                            std::string(5, ' '), std::string(10, ' ')};
  std::vector<GroupSource> groups;
  bool operator==(const DictionarySource&) const = default;
};

// A problem of the description; line 0 stands for the text as a whole.
struct SourceError {
  int line = 0;
  std::string message;
};

// Parses `text` into *source. Every problem found is appended to *errors
// (reading goes on after a bad line, so that one run shows them all).
// Returns true when there was none.
bool ParseDictionarySource(std::string_view text, DictionarySource* source,
                           std::vector<SourceError>* errors);

// The description of `source`, in the format above; it parses back to an
// equal source.
std::string FormatDictionarySource(const DictionarySource& source);

// The dictionary's three tables, in the order the compiler writes them
// (start-up takes them in any order).
inline const std::vector<std::string> kDictionaryTables = {"TGROUPE", "TCHAMP", "TVALEUR"};

std::uint32_t RecordCount(const DictionarySource& source, std::string_view table);

struct CompileOptions {
  std::uint16_t control = 1;  // KT_CONTROLE_CRC
  std::string key_file;       // private-key file, for control type 2
  // Tables in the order written; a name other than the three gives an empty
  // table of that name.
  std::vector<std::string> tables = kDictionaryTables;
  // Called now and then with the records written so far and their total.
  std::function<void(std::uint64_t done, std::uint64_t total)> progress;
};

// Writes directory/name through the library's binary file writers, closing
// it (CRC or signature) whatever happened. Returns the first failing status.
std::uint16_t CompileTablesFile(const std::string& directory, const std::string& name,
                                const DictionarySource& source, const CompileOptions& options);

}  // namespace kt::tool

#endif  // KT_TOOLS_KT_DICTIONARY_SOURCE_H_
