#include <cstdint>
#include <string>
#include <tuple>

#include "zones/zone_test_util.h"

namespace {

using namespace kt::test;

class ZoneSyntax : public ZoneTest {};

TEST_F(ZoneSyntax, WorkedExampleIsTracedAndLeavesTheCursorOnTheLastField) {
  const std::uint16_t zone = Adopt({0x01, 0x02, 0x03, 0x02, 0x41, 0x42});
  std::uint16_t us = 0xFFFF;
  const std::string trace =
      CaptureTrace({1}, 2, [&] { us = KT_usControlerSyntaxeZoneMemoire(zone); });
  EXPECT_EQ(us, KT_OK);
  EXPECT_EQ(trace,
            "{ KT_usControlerSyntaxeZoneMemoire\n"
            "  Longueur des donnees d'entree (6)\n"
            "  usIdGroupe = 258\n"
            "  stLongueurGroupe = 3, stNbOctetsLongueurGroupe = 3\n"
            "  ulTailleDataIn = 0\n"
            "  stLongueurGroupe = 0\n"
            "  KT_usControlerSyntaxeZoneMemoire usResultat = 0x0000\n"
            "}\n");
  EXPECT_EQ(std::tuple(Record(zone).identifiant, Record(zone).numeroChamp), std::tuple(0x0102, 1));
  // Each group step goes back over the previous group's fields and counts
  // them again (kept as it always was): 2 + (2 + 3) + (3 + 1) + (1 + 1).
  const std::uint16_t four = FourGroups();
  ASSERT_EQ(KT_usControlerSyntaxeZoneMemoire(four), KT_OK);
  EXPECT_EQ(std::tuple(Record(four).compteurGroupe, Record(four).compteurChamp), std::tuple(4, 13));
}

TEST_F(ZoneSyntax, EveryFaultOfFormIsReportedWithItsMessage) {
  ByteVector lone = {0x00, 0x09, 0x80, 0x7F};  // a lone 0x80 is 128
  lone.resize(4 + 127, 'v');
  // Order: bytes, the error lines of syntax control and of the cursor (none:
  // well formed).
  const std::pair<ByteVector, std::string> cases[] = {
      {{0x01, 0x02, 0x01, 0x00}, ""},
      {lone, ""},
      {{0x00, 0x01, 0x81, 0x03, 0x81, 0x01, 0x41}, ""},  // longer forms than needed
      {{}, "ERREUR : Buffer trop petit pour coder l'identifiant (tailleBuffer = 0).\n"},
      {{0x01, 0x02, 0x00}, "ERREUR : Groupe de longueur 0 => ERREUR\n"},
      {{0x01, 0x02, 0x05, 0x02, 0x41, 0x42},
       "ERREUR : Longueur du groupe (5 + 3) depasse la longueur des donnees d'entree restante "
       "(6)\n"},
      {{0x01, 0x02, 0x03, 0x05, 0x41, 0x42},
       "ERREUR :  Fin du groupe atteinte.\nERREUR : Impossible de lire la longueur du champ\n"},
      {{0x01, 0x02, 0x01, 0x00, 0x07},
       "ERREUR : Buffer trop petit pour coder l'identifiant (tailleBuffer = 5).\n"},
      {{0x01, 0x02, 0x02, 0x00, 0x85},
       "ERREUR :  Nombre d'octets pour coder la longueur (5) > 4.\n"
       "ERREUR : Impossible de lire la longueur du champ\n"},
      {{0x01, 0x02, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 0x00},
       "ERREUR : Longueur du groupe (4294967295 + 7) depasse la longueur des donnees d'entree "
       "restante (8)\n"},
  };
  for (const auto& [bytes, errors] : cases) {
    SCOPED_TRACE(::testing::PrintToString(bytes));
    const std::uint16_t zone = bytes.empty() ? Create(8) : Adopt(bytes);
    std::uint16_t us = 0;
    const std::string trace =
        CaptureTrace({1, 3}, 2, [&] { us = KT_usControlerSyntaxeZoneMemoire(zone); });
    std::string lines;
    for (std::size_t at = trace.find("ERREUR : "); at != std::string::npos;
         at = trace.find("ERREUR : ", at + 1)) {
      lines += trace.substr(at, trace.find('\n', at) + 1 - at);
    }
    EXPECT_EQ(lines, errors);
    EXPECT_EQ(us, errors.empty() ? KT_OK : KT_ERR_CODAGE_ZONE);
    EXPECT_EQ(Data(zone), bytes);  // never changed
  }
  EXPECT_EQ(KT_usControlerSyntaxeZoneMemoire(100), KT_ERR_NUMERO_INCONNU);
  EXPECT_EQ(KT_usControlerSyntaxeZoneMemoire(Create(4, false)), KT_ERR_MODE);
}

}  // namespace
