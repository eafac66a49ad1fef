// The dictionary description parser and the status texts, in process.
#include "tools/kt/dictionary_source.h"

#include <string>
#include <vector>

#include "kt_frame.h"
#include "support/kt_test.h"
#include "tools/kt/status_text.h"
#include "tools/run_kt.h"

namespace {

using kt::tool::DictionarySource;
using kt::tool::SourceError;

std::vector<SourceError> Errors(const std::string& text) {
  DictionarySource source;
  std::vector<SourceError> errors;
  const bool ok = kt::tool::ParseDictionarySource(text, &source, &errors);
  EXPECT_EQ(ok, errors.empty());
  return errors;
}

TEST(DictionarySource, SampleParsesAndFormatsBackToAnEqualSource) {
  DictionarySource sample;
  std::vector<SourceError> errors;
  ASSERT_TRUE(kt::tool::ParseDictionarySource(
      kt::test::ReadFile(kt::test::SourcePath("tests/data/sample_dictionary.txt")), &sample,
      &errors));
  ASSERT_EQ(sample.groups.size(), 3u);
  EXPECT_EQ(sample.comment, "Sample dictionary of the test suite");
  EXPECT_EQ(sample.groups[1].fields[0].values,
            (std::vector<std::string>{"ACHAT", "VENTE", "ECHANGE"}));
  EXPECT_EQ(sample.groups[0].fields[0].code, 1);

  sample.free_fields = {"ABCDE", "20261121", "FGHIJ", "0123456789"};
  sample.groups[2].fields[0].attribute = -7;
  sample.groups[2].fields[0].values = {" two  blanks ", ""};
  DictionarySource again;
  ASSERT_TRUE(
      kt::tool::ParseDictionarySource(kt::tool::FormatDictionarySource(sample), &again, &errors));
  EXPECT_EQ(again, sample);

  // Carriage returns at a line's end, however many, are line-ending debris.
  DictionarySource crlf;
  ASSERT_TRUE(kt::tool::ParseDictionarySource("group 1\r\nfield A 0 0\r\r\nvalue ab\r\r\r\n",
                                              &crlf, &errors));
  ASSERT_EQ(crlf.groups.size(), 1u);
  EXPECT_EQ(crlf.groups[0].fields[0].values, std::vector<std::string>{"ab"});
  DictionarySource crlf_again;
  ASSERT_TRUE(kt::tool::ParseDictionarySource(kt::tool::FormatDictionarySource(crlf), &crlf_again,
                                              &errors));
  EXPECT_EQ(crlf_again, crlf);
}

TEST(DictionarySource, EveryProblemIsReportedWithItsLine) {
  struct Case {
    const char* text;
    int line;
    const char* words;
  };
  const Case cases[] = {
      {"tables 0100 0100 c\nfrobnicate 3\n", 2, "unknown directive 'frobnicate'"},
      {"field N 1 2\n", 1, "field before any group"},
      {"group 1\nvalue X\n", 2, "value before any field"},
      {"group 1\nfield X 1 2\n", 2, "unknown type 'X'"},
      {"group 1\nfield N 1 70000\n", 2, "MAX '70000' is not a number from 0 to 65535"},
      {"group 1\nfield N -1 2\n", 2, "MIN '-1'"},
      {"group 1\nfield N 7 5\n", 2, "MIN 7 above MAX 5"},
      {"group 1\nfield N 1 2 colour=3\n", 2, "unknown option 'colour=3'"},
      {"group 1\nfield N 1 2 code=4294967296\n", 2, "code '4294967296' is not a signed 32-bit"},
      {"group 0\n", 1, "'0' is not a number from 1 to 65535"},
      {"group 70000\n", 1, "'70000'"},
      {"\n\ngroup 5\ngroup 5\n", 4, "group 5 given twice (first on line 3)"},
      {"tables 100 0100 c\n", 1, "version '100' is not 4 digits"},
      {"tables 0100 01a0 c\n", 1, "required version '01a0' is not 4 digits"},
      {"tables 0100 0100\n", 1, "tables needs VERSION REQUIRED COMMENT"},
      {"tables 0100 0100 a\ntables 0100 0100 b\n", 2, "tables given twice (first on line 1)"},
      {"header ABCD 20261121 FGHIJ 0123456789\n", 1, "header field 3 'ABCD' is not 5"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const std::vector<SourceError> errors = Errors(c.text);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].line, c.line);
    EXPECT_NE(errors[0].message.find(c.words), std::string::npos) << errors[0].message;
  }
  // Reading goes on after a bad line; CRLF line ends are taken off.
  EXPECT_EQ(Errors("group 1\r\nfield Q 1 2\r\nfield N 3 2\r\n  # fine\r\nvalue ok\r\n").size(), 3u);
  EXPECT_EQ(Errors("tables 0100 0100 " + std::string(201, 'c') + "\n").size(), 1u);
}

