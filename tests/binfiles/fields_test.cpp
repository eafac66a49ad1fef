// Typed fields: exact bytes on file, round trips, length prefixes, the
// packed-decimal double against printf's rounding and under a comma locale,
// the byte counter and the write mode.
#include <malloc.h>

#include <bit>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

#include "binfiles/binfile_test_util.h"
#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"

namespace kt::test {
namespace {

using kt::binfiles::PackDecimal;
using kt::binfiles::PackedDecimal;
using kt::binfiles::UnpackDecimal;
using kt::testing::ArmFault;
using kt::testing::Fault;
using BinFileFields = BinFileTest;

std::string Packed(double value) {
  PackedDecimal packed{};
  return PackDecimal(value, packed) ? std::string(packed.begin(), packed.end()) : "refused";
}

FichierBinaire* Record(uint16_t number) {
  FichierBinaire* record = nullptr;
  EXPECT_EQ(usRechercherFichier(number, &record), KT_OK);
  return record;
}

TEST_F(BinFileFields, EveryFieldAndTableHeaderHasItsBytesAndReadsBack) {
  EXPECT_EQ(Build("f", KT_CONTROLE_AUCUN, WriteSample).substr(kBody), SampleBody());
  Read("f", KT_CONTROLE_AUCUN, [](uint16_t n) {
    EnteteTable table{};
    ASSERT_EQ(KT_usLireEnteteTable(n, &table), KT_OK);
    EXPECT_STREQ(table.cNom, "TCHAMPS");
    EXPECT_TRUE(table.ulTailleDonnees == 38 && table.ulNbEnregistrements == 1);
    EXPECT_EQ(ReadValue(n, KT_usLireUnsignedChar), 0xAB);
    EXPECT_EQ(ReadValue(n, KT_usLireSignedChar), -2);
    EXPECT_EQ(ReadValue(n, KT_usLireUnsignedShort), 0x1234);
    EXPECT_EQ(ReadValue(n, KT_usLireSignedShort), -2);
    EXPECT_EQ(ReadValue(n, KT_usLireUnsignedLong), 0x01020304u);
    EXPECT_EQ(ReadValue(n, KT_usLireSignedLong), -2);
    uint16_t year = 0, units[2] = {};
    uint8_t month = 0, day = 0, fixed[3] = {};
    EXPECT_EQ(KT_usLireDate(n, &year, &month, &day), KT_OK);
    EXPECT_EQ(KT_usLireChampFixe(n, fixed, 3), KT_OK);
    EXPECT_EQ(KT_usLireChampUnicodeFixe(n, units, 2), KT_OK);
    EXPECT_TRUE(year == 2024 && month == 12 && day == 31 && std::memcmp(fixed, "xyz", 3) == 0 &&
                units[0] == 0x1234 && units[1] == 0x00E9);
    for (const char* expected : {"abc", ""}) {  // the null string reads back empty
      char* text = ReadValue(n, KT_usLireChaineVariable);
      EXPECT_STREQ(text, expected);
      KT_Liberer(text);
    }
    EXPECT_EQ(ReadValue(n, KT_usLireDouble), -1234.5);
    // The next table follows at once; names of ten characters come back
    // whole, NUL padding goes.
    for (const char* name : {"TABLE_VIDE", "TVALEUR"}) {
      ASSERT_EQ(KT_usLireEnteteTable(n, &table), KT_OK);
      EXPECT_STREQ(table.cNom, name);
    }
    char* text = ReadValue(n, KT_usLireChaineVariable);
    EXPECT_STREQ(text, "valeur");
    KT_Liberer(text);
    EXPECT_EQ(KT_usLireEnteteTable(n, &table), KT_ERR_FIN_FICHIER);
  });
}

TEST_F(BinFileFields, LengthPrefixesWidenAt128And256And65536And16777216) {
  const std::pair<uint32_t, std::string> cases[] = {
      {0, std::string(1, '\0')},
      {127, "\x7F"},
      {128, "\x81\x80"},
      {255, "\x81\xFF"},
      {256, std::string("\x82\x01\x00", 3)},
      {65535, "\x82\xFF\xFF"},
      {65536, std::string("\x83\x01\x00\x00", 4)},
      {16777215, "\x83\xFF\xFF\xFF"},
      {16777216, std::string("\x84\x01\x00\x00\x00", 5)},
      {0xFFFFFFFF, "\x84\xFF\xFF\xFF\xFF"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    std::string buffer(8, '\xEE');
    ASSERT_EQ(stCoderLongueur(c.first, reinterpret_cast<uint8_t*>(buffer.data()), 2),
              c.second.size());
    EXPECT_EQ(buffer, "\xEE\xEE" + c.second + std::string(6 - c.second.size(), '\xEE'));
    if (c.first > 65536) continue;  // longer strings are left to the coder alone
    const std::string text(c.first, 's');
    const std::string bytes = Build("s", KT_CONTROLE_AUCUN, [&](uint16_t n) {
      EXPECT_EQ(KT_usEcrireChaineVariable(n, text.c_str()), KT_OK);
    });
    EXPECT_EQ(bytes.substr(kBody), c.second + text);
    Read("s", KT_CONTROLE_AUCUN, [&](uint16_t n) {
      char* read = ReadValue(n, KT_usLireChaineVariable);
      EXPECT_STREQ(read, text.c_str());
      KT_Liberer(read);
    });
  }
}

TEST(BinFileDouble, ExamplesLimitsAndForeignNibbles) {
  const std::pair<double, std::string> packed[] = {
      {3.5, std::string("\x03\xF5\0\0\0\0\0\0", 8)},
      {-1234.5, std::string("\x11\x23\x4F\x50\0\0\0\0", 8)},
      {0.0, std::string("\x00\xF0\0\0\0\0\0\0", 8)},
      {-0.0, std::string("\x10\xF0\0\0\0\0\0\0", 8)},  // keeps its sign
      {12345678901234.0, "\x01\x23\x45\x67\x89\x01\x23\x4F"},
      {99999999999999.0, "\x09\x99\x99\x99\x99\x99\x99\x9F"},
  };
  for (const auto& [value, bytes] : packed) EXPECT_EQ(Packed(value), bytes) << value;
  const double inf = std::numeric_limits<double>::infinity();
  for (double v : {1e14, -1e14, inf, -inf, std::nan("")}) EXPECT_EQ(Packed(v), "refused") << v;

  const std::pair<PackedDecimal, double> unpacked[] = {
      {{0x10, 0xF0, 0, 0, 0, 0, 0, 0}, -0.0},
      {{0x01, 0x2A, 0x3F, 0x40, 0, 0, 0, 0}, 12.0},  // a nibble never written ends the number
      {{0x0F, 0, 0, 0, 0, 0, 0, 0}, 0.0},
      {{0x71, 0xF5, 0, 0, 0, 0, 0, 0}, -1.5},  // any sign nibble but 0 is negative
  };
  for (const auto& [bytes, value] : unpacked) {
    const double back = UnpackDecimal(bytes);
    EXPECT_TRUE(back == value && std::signbit(back) == std::signbit(value)) << back;
  }
  PackedDecimal p{};  // a rounding carry adds a digit; the 16th character is dropped
  ASSERT_TRUE(PackDecimal(9.99999999999999, p));
  EXPECT_EQ(UnpackDecimal(p), 10.0);
}

TEST(BinFileDouble, ReadsBackAsPrintfRoundsTo14Digits) {
  std::mt19937_64 random(20240131);
  std::uniform_real_distribution<double> mantissa(1.0, 10.0);
  std::uniform_int_distribution<int> exponent(-18, 13);
  // Halves, ties at the last digit, a carry, and the smallest numbers.
  std::vector<double> values = {
      0.5,    2.5,   1234567890123.25, 1234567890123.75, 99999999999999.5, 0.00000000000005,
      1e-300, 5e-324};
  for (int i = 0; i < 20000; ++i) {
    const double v = mantissa(random) * std::pow(10.0, exponent(random));
    values.push_back(i % 2 == 0 ? v : -v);
  }
  for (double v : values) {
    PackedDecimal p{};
    ASSERT_TRUE(PackDecimal(v, p)) << v;
    // 14 significant digits, or 13 decimals below 1.
    char expected[64];
    std::snprintf(expected, sizeof expected, std::fabs(v) >= 1.0 ? "%.13e" : "%.13f", v);
    ASSERT_EQ(UnpackDecimal(p), std::strtod(expected, nullptr)) << v;
  }
}

// A locale with a decimal comma: an installed one, else one built in `dir`.
bool UseCommaLocale(const ScratchDir& dir) {
  for (const char* name : {"fr_FR.UTF-8", "de_DE.UTF-8", "fr_FR", "de_DE"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) return true;
  }
  // Under an emulator localedef is the host's: the locale files must be in
  // this program's byte order, not the host's.
  const std::string command =
      "localedef -i fr_FR -f ISO-8859-1" +
      std::string(std::endian::native == std::endian::big ? " --big-endian " : " ") +
      dir.File("fr_FR") + " >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) return false;
  setenv("LOCPATH", dir.path().c_str(), 1);
  return std::setlocale(LC_ALL, "fr_FR") != nullptr;
}

TEST_F(BinFileFields, DoubleUsesPointWhateverTheLocale) {
  ScratchDir locales;
  if (!UseCommaLocale(locales)) GTEST_SKIP() << "no locale with a decimal comma";
  char probe[16];
  std::snprintf(probe, sizeof probe, "%.1f", 3.5);
  const std::string bytes = Build("l", KT_CONTROLE_AUCUN, [](uint16_t n) {
    EXPECT_EQ(KT_usEcrireDouble(n, 3.5), KT_OK);
    EXPECT_EQ(KT_usEcrireDouble(n, -0.125), KT_OK);
  });
  double a = 0, b = 0;
  Read("l", KT_CONTROLE_AUCUN, [&](uint16_t n) {
    a = ReadValue(n, KT_usLireDouble);
    b = ReadValue(n, KT_usLireDouble);
  });
  std::setlocale(LC_ALL, "C");
  unsetenv("LOCPATH");
  EXPECT_STREQ(probe, "3,5");
  EXPECT_EQ(bytes.substr(kBody), std::string("\x03\xF5\0\0\0\0\0\0\x10\xF1\x25\0\0\0\0\0", 16));
  EXPECT_TRUE(a == 3.5 && b == -0.125) << a << " " << b;
}

TEST_F(BinFileFields, WritersRefuseReadModeFilesButTheDoubleTries) {
  Build("r", KT_CONTROLE_AUCUN);
  Read("r", KT_CONTROLE_AUCUN, [](uint16_t n) {
    const uint8_t byte = 1;
    const uint16_t unit = 1;
    const EnteteTable table = MakeTable("T", 0);
    int writer = 0;  // a braced list makes its calls in order
    for (uint16_t us : {KT_usEcrireUnsignedChar(n, 1), KT_usEcrireSignedChar(n, 1),
                        KT_usEcrireUnsignedShort(n, 1), KT_usEcrireSignedShort(n, 1),
                        KT_usEcrireUnsignedLong(n, 1), KT_usEcrireSignedLong(n, 1),
                        KT_usEcrireDate(n, 1, 1, 1), KT_usEcrireChampFixe(n, &byte, 1),
                        KT_usEcrireChampUnicodeFixe(n, &unit, 1), KT_usEcrireChaineVariable(n, "a"),
                        KT_usEcrireEnteteTable(n, &table), KT_usEcrireTaille(n)}) {
      EXPECT_EQ(us, KT_ERR_MODE) << writer++;
    }
    const uint32_t length = Record(n)->ulCompteurOctets;
    EXPECT_EQ(KT_usEcrireDouble(n, 1.0), KT_ERR_FICHIER);  // the stream itself refuses
    EXPECT_EQ(Record(n)->ulCompteurOctets, length + 8);
  });
}

// What a failed write counts (the sample's table size shows the counts of
// good ones).
TEST_F(BinFileFields, CounterOnFailedWritesMovesAsEachWriterSays) {
  uint16_t n = 0;
  const uint8_t bytes[3] = {1, 2, 3};
  const uint16_t units[2] = {1, 2};
  const std::pair<std::function<uint16_t()>, uint32_t> cases[] = {
      {[&] { return KT_usEcrireUnsignedChar(n, 1); }, 1},
      {[&] { return KT_usEcrireUnsignedShort(n, 1); }, 2},
      {[&] { return KT_usEcrireSignedLong(n, -1); }, 4},
      {[&] { return KT_usEcrireDouble(n, 2.5); }, 8},
      {[&] { return KT_usEcrireChampFixe(n, bytes, 3); }, 0},
      {[&] { return KT_usEcrireChampUnicodeFixe(n, units, 2); }, 0},
      {[&] { return KT_usEcrireChaineVariable(n, "ab"); }, 0},
      {[&] { return KT_usEcrireDouble(n, 1e15); }, 0},  // refused before counting
  };
  for (const auto& c : cases) {
    ASSERT_EQ(Create("c", KT_CONTROLE_AUCUN, &n), KT_OK);  // a fresh stream, without error
    Record(n)->ulCompteurOctets = 0;
    ArmFault(Fault::kWrite, 0);
    EXPECT_EQ(c.first(), KT_ERR_FICHIER);
    kt::testing::DisarmAllFaults();
    EXPECT_EQ(Record(n)->ulCompteurOctets, c.second) << (&c - cases);
    Close(n);
  }
}

TEST_F(BinFileFields, ReadersAtEndOfFileLeaveTheirDestination) {
  Build("e", KT_CONTROLE_AUCUN,
        [](uint16_t n) { EXPECT_EQ(KT_usEcrireUnsignedChar(n, 1), KT_OK); });
  Read("e", KT_CONTROLE_AUCUN, [](uint16_t n) {
    uint16_t us = 0xAAAA, year = 1, units[2] = {};
    uint32_t ul = 0xAAAAAAAA;
    double d = 1.5;
    uint8_t month = 2, day = 3, block[4];
    for (uint16_t status : {KT_usLireUnsignedShort(n, &us), KT_usLireUnsignedLong(n, &ul),
                            KT_usLireDouble(n, &d), KT_usLireDate(n, &year, &month, &day)}) {
      EXPECT_EQ(status, KT_ERR_FIN_FICHIER);  // the first one a byte short
    }
    EXPECT_TRUE(us == 0xAAAA && ul == 0xAAAAAAAA && d == 1.5 && year == 1);
    EXPECT_EQ(KT_usPositionnerOffset(n, -1, SEEK_END), KT_OK);
    const std::string trace = CaptureTrace(
        {7}, 1, [&] { EXPECT_EQ(KT_usLireChampFixe(n, block, 4), KT_ERR_FIN_FICHIER); });
    EXPECT_NE(
        trace.find("ERREUR : KT_usLireChampFixe : Fin de fichier lu 1 a liree 4 usCr 63040\n"),
        std::string::npos)
        << trace;
    EXPECT_EQ(KT_usLireChampUnicodeFixe(n, units, 2), KT_ERR_FIN_FICHIER);
    ArmFault(Fault::kSeek, 0);  // the position query comes first
    EXPECT_EQ(KT_usLireUnsignedShort(n, &us), KT_ERR_FIN_FICHIER);
  });
}

TEST_F(BinFileFields, VariableStringsWithBadPrefixesTakeNoHugeBlock) {
  const std::string line = Build("v", KT_CONTROLE_AUCUN);
  const std::pair<std::string, uint16_t> cases[] = {
      {"\x85\x01", KT_ERR_ARGUMENT},                   // more than 4 length bytes
      {"", KT_ERR_FIN_FICHIER},                        // end of file at once
      {"\x84\xFF\xFF\xFF\xFFzz", KT_ERR_FIN_FICHIER},  // far past the end
      {"\x83\x7F\xFF\xFFzz", KT_ERR_FIN_FICHIER},
      {"\x82\x01", KT_ERR_FIN_FICHIER},  // cut prefix: length 1, nothing left
      {"\x05xyz", KT_ERR_FIN_FICHIER},
  };
  for (const auto& c : cases) {
    WriteFile(Path("v"), line + c.first);
    Read("v", KT_CONTROLE_AUCUN, [&](uint16_t n) {
      char* text = nullptr;
      EXPECT_EQ(KT_usLireChaineVariable(n, &text), c.second) << (&c - cases);
      // Handed out even on failure, and no larger than what the file holds.
      EXPECT_EQ(text == nullptr, c.second == KT_ERR_ARGUMENT);
      EXPECT_LT(text != nullptr ? malloc_usable_size(text) : 0, 64u);
      KT_Liberer(text);
    });
  }
}

}  // namespace
}  // namespace kt::test
