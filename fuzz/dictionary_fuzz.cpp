// Loads fuzzer-made bytes as a tables file into the dictionary: the bytes are
// saved under the name their header carries and opened without a check, up
// to three table headers are read and dispatched to the loaders as start-up
// does, and the queries then run over whatever was loaded. Tables announcing
// more than kMaxRecords records are skipped: the loaders allocate what the
// header announces, which only tests the allocator.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/fuzz_files.h"
#include "kt_binfiles.h"
#include "kt_dictionary.h"

namespace {

constexpr std::uint32_t kMaxRecords = 4096;
// Groups whose fields are listed: every query runs the same code whatever
// the group, so more groups only cost time.
constexpr std::uint16_t kMaxQueriedGroups = 8;
// A query copies as many field records as the group announces, those past
// the table reading as zeroed records; a few of them show that as well as
// the 65535 a group can announce, which made each input a hundred times
// slower.
constexpr std::uint32_t kFieldsPastTable = 16;

const std::string& Directory() { return kt::fuzz::ScratchDirectory("dictionary_fuzz"); }

std::string NameOf(const std::uint8_t* data, std::size_t size) {
  return kt::fuzz::HeaderName(data, size, "tablebin.vkt");
}

bool FieldsWithinReach(std::uint16_t group) {
  for (std::uint32_t i = 0; g_stTabGrp != nullptr && i < g_ulNbTabGrp; ++i) {
    if (g_stTabGrp[i].usIdGroupe == group) {
      return std::uint32_t{g_stTabGrp[i].usIndPremierChamp} + g_stTabGrp[i].usNbChamps <=
             g_ulNbTabChp + kFieldsPastTable;
    }
  }
  return true;
}

void Query() {
  std::uint16_t* groups = nullptr;
  std::uint16_t count = 0;
  if (KT_usDonnerListeGroupes(&groups, &count) != KT_OK) return;
  for (std::uint16_t g = 0; g < count && g < kMaxQueriedGroups; ++g) {
    if (!FieldsWithinReach(groups[g])) continue;
    stChamp* fields = nullptr;
    std::uint16_t field_count = 0;
    if (KT_usDonnerInformationChamp(groups[g], &fields, &field_count) == KT_OK) {
      for (std::uint16_t f = 0; f < field_count && f < 16; ++f) {
        for (std::uint16_t v = 1; v <= fields[f].usNbValeurs && v <= 4; ++v) {
          char* value = nullptr;
          if (KT_usDonnerChampValeur(groups[g], static_cast<std::uint16_t>(f + 1), v, &value) ==
              KT_OK) {
            KT_Liberer(value);
          }
        }
      }
    }
    KT_Liberer(fields);
  }
  KT_Liberer(groups);
}

// The library never releases the value texts; the harness does.
void Release() {
  for (std::uint32_t i = 0; g_cTabVal != nullptr && i < g_ulNbTabVal; ++i) {
    KT_Liberer(g_cTabVal[i]);
  }
  (void)usGTSupprTables();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static kt::fuzz::ScratchFile scratch(Directory());
  const std::string name = NameOf(data, size);
  if (!scratch.Put(name, data, size)) return 0;
  char header[KT_TAILLE_ENTETE_FICHIER] = {};
  std::uint16_t file = 0;
  (void)KT_usInitialiserFichierBinaire(Directory().c_str(), name.c_str(), KT_CONTROLE_AUCUN, &file,
                                       header);
  for (int t = 0; t < 3 && file != 0; ++t) {
    EnteteTable table{};
    if (KT_usLireEnteteTable(file, &table) != KT_OK) break;
    if (table.ulNbEnregistrements > kMaxRecords) break;
    const std::string table_name = table.cNom;
    std::uint16_t us = KT_OK;
    // A table loaded twice replaces (and loses) the earlier array; release
    // first so that the harness itself leaks nothing.
    if (table_name == "TGROUPE") {
      (void)usSupprTabGroupe();
      us = usInitTabGroupe(file, table.ulTailleDonnees, table.ulNbEnregistrements);
    } else if (table_name == "TCHAMP") {
      (void)usSupprTabChamp();
      us = usInitTabChamp(file, table.ulTailleDonnees, table.ulNbEnregistrements);
    } else if (table_name == "TVALEUR") {
      for (std::uint32_t i = 0; g_cTabVal != nullptr && i < g_ulNbTabVal; ++i) {
        KT_Liberer(g_cTabVal[i]);
      }
      (void)usSupprTabValeur();
      us = usInitTabValeur(file, table.ulTailleDonnees, table.ulNbEnregistrements);
    } else {
      break;
    }
    if (us != KT_OK) break;
  }
  if (file != 0) (void)KT_usLibererFichierBinaire(file, nullptr);
  Query();
  Release();
  return 0;
}
