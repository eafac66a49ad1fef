#include <string>

#include "support/kt_test.h"
#include "traces/traces_internal.h"

namespace {

using kt::test::CaptureTrace;
using kt::test::KtTest;
using kt::test::ReadFile;
using kt::test::ScratchDir;

class TraceFile : public KtTest {};
class TraceTable : public KtTest {};
class TraceWrite : public KtTest {};

// Enters `depth` nested functions of pair (1, 5), writes one line of each kind
// at the bottom, and comes back up.
void NestAndWrite(int depth) {
  for (int i = 0; i < depth; ++i) KT_TraceEcrire(1, 5, 2, "f%d", i);
  KT_TraceEcrire(1, 5, 4, "info");
  KT_TraceEcrire(1, 5, 1, "block");
  KT_TraceEcrire(1, 5, 5, "bad");
  for (int i = depth - 1; i >= 0; --i) KT_TraceEcrire(1, 5, 3, "out%d", i);
}

TEST_F(TraceFile, ClosedStreamWritesNothingAndReportsInactive) {
  EXPECT_EQ(KT_bTraceActive(), 0);
  KT_TraceEcrire(1, 5, 2, "nothing");
  KT_TraceDebutFonction();
  KT_TraceFinFonction();
  const std::uint8_t bytes[] = {1, 2};
  KT_TraceEcrireBinaire(1, 5, "tab", bytes, 2);
  EXPECT_EQ(kt::traces::Depth(), 0);
  EXPECT_EQ(KT_usActiverTrace("unused", "w", 1, 5, 0), KT_OK);  // level 0 while off
}

TEST_F(TraceFile, BadPathsAndModesAreRefused) {
  ScratchDir dir;
  const std::string path = dir.File("t.txt");
  EXPECT_EQ(KT_usActiverTrace(nullptr, "w", 1, 5, 1), KT_ERR_ARGUMENT);
  EXPECT_EQ(KT_usActiverTrace("", "w", 1, 5, 1), KT_ERR_ARGUMENT);
  EXPECT_EQ(KT_usActiverTrace(path.c_str(), nullptr, 1, 5, 1), KT_ERR_ARGUMENT);
  EXPECT_EQ(KT_usActiverTrace(path.c_str(), "r", 1, 5, 1), KT_ERR_ARGUMENT);
  EXPECT_EQ(KT_usActiverTrace(path.c_str(), "w+", 1, 5, 1), KT_ERR_ARGUMENT);
  EXPECT_EQ(KT_usActiverTrace(dir.path().c_str(), "w", 1, 5, 1), KT_ERR_TRACE_OUVERTURE);
  EXPECT_EQ(KT_bTraceActive(), 0);
}

TEST_F(TraceFile, OpenWritesHeaderAndCloseWritesFooter) {
  ScratchDir dir;
  const std::string path = dir.File("t.txt");
  ASSERT_EQ(KT_usActiverTrace(path.c_str(), "wb", 1, 5, 2), KT_OK);
  EXPECT_EQ(KT_bTraceActive(), 1);
  // Every line is flushed: the header is on disk before the close.
  EXPECT_EQ(ReadFile(path), "### DEBUT TRACE ###\n");
  EXPECT_EQ(KT_usActiverTrace(path.c_str(), "w", 7, 7, 0), KT_OK);
  EXPECT_EQ(ReadFile(path), "### DEBUT TRACE ###\n### FIN TRACE ###\n\n");
  EXPECT_EQ(KT_bTraceActive(), 0);
  EXPECT_EQ(KT_bRechercherTrace(1, 5, nullptr), 0);  // closing forgets every pair
}

TEST_F(TraceFile, AppendModeAddsASectionAndWriteModeTruncates) {
  ScratchDir dir;
  const std::string path = dir.File("t.txt");
  ASSERT_EQ(KT_usActiverTrace(path.c_str(), "w", 1, 5, 2), KT_OK);
  KT_TraceEcrire(1, 5, 4, "one");
  ASSERT_EQ(KT_usActiverTrace(path.c_str(), "w", 1, 5, 0), KT_OK);
  ASSERT_EQ(KT_usActiverTrace(path.c_str(), "ab", 1, 5, 2), KT_OK);
  KT_TraceEcrire(1, 5, 4, "two");
  ASSERT_EQ(KT_usActiverTrace(path.c_str(), "a", 1, 5, 0), KT_OK);
  EXPECT_EQ(ReadFile(path),
            "### DEBUT TRACE ###\none\n### FIN TRACE ###\n\n"
            "### DEBUT TRACE ###\ntwo\n### FIN TRACE ###\n\n");
  ASSERT_EQ(KT_usActiverTrace(path.c_str(), "w", 1, 5, 2), KT_OK);
  ASSERT_EQ(KT_usActiverTrace(path.c_str(), "w", 1, 5, 0), KT_OK);
  EXPECT_EQ(ReadFile(path), "### DEBUT TRACE ###\n### FIN TRACE ###\n\n");
}

TEST_F(TraceFile, SecondActivationWithAnotherPathKeepsTheOpenFile) {
  ScratchDir dir;
  const std::string first = dir.File("first.txt");
  const std::string second = dir.File("second.txt");
  ASSERT_EQ(KT_usActiverTrace(first.c_str(), "w", 1, 5, 2), KT_OK);
  ASSERT_EQ(KT_usActiverTrace(second.c_str(), "w", 1, 4, 2), KT_OK);
  KT_TraceEcrire(1, 4, 4, "sub 4");
  ASSERT_EQ(KT_usActiverTrace(second.c_str(), "w", 1, 4, 0), KT_OK);
  EXPECT_EQ(ReadFile(first), "### DEBUT TRACE ###\nsub 4\n### FIN TRACE ###\n\n");
  EXPECT_FALSE(std::filesystem::exists(second));
}

TEST_F(TraceFile, OuvrirTraceLeavesAnOpenStreamAlone) {
  ScratchDir dir;
  const std::string path = dir.File("t.txt");
  FILE* stream = nullptr;
  ASSERT_EQ(KT_usOuvrirTrace(path.c_str(), "w", &stream), KT_OK);
  ASSERT_NE(stream, nullptr);
  FILE* const opened = stream;
  EXPECT_EQ(KT_usOuvrirTrace(nullptr, nullptr, &stream), KT_OK);  // already open: nothing checked
  EXPECT_EQ(stream, opened);
  std::fclose(stream);
  EXPECT_EQ(ReadFile(path), "### DEBUT TRACE ###\n");
}

TEST_F(TraceTable, ModuleOneAcceptsSubModulesOneToEightOnly) {
  ScratchDir dir;
  const std::string path = dir.File("t.txt");
  ASSERT_EQ(KT_usActiverTrace(path.c_str(), "w", 1, 8, 1), KT_OK);
  EXPECT_EQ(KT_usActiverTrace(path.c_str(), "w", 1, 9, 1), KT_ERR_TRACE_SOUS_MODULE);
  EXPECT_EQ(KT_usActiverTrace(path.c_str(), "w", 1, 0, 1), KT_ERR_TRACE_SOUS_MODULE);
  EXPECT_EQ(KT_bRechercherTrace(1, 9, nullptr), 0);
  // The refused entry is overwritten by the next addition.
  EXPECT_EQ(KT_usActiverTrace(path.c_str(), "w", 2, 9, 1), KT_OK);
  std::uint16_t index = 99;
  EXPECT_EQ(KT_bRechercherTrace(2, 9, &index), 1);
  EXPECT_EQ(index, 1);
  EXPECT_EQ(KT_bRechercherTrace(1, 8, &index), 1);
  EXPECT_EQ(index, 0);
}

TEST_F(TraceTable, FullTableRefusesNewPairsButUpdatesActiveOnes) {
  KT_InitialiserTraces();
  for (std::uint16_t i = 0; i < 100; ++i) ASSERT_EQ(KT_usAjouterTrace(2, i, 1), KT_OK);
  EXPECT_EQ(KT_usAjouterTrace(2, 100, 1), KT_ERR_TRACE_PLEINE);
  EXPECT_EQ(KT_usAjouterTrace(1, 9, 1), KT_ERR_TRACE_PLEINE);  // full before the sub-module test
  EXPECT_EQ(KT_usAjouterTrace(2, 42, 2), KT_OK);
  std::uint16_t index = 0;
  EXPECT_EQ(KT_bRechercherTrace(2, 99, &index), 1);
  EXPECT_EQ(index, 99);
  KT_InitialiserTraces();
  EXPECT_EQ(KT_bRechercherTrace(2, 0, &index), 0);
  EXPECT_EQ(KT_usAjouterTrace(2, 100, 1), KT_OK);
}

TEST_F(TraceWrite, NestedCallsAtLevelTwoShowBracesAndIndentation) {
  const std::string trace = CaptureTrace({5}, 2, [] {
    KT_TraceEcrire(1, 5, 2, "KT_usInitLIB");
    KT_TraceEcrire(1, 5, 2, "IAInitialisation");
    KT_TraceEcrire(1, 5, 4, "intermediate %u", 7u);
    KT_TraceEcrire(1, 5, 5, "text");
    KT_TraceEcrire(1, 5, 1, "block");
    KT_TraceEcrire(1, 5, 3, "result line");
    KT_TraceEcrire(1, 5, 3, "result line");
    KT_TraceEcrire(1, 6, 4, "other pair, not active");
    KT_TraceEcrire(1, 5, 6, "kind 6 writes nothing");
  });
  EXPECT_EQ(trace,
            "{ KT_usInitLIB\n"
            "  { IAInitialisation\n"
            "    intermediate 7\n"
            "    ERREUR : text\n"
            "    { block\n"
            "    }\n"
            "    result line\n"
            "  }\n"
            "  result line\n"
            "}\n");
}

TEST_F(TraceWrite, LevelOneHidesDeepLinesButKeepsCountingDepth) {
  // Depth 8 at the bottom: kinds 1 to 4 are suppressed, errors still show.
  const std::string trace = CaptureTrace({5}, 1, [] {
    NestAndWrite(9);
    KT_TraceEcrire(1, 5, 4, "back at the top");
  });
  std::string expected;
  for (int i = 0; i < 8; ++i) expected += std::string(2 * i, ' ') + "{ f" + std::to_string(i) + "\n";
  expected += std::string(18, ' ') + "ERREUR : bad\n";
  // f7's exit comes at depth 8, too deep for level 1: its brace stays open.
  for (int i = 6; i >= 0; --i) {
    expected += std::string(2 * (i + 1), ' ') + "out" + std::to_string(i) + "\n";
    expected += std::string(2 * i, ' ') + "}\n";
  }
  expected += "back at the top\n";
  EXPECT_EQ(trace, expected);
}

TEST_F(TraceWrite, LevelThreeIsStoredAsTwoAndTracesEveryDepth) {
  const std::string trace = CaptureTrace({5}, 3, [] { NestAndWrite(9); });
  EXPECT_NE(trace.find(std::string(16, ' ') + "{ f8\n"), std::string::npos) << trace;
  EXPECT_NE(trace.find(std::string(18, ' ') + "info\n"), std::string::npos) << trace;
  EXPECT_EQ(kt::traces::Depth(), 0);
}

TEST_F(TraceWrite, DepthNeverGoesBelowZero) {
  const std::string trace = CaptureTrace({5}, 2, [] {
    KT_TraceEcrire(1, 5, 3, "exit at the top");
    KT_TraceEcrire(1, 5, 4, "still at the top");
  });
  EXPECT_EQ(trace, "exit at the top\n}\nstill at the top\n");
}

TEST_F(TraceWrite, BannerNeedsNoActivePair) {
  const std::string trace = CaptureTrace({5}, 1, [] { KT_TraceEcrire(9, 9, 0, "banner %d", 1); });
  // "\n", the ctime text (24 characters and its newline), the message.
  ASSERT_EQ(trace.size(), 1u + 25u + 8u + 1u) << trace;
  EXPECT_EQ(trace.front(), '\n');
  EXPECT_EQ(trace.substr(26), "banner 1\n");
}

TEST_F(TraceWrite, BinaryDumpOnlyAtLevelTwo) {
  const std::uint8_t bytes[] = {0x00, 0xAB, 0x7F};
  EXPECT_EQ(CaptureTrace({5}, 2, [&] { KT_TraceEcrireBinaire(1, 5, "tab", bytes, 3); }),
            "tab[0] = 0x00\ntab[1] = 0xab\ntab[2] = 0x7f\n");
  EXPECT_EQ(CaptureTrace({5}, 1, [&] { KT_TraceEcrireBinaire(1, 5, "tab", bytes, 3); }), "");
  EXPECT_EQ(CaptureTrace({4}, 2, [&] { KT_TraceEcrireBinaire(1, 5, "tab", bytes, 3); }), "");
}

TEST_F(TraceWrite, VaListVariantWritesTheSame) {
  auto write = [](const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    KT_TraceEcrire2(1, 5, 4, format, arguments);
    va_end(arguments);
  };
  EXPECT_EQ(CaptureTrace({5}, 2, [&] { write("%s=%d", "x", 3); }), "x=3\n");
}

}  // namespace
