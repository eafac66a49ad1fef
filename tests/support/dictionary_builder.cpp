#include "support/dictionary_builder.h"

#include <gtest/gtest.h>

#include <cstring>

#include "kt_binfiles.h"
#include "kt_dictionary.h"
#include "support/kt_test.h"

namespace kt::test {

DictionarySource ParseDictionary(const std::string& text) {
  DictionarySource source;
  std::vector<kt::tool::SourceError> errors;
  kt::tool::ParseDictionarySource(text, &source, &errors);
  for (const kt::tool::SourceError& error : errors) {
    ADD_FAILURE() << "line " << error.line << ": " << error.message;
  }
  return source;
}

DictionarySource LoadSampleDictionary() {
  return ParseDictionary(
      ReadFile(std::string(KT_SOURCE_DIR) + "/tests/data/sample_dictionary.txt"));
}

std::uint16_t WriteTablesFile(const std::string& directory, const DictionarySource& source,
                              const TablesFileOptions& options) {
  kt::tool::CompileOptions compile;
  compile.control = options.control;
  compile.tables = options.order;
  return kt::tool::CompileTablesFile(directory, options.name, source, compile);
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
