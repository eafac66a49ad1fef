// The traced configuration entry points: argument checks, defaults, the
// shared "volen.ini" and their trace lines.
#include <string>

#include "frame/ini_fixture.h"

namespace kt::test {
namespace {

class IniWrappers : public IniTest {};

TEST_F(IniWrappers, DefaultsAndTheSharedFile) {
  char buffer[16] = "untouched";
  EXPECT_EQ(KT_ulLireChaineIni(nullptr, "k", buffer, 8, "volen.ini"), 0u);
  EXPECT_EQ(KT_ulLireChaineVolen("s1", "k", buffer, 0), 0u);
  EXPECT_STREQ(buffer, "untouched");
  EXPECT_EQ(KT_lLireLongVolen(nullptr, "k"), -1);
  EXPECT_EQ(KT_lLireLongVolen("s1", "k"), -1);
  EXPECT_EQ(KT_bEcrireChaineVolen("Commun", "niveau", "3"), 1);
  EXPECT_EQ(Contents("volen.ini"), "[Commun]\nniveau=3\n");
  EXPECT_EQ(KT_lLireLongVolen("commun", "NIVEAU"), 3);
  EXPECT_EQ(KT_ulLireChaineVolen("commun", "niveau", buffer, 8), 1u);
  EXPECT_EQ(KT_ulLireChaineIni("commun", "absent", buffer, 8, "volen.ini"), 0u);
  EXPECT_STREQ(buffer, "");  // the empty default replaced the old content
}

TEST_F(IniWrappers, TracesNameEachWrapperAndItsResult) {
  EXPECT_EQ(CaptureTrace({5}, 2, [] { KT_lLireLongVolen("commun", "absent"); }),
            "{ KT_lLireLongVolen\n"
            "  { KT_lLireLongIni\n"
            "    KT_lLireLongIni / lRetour =0xffffffff\n"
            "    KT_lLireLongIni\n"
            "  }\n"
            "  KT_lLireLongVolen / lRetour =0xffffffff\n"
            "  KT_lLireLongVolen\n"
            "}\n");
  EXPECT_EQ(CaptureTrace({5}, 2, [] { KT_bEcrireChaineVolen("s1", "k", "v"); }),
            "{ KT_bEcrireChaineVolen\n"
            "  { KT_bEcrireChaineIni\n"
            "    KT_bEcrireChaineIni / bRetour =0x0001\n"
            "    KT_bEcrireChaineIni\n"
            "  }\n"
            "  KT_bEcrireChaineVolen / bRetour =0x0001\n"
            "  KT_bEcrireChaineVolen\n"
            "}\n");
  char buffer[8];
  EXPECT_EQ(CaptureTrace({5}, 2, [&] { KT_ulLireChaineVolen(nullptr, "k", buffer, 7); }),
            "{ KT_ulLireChaineVolen\n"
            "  KT_ulLireChaineVolen / Longueur =0x0000\n"
            "  KT_ulLireChaineVolen\n"
            "}\n");
}

}  // namespace
}  // namespace kt::test
