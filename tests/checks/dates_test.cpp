// Date checks against an independent calendar (std::chrono's proleptic
// Gregorian one, which has a year 0), every year from 0 to 9999, and the
// conversions with their kept quirks.
#include <chrono>
#include <cstdio>
#include <string>

#include "kt_checks.h"
#include "support/kt_test.h"

namespace kt::test {
namespace {

class Dates : public KtTest {};

bool CalendarValid(int year, unsigned month, unsigned day) {
  using namespace std::chrono;
  return year_month_day{std::chrono::year{year}, std::chrono::month{month}, std::chrono::day{day}}
      .ok();
}

TEST_F(Dates, EveryYearMatchesTheCalendar) {
  char text[16];
  for (int year = 0; year <= 9999; ++year) {
    for (unsigned month = 0; month <= 13; ++month) {
      for (unsigned day = 0; day <= 32; ++day) {
        const uint8_t expected = CalendarValid(year, month, day) ? 1 : 0;
        const auto y = static_cast<uint16_t>(year);
        const auto m = static_cast<uint8_t>(month);
        const auto d = static_cast<uint8_t>(day);
        bool same = KT_bEstDateNumeriqueValide(y, m, d) == expected &&
                    bOUTILSEstDateValide(y, m, d, 23, 59) == expected;
        // The texts: the days around month ends, and every day of the years
        // that the 6-character form can hold.
        if (day <= 1 || day >= 28 || year < 100) {
          std::snprintf(text, sizeof text, "%04d%02u%02u", year, month, day);
          same = same && KT_bEstDateChaineValide(text) == expected;
          if (year < 100) same = same && KT_bEstDateChaineValide(text + 2) == expected;
        }
        if (!same) FAIL() << year << "-" << month << "-" << day;
      }
    }
  }
  EXPECT_EQ(KT_bEstDateNumeriqueValide(10000, 1, 1), 0);
}

TEST_F(Dates, TextExamples) {
  const std::pair<const char*, int> cases[] = {
      {"20040229", 1}, {"20030229", 0}, {"19000229", 0}, {"20000229", 1}, {"000229", 1},
      {"200401011260", 0}, {"200401012359", 1}, {"200401012400", 0}, {"2004-229", 0},
      {"2004022\xb9", 0},  // superscript one is no digit
      {"abc", 1}, {"2004010112000", 1}, {"", 1},  // other lengths count as valid
  };
  for (const auto& [text, valid] : cases) EXPECT_EQ(KT_bEstDateChaineValide(text), valid) << text;
  EXPECT_EQ(KT_bEstDateChaineValide(nullptr), 0);
  EXPECT_EQ(bOUTILSEstDate12("2004"), 0);  // a shorter text fails at its terminator
}

TEST_F(Dates, TextToNumbers) {
  uint16_t year[4] = {7, 7, 7, 7};
  uint8_t month = 0;
  uint8_t day = 0;
  EXPECT_EQ(KT_bDateChaineANumerique("040517", year, &month, &day), 1);
  EXPECT_EQ(year[0] * 10000 + month * 100 + day, 40517);
  // 8 and 12 characters: one year digit into each of four 16-bit units,
  // each unit times 10 plus its digit; month and day untouched.
  uint16_t units[4] = {9, 1, 2, 65535};
  EXPECT_EQ(KT_bDateChaineANumerique("200412312359", units, &month, &day), 1);
  EXPECT_EQ(units[0], 2);
  EXPECT_EQ(units[1], 10);
  EXPECT_EQ(units[2], 20);
  EXPECT_EQ(units[3], static_cast<uint16_t>(65535 * 10 + 4));
  EXPECT_EQ(month * 100 + day, 517);
  // Invalid texts and other lengths: year cleared, result 0.
  EXPECT_EQ(KT_bDateChaineANumerique("040532", year, &month, &day), 0);
  EXPECT_EQ(year[0], 0);
  year[0] = 7;
  EXPECT_EQ(KT_bDateChaineANumerique("abc", year, &month, &day), 0);
  EXPECT_EQ(year[0], 0);
}

TEST_F(Dates, NumbersToText) {
  struct Case {
    uint16_t year;
    uint8_t month, day, length;
    const char* expected;  // null: result 0, nothing written
  };
  const Case cases[] = {
      {2004, 5, 17, 8, "20040517"}, {2004, 5, 17, 12, "200405170000"},
      {2004, 5, 17, 6, "200517"},  // century digits kept
      {4, 5, 17, 6, "040517"},     {2004, 13, 1, 8, "20041301"},  // invalid still converts
      {4, 5, 255, 6, "040525"},    {65535, 255, 255, 12, "655325250000"},  // cut to length
      {2004, 5, 17, 7, nullptr},
  };
  for (const Case& c : cases) {
    // Exactly length + 1 characters, so that the sanitizer sees any overrun.
    std::string text(c.length + 1u, '#');
    EXPECT_EQ(KT_bDateNumeriqueAChaine(c.year, c.month, c.day, c.length, text.data()),
              c.expected != nullptr ? 1 : 0);
    EXPECT_EQ(text.c_str(), std::string(c.expected != nullptr ? c.expected : "########"));
  }
}

TEST_F(Dates, TracesKeepTheirTexts) {
  EXPECT_EQ(CaptureTrace({6}, 2, [] { bOUTILSEstDate8("20040229"); }),
            "{ bOUTILSEstDate8\n"
            "  date = 29/02/2004\n"
            "  { bOUTILSEstDateValide\n"
            "    date = 29/02/2004, 00:00\n"
            "    Date valide\n"
            "    bResultat = 0x0001\n"
            "    bOUTILSEstDateValide\n"
            "  }\n"
            "  bResultat = 0x0001\n"
            "  bOUTILSEstDate6\n"
            "}\n");
}

}  // namespace
}  // namespace kt::test