TEST(DictionarySource, SixteenBitIndexesBoundTheTables) {
  std::string text = "group 1\nfield A 0 0\n";
  for (int i = 0; i < 65536; ++i) text += "value v\n";
  const std::vector<SourceError> errors = Errors(text);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].line, 65538);
  EXPECT_NE(errors[0].message.find("more than 65535 values"), std::string::npos);
}

TEST(StatusText, NamesEveryCodeAndDecodesPositions) {
  for (const std::uint16_t code : {KT_OK,
                                   KT_ECHEC,
                                   KT_ERR_TRACE_SOUS_MODULE,
                                   KT_ERR_TRACE_OUVERTURE,
                                   KT_ERR_TRACE_PLEINE,
                                   KT_ERR_FICHIER,
                                   KT_ERR_VERSION,
                                   KT_ERR_CONTROLE,
                                   KT_ERR_FIN_FICHIER,
                                   KT_ERR_NOM_FICHIER,
                                   KT_ERR_REP_TABLES,
                                   KT_ERR_REP_TRAVAIL,
                                   KT_ERR_FICHIER_VERSION,
                                   KT_ERR_POINTEUR_NUL,
                                   KT_ERR_MEMOIRE,
                                   KT_ERR_ARGUMENT,
                                   KT_ERR_PLACE_ZONE,
                                   KT_ERR_FIN,
                                   KT_ERR_OCCURRENCE,
                                   KT_ERR_NUMERO_INCONNU,
                                   KT_ERR_PLUS_DE_FICHIER,
                                   KT_ERR_CODAGE_ZONE,
                                   KT_ERR_MODE,
                                   KT_ERR_BUFFER_TRAVAIL,
                                   KT_ERR_POSITION,
                                   KT_ERR_RETOUR_POSITION}) {
    EXPECT_EQ(kt::tool::StatusText(code).find("unknown status"), std::string::npos) << code;
  }
  EXPECT_EQ(kt::tool::StatusText(KT_ERR_FICHIER), "0xF610 (a file operation failed)");
  EXPECT_EQ(kt::tool::StatusText(0x040B), "0x040B (signature does not match)");
  EXPECT_EQ(kt::tool::StatusText(0x1234), "0x1234 (unknown status)");
  // A bare failure is explained by the caller, who knows what failed.
  EXPECT_EQ(kt::tool::StatusText(KT_ECHEC, "the signature could not be made"),
            "0x0001 (the signature could not be made)");
  EXPECT_EQ(kt::tool::StatusText(KT_ERR_FICHIER, "unused"), "0xF610 (a file operation failed)");
  using Kind = kt::tool::FormatCode::Kind;
  const struct {
    std::uint16_t code;
    Kind kind;
    std::uint16_t position;
  } codes[] = {{0x9003, Kind::kField, 3},      {0x9FFF, Kind::kField, 0xFFF},
               {0xA002, Kind::kGroup, 2},      {0xA7FF, Kind::kGroup, 0x7FF},
               {0xA801, Kind::kFieldCount, 1}, {0xAFFF, Kind::kFieldCount, 0x7FF},
               {0x9000, Kind::kNone, 0},       {0xA000, Kind::kNone, 0},
               {0xB000, Kind::kNone, 0}};
  for (const auto& c : codes) {
    const kt::tool::FormatCode decoded = kt::tool::DecodeFormatCode(c.code);
    EXPECT_EQ(decoded.kind, c.kind) << c.code;
    EXPECT_EQ(decoded.position, c.position) << c.code;
  }
  EXPECT_EQ(kt::tool::StatusText(0x9004), "0x9004 (the field of rank 4 fails format control)");
}

}  // namespace
