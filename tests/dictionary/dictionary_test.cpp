#include <cstring>
#include <string>

#include "kt_binfiles.h"
#include "kt_dictionary.h"
#include "support/dictionary_builder.h"
#include "support/kt_test.h"

namespace {

using kt::test::CaptureTrace;
using kt::test::DictionarySource;
using kt::test::ScratchDir;
using kt::test::TablesFileOptions;

class Dictionary : public kt::test::KtTest {
 protected:
  // Writes `source` and opens it; the file stands at its first table.
  std::uint16_t Open(const DictionarySource& source, const TablesFileOptions& options = {}) {
    EXPECT_EQ(kt::test::WriteTablesFile(dir_.path().string(), source, options), KT_OK);
    std::uint16_t file = 0;
    EXPECT_EQ(KT_usInitialiserFichierBinaire(dir_.path().c_str(), options.name.c_str(),
                                             options.control, &file, header_),
              KT_OK);
    return file;
  }

  void LoadSample() {
    ASSERT_EQ(kt::test::LoadDictionary(dir_.path().string(), kt::test::LoadSampleDictionary()),
              KT_OK);
  }

  ScratchDir dir_;
  char header_[KT_TAILLE_ENTETE_FICHIER] = {};
};

TEST_F(Dictionary, SampleLoadsIntoTheThreeTables) {
  LoadSample();
  ASSERT_EQ(g_ulNbTabGrp, 3u);
  EXPECT_EQ(g_stTabGrp[1].usIdGroupe, 20);
  EXPECT_EQ(g_stTabGrp[1].usIndPremierChamp, 3);
  EXPECT_EQ(g_stTabGrp[1].usNbChamps, 2);
  ASSERT_EQ(g_ulNbTabChp, 6u);
  EXPECT_EQ(g_stTabChp[3].cType, 'L');
  EXPECT_EQ(g_stTabChp[3].lCodeChamp, 1);
  EXPECT_EQ(g_stTabChp[3].usLongueurMax, 10);
  EXPECT_EQ(g_stTabChp[3].usNbValeurs, 3);
  ASSERT_EQ(g_ulNbTabVal, 3u);
  EXPECT_STREQ(g_cTabVal[2], "ECHANGE");
  EXPECT_EQ(g_ulIndTabGrp + g_ulIndTabChp + g_ulIndTabVal, 0u);
}

TEST_F(Dictionary, QueriesHandOutCopies) {
  LoadSample();
  uint16_t* list = nullptr;
  uint16_t count = 0;
  ASSERT_EQ(KT_usDonnerListeGroupes(&list, &count), KT_OK);
  ASSERT_EQ(count, 3);
  EXPECT_EQ(list[0], 10);
  EXPECT_EQ(list[1], 20);
  EXPECT_EQ(list[2], 30);
  KT_Liberer(list);

  stChamp* fields = nullptr;
  ASSERT_EQ(KT_usDonnerInformationChamp(20, &fields, &count), KT_OK);
  ASSERT_EQ(count, 2);
  const stChamp& original = g_stTabChp[3];
  EXPECT_EQ(fields[0].lCodeChamp, original.lCodeChamp);
  EXPECT_EQ(fields[0].usLongueurMin, original.usLongueurMin);
  EXPECT_EQ(fields[0].usLongueurMax, original.usLongueurMax);
  EXPECT_EQ(fields[0].cType, original.cType);
  EXPECT_EQ(fields[0].lAttribut, original.lAttribut);
  EXPECT_EQ(fields[0].usIndPremiereValeur, original.usIndPremiereValeur);
  EXPECT_EQ(fields[0].usNbValeurs, original.usNbValeurs);
  EXPECT_EQ(fields[1].cType, 'N');
  EXPECT_NE(fields, &g_stTabChp[3]);
  KT_Liberer(fields);

  char* value = nullptr;
  ASSERT_EQ(KT_usDonnerChampValeur(20, 1, 1, &value), KT_OK);
  EXPECT_STREQ(value, "ACHAT");
  KT_Liberer(value);
  ASSERT_EQ(KT_usDonnerChampValeur(20, 1, 3, &value), KT_OK);
  EXPECT_STREQ(value, "ECHANGE");
  KT_Liberer(value);
  // The first group of the table is found like any other.
  ASSERT_EQ(KT_usDonnerInformationChamp(10, &fields, &count), KT_OK);
  EXPECT_EQ(count, 3);
  KT_Liberer(fields);
}

TEST_F(Dictionary, AbsentGroupsAndNullOutputs) {
  LoadSample();
  char* value = nullptr;
  EXPECT_EQ(KT_usDonnerChampValeur(99, 1, 1, &value), KT_ERR_FIN);
  EXPECT_EQ(value, nullptr);
  stChamp* fields = nullptr;
  uint16_t count = 7;
  EXPECT_EQ(KT_usDonnerInformationChamp(99, &fields, &count), KT_ERR_FIN);
  EXPECT_EQ(count, 7);
  EXPECT_EQ(KT_usDonnerListeGroupes(nullptr, &count), KT_ERR_MEMOIRE);
  EXPECT_EQ(KT_usDonnerInformationChamp(20, nullptr, &count), KT_ERR_MEMOIRE);
  EXPECT_EQ(CaptureTrace({7}, 2, [] { (void)KT_usDonnerChampValeur(99, 1, 1, nullptr); }),
            "{ KT_usDonnerChampValeur\n  ERREUR : usResultat = 0xf805\n"
            "  KT_usDonnerChampValeur\n}\n");
}

TEST_F(Dictionary, EmptyDictionaryListsNothing) {
  uint16_t* list = nullptr;
  uint16_t count = 9;
  ASSERT_EQ(KT_usDonnerListeGroupes(&list, &count), KT_OK);
  EXPECT_EQ(count, 0);
  KT_Liberer(list);
  char* value = nullptr;
  EXPECT_EQ(KT_usDonnerChampValeur(5, 1, 1, &value), KT_ERR_FIN);
}

TEST_F(Dictionary, ZeroRecordsAllocateAnEmptyTable) {
  DictionarySource empty;
  const std::uint16_t file = Open(empty);
  EnteteTable table;
  ASSERT_EQ(KT_usLireEnteteTable(file, &table), KT_OK);
  ASSERT_EQ(table.ulNbEnregistrements, 0u);
  const std::string trace = CaptureTrace({7}, 2, [&] {
    EXPECT_EQ(usInitTabGroupe(file, table.ulTailleDonnees, table.ulNbEnregistrements), KT_OK);
  });
  EXPECT_EQ(g_ulNbTabGrp, 0u);
  EXPECT_NE(g_stTabGrp, nullptr);
  char pointer[32];
  std::snprintf(pointer, sizeof pointer, "%p", static_cast<void*>(g_stTabGrp));
  EXPECT_EQ(trace, std::string("{ usGTInitTabGrp\n  g_stTabGrp = ") + pointer +
                       ", g_ulNbTabGrp = 0\n  usResultat = 0x0000\n  usGTInitTabGrp\n}\n");
  EXPECT_EQ(KT_usLibererFichierBinaire(file, nullptr), KT_OK);
}

TEST_F(Dictionary, ShortTableStopsAtTheFailingRecordWithTheCountSet) {
  const std::uint16_t file = Open(kt::test::LoadSampleDictionary());
  EnteteTable table;
  ASSERT_EQ(KT_usLireEnteteTable(file, &table), KT_OK);
  ASSERT_STREQ(table.cNom, "TGROUPE");
  // Announce more records than the file holds: the reads run on through the
  // next tables and off the end of the file.
  EXPECT_EQ(usInitTabGroupe(file, 0, 100000), KT_ERR_FIN_FICHIER);
  EXPECT_EQ(g_ulNbTabGrp, 100000u);
  EXPECT_EQ(g_stTabGrp[2].usIdGroupe, 30);
  EXPECT_EQ(KT_usLibererFichierBinaire(file, nullptr), KT_OK);
}

TEST_F(Dictionary, ReleasingReportsWhatWasAbsent) {
  EXPECT_EQ(usGTSupprTables(), KT_ECHEC);
  LoadSample();
  EXPECT_EQ(usSupprTabChamp(), KT_OK);
  EXPECT_EQ(usSupprTabChamp(), KT_ECHEC);
  // Value texts stay allocated when their table goes: keep them to free here.
  char* texts[3] = {g_cTabVal[0], g_cTabVal[1], g_cTabVal[2]};
  const std::string trace = CaptureTrace({5, 7}, 2, [] { EXPECT_EQ(usGTSupprTables(), 1); });
  for (char* text : texts) KT_Liberer(text);
  EXPECT_EQ(g_stTabGrp, nullptr);
  EXPECT_EQ(g_cTabVal, nullptr);
  EXPECT_EQ(g_ulNbTabGrp + g_ulNbTabChp + g_ulNbTabVal, 0u);
  // Sub-module 5 also shows the releases of memory; look for the dictionary's lines.
  EXPECT_NE(trace.find("{ Suppression des tables /usGTSupprTables\n"), std::string::npos);
  EXPECT_NE(trace.find("  { usGTSupprTabGrp\n"), std::string::npos);
  EXPECT_NE(trace.find("  suppression de la table TGROUPE, usResultat=0x0000\n"), std::string::npos);
  EXPECT_NE(trace.find("  { usGTSupprTabChp\n    usResultat = 0x0001\n    usSupprTabChamp\n  }\n"),
            std::string::npos)
      << trace;
  EXPECT_NE(trace.find("  suppression de la table TCHAMP, usResultat=0x0001\n"), std::string::npos);
  EXPECT_NE(trace.find("    usSupprTabValeur\n"), std::string::npos);
  EXPECT_NE(trace.find("  Suppression des tables = usGTSupprTables / usResultat = 0x0001\n}\n"),
            std::string::npos);
}

}  // namespace
