#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "frame/frame_internal.h"
#include "support/kt_test.h"

namespace {

using kt::frame::AllocatedTotal;
using kt::test::CaptureTrace;
using kt::test::ScratchDir;
using kt::test::WriteFile;
using kt::testing::ArmFault;
using kt::testing::Fault;

class FileHelpers : public kt::test::KtTest {
 protected:
  ScratchDir dir_;
};

TEST_F(FileHelpers, LengthLeavesThePositionWhereItWasAndHoldsPast2GiB) {
  // The second file is sparse: 3 GiB and 5 bytes, which a 32-bit long
  // cannot hold.
  for (const std::uint32_t size : {1234u, 0xC0000005u}) {
    const std::string path = dir_.File("f.bin");
    WriteFile(path, "");
    if (::truncate(path.c_str(), size) != 0) GTEST_SKIP() << "no sparse file of " << size;
    FILE* stream = std::fopen(path.c_str(), "rb");
    ASSERT_NE(stream, nullptr);
    ASSERT_EQ(std::fseek(stream, 100, SEEK_SET), 0);
    std::uint32_t length = 0;
    EXPECT_EQ(KT_usLongueurFichier(stream, &length), KT_OK);
    EXPECT_EQ(length, size);
    EXPECT_EQ(std::ftell(stream), 100);
    std::fclose(stream);
  }
}

TEST_F(FileHelpers, LengthWritesPendingOutputAndResetsTheStreamAsASeekDoes) {
  // Each case leaves a stream in some state at position 3 and says what the
  // length is and which byte a read gets after the query.
  struct Case {
    const char* what;
    void (*prepare)(FILE*);
    std::uint32_t length;
    int next;
  };
  const Case cases[] = {
      {"unwritten output past the end",
       [](FILE* f) {
         std::fputs("0123456789", f);
         std::fseek(f, 3, SEEK_SET);
       },
       10, '3'},
      {"unwritten output growing the file",
       [](FILE* f) {
         std::fputs("012", f);
         std::fflush(f);
         std::fputs("3456789ABCDEF", f);
         std::fseek(f, 3, SEEK_SET);
       },
       16, '3'},
      {"end of file reached",
       [](FILE* f) {
         std::fputs("012", f);
         std::fseek(f, 0, SEEK_SET);
         while (std::fgetc(f) != EOF) {
         }
         ASSERT_TRUE(std::feof(f));
       },
       3, EOF},
      {"a character pushed back",
       [](FILE* f) {
         std::fputs("0123456", f);
         std::fseek(f, 4, SEEK_SET);
         ASSERT_EQ(std::ungetc('x', f), 'x');
       },
       7, '3'},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    FILE* stream = std::fopen(dir_.File("f.bin").c_str(), "wb+");
    ASSERT_NE(stream, nullptr);
    c.prepare(stream);
    std::uint32_t length = 0;
    EXPECT_EQ(KT_usLongueurFichier(stream, &length), KT_OK);
    EXPECT_EQ(length, c.length);
    EXPECT_EQ(std::ftell(stream), 3);
    EXPECT_FALSE(std::feof(stream));
    EXPECT_EQ(std::fgetc(stream), c.next);
    std::fclose(stream);
  }
}

TEST_F(FileHelpers, LengthReportsEachFailingStep) {
  const std::string path = dir_.File("f.bin");
  WriteFile(path, "abc");
  FILE* stream = std::fopen(path.c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  std::uint32_t length = 0;
  ArmFault(Fault::kSeek, 0);  // position query
  EXPECT_EQ(KT_usLongueurFichier(stream, &length), KT_ERR_FICHIER);
  ArmFault(Fault::kSeek, 1);  // seek where the stream stands
  EXPECT_EQ(KT_usLongueurFichier(stream, &length), KT_ERR_FICHIER);
  EXPECT_EQ(length, 0u);
  ArmFault(Fault::kSeek, 2);  // size of the file
  EXPECT_EQ(KT_usLongueurFichier(stream, &length), KT_ERR_FICHIER);
  EXPECT_EQ(length, 0xFFFFFFFFu);  // stored before the check
  std::fclose(stream);

  // A device has no size to ask: its end is sought.
  stream = std::fopen("/dev/null", "rb");
  if (stream == nullptr) GTEST_SKIP() << "no /dev/null";
  length = 5;
  EXPECT_EQ(KT_usLongueurFichier(stream, &length), KT_OK);
  EXPECT_EQ(length, 0u);
  ArmFault(Fault::kSeek, 3);  // seek to the end
  EXPECT_EQ(KT_usLongueurFichier(stream, &length), KT_ERR_FICHIER);
  ArmFault(Fault::kSeek, 4);  // position at the end
  EXPECT_EQ(KT_usLongueurFichier(stream, &length), KT_ERR_FICHIER);
  EXPECT_EQ(length, 0xFFFFFFFFu);
  ArmFault(Fault::kSeek, 5);  // seek back
  EXPECT_EQ(KT_usLongueurFichier(stream, &length), KT_ERR_RETOUR_POSITION);
  EXPECT_EQ(length, 0u);
  std::fclose(stream);
}

TEST_F(FileHelpers, JoinsDirectoryAndNameWithOneSeparator) {
  char* full = nullptr;
  ASSERT_EQ(KT_usCreerNomCompletFichier("dir", "f.bin", &full), KT_OK);
  EXPECT_STREQ(full, "dir/f.bin");
  KT_Liberer(full);
  ASSERT_EQ(KT_usCreerNomCompletFichier("dir/", "f.bin", &full), KT_OK);
  EXPECT_STREQ(full, "dir//f.bin");
  KT_Liberer(full);
  // Longer than the historical 258-character buffer: joined whole, no overflow.
  const std::string long_dir(400, 'd');
  ASSERT_EQ(KT_usCreerNomCompletFichier(long_dir.c_str(), "n", &full), KT_OK);
  EXPECT_EQ(std::string(full), long_dir + "/n");
  KT_Liberer(full);
}

TEST_F(FileHelpers, JoinReportsAllocationFailureAndLeaksNothing) {
  const std::uint32_t before = AllocatedTotal();
  char* full = reinterpret_cast<char*>(1);
  ArmFault(Fault::kAlloc, 0);
  EXPECT_EQ(KT_usCreerNomCompletFichier("dir", "f", &full), KT_ERR_MEMOIRE);
  EXPECT_EQ(full, nullptr);
  EXPECT_EQ(AllocatedTotal(), before);
}

TEST_F(FileHelpers, OpeningAMissingFileTracesTheProblem) {
  const std::string path = dir_.File("missing");
  FILE* stream = nullptr;
  std::uint16_t status = 0;
  const std::string trace =
      CaptureTrace({4}, 2, [&] { status = usOuvrirFichier(path.c_str(), "r", &stream); });
  EXPECT_EQ(status, KT_ERR_FICHIER);
  EXPECT_EQ(stream, nullptr);
  EXPECT_EQ(trace, "{ usOuvrirFichier\n  Fichier : " + path +
                       " mode ouverture r\n  ERREUR :  Probleme ouverture fichier\n"
                       "  usOuvrirFichier\n}\n");
}

TEST_F(FileHelpers, OpenReadAndCloseAFile) {
  const std::string path = dir_.File("data");
  WriteFile(path, "0123456789");
  FILE* stream = nullptr;
  ASSERT_EQ(usOuvrirFichier(path.c_str(), "rb", &stream), KT_OK);
  char buffer[32] = {};
  std::uint16_t count = 4;
  EXPECT_EQ(usLireBufferFichier(stream, buffer, &count), KT_OK);
  EXPECT_EQ(count, 4);
  EXPECT_STREQ(buffer, "0123");
  count = 20;  // a short read at end of file is no error
  EXPECT_EQ(usLireBufferFichier(stream, buffer, &count), KT_OK);
  EXPECT_EQ(count, 6);
  EXPECT_EQ(usFermerFichier(stream), KT_OK);
}

TEST_F(FileHelpers, ReadingAStreamInErrorFails) {
  const std::string path = dir_.File("out");
  FILE* stream = std::fopen(path.c_str(), "w");  // a write-only stream cannot be read
  ASSERT_NE(stream, nullptr);
  char buffer[8];
  std::uint16_t count = 8;
  EXPECT_EQ(usLireBufferFichier(stream, buffer, &count), KT_ERR_FICHIER);
  EXPECT_EQ(count, 0);
  std::fclose(stream);

  WriteFile(path, "abcdefgh");
  stream = std::fopen(path.c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  ArmFault(Fault::kRead, 0);
  count = 8;
  EXPECT_EQ(usLireBufferFichier(stream, buffer, &count), KT_ERR_FICHIER);
  EXPECT_EQ(count, 0);
  ArmFault(Fault::kClose, 0);
  EXPECT_EQ(usFermerFichier(stream), KT_ERR_FICHIER);
}

TEST_F(FileHelpers, OpenFailureInjectedGivesFileError) {
  const std::string path = dir_.File("data");
  WriteFile(path, "x");
  FILE* stream = nullptr;
  ArmFault(Fault::kOpen, 0);
  EXPECT_EQ(usOuvrirFichier(path.c_str(), "r", &stream), KT_ERR_FICHIER);
  EXPECT_EQ(stream, nullptr);
}

TEST_F(FileHelpers, VersionFileNamesUseTheReaderTraces) {
  char* name = nullptr;
  const std::string trace =
      CaptureTrace({4}, 2, [&] { EXPECT_EQ(usConstruireNomComplet(93, &name), KT_OK); });
  EXPECT_STREQ(name, "93.adm");
  KT_Liberer(name);
  EXPECT_EQ(trace, "{ usLireBufferFichier\n  usLireBufferFichier\n}\n");
  EXPECT_EQ(usConstruireNomComplet(92, &name), KT_OK);
  EXPECT_STREQ(name, "92.adm");
  KT_Liberer(name);
  EXPECT_EQ(usConstruireNomComplet(-128, &name), KT_OK);  // cut to the 8-byte block
  EXPECT_STREQ(name, "-128.ad");
  KT_Liberer(name);
  ArmFault(Fault::kAlloc, 0);
  EXPECT_EQ(usConstruireNomComplet(92, &name), KT_OK);  // the allocation is not checked
  EXPECT_EQ(name, nullptr);
}

TEST_F(FileHelpers, DateTextFitsOrGivesZero) {
  char buffer[16];
  std::uint32_t size = sizeof buffer;
  EXPECT_EQ(donneDateHeure(buffer, &size, "%Y"), 4u);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(std::strlen(buffer), 4u);
  size = 3;
  EXPECT_EQ(donneDateHeure(buffer, &size, "%Y-%m-%d"), 0u);
  EXPECT_EQ(size, 0u);
}

}  // namespace
