// Typed fields: exact bytes on file, round trips, the packed-decimal double
// against printf's rounding and under a comma locale, counters and modes.
#include <gmock/gmock.h>
#include <malloc.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "binfiles/binfile_test_util.h"
#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"

namespace kt::test {
namespace {

using kt::testing::ArmFault;
using kt::testing::Fault;
using ::testing::HasSubstr;
using BinFileFields = BinFileTest;

constexpr std::size_t kBody = 77;  // header line with the default comment

std::string Body(const std::string& bytes) { return bytes.substr(kBody); }

std::string Packed(double value) {
  kt::binfiles::PackedDecimal packed{};
  if (!kt::binfiles::PackDecimal(value, packed)) return "refused";
  return std::string(packed.begin(), packed.end());
}

// The packing made the historical way: printf's "%.*f" in the C locale.
std::string PrintfPacked(double value) {
  const int e = value != 0 ? static_cast<int>(std::floor(std::log10(std::fabs(value)))) : -1;
  const int d = e >= 0 ? e + 1 : 1;
  if (d > 14) return "refused";
  char text[64] = {};
  std::snprintf(text, sizeof text, "%.*f", 14 - d, value);
  std::string t = text;
  if (d == 14) t += ".";
  int sign = 0;
  if (t[0] == '-') {
    sign = 1;
    t.erase(0, 1);
  }
  t.resize(15, '0');
  auto nib = [](char c) { return c == '.' ? 15 : c - '0'; };
  std::string out(8, '\0');
  out[0] = static_cast<char>(sign * 16 + nib(t[0]));
  for (int i = 1; i < 8; ++i) out[i] = static_cast<char>(nib(t[2 * i - 1]) * 16 + nib(t[2 * i]));
  return out;
}

FichierBinaire* Record(uint16_t number) {
  FichierBinaire* record = nullptr;
  EXPECT_EQ(usRechercherFichier(number, &record), KT_OK);
  return record;
}

TEST_F(BinFileFields, EveryFieldHasItsBytesAndReadsBack) {
  const uint16_t units[] = {0x1234, 0x00E9};
  const std::string bytes = Build("f", KT_CONTROLE_AUCUN, [&](uint16_t n) {
    EXPECT_EQ(KT_usEcrireUnsignedChar(n, 0xAB), KT_OK);
    EXPECT_EQ(KT_usEcrireSignedChar(n, -2), KT_OK);
    EXPECT_EQ(KT_usEcrireUnsignedShort(n, 0x1234), KT_OK);
    EXPECT_EQ(KT_usEcrireSignedShort(n, -2), KT_OK);
    EXPECT_EQ(KT_usEcrireUnsignedLong(n, 0x01020304), KT_OK);
    EXPECT_EQ(KT_usEcrireSignedLong(n, -2), KT_OK);
    EXPECT_EQ(KT_usEcrireDate(n, 2024, 12, 31), KT_OK);
    EXPECT_EQ(KT_usEcrireChampFixe(n, reinterpret_cast<const uint8_t*>("xyz"), 3), KT_OK);
    EXPECT_EQ(KT_usEcrireChampUnicodeFixe(n, units, 2), KT_OK);
    EXPECT_EQ(KT_usEcrireChaineVariable(n, "abc"), KT_OK);
    EXPECT_EQ(KT_usEcrireChaineVariable(n, nullptr), KT_OK);
    EXPECT_EQ(KT_usEcrireDouble(n, -1234.5), KT_OK);
  });
  const std::string expected(
      "\xAB\xFE\x12\x34\xFF\xFE\x01\x02\x03\x04\xFF\xFF\xFF\xFE\x07\xE8\x0C\x1F"
      "xyz\x12\x34\x00\xE9\x03"
      "abc\x00\x11\x23\x4F\x50\x00\x00\x00\x00",
      38);
  EXPECT_EQ(Body(bytes), expected);

  Read("f", KT_CONTROLE_AUCUN, [](uint16_t n) {
    uint8_t uc = 0, month = 0, day = 0, fixed[3] = {};
    int8_t sc = 0;
    uint16_t us = 0, year = 0, read_units[2] = {};
    int16_t ss = 0;
    uint32_t ul = 0;
    int32_t sl = 0;
    char *text = nullptr, *empty = nullptr;
    double d = 0;
    EXPECT_TRUE(KT_usLireUnsignedChar(n, &uc) == KT_OK && uc == 0xAB);
    EXPECT_TRUE(KT_usLireSignedChar(n, &sc) == KT_OK && sc == -2);
    EXPECT_TRUE(KT_usLireUnsignedShort(n, &us) == KT_OK && us == 0x1234);
    EXPECT_TRUE(KT_usLireSignedShort(n, &ss) == KT_OK && ss == -2);
    EXPECT_TRUE(KT_usLireUnsignedLong(n, &ul) == KT_OK && ul == 0x01020304);
    EXPECT_TRUE(KT_usLireSignedLong(n, &sl) == KT_OK && sl == -2);
    EXPECT_TRUE(KT_usLireDate(n, &year, &month, &day) == KT_OK && year == 2024 && month == 12 &&
                day == 31);
    EXPECT_TRUE(KT_usLireChampFixe(n, fixed, 3) == KT_OK && std::memcmp(fixed, "xyz", 3) == 0);
    EXPECT_TRUE(KT_usLireChampUnicodeFixe(n, read_units, 2) == KT_OK && read_units[0] == 0x1234 &&
                read_units[1] == 0x00E9);
    EXPECT_TRUE(KT_usLireChaineVariable(n, &text) == KT_OK && std::strcmp(text, "abc") == 0);
    EXPECT_TRUE(KT_usLireChaineVariable(n, &empty) == KT_OK && std::strcmp(empty, "") == 0);
    EXPECT_TRUE(KT_usLireDouble(n, &d) == KT_OK && d == -1234.5);
    KT_Liberer(text);
    KT_Liberer(empty);
  });
}

TEST(BinFileDouble, ExamplesAndLimits) {
  EXPECT_EQ(Packed(3.5), std::string("\x03\xF5\0\0\0\0\0\0", 8));
  EXPECT_EQ(Packed(-1234.5), std::string("\x11\x23\x4F\x50\0\0\0\0", 8));
  EXPECT_EQ(Packed(0.0), std::string("\x00\xF0\0\0\0\0\0\0", 8));
  EXPECT_EQ(Packed(12345678901234.0), std::string("\x01\x23\x45\x67\x89\x01\x23\x4F", 8));
  EXPECT_EQ(Packed(99999999999999.0), std::string("\x09\x99\x99\x99\x99\x99\x99\x9F", 8));
  EXPECT_EQ(Packed(1e14), "refused");
  EXPECT_EQ(Packed(-1e14), "refused");
  EXPECT_EQ(Packed(std::numeric_limits<double>::infinity()), "refused");
  EXPECT_EQ(Packed(std::numeric_limits<double>::quiet_NaN()), "refused");
  // Negative zero keeps its sign.
  const std::string negative_zero = Packed(-0.0);
  EXPECT_EQ(negative_zero, std::string("\x10\xF0\0\0\0\0\0\0", 8));
  kt::binfiles::PackedDecimal p{};
  std::copy(negative_zero.begin(), negative_zero.end(), p.begin());
  EXPECT_TRUE(std::signbit(kt::binfiles::UnpackDecimal(p)));
  // A rounding carry adds a digit; the 16th character is dropped.
  ASSERT_TRUE(kt::binfiles::PackDecimal(9.99999999999999, p));
  EXPECT_EQ(kt::binfiles::UnpackDecimal(p), 10.0);
  // Nibbles the writer never makes end the number where they stand.
  p = {0x01, 0x2A, 0x3F, 0x40, 0, 0, 0, 0};
  EXPECT_EQ(kt::binfiles::UnpackDecimal(p), 12.0);
  p = {0x0F, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(kt::binfiles::UnpackDecimal(p), 0.0);
  p = {0x71, 0xF5, 0, 0, 0, 0, 0, 0};  // any sign nibble but 0 is negative
  EXPECT_EQ(kt::binfiles::UnpackDecimal(p), -1.5);
}

TEST(BinFileDouble, PackingEqualsPrintfRoundingAndReadsBackAt14Digits) {
  std::mt19937_64 random(20240131);
  std::uniform_real_distribution<double> mantissa(1.0, 10.0);
  std::uniform_int_distribution<int> exponent(-18, 14);
  std::vector<double> values = {0.5,
                                1.25,
                                2.5,
                                1234567890123.25,
                                1234567890123.75,
                                99999999999999.5,
                                0.05,
                                0.00000000000005,
                                1e-300,
                                5e-324};
  for (int i = 0; i < 20000; ++i) {
    double v = mantissa(random) * std::pow(10.0, exponent(random));
    values.push_back(i % 2 == 0 ? v : -v);
  }
  for (double v : values) {
    SCOPED_TRACE(v);
    ASSERT_EQ(Packed(v), PrintfPacked(v));
    kt::binfiles::PackedDecimal p{};
    if (!kt::binfiles::PackDecimal(v, p)) continue;
    char expected[64];
    std::snprintf(expected, sizeof expected, "%.13e", v);
    const double back = kt::binfiles::UnpackDecimal(p);
    if (std::fabs(v) >= 1.0) {
      // 14 significant digits.
      EXPECT_EQ(back, std::strtod(expected, nullptr));
    } else {
      char fixed[64];
      std::snprintf(fixed, sizeof fixed, "%.13f", v);
      EXPECT_EQ(back, std::strtod(fixed, nullptr));
    }
  }
}

// Builds a French locale (decimal comma) in a scratch directory when the
// machine has none installed; skips when neither can be had.
bool UseCommaLocale(const ScratchDir& dir) {
  for (const char* name : {"fr_FR.UTF-8", "de_DE.UTF-8", "fr_FR", "de_DE"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) return true;
  }
  const std::string command =
      "localedef -i fr_FR -f ISO-8859-1 " + dir.File("fr_FR") + " >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) return false;
  setenv("LOCPATH", dir.path().c_str(), 1);
  return std::setlocale(LC_ALL, "fr_FR") != nullptr;
}

TEST_F(BinFileFields, DoubleUsesPointWhateverTheLocale) {
  ScratchDir locales;
  if (!UseCommaLocale(locales)) GTEST_SKIP() << "no locale with a decimal comma";
  char probe[16];
  std::snprintf(probe, sizeof probe, "%.1f", 3.5);
  const bool comma = std::string(probe) == "3,5";
  const std::string bytes = Build("l", KT_CONTROLE_AUCUN, [](uint16_t n) {
    EXPECT_EQ(KT_usEcrireDouble(n, 3.5), KT_OK);
    EXPECT_EQ(KT_usEcrireDouble(n, -0.125), KT_OK);
  });
  double a = 0, b = 0;
  Read("l", KT_CONTROLE_AUCUN, [&](uint16_t n) {
    EXPECT_EQ(KT_usLireDouble(n, &a), KT_OK);
    EXPECT_EQ(KT_usLireDouble(n, &b), KT_OK);
  });
  std::setlocale(LC_ALL, "C");
  unsetenv("LOCPATH");
  EXPECT_TRUE(comma) << probe;
  EXPECT_EQ(Body(bytes), std::string("\x03\xF5\0\0\0\0\0\0\x10\xF1\x25\0\0\0\0\0", 16));
  EXPECT_EQ(a, 3.5);
  EXPECT_EQ(b, -0.125);
}

TEST_F(BinFileFields, StringPrefixesAtEveryBoundary) {
  const std::vector<std::pair<uint32_t, std::string>> cases = {
      {0, std::string(1, '\0')},
      {127, "\x7F"},
      {128, "\x81\x80"},
      {255, "\x81\xFF"},
      {256, std::string("\x82\x01\x00", 3)},
      {65535, "\x82\xFF\xFF"},
      {65536, std::string("\x83\x01\x00\x00", 4)},
  };
  for (const auto& [length, prefix] : cases) {
    SCOPED_TRACE(length);
    const std::string text(length, 's');
    const std::string bytes = Build("s", KT_CONTROLE_AUCUN, [&](uint16_t n) {
      EXPECT_EQ(KT_usEcrireChaineVariable(n, text.c_str()), KT_OK);
    });
    EXPECT_EQ(Body(bytes), prefix + text);
    Read("s", KT_CONTROLE_AUCUN, [&](uint16_t n) {
      char* read = nullptr;
      EXPECT_EQ(KT_usLireChaineVariable(n, &read), KT_OK);
      ASSERT_NE(read, nullptr);
      EXPECT_EQ(read, text);
      KT_Liberer(read);
    });
  }
}

TEST_F(BinFileFields, WritersRefuseReadModeFilesButTheDoubleTries) {
  Build("r", KT_CONTROLE_AUCUN, [](uint16_t) {});
  Read("r", KT_CONTROLE_AUCUN, [](uint16_t n) {
    const uint8_t byte = 1;
    const uint16_t unit = 1;
    const EnteteTable table = MakeTable("T", 0);
    EXPECT_EQ(KT_usEcrireUnsignedChar(n, 1), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireSignedChar(n, 1), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireUnsignedShort(n, 1), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireSignedShort(n, 1), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireUnsignedLong(n, 1), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireSignedLong(n, 1), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireDate(n, 1, 1, 1), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireChampFixe(n, &byte, 1), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireChampUnicodeFixe(n, &unit, 1), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireChaineVariable(n, "a"), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireEnteteTable(n, &table), KT_ERR_MODE);
    EXPECT_EQ(KT_usEcrireTaille(n), KT_ERR_MODE);
    const uint32_t length = Record(n)->ulCompteurOctets;
    EXPECT_EQ(KT_usEcrireDouble(n, 1.0), KT_ERR_FICHIER);  // the stream itself refuses
    EXPECT_EQ(Record(n)->ulCompteurOctets, length + 8);
  });
}

TEST_F(BinFileFields, CounterMovesAsEachWriterSays) {
  uint16_t n = 0;
  ASSERT_EQ(Create("c", KT_CONTROLE_AUCUN, &n), KT_OK);
  FichierBinaire* record = Record(n);
  record->ulCompteurOctets = 0;
  const uint8_t bytes[3] = {1, 2, 3};
  const uint16_t units[2] = {1, 2};
  struct Case {
    const char* name;
    std::function<uint16_t()> write;
    uint32_t counted_on_failure;
    uint32_t counted_on_success;
  };
  const Case cases[] = {
      {"char", [&] { return KT_usEcrireUnsignedChar(n, 1); }, 1, 1},
      {"short", [&] { return KT_usEcrireUnsignedShort(n, 1); }, 2, 2},
      {"long", [&] { return KT_usEcrireSignedLong(n, -1); }, 4, 4},
      {"double", [&] { return KT_usEcrireDouble(n, 2.5); }, 8, 8},
      {"fixed", [&] { return KT_usEcrireChampFixe(n, bytes, 3); }, 0, 3},
      {"unicode", [&] { return KT_usEcrireChampUnicodeFixe(n, units, 2); }, 0, 4},
      {"string", [&] { return KT_usEcrireChaineVariable(n, "ab"); }, 0, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    record->ulCompteurOctets = 0;
    ArmFault(Fault::kWrite, 0);
    EXPECT_EQ(c.write(), KT_ERR_FICHIER);
    EXPECT_EQ(record->ulCompteurOctets, c.counted_on_failure);
    kt::testing::DisarmAllFaults();
    ASSERT_EQ(KT_usLibererFichierBinaire(n, nullptr), KT_OK);  // clears the stream's error
    ASSERT_EQ(Create("c", KT_CONTROLE_AUCUN, &n), KT_OK);
    record = Record(n);
    record->ulCompteurOctets = 0;
    EXPECT_EQ(c.write(), KT_OK);
    EXPECT_EQ(record->ulCompteurOctets, c.counted_on_success);
  }
  record->ulCompteurOctets = 0;
  EXPECT_EQ(KT_usEcrireDouble(n, 1e15), KT_ERR_FICHIER);
  EXPECT_EQ(record->ulCompteurOctets, 0u);
  ASSERT_EQ(KT_usLibererFichierBinaire(n, nullptr), KT_OK);
}

TEST_F(BinFileFields, ReadersAtEndOfFileLeaveTheirDestination) {
  Build("e", 0, [](uint16_t n) { EXPECT_EQ(KT_usEcrireUnsignedChar(n, 0x7F), KT_OK); });
  Read("e", 0, [](uint16_t n) {
    uint16_t us = 0xAAAA, year = 1, units[2] = {};
    uint32_t ul = 0xAAAAAAAA;
    double d = 1.5;
    uint8_t month = 2, day = 3, block[4];
    EXPECT_EQ(KT_usLireUnsignedShort(n, &us), KT_ERR_FIN_FICHIER);  // one byte short
    EXPECT_EQ(KT_usLireUnsignedLong(n, &ul), KT_ERR_FIN_FICHIER);
    EXPECT_EQ(KT_usLireDouble(n, &d), KT_ERR_FIN_FICHIER);
    EXPECT_EQ(KT_usLireDate(n, &year, &month, &day), KT_ERR_FIN_FICHIER);
    EXPECT_TRUE(us == 0xAAAA && ul == 0xAAAAAAAA && d == 1.5 && year == 1);
    EXPECT_EQ(KT_usPositionnerOffset(n, -1, SEEK_END), KT_OK);
    const std::string trace = CaptureTrace({7}, 1, [&] {
      EXPECT_EQ(KT_usLireChampFixe(n, block, 4), KT_ERR_FIN_FICHIER);
      EXPECT_EQ(KT_usLireChampUnicodeFixe(n, units, 2), KT_ERR_FIN_FICHIER);
    });
    EXPECT_THAT(trace, HasSubstr("ERREUR : KT_usLireChampFixe : Fin de fichier lu 1 a liree 4 "
                                 "usCr 63040\n"));
    EXPECT_THAT(trace, HasSubstr("ERREUR : KT_usLireChampUnicodeFixe : Fin de fichier lu 0 a "
                                 "liree 2 usCr 63040\n"));
    ArmFault(Fault::kSeek, 0);  // the position query comes first
    EXPECT_EQ(KT_usLireUnsignedShort(n, &us), KT_ERR_FIN_FICHIER);
  });
}

TEST_F(BinFileFields, VariableStringsWithBadPrefixes) {
  struct Case {
    std::string body;
    uint16_t status;
    bool block;
  };
  const Case cases[] = {
      {"\x85\x01", KT_ERR_ARGUMENT, false},  // more than 4 length bytes
      {"", KT_ERR_FIN_FICHIER, true},        // end of file at once
      {std::string("\x84\xFF\xFF\xFF\xFF") + "ab", KT_ERR_FIN_FICHIER, true},  // far past the end
      {std::string("\x83\x7F\xFF\xFF") + "ab", KT_ERR_FIN_FICHIER, true},
      {"\x82\x01", KT_ERR_FIN_FICHIER, true},  // cut prefix: length 1, nothing left
      {std::string("\x05") + "abc", KT_ERR_FIN_FICHIER, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.body));
    Build("v", KT_CONTROLE_AUCUN, [&](uint16_t n) {
      EXPECT_EQ(KT_usEcrireChampFixe(n, reinterpret_cast<const uint8_t*>(c.body.data()),
                                     static_cast<uint32_t>(c.body.size())),
                KT_OK);
    });
    Read("v", KT_CONTROLE_AUCUN, [&](uint16_t n) {
      char* text = nullptr;
      std::string trace =
          CaptureTrace({7}, 1, [&] { EXPECT_EQ(KT_usLireChaineVariable(n, &text), c.status); });
      EXPECT_EQ(text != nullptr, c.block);
      if (c.status == KT_ERR_ARGUMENT) {
        EXPECT_THAT(trace,
                    HasSubstr("ERREUR : KT_usLireChaineVariable : Nombre d'octets pour coder "
                              "la longueur (5) > 4.\n"));
      }
      // No block of megabytes is taken for what the file cannot hold.
      if (text != nullptr) {
        EXPECT_LT(malloc_usable_size(text), 64u);
      }
      KT_Liberer(text);
    });
  }
}

}  // namespace
}  // namespace kt::test
