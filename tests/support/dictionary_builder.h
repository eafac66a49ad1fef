// Builds tables files for tests from the readable dictionary description of
// tests/data (groups, fields and allowed values), through the library's own
// binary file writers.
#ifndef KT_TESTS_SUPPORT_DICTIONARY_BUILDER_H_
#define KT_TESTS_SUPPORT_DICTIONARY_BUILDER_H_

#include <cstdint>
#include <string>
#include <vector>

namespace kt::test {

struct FieldSource {
  char type = 'A';
  std::uint16_t min = 0;
  std::uint16_t max = 0;
  std::int32_t code = 0;
  std::int32_t attribute = 0;
  std::vector<std::string> values;
};

struct GroupSource {
  std::uint16_t id = 0;
  std::vector<FieldSource> fields;
};

struct DictionarySource {
  std::string version = "0100";
  std::string required_version = "0100";
  std::string comment = "dictionary";
  std::vector<GroupSource> groups;
};

// Parses the description; on a malformed line fails the current test and
// returns what was read so far.
DictionarySource ParseDictionary(const std::string& text);
DictionarySource LoadSampleDictionary();

struct TablesFileOptions {
  std::string name = "tablebin.vkt";
  std::uint16_t control = 1;  // CRC
  // Tables in the order written, among "TGROUPE", "TCHAMP", "TVALEUR" and
  // any other name (an empty table).
  std::vector<std::string> order = {"TGROUPE", "TCHAMP", "TVALEUR"};
};

// Writes the tables file into `directory`; returns the first failing status.
std::uint16_t WriteTablesFile(const std::string& directory, const DictionarySource& source,
                              const TablesFileOptions& options = {});

// Writes the tables file into `directory` and loads its three tables into
// the dictionary as start-up does; returns the first failing status.
std::uint16_t LoadDictionary(const std::string& directory, const DictionarySource& source);

// The library never releases the value texts of its dictionary; tests give
// them back before the tables go.
void FreeDictionaryValueTexts();

}  // namespace kt::test

#endif  // KT_TESTS_SUPPORT_DICTIONARY_BUILDER_H_
