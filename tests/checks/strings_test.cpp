// String classifiers, the three reducers and their shared rule table, the
// conversion to the accepted alphabet and the comparison ignoring case.
#include <string>

#include "frame/frame_internal.h"
#include "kt_checks.h"
#include "support/kt_test.h"

namespace kt::test {
namespace {

using kt::testing::ArmFault;
using kt::testing::Fault;

class Strings : public KtTest {};

TEST_F(Strings, ClassifiersAndComparison) {
  EXPECT_EQ(KT_bEstNumerique(""), 1);
  EXPECT_EQ(KT_bEstNumerique("1\xb2"), 0);  // superscript two is no digit
  EXPECT_EQ(KT_bEstAlphabetique("DEUX MOTS"), 1);
  EXPECT_EQ(KT_bEstAlphabetique("Deux"), 0);
  EXPECT_EQ(KT_bEstAlphaNumerique("AB 12"), 1);
  EXPECT_EQ(KT_bEstAlphaNumerique("\xc9T\xc9"), 0);  // not letters in the C locale
  EXPECT_EQ(KT_bCompareChaine("abc", "ABC"), 1);
  EXPECT_EQ(KT_bCompareChaine("\xe9", "\xc9"), 0);  // ASCII letters only
  EXPECT_EQ(KT_bCompareChaine("abc", nullptr), 0);
}

TEST_F(Strings, LongToTextBelowTheDigitLimit) {
  char text[12] = "untouched";
  EXPECT_EQ(KT_bLongAChaine(1000, text, 3), 0);
  EXPECT_EQ(KT_bLongAChaine(999, text, 3), 1);
  EXPECT_STREQ(text, "999");
  EXPECT_EQ(KT_bLongAChaine(INT32_MIN, text, 0), 1);  // negatives always pass
  EXPECT_STREQ(text, "-2147483648");
  // 10^10 taken in 32 bits is 1410065408; from 32 digits on it is 0.
  EXPECT_EQ(KT_bLongAChaine(1410065407, text, 10), 1);
  EXPECT_EQ(KT_bLongAChaine(1410065408, text, 10), 0);
  EXPECT_EQ(KT_bLongAChaine(0, text, 0xFFFFFFFF), 0);
}

struct ReduceCase {
  const char* text;
  uint32_t length;
  char type;
  uint8_t result;
  const char* reduced;      // KT_bReduireChaine's text
  uint32_t reduced_length;  // 99 when not set
  uint32_t control_length;  // bChaineCtrlFormat's ('N' not reduced), 99 when not set
};

TEST_F(Strings, ReducersShareOneRuleTable) {
  const ReduceCase cases[] = {
      {"00120", 5, 'N', 1, "120", 3, 5},    {"0000", 4, 'N', 1, "0", 1, 4},
      {"AB  ", 4, 'A', 1, "AB", 2, 2},      {"   ", 3, 'A', 1, "", 0, 0},
      {"ABCDEF", 3, 'L', 1, "ABC", 3, 3},   {"AB  XYZ", 4, 'L', 1, "AB", 2, 2},
      {"Ab ", 3, 'A', 0, "Ab ", 99, 99},    {"0012 ", 5, 'D', 0, "0012 ", 99, 99},
      {"x y  ", 5, 'Z', 1, "x y  ", 5, 5},  {"ABC", 30, 'L', 1, "ABC", 3, 3},
  };
  const uint32_t memory = kt::frame::AllocatedTotal();
  for (const ReduceCase& c : cases) {
    SCOPED_TRACE(std::string(c.text) + " " + c.type);
    std::string text = c.text;
    uint32_t length = 99;
    EXPECT_EQ(KT_bReduireChaine(text.data(), c.length, c.type, &length), c.result);
    EXPECT_EQ(text.c_str(), std::string(c.reduced));
    EXPECT_EQ(length, c.reduced_length);
    length = 99;
    EXPECT_EQ(bChaineCtrlFormat(c.text, c.length, c.type, &length), c.result);
    EXPECT_EQ(length, c.control_length);
    // The copying reducer hands out its copy whatever the result.
    char* copy = nullptr;
    length = 99;
    EXPECT_EQ(KT_bReduireChaineCtrl(c.text, &copy, c.length, c.type, &length), c.result);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(length, c.control_length);
    EXPECT_EQ(std::string(copy), std::string(c.text).substr(0, c.result != 0 ? c.control_length
                                                                              : c.length));
    KT_Liberer(copy);
  }
  EXPECT_EQ(kt::frame::AllocatedTotal(), memory);
  // 'D' must also be a valid date text for the format control only.
  uint32_t length = 0;
  EXPECT_EQ(bChaineCtrlFormat("20040230", 8, 'D', &length), 0);
  EXPECT_EQ(bChaineCtrlFormat("20040229", 8, 'D', &length), 1);
  std::string date = "20040230";
  EXPECT_EQ(KT_bReduireChaine(date.data(), 8, 'D', &length), 1);
  // Without memory: result 0, nothing changed, no copy.
  std::string text = "AB  ";
  ArmFault(Fault::kAlloc, 0);
  EXPECT_EQ(KT_bReduireChaine(text.data(), 4, 'A', &length), 0);
  EXPECT_EQ(text, "AB  ");
  char* copy = text.data();
  ArmFault(Fault::kAlloc, 0);
  EXPECT_EQ(KT_bReduireChaineCtrl("AB", &copy, 2, 'A', &length), 0);
  EXPECT_EQ(copy, nullptr);
}

TEST_F(Strings, ConversionToTheAcceptedAlphabet) {
  const uint32_t memory = kt::frame::AllocatedTotal();
  const struct {
    const char* text;
    uint8_t drop;
    const char* expected;
  } cases[] = {
      {"Ete 1, a", 0, "ETE 1  A "},  // comma and terminator became blanks
      {"Ete 1, a", 1, "ETE 1 A"},
      {"\xc9t\xe9\t!", 0, " T    "},  // accented letters are not folded
      {"\xc9t\xe9\t!", 1, "T"},
  };
  for (const auto& c : cases) {
    char* result = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(KT_bConvertirEtenduEnAlpha(c.text, &result, &length, c.drop), 1);
    ASSERT_NE(result, nullptr);
    EXPECT_STREQ(result, c.expected);
    EXPECT_EQ(length, std::string(c.expected).size());
    KT_Liberer(result);
  }
  EXPECT_EQ(kt::frame::AllocatedTotal(), memory);
  char* result = nullptr;
  uint32_t length = 0;
  EXPECT_EQ(KT_bConvertirEtenduEnAlpha("", &result, &length, 0), 0);
  EXPECT_EQ(result, nullptr);
  ArmFault(Fault::kAlloc, 0);
  EXPECT_EQ(KT_bConvertirEtenduEnAlpha("abc", &result, &length, 0), 0);
}

TEST_F(Strings, TracesKeepTheirTexts) {
  EXPECT_EQ(CaptureTrace({6}, 2,
                         [] {
                           char text[] = "012";
                           KT_bReduireChaine(text, 3, 'N', nullptr);
                         }),
            "{ KT_bReduireChaine\n"
            "  { KT_bEstNumerique\n"
            "    chaine valide\n"
            "    bResultat = 0x0001\n"
            "    KT_bEstNumerique\n"
            "  }\n"
            "  KT_bEstNumerique:bResultat = 0x0001\n"
            "  KT_bReduireChaine:bResultat = 0x0001\n"
            "  KT_bReduireChaine\n"
            "}\n");
}

}  // namespace
}  // namespace kt::test
