#include <cstdlib>
#include <filesystem>
#include <string>

#include "frame/frame_internal.h"
#include "frame/ini_fixture.h"
#include "support/kt_test.h"

namespace {

using kt::test::CaptureTrace;
using kt::test::ReadFile;
using kt::test::ScratchDir;
using kt::test::WriteFile;

class VersionFiles : public kt::test::IniTest {
 protected:
  void SetUp() override {
    IniTest::SetUp();
    SetWorkingDirectory(work_.path().string());
  }
  void SetWorkingDirectory(const std::string& directory) {
    WriteFile(prefs_.File("volen.ini"), "[commun]\nrepertoiretravail=" + directory + "\n");
  }

  ScratchDir work_;
};

TEST_F(VersionFiles, WritesTheBareTextWhateverTheLengthArgument) {
  EXPECT_EQ(KT_usEcrireVersionComposant(92, "0100", 4), KT_OK);
  EXPECT_EQ(ReadFile(work_.File("92.adm")), "0100");
  EXPECT_EQ(KT_usEcrireVersionComposant(93, "01.23", 2), KT_OK);
  EXPECT_EQ(ReadFile(work_.File("93.adm")), "01.23");
  EXPECT_EQ(KT_usEcrireVersionComposant(93, "7", 1), KT_OK);  // rewritten whole
  EXPECT_EQ(ReadFile(work_.File("93.adm")), "7");
}

TEST_F(VersionFiles, ReadsBackExactlyTheFileBytes) {
  WriteFile(work_.File("12.adm"), "v2.1\n");
  char* content = nullptr;
  std::uint32_t length = 0;
  ASSERT_EQ(KT_usLireVersionComposant(12, &content, &length), KT_OK);
  EXPECT_EQ(std::string(content, length), "v2.1\n");
  KT_Liberer(content);

  WriteFile(work_.File("13.adm"), "");
  ASSERT_EQ(KT_usLireVersionComposant(13, &content, &length), KT_OK);
  EXPECT_EQ(length, 0u);
  KT_Liberer(content);

  EXPECT_EQ(KT_usLireVersionComposant(14, &content, &length), KT_ERR_FICHIER);
}

TEST_F(VersionFiles, TrailingSeparatorInTheDirectoryIsAccepted) {
  SetWorkingDirectory(work_.path().string() + "/");
  EXPECT_EQ(KT_usEcrireVersionComposant(92, "0100", 4), KT_OK);
  EXPECT_EQ(ReadFile(work_.File("92.adm")), "0100");
}

TEST_F(VersionFiles, MissingWorkingDirectoryIsReportedByEveryOperation) {
  WriteFile(prefs_.File("volen.ini"), "[commun]\nautre=1\n");
  char* directory = nullptr;
  EXPECT_EQ(KT_usDonnerRepertoireTravail(&directory), KT_ERR_REP_TRAVAIL);
  ASSERT_NE(directory, nullptr);  // handed out all the same, holding the empty text
  EXPECT_STREQ(directory, "");
  KT_Liberer(directory);
  EXPECT_EQ(KT_usEcrireVersionComposant(92, "0100", 4), KT_ERR_REP_TRAVAIL);
  char* content = nullptr;
  std::uint32_t length = 0;
  EXPECT_EQ(KT_usLireVersionComposant(92, &content, &length), KT_ERR_REP_TRAVAIL);
  const std::string trace =
      CaptureTrace({4}, 2, [&] { (void)KT_usDonnerRepertoireTravail(&directory); });
  KT_Liberer(directory);
  EXPECT_EQ(trace,
            "{ KT_usDonnerRepertoireTravail\n  ERREUR : ERREUR du repertoire de travail  (63217)\n"
            "  KT_usDonnerRepertoireTravail\n}\n");
}

TEST_F(VersionFiles, UncreatableFileGivesItsOwnCode) {
  SetWorkingDirectory(work_.File("missing/sub"));
  EXPECT_EQ(KT_usEcrireVersionComposant(92, "0100", 4), KT_ERR_FICHIER_VERSION);
}

TEST_F(VersionFiles, AllocationFailureOfTheDirectoryBlock) {
  char* directory = nullptr;
  kt::testing::ArmFault(kt::testing::Fault::kAlloc, 0);
  EXPECT_EQ(KT_usDonnerRepertoireTravail(&directory), KT_ERR_BUFFER_TRAVAIL);
  EXPECT_EQ(directory, nullptr);
}

TEST_F(VersionFiles, CloseFailureOfTheWriterIsAFileError) {
  // The first close is the configuration reader's.
  kt::testing::ArmFault(kt::testing::Fault::kClose, 1);
  EXPECT_EQ(KT_usEcrireVersionComposant(92, "0100", 4), KT_ERR_FICHIER);
  // The text went to a temporary that is not put in place.
  EXPECT_FALSE(std::filesystem::exists(work_.File("92.adm")));
  EXPECT_FALSE(std::filesystem::exists(work_.File("92.adm~")));
}

}  // namespace
