// kt tables compile | dump, end to end.
#include <cstring>
#include <filesystem>
#include <string>

#include "kt_binfiles.h"
#include "kt_frame.h"
#include "support/dictionary_builder.h"
#include "tools/kt/dictionary_source.h"
#include "tools/run_kt.h"

namespace kt::test {
namespace {

using testing::HasSubstr;

class ToolTables : public KtTool {};

TEST_F(ToolTables, CompileThenDumpRoundTripsTheSample) {
  CompileSample("a.vkt");
  const KtRun human = Run({"tables", "dump", "a.vkt"});
  EXPECT_EQ(human.status, 0) << human.err;
  EXPECT_THAT(human.out, HasSubstr("3 groups, 6 fields, 3 values; index ranges consecutive"));
  EXPECT_THAT(human.out, testing::ContainsRegex("control +CRC [0-9A-F]{4} good"));
  EXPECT_EQ(human.err, "");  // no progress line when stderr is not a terminal

  const KtRun source = Run({"tables", "dump", "--source", "a.vkt"});
  ASSERT_EQ(source.status, 0) << source.err;
  kt::tool::DictionarySource parsed, sample;
  std::vector<kt::tool::SourceError> errors;
  ASSERT_TRUE(kt::tool::ParseDictionarySource(source.out, &parsed, &errors));
  ASSERT_TRUE(kt::tool::ParseDictionarySource(ReadFile(SourcePath(kSample)), &sample, &errors));
  EXPECT_EQ(parsed, sample);

  // The dumped description compiles to the very same bytes.
  WriteFile(File("again.txt"), source.out);
  std::filesystem::create_directory(File("b"));
  ASSERT_EQ(Run({"tables", "compile", "again.txt", "--out", "b/a.vkt"}).status, 0);
  EXPECT_EQ(ReadFile(File("b/a.vkt")), ReadFile(File("a.vkt")));

  const KtRun json = Run({"tables", "dump", "--json", "a.vkt"});
  EXPECT_EQ(json.status, 0);
  EXPECT_THAT(json.out, HasSubstr("\"values\":[\"ACHAT\",\"VENTE\",\"ECHANGE\"]"));
  EXPECT_THAT(json.out, HasSubstr("\"type\":\"crc\",\"checked\":true,\"good\":true"));
  EXPECT_THAT(json.out, HasSubstr("\"problems\":[],\"ok\":true}"));
}

TEST_F(ToolTables, CompileReportsEveryBadLineAndKeepsTheOldFile) {
  CompileSample("a.vkt");
  const std::string before = ReadFile(File("a.vkt"));
  WriteFile(File("bad.txt"), "group 1\nfield Z 1 2\nfield N 9 3\nvalue\ngroup 1\n");
  const KtRun run = Run({"tables", "compile", "bad.txt", "-o", "a.vkt"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("bad.txt:2: unknown type 'Z'"));
  EXPECT_THAT(run.err, HasSubstr("bad.txt:3: MIN 9 above MAX 3"));
  EXPECT_THAT(run.err, HasSubstr("bad.txt:5: group 1 given twice (first on line 1)"));
  EXPECT_THAT(run.err, HasSubstr("bad.txt:4: value before any field"));
  EXPECT_THAT(run.err, HasSubstr("4 problems"));
  EXPECT_EQ(ReadFile(File("a.vkt")), before);
  // Nothing left behind beside it.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()), {}), 2);
}

TEST_F(ToolTables, DumpReportsBrokenRangesAndBadChecks) {
  CompileSample("a.vkt");
  std::string bytes = ReadFile(File("a.vkt"));
  // TGROUPE's records start 25 bytes after the body: make group 20 start at
  // field 4 instead of 3.
  const std::size_t records = bytes.find("TGROUPE") + 25;
  ASSERT_EQ(bytes[records + 9], 3);
  bytes[records + 9] = 4;
  WriteFile(File("a.vkt"), bytes);

  const KtRun crc = Run({"tables", "dump", "a.vkt"});
  EXPECT_EQ(crc.status, 1);
  EXPECT_THAT(crc.out, HasSubstr("CRC bad: the header holds"));
  EXPECT_THAT(crc.err, HasSubstr("kt tables dump: a.vkt: CRC bad"));

  const KtRun ranges = Run({"tables", "dump", "--control", "none", "a.vkt"});
  EXPECT_EQ(ranges.status, 1);
  EXPECT_THAT(ranges.out, HasSubstr("index ranges NOT consecutive"));
  EXPECT_THAT(ranges.out,
              HasSubstr("group #1 (id 20) starts at field 4; the ranges before it end at 3"));
  EXPECT_THAT(ranges.out, HasSubstr("TGROUPE #1: id 20, fields from 4, 2 of them"));
  EXPECT_EQ(Run({"tables", "dump", "--source", "--control", "none", "a.vkt"}).status, 1);
}

TEST_F(ToolTables, DumpShowsOtherTablesAndErrorsNameTheStatus) {
  WriteFile(File("v.txt"), "tables 0099 0100 old\n");
  ASSERT_EQ(Run({"tables", "compile", "v.txt", "-o", "v.vkt", "--control", "none"}).status, 0);
  const KtRun old = Run({"tables", "dump", "--control", "none", "v.vkt"});
  EXPECT_EQ(old.status, 1);
  EXPECT_THAT(old.out, HasSubstr("tables      3, from offset 66"));
  EXPECT_THAT(old.out, HasSubstr("start-up refuses the file (0xF620"));

  const KtRun missing = Run({"tables", "dump", "missing.vkt"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "kt tables dump: cannot read missing.vkt: No such file or directory\n");
  EXPECT_EQ(Run({"tables", "compile", SourcePath(kSample), "-o", "thirteen.chars"}).status, 2);
}

TEST_F(ToolTables, DumpFlagsWhatStartUpWouldRefuse) {
  // Written with the test helpers, which compile sources as given: a group
  // twice, a foreign table among the first three, an unknown type.
  DictionarySource source = LoadSampleDictionary();
  source.groups.push_back(source.groups[0]);
  source.groups[1].fields[1].type = '?';
  TablesFileOptions options;
  options.name = "odd.vkt";
  options.order = {"TGROUPE", "TAUTRE", "TCHAMP", "TVALEUR"};
  ASSERT_EQ(WriteTablesFile(dir_.path().string(), source, options), KT_OK);
  const KtRun run = Run({"tables", "dump", "odd.vkt"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("  TAUTRE     at "));
  EXPECT_THAT(run.out, HasSubstr("start-up reads the first three tables"));
  EXPECT_THAT(run.out, HasSubstr("group #3 (id 10) repeats group #0"));
  EXPECT_THAT(run.out, HasSubstr("field #4: unknown type 63"));
  // The ranges still follow one another: the description is shown.
  EXPECT_THAT(run.out, HasSubstr("index ranges consecutive\n  tables 0100 0100"));
}

TEST_F(ToolTables, CompileSignsWithTheKeyAndSaysWhenTheBuiltInKeyDisagrees) {
  CompileSample("s.vkt", {"--control", "signature", "--key", SourcePath("keys/development.key")});
  const KtRun dump = Run({"tables", "dump", "--json", "s.vkt"});
  EXPECT_EQ(dump.status, 0) << dump.err;
  EXPECT_THAT(dump.out, HasSubstr("\"type\":\"signature\",\"checked\":true,\"good\":true"));
  EXPECT_EQ(ReadFile(File("s.vkt")).size(), 313u + 128u);

  ASSERT_EQ(Run({"key", "generate", "--out", "other"}).status, 0);
  const KtRun other = Run({"tables", "compile", SourcePath(kSample), "-o", "o.vkt", "--control",
                           "signature", "--key", "other.key"});
  EXPECT_EQ(other.status, 0);
  EXPECT_THAT(other.out, HasSubstr("note: the library's built-in public key does not verify"));
  EXPECT_EQ(Run({"file", "verify", "o.vkt"}).status, 1);
}

TEST_F(ToolTables, DumpShowsOtherTablesByTheirFirstBytes) {
  EnteteFichier header;
  std::memset(&header, ' ', sizeof header);
  std::snprintf(header.cNom, sizeof header.cNom, "x.bin");
  std::snprintf(header.cVersion, sizeof header.cVersion, "0001");
  std::snprintf(header.cCommentaire, sizeof header.cCommentaire, "other tables");
  std::uint16_t file = 0;
  ASSERT_EQ(KT_usCreerFichierBinaire(dir_.path().c_str(), "x.bin", KT_CONTROLE_CRC,
                                     reinterpret_cast<const char*>(&header), &file),
            KT_OK);
  EnteteTable table{"TPRIX     ", 0, 100, 0, 0, 0, 0};
  ASSERT_EQ(KT_usEcrireEnteteTable(file, &table), KT_OK);
  for (std::uint32_t i = 0; i < 100; ++i) ASSERT_EQ(KT_usEcrireUnsignedLong(file, i), KT_OK);
  ASSERT_EQ(KT_usLibererFichierBinaire(file, nullptr), KT_OK);

  const KtRun run = Run({"tables", "dump", "x.bin"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("  TPRIX      at 75: 100 records, 400 bytes\n"
                                 "    00 00 00 00 00 00 00 01 00 00 00 02"));
  EXPECT_THAT(run.out, HasSubstr("00 00 00 0f ...\n"));
  EXPECT_EQ(run.out.find("dictionary"), std::string::npos);
  const KtRun json = Run({"tables", "dump", "--json", "x.bin"});
  EXPECT_THAT(json.out, HasSubstr("\"data_hex\":\"000000000000000100000002"));
}

TEST_F(ToolTables, DumpSurvivesTruncatedAndDamagedFiles) {
  CompileSample("a.vkt");
  const std::string whole = ReadFile(File("a.vkt"));
  for (std::size_t length = 0; length < whole.size(); length += 11) {
    std::string bytes = whole.substr(0, length);
    if (length > 130) bytes[length / 2] = static_cast<char>(0xFF);  // a size or a count
    WriteFile(File("a.vkt"), bytes);
    for (const char* control : {"auto", "none"}) {
      const KtRun run = Run({"tables", "dump", "--json", "--control", control, "a.vkt"});
      EXPECT_EQ(run.status, 1) << length << " " << control << "\n" << run.out << run.err;
      EXPECT_THAT(run.err, HasSubstr("kt tables dump: ")) << length;
    }
  }
}

}  // namespace
}  // namespace kt::test
