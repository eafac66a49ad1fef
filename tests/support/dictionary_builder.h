// Builds tables files for tests from the readable dictionary description of
// tests/data (groups, fields and allowed values), with the description
// parser and compiler of the kt tool.
#ifndef KT_TESTS_SUPPORT_DICTIONARY_BUILDER_H_
#define KT_TESTS_SUPPORT_DICTIONARY_BUILDER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/kt/dictionary_source.h"

namespace kt::test {

using FieldSource = kt::tool::FieldSource;
using GroupSource = kt::tool::GroupSource;
using DictionarySource = kt::tool::DictionarySource;

// Parses the description; every problem fails the current test, and what
// was read is returned.
DictionarySource ParseDictionary(const std::string& text);
DictionarySource LoadSampleDictionary();

struct TablesFileOptions {
  std::string name = "tablebin.vkt";
  std::uint16_t control = 1;  // CRC
  // Tables in the order written, among "TGROUPE", "TCHAMP", "TVALEUR" and
  // any other name (an empty table).
  std::vector<std::string> order = kt::tool::kDictionaryTables;
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
