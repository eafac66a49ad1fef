#include "support/dictionary_builder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "kt_binfiles.h"
#include "kt_dictionary.h"
#include "support/kt_test.h"

namespace kt::test {
namespace {

bool ParseOption(const std::string& word, const char* key, std::int32_t* value) {
  const std::string prefix = std::string(key) + "=";
  if (word.rfind(prefix, 0) != 0) return false;
  *value = static_cast<std::int32_t>(std::stol(word.substr(prefix.size())));
  return true;
}

std::uint16_t WriteRecords(std::uint16_t file, const DictionarySource& source,
                           const std::string& table) {
  std::uint16_t us = KT_OK;
  if (table == "TGROUPE") {
    std::uint16_t first_field = 0;
    for (const GroupSource& group : source.groups) {
      if (us == KT_OK) us = KT_usEcrireUnsignedShort(file, group.id);
      if (us == KT_OK) us = KT_usEcrireUnsignedShort(file, first_field);
      if (us == KT_OK) {
        us = KT_usEcrireUnsignedShort(file, static_cast<std::uint16_t>(group.fields.size()));
      }
      first_field = static_cast<std::uint16_t>(first_field + group.fields.size());
    }
  } else if (table == "TCHAMP") {
    std::uint16_t first_value = 0;
    for (const GroupSource& group : source.groups) {
      for (const FieldSource& field : group.fields) {
        if (us == KT_OK) us = KT_usEcrireSignedLong(file, field.code);
        if (us == KT_OK) us = KT_usEcrireUnsignedShort(file, field.min);
        if (us == KT_OK) us = KT_usEcrireUnsignedShort(file, field.max);
        if (us == KT_OK) us = KT_usEcrireSignedChar(file, static_cast<std::int8_t>(field.type));
        if (us == KT_OK) us = KT_usEcrireSignedLong(file, field.attribute);
        if (us == KT_OK) us = KT_usEcrireUnsignedShort(file, first_value);
        if (us == KT_OK) {
          us = KT_usEcrireUnsignedShort(file, static_cast<std::uint16_t>(field.values.size()));
        }
        first_value = static_cast<std::uint16_t>(first_value + field.values.size());
      }
    }
  } else if (table == "TVALEUR") {
    for (const GroupSource& group : source.groups) {
      for (const FieldSource& field : group.fields) {
        for (const std::string& value : field.values) {
          if (us == KT_OK) us = KT_usEcrireChaineVariable(file, value.c_str());
        }
      }
    }
  }
  return us;
}

std::uint32_t RecordCount(const DictionarySource& source, const std::string& table) {
  std::uint32_t count = 0;
  for (const GroupSource& group : source.groups) {
    if (table == "TGROUPE") ++count;
    for (const FieldSource& field : group.fields) {
      if (table == "TCHAMP") ++count;
      if (table == "TVALEUR") count += static_cast<std::uint32_t>(field.values.size());
    }
  }
  return count;
}

}  // namespace

DictionarySource ParseDictionary(const std::string& text) {
  DictionarySource source;
  std::istringstream lines(text);
  std::string line;
  int number = 0;
  while (std::getline(lines, line)) {
    ++number;
    const std::size_t start = line.find_first_not_of(' ');
    if (start == std::string::npos || line[start] == '#') continue;
    std::istringstream words(line.substr(start));
    std::string directive;
    words >> directive;
    if (directive == "tables") {
      words >> source.version >> source.required_version;
      std::getline(words >> std::ws, source.comment);
    } else if (directive == "group") {
      GroupSource group;
      unsigned id = 0;
      words >> id;
      group.id = static_cast<std::uint16_t>(id);
      source.groups.push_back(group);
    } else if (directive == "field" && !source.groups.empty()) {
      FieldSource field;
      std::string type;
      unsigned min = 0, max = 0;
      words >> type >> min >> max;
      field.type = type.empty() ? ' ' : type[0];
      field.min = static_cast<std::uint16_t>(min);
      field.max = static_cast<std::uint16_t>(max);
      for (std::string word; words >> word;) {
        if (!ParseOption(word, "code", &field.code) &&
            !ParseOption(word, "attribute", &field.attribute)) {
          ADD_FAILURE() << "line " << number << ": unknown option " << word;
        }
      }
      source.groups.back().fields.push_back(field);
    } else if (directive == "value" && !source.groups.empty() &&
               !source.groups.back().fields.empty()) {
      const std::size_t at = line.find("value") + 5;
      source.groups.back().fields.back().values.push_back(
          at < line.size() ? line.substr(at + 1) : std::string());
    } else {
      ADD_FAILURE() << "line " << number << ": cannot read '" << line << "'";
    }
  }
  return source;
}

DictionarySource LoadSampleDictionary() {
  return ParseDictionary(ReadFile(std::string(KT_SOURCE_DIR) + "/tests/data/sample_dictionary.txt"));
}

std::uint16_t WriteTablesFile(const std::string& directory, const DictionarySource& source,
                              const TablesFileOptions& options) {
  EnteteFichier header;
  std::memset(&header, 0, sizeof header);
  std::snprintf(header.cNom, sizeof header.cNom, "%s", options.name.c_str());
  std::snprintf(header.cVersion, sizeof header.cVersion, "%s", source.version.c_str());
  std::memcpy(header.cChamp3, "ABCDE", 5);
  std::memcpy(header.cChamp4, "20261121", 8);
  std::snprintf(header.cVersionRequise, sizeof header.cVersionRequise, "%s",
                source.required_version.c_str());
  std::memcpy(header.cChamp6, "FGHIJ", 5);
  std::memcpy(header.cChamp7, "0123456789", 10);
  std::snprintf(header.cCommentaire, sizeof header.cCommentaire, "%s", source.comment.c_str());

  std::uint16_t file = 0;
  std::uint16_t us = KT_usCreerFichierBinaire(directory.c_str(), options.name.c_str(),
                                              options.control,
                                              reinterpret_cast<const char*>(&header), &file);
  for (const std::string& table : options.order) {
    EnteteTable entete;
    std::memset(&entete, 0, sizeof entete);
    std::memset(entete.cNom, ' ', 10);
    std::memcpy(entete.cNom, table.data(), std::min<std::size_t>(table.size(), 10));
    entete.ulNbEnregistrements = RecordCount(source, table);
    if (us == KT_OK) us = KT_usEcrireEnteteTable(file, &entete);
    if (us == KT_OK) us = WriteRecords(file, source, table);
    if (us == KT_OK) us = KT_usEcrireTaille(file);
  }
  if (file != 0) {
    const std::uint16_t closed = KT_usLibererFichierBinaire(file, nullptr);
    if (us == KT_OK) us = closed;
  }
  return us;
}

std::uint16_t LoadDictionary(const std::string& directory, const DictionarySource& source) {
  const TablesFileOptions options;
  std::uint16_t us = WriteTablesFile(directory, source, options);
  char header[KT_TAILLE_ENTETE_FICHIER] = {};
  std::uint16_t file = 0;
  if (us == KT_OK) {
    us = KT_usInitialiserFichierBinaire(directory.c_str(), options.name.c_str(), options.control,
                                        &file, header);
  }
  for (int i = 0; i < 3 && us == KT_OK; ++i) {
    EnteteTable table;
    us = KT_usLireEnteteTable(file, &table);
    const std::string name = table.cNom;
    if (us != KT_OK) break;
    if (name == "TGROUPE") {
      us = usInitTabGroupe(file, table.ulTailleDonnees, table.ulNbEnregistrements);
    } else if (name == "TCHAMP") {
      us = usInitTabChamp(file, table.ulTailleDonnees, table.ulNbEnregistrements);
    } else {
      us = usInitTabValeur(file, table.ulTailleDonnees, table.ulNbEnregistrements);
    }
  }
  if (file != 0) {
    const std::uint16_t closed = KT_usLibererFichierBinaire(file, nullptr);
    if (us == KT_OK) us = closed;
  }
  return us;
}

void FreeDictionaryValueTexts() {
  for (std::uint32_t i = 0; g_cTabVal != nullptr && i < g_ulNbTabVal; ++i) {
    KT_Liberer(g_cTabVal[i]);
    g_cTabVal[i] = nullptr;
  }
}

}  // namespace kt::test
