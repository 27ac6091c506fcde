// Format models: scanning, compiling with its errors, writing (against
// strftime where C has the same field), reading (century window, defaults,
// conflicts, options) and round trips over generated models.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "datetime/calendar/ldx_impl.h"
#include "ldx.h"
#include "tests/datetime/datetime_test.h"
#include "tests/support/portable.h"

namespace {

using namespace ldx_internal;
using namespace dttest;

std::string fmt(ldxctx *c, const ldxdate &d, const std::string &model) {
  char out[512];
  int32_t n = ldxdts(c, out, sizeof out, &d, model.data(), model.size());
  return n < 0 ? "<error>" : std::string(out, static_cast<size_t>(n));
}

TEST(DateFormat, ScannerReportsCaseSuffixesAndFillMode) {
  Ctx x;
  const struct {
    const char *model;
    std::vector<std::pair<int32_t, uint32_t>> items;  // (code, flags); literals as 64
  } cases[] = {
      {"Month", {{30, 4}}}, {"MONTH", {{30, 8}}}, {"month", {{30, 0}}},
      {"Mo", {}},  // no element "MO": handled below as error
      {"MOnth", {{30, 8}}}, {"DDTH", {{22, 9}}}, {"DDSPTH", {{22, 11}}}, {"DDTHSP", {{22, 11}}},
      {"ddth", {{22, 1 | 0x20}}}, {"DDSP", {{22, 10}}},
      {"FMDD-FMMM-YY", {{22, 8 | 16}, {64, 0}, {17, 8}, {64, 0}, {6, 8}}},
      {"FMDD-MM", {{22, 8 | 16}, {64, 0}, {17, 8 | 16}}}, {"Dy \"x\"D", {{33, 4}, {64, 0}, {64, 0}, {21, 0}}},
      {"D J Q E Y d", {{21, 0}, {64, 0}, {29, 0}, {64, 0}, {16, 0}, {64, 0}, {43, 0}, {64, 0}, {4, 0}, {64, 0}, {21, 0}}},
      {"HH12HH24HH", {{25, 8}, {24, 8}, {25, 8}}}, {"SSSSSSS", {{28, 8}, {27, 8}}},
      {"Y,YYYSYYYYSY,YYY", {{11, 8}, {12, 8}, {13, 8}}}, {"A.M.p.m.", {{35, 8}, {35, 0}}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.model);
    ldxscan s;
    ldxsni(&x.c, &s, c.model, std::strlen(c.model));
    std::vector<std::pair<int32_t, uint32_t>> got;
    int32_t code;
    x.rec.errs.clear();
    while ((code = ldxsnf(&x.c, &s)) > 0) got.push_back({code, code == 64 ? 0u : s.flags});
    if (std::string(c.model) == "Mo") {
      EXPECT_EQ(code, -1);
      EXPECT_EQ(x.last(), 1821);
      continue;
    }
    EXPECT_EQ(code, 0);
    EXPECT_EQ(got, c.items);
  }
  // Quoted literal content is handed out without its quotes.
  ldxscan s;
  ldxsni(&x.c, &s, "\"at \"HH", 7);
  ASSERT_EQ(ldxsnf(&x.c, &s), 64);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(s.lit), s.litlen), "at ");
}

TEST(DateFormat, CompileErrorsAreEachReachable) {
  Ctx x;
  const std::string long_model = "YYYY" + std::string(206, '-');
  const struct {
    std::string model;
    int32_t err;
  } cases[] = {
      {long_model, 1800}, {"DDD J", 1811}, {"J-DDD", 1811}, {"YYYY YY", 1812}, {"SYYYY Y,YYY", 1812},
      {"NYYYY SY,YYY", 1812}, {"Y YYY", 1812}, {"HH HH24", 1813}, {"HH24 HH12", 1813},
      {"AM A.M.", 1814}, {"AD B.C.", 1815}, {"MM MON", 1816}, {"MONTH RM", 1816},
      {"DAY D", 1817}, {"DY DAY", 1817}, {"HH24 PM", 1818}, {"A.M. HH24", 1818},
      {"SYYYY BC", 1819}, {"A.D. NYYYY", 1819}, {"SY,YYY AD", 1819}, {"YYYY-MM-YYYY", 1810},
      {"AM PM", 1810}, {"DD DD", 1810}, {"CC", 1820}, {"SCC", 1820},
      {"I", 1820}, {"IY", 1820}, {"IYY", 1820}, {"IYYY", 1820},
      {"YEAR", 1820}, {"SYEAR", 1820}, {"Q", 1820}, {"IW", 1820},
      {"WW", 1820}, {"W", 1820}, {"GG", 1821}, {"DD%MM", 1821},
      {"DD9", 1821}, {"\"open", 1821}, {"Kx", 1821}, {"DD-LL", 1821},
      {"O", 1821}, {"U", 1821}, {"V", 1821}, {"X", 1821}, {"Z", 1821}, {"DDX", 1821}, {"YYYY\xc3\xa9", 1821},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.model);
    uint8_t out[512];
    x.rec.errs.clear();
    EXPECT_EQ(ldxsti(&x.c, c.model.data(), c.model.size(), out, sizeof out), 0u);
    EXPECT_EQ(x.rec.errs, std::vector<int32_t>{c.err});
  }
  // FM and FX may repeat, and the input-excluded elements still write.
  uint8_t out[512];
  x.rec.errs.clear();
  EXPECT_GT(ldxsti(&x.c, "FMDD FM FX MM FX FM", 19, out, sizeof out), 0u);
  EXPECT_TRUE(x.rec.errs.empty());
  EXPECT_EQ(fmt(&x.c, D(2024, 5, 6), "CC Q IW WW W"), "21 2 19 19 1");
  // Output area too small for the item or the terminator.
  for (size_t sz : {0, 2, 3, 4, 5, 8}) {
    x.rec.errs.clear();
    EXPECT_EQ(ldxsti(&x.c, "DD-MON", 6, out, sz), 0u) << sz;
    EXPECT_EQ(x.rec.errs, std::vector<int32_t>{1801});
  }
  EXPECT_EQ(ldxsti(&x.c, "DD-MON", 6, out, 9), 9u);  // header 2, DD 2, "-" 2, MON 2, end 1
  // Length limit: 209 scanned bytes pass, 210 fail.
  std::string edge = "DD" + std::string(207, ' ');
  x.rec.errs.clear();
  EXPECT_GT(ldxsti(&x.c, edge.data(), edge.size(), out, sizeof out), 0u);
  edge += " ";
  EXPECT_EQ(ldxsti(&x.c, edge.data(), edge.size(), out, sizeof out), 0u);
  EXPECT_EQ(x.rec.errs, std::vector<int32_t>{1800});
}

TEST(DateFormat, BeginVariantsAndTheDefaultFormat) {
  Ctx x;
  ldxctx &c = x.c;
  Recorder &rec = x.rec;
  EXPECT_EQ(fmt(&c, D(2024, 2, 9), ""), "09-FEB-24");
  uint64_t saved[6];
  std::memcpy(saved, c.deffmt, sizeof saved);

  ldxctx c2;
  int token;
  ASSERT_EQ(ldxcbeg(&c2, nullptr, &token, record, &rec, saved), 0);
  EXPECT_EQ(c2.nlsgbl, &token);
  EXPECT_EQ(fmt(&c2, D(2024, 2, 9), ""), "09-FEB-24");

  ASSERT_EQ(ldxnbeg(&c2, nullptr, record, &rec, "YYYY/MM/DD", 10), 0);
  EXPECT_EQ(fmt(&c2, D(2024, 2, 9), ""), "2024/02/09");
  const uint16_t wide[] = {u'D', u'D', u'.', u'M', u'M'};
  ASSERT_EQ(ldxnbegu(&c2, nullptr, record, &rec, wide, 5), 0);
  EXPECT_EQ(fmt(&c2, D(2024, 2, 9), ""), "09.02");
  ASSERT_EQ(ldxbeginu(&c2, nullptr, record, &rec), 0);
  EXPECT_EQ(fmt(&c2, D(2024, 2, 9), ""), "09-FEB-24");
  ASSERT_EQ(ldxcbegu(&c2, nullptr, nullptr, record, &rec, saved), 0);
  EXPECT_TRUE(rec.errs.empty());

  // An empty model.
  EXPECT_EQ(ldxnbeg(&c2, nullptr, record, &rec, "", 0), -1);
  EXPECT_EQ(rec.errs, (std::vector<int32_t>{600}));
  // The default format is the one read when the model is left out.
  ldxdate d{};
  PinNow pin;
  ASSERT_EQ(ldxsto(&c, &d, "15-jan-99", 9, nullptr, 0, 0), 0);
  EXPECT_EQ(str(d), "1999-01-15 00:00:00");
}

TEST(DateFormat, WritesEveryElement) {
  Ctx x;
  const ldxdate d = D(2024, 2, 29, 13, 5, 9);
  const ldxdate bc = D(-44, 3, 15, 0, 30, 0);
  const struct {
    ldxdate d;
    const char *model, *want;
  } cases[] = {
      {d, "DD-MON-RR", "29-FEB-24"}, {d, "YYYY-MM-DD HH24:MI:SS", "2024-02-29 13:05:09"},
      {d, "Day, Month ddth, YYYY", "Thursday , February  29th, 2024"},
      {d, "fmDay, Month DDTH", "Thursday, February 29TH"},
      {d, "DDSPTH Ddsp ddspth", "TWENTY-NINTH Twenty-Nine twenty-ninth"}, {d, "Yyyysp", "Two Thousand Twenty-Four"},
      {d, "YEAR; Year; syear", "TWO THOUSAND TWENTY-FOUR; Two Thousand Twenty-Four; two thousand twenty-four"},
      {D(1984, 1, 1), "YEAR", "NINETEEN EIGHTY-FOUR"}, {D(1900, 1, 1), "YEAR", "NINETEEN HUNDRED"},
      {D(1905, 1, 1), "Year", "Nineteen Five"}, {d, "J SSSSS Q", "2460370 47109 1"},
      {d, "IW WW W D DDD", "09 09 5 5 060"}, {d, "CC SCC I IY IYY IYYY", "21  21 4 24 024 2024"},
      {d, "Y YY YYY Y,YYY SYYYY NYYYY SY,YYY", "4 24 024 2,024  2024 2024  2,024"},
      {bc, "YYYY SYYYY NYYYY SY,YYY BC B.C. SCC CC", "0044 -0044 -0044 -0,044 BC B.C. -01 01"},
      {bc, "fmYYYY SYYYY Y,YYY A.D. ad", "44 -44 44 B.C. bc"},
      {d, "HH HH12 AM A.M. am pm p.m.", "01 01 PM P.M. pm pm p.m."},
      {D(2024, 1, 1, 0, 0, 0), "HH12 AM, HH24", "12 AM, 00"}, {D(2024, 1, 1, 12, 0, 0), "HH12 A.M.", "12 P.M."},
      {d, "rm-RM-fmRM-Rm", "ii  -II  -II-Ii"}, {D(2024, 12, 1), "RM", "XII "}, {d, "E EE", "ad ANNO DOMINI"},
      {bc, "E Ee", "bc Before Christ"}, {d, "\"quoted \"\"\"YYYY", "quoted 2024"},
      {d, "DL", "Thursday, February 29, 2024"}, {d, "DS", "2/29/2024"}, {d, "TS", "01:05:09 PM"},
      {d, "DS TS", "2/29/2024 01:05:09 PM"}, {d, "fmMM/DD fmHH24", "2/29 13"},
      {D(2024, 5, 3), "DAY-DY-MON-MONTH|", "<error>"},
      {D(2024, 5, 3), "DAY-DY-MON-MONTH.", "FRIDAY   -FRI-MAY-MAY      ."},
      {D(2024, 5, 3), "fmday-dy-mon-month.", "friday-fri-may-may."}, {D(2021, 11, 22), "DDTH DDth ddTH 1", "<error>"},
      {D(2021, 11, 22), "DDTH MMth DTH HHth ddTH DdTH", "22ND 11th 2nd 12th 22nd 22ND"},
      {D(2021, 11, 22), "QSP QTH Qspth", "four 4th fourth"},
      {D(2021, 1, 1, 3, 1, 1), "DDTH MMTH HH24TH MITH SSTH", "01ST 01ST 03RD 01ST 01ST"},
      {D(2021, 1, 13, 0, 11, 12), "DDTH MITH SSTH", "13TH 11TH 12TH"},
      {D(1, 1, 1), "J YYYY SYYYY", "1721424 0001  0001"}, {D(-4712, 1, 1), "J SYYYY", "0000001 -4712"},
      {D(9999, 12, 31, 23, 59, 59), "J SSSSS", "5373484 86399"},
      {D(2024, 5, 6), "fmJ Jsp", "2460437 two million four hundred sixty thousand four hundred thirty-seven"},
      {d, "FX DD FX", " 29 "},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.model);
    EXPECT_EQ(fmt(&x.c, c.d, c.model), c.want);
  }
  // Output too small, and an invalid date.
  char small[5];
  x.rec.errs.clear();
  EXPECT_EQ(ldxdts(&x.c, small, sizeof small, &d, "YYYY-MM", 7), -1);
  ldxdate bad = D(2024, 13, 1);
  EXPECT_EQ(ldxdts(&x.c, small, sizeof small, &bad, "YYYY", 4), -1);
  EXPECT_EQ(x.rec.errs, (std::vector<int32_t>{1801, 1843}));
}

TEST(DateFormat, NumbersNamesAndWeeksAgreeWithStrftime) {
  KEL_SKIP_ON_WINDOWS("the C library's strftime has no ISO weeks beyond the year 3000");
  Ctx x;
  std::mt19937 rng(3);
  const struct {
    const char *model, *c;
  } pairs[] = {{"YYYY-MM-DD HH24:MI:SS", "%Y-%m-%d %H:%M:%S"},
               {"fmMonth Day Mon Dy", "%B %A %b %a"}, {"DDD HH12 AM", "%j %I %p"}, {"IYYY-IW", "%G-%V"},
               {"YY", "%y"}};
  for (int i = 0; i < 3000; ++i) {
    ldxdate d = D(1583 + static_cast<int>(rng() % 8400), 1 + static_cast<int>(rng() % 12), 1, static_cast<int>(rng() % 24),
                  static_cast<int>(rng() % 60), static_cast<int>(rng() % 60));
    d.day = static_cast<int8_t>(1 + rng() % days_in_month(d.year, d.month));
    std::tm tm{};
    tm.tm_year = d.year - 1900;
    tm.tm_mon = d.month - 1;
    tm.tm_mday = d.day;
    tm.tm_hour = d.hour;
    tm.tm_min = d.minute;
    tm.tm_sec = d.second;
    kel_test::utc_time(&tm);  // fills weekday and day of year
    for (const auto &p : pairs) {
      char want[128];
      size_t n = std::strftime(want, sizeof want, p.c, &tm);
      ASSERT_EQ(fmt(&x.c, d, p.model), std::string(want, n)) << str(d) << " " << p.model;
    }
    ASSERT_EQ(fmt(&x.c, d, "D"), std::to_string(tm.tm_wday + 1));
  }
}

TEST(DateFormat, ReadsYearsAgainstTheCurrentYear) {
  Ctx x;
  const struct {
    int64_t now_year;  // pinned to 1 July of this year
    const char *model, *text;
    int want_year;
  } cases[] = {
      {2024, "RR", "24", 2024}, {2024, "RR", "49", 2049}, {2024, "RR", "50", 1950},
      {2024, "RR", "99", 1999}, {2024, "RR", "0", 2000}, {2050, "RR", "49", 2049},
      {2050, "RR", "50", 1950}, {2051, "RR", "50", 2050}, {2051, "RR", "49", 2149},
      {2099, "RR", "00", 2100}, {2000, "RR", "99", 1999}, {1950, "RR", "50", 1850},
      {2024, "RRRR", "44", 2044}, {2024, "RRRR", "0044", 44}, {2024, "RRRR", "123", 123},
      {2024, "RRRR", "1999", 1999}, {2024, "RRRR", "77", 1977}, {2024, "Y", "7", 2027},
      {2024, "YY", "99", 2099}, {2024, "YYY", "123", 2123}, {2024, "YYY", "5", 2005},
      {1987, "Y", "0", 1980}, {2024, "YYYY", "12", 12}, {2024, "DD", "1", 2024},
      {2024, "YYYY BC", "12 bc", -12}, {2024, "SYYYY", "-4712", -4712}, {2024, "Y,YYY", "1,234", 1234},
      {2024, "SY,YYY", "-1,234", -1234}, {2024, "NYYYY", "-99", -99}, {2024, "RRRR AD", "0044 A.D.", 44},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << c.now_year << " " << c.model << " " << c.text);
    int32_t j = ctj(static_cast<int32_t>(c.now_year), 7, 1);
    PinNow pin((static_cast<int64_t>(j) - 2440588) * 86400 * 1000000 + 5);
    ldxdate d{};
    ASSERT_EQ(ldxsto(&x.c, &d, c.text, std::strlen(c.text), c.model, std::strlen(c.model), LDX_OPT_ERRNUM), 0);
    EXPECT_EQ(d.year, c.want_year);
  }
}

TEST(DateFormat, ReadsPartsAndDefaults) {
  Ctx x;
  PinNow pin;  // 2024-07-15
  const struct {
    const char *model, *text, *want;
  } cases[] = {
      {"DD", "3", "2024-07-03 00:00:00"}, {"YYYY", "2020", "2020-07-01 00:00:00"}, {"MM", "2", "2024-02-01 00:00:00"},
      {"DDD YYYY", "60 2023", "2023-03-01 00:00:00"}, {"YYYY DDD", "2024 366", "2024-12-31 00:00:00"},
      {"J", "2460370", "2024-02-29 00:00:00"}, {"J YYYY MM DD", "2460370 2024 02 29", "2024-02-29 00:00:00"},
      {"J HH24:MI", "1 12:30", "-4712-01-01 12:30:00"}, {"DD-MON-YYYY", "5-jAn-2001", "2001-01-05 00:00:00"},
      {"DD-MON-YYYY", "5-january-2001", "2001-01-05 00:00:00"},
      {"DD MONTH YYYY", "5 SEP 2001", "2001-09-05 00:00:00"},
      {"DD MONTH YYYY", "5 sEpTeMbEr 2001", "2001-09-05 00:00:00"},
      {"DD RM YYYY", "5 ix 2001", "2001-09-05 00:00:00"}, {"DD RM YYYY", "5 XII 2001", "2001-12-05 00:00:00"},
      {"DY DD-MM-YYYY", "wed 15-05-2024", "2024-05-15 00:00:00"},
      {"DAY DD-MM-YYYY", "Wednesday 15-05-2024", "2024-05-15 00:00:00"},
      {"D DD-MM-YYYY", "4 15-05-2024", "2024-05-15 00:00:00"}, {"HH:MI:SS AM", "12:00:01 am", "2024-07-01 00:00:01"},
      {"HH:MI:SS P.M.", "12:00:01 pm", "2024-07-01 12:00:01"}, {"HH12:MI A.M.", "11:59 p.m.", "2024-07-01 23:59:00"},
      {"HH", "12", "2024-07-01 12:00:00"}, {"SSSSS", "86399", "2024-07-01 23:59:59"},
      {"SSSSS HH24 MI SS", "3723 01 02 03", "2024-07-01 01:02:03"},
      {"YYYYMMDDHH24MISS", "20240229130509", "2024-02-29 13:05:09"},
      // Any separator for any other, blanks around them, or none at all.
      {"YYYY-MM-DD", "2024/02/29", "2024-02-29 00:00:00"}, {"DD/MM/YYYY", "05-03-2024", "2024-03-05 00:00:00"},
      {"DD.MM,YYYY", "05:03;2024", "2024-03-05 00:00:00"}, {"DD MM YYYY", "05-03/2024", "2024-03-05 00:00:00"},
      {"DD-MM-YYYY", "05032024", "2024-03-05 00:00:00"}, {"YYYY-MM-DD", "  2024 - 02 -29  ", "2024-02-29 00:00:00"},
      {"DD-MM-SYYYY", "05-03-2024", "2024-03-05 00:00:00"}, {"DD-MM SYYYY", "05-03 -0044", "-44-03-05 00:00:00"},
      {"YYYY-MM-DD HH24:MI:SS", "2024-02-29", "2024-02-29 00:00:00"},
      {"DD\"of\"MM YYYY", "5 OF 03 2024", "2024-03-05 00:00:00"},
      {"DDTH MM YYYY", "21st 03 2024", "2024-03-21 00:00:00"},
      {"DDSP MM YYYY", "twenty-one 03 2024", "2024-03-21 00:00:00"},
      {"DDSPTH/MM/YYYY", "Thirty-First/03/2024", "2024-03-31 00:00:00"},
      {"YYYYSP", "two thousand twenty-four", "2024-07-01 00:00:00"},
      {"FXYYYY-MM-DD", "2024-02-29", "2024-02-29 00:00:00"}, {"FXFMYYYY-MM-DD", "24-2-9", "24-02-09 00:00:00"},
      {"FXDD MONTH YYYY", "09 MAY       2024", "2024-05-09 00:00:00"}, {"FXSYYYY", " 2024", "2024-07-01 00:00:00"},
      {"DD-MM-SYYYY", "01-01--0044", "-44-01-01 00:00:00"}, {"YYYY-MM-DD BC", "0044-03-15 BC", "-44-03-15 00:00:00"},
      {"YYYY-MM-DD B.C.", "0044-03-15 A.D.", "44-03-15 00:00:00"},
      {"YYYY-MM-DD EE", "0044-03-15 before christ", "-44-03-15 00:00:00"},
      {"DD-MM-YYYY", "04-10-1582", "1582-10-04 00:00:00"}, {"DD-MM-YYYY", "15-10-1582", "1582-10-15 00:00:00"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << c.model << " <- " << c.text);
    ldxdate d{};
    int32_t r = ldxsto(&x.c, &d, c.text, std::strlen(c.text), c.model, std::strlen(c.model), LDX_OPT_ERRNUM);
    EXPECT_EQ(r, 0);
    if (r == 0) EXPECT_EQ(str(d), c.want);
  }
}

TEST(DateFormat, ReadErrorsAndOptionBits) {
  Ctx x;
  PinNow pin;
  const struct {
    const char *model, *text;
    int32_t err;
  } cases[] = {
      {"DD-MM-YYYY", "01-01-2024 x", 1830}, {"J YYYY", "2460370 2023", 1831},
      {"DDD MM YYYY", "60 03 2024", 1832}, {"DDD DD YYYY", "60 01 2024", 1832},
      {"J MM", "2460370 03", 1833}, {"J DD", "2460370 28", 1834},
      {"DY DD-MM-YYYY", "thu 15-05-2024", 1835}, {"D DD-MM-YYYY", "1 15-05-2024", 1835},
      {"SSSSS HH24", "3600 02", 1836}, {"SSSSS MI", "3600 01", 1837},
      {"SSSSS SS", "3600 01", 1838}, {"DD-MM-YYYY", "31-04-2024", 1839},
      {"DD-MM-YYYY", "29-02-2023", 1839}, {"DD-MM-YYYY", "10-10-1582", 1839},
      {"FXDD-MM-YYYY", "01-01", 1840}, {"YYYY", "0000", 1841}, {"SYYYY", "-4713", 1841}, {"SYYYY", "-0", 1841},
      {"YYYY BC", "4713 BC", 1841}, {"DD-MON-YYYY", "01-FOO-2024", 1843}, {"MM", "13", 1843}, {"MM", "0", 1843},
      {"RM", "XIII", 1830}, {"RM", "Q", 1843}, {"DAY", "funday", 1846}, {"D", "8", 1846},
      {"DD", "32", 1847}, {"DD", "00", 1847}, {"DDD YYYY", "366 2023", 1848}, {"DDD", "367", 1848},
      {"HH", "13", 1849}, {"HH12", "0", 1849}, {"HH24", "24", 1850}, {"MI", "60", 1851},
      {"SS", "60", 1852}, {"SSSSS", "86400", 1853}, {"J", "0", 1854}, {"J", "5373485", 1854},
      {"HH AM", "10 XM", 1855}, {"YYYY AD", "2024 XX", 1856}, {"DD-MM", "AB-01", 1858}, {"DD\"T\"MM", "01X02", 1861},
      {"FXDD-MM", "01/02", 1861}, {"FXYYYY-MM-DD", "2024-1-15", 1862},
      {"FXDD-MM-YYYY", "01-01-2024 ", 1830}, {"FX DD", "01", 1861}, {"HH24:MI", "10:30 PM", 1830},
      {"DD-MM-YYYY", "05--03-2024", 1858}, {"DD-MM-YYYY", "05*03*2024", 1858},
      {"FXDD/MM/YYYY", "05-03-2024", 1861}, {"DD\"of\"MM", "05 on 03", 1861},
      {"CC", "20", 1820}, {"DD GG", "01", 1821}, {"DDSP", "banana", 1858},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << c.model << " <- " << c.text);
    ldxdate d = D(1, 2, 3), before = d;
    EXPECT_EQ(ldxsto(&x.c, &d, c.text, std::strlen(c.text), c.model, std::strlen(c.model), LDX_OPT_ERRNUM), c.err);
    EXPECT_EQ(ldxcmp(nullptr, &d, &before), 0);  // untouched on failure
  }
  // Where a read failed: the element or literal that did not match, the text
  // left over, the whole date when it is wrong as a whole; nothing after a
  // success.
  const struct {
    const char *model, *text;
    int32_t err;
    size_t pos;
    const char *rest;
  } where[] = {{"FXDD-MM-YYYY", "05/03/2024", 1861, 2, "/03/2024"},
               {"DD-MM-YYYY", "05--03-2024", 1858, 3, "-03-2024"},
               {"DD-MON-YYYY", "05-Foo-2024", 1843, 3, "Foo-2024"}, {"DD-MM-YYYY", "01-01-2024  x", 1830, 12, "x"},
               {"DD-MM-YYYY", "31-04-2024", 1839, 0, "31-04-2024"},
               {"YYYY-MM-DD", "2024-02-29", 0, 0, ""}};
  for (const auto &c : where) {
    SCOPED_TRACE(c.text);
    ldxdate d{};
    EXPECT_EQ(ldxsto(&x.c, &d, c.text, std::strlen(c.text), c.model, std::strlen(c.model), LDX_OPT_QUIET),
              c.err ? -1 : 0);
    size_t pos = 99;
    char rest[8];
    EXPECT_EQ(ldxrerr(&pos, rest, sizeof rest), c.err);
    EXPECT_EQ(pos, c.pos);
    EXPECT_EQ(std::string(rest), std::string(c.rest).substr(0, sizeof rest - 1));
  }
  // Damaged compiled models are refused, not read past their end.
  const std::string damaged[] = {std::string("\0\1", 2), std::string("\0\1\x16", 3), std::string("\0\1\x85" "ab", 5),
                                 std::string("\0\1\x2f\0\0", 5), std::string("\0\x41\x16\0\0", 5),
                                 std::string("\0\1\x30\0\0", 5), std::string("\0\1\x80", 3),
                                 std::string("\0\x05\x16\0\x81", 5)};
  for (const auto &m : damaged) {
    ldxdate d = D(2024, 1, 1);
    char out[64];
    EXPECT_EQ(ldxsto(&x.c, &d, "01", 2, m.data(), m.size(), LDX_OPT_ERRNUM), 1821);
    x.rec.errs.clear();
    EXPECT_EQ(ldxdts(&x.c, out, sizeof out, &d, m.data(), m.size()), -1);
    EXPECT_EQ(x.rec.errs, std::vector<int32_t>{1821});
  }
  // How errors surface: bit 0 quiet -1, bit 1 the number, neither the callback.
  ldxdate d{};
  x.rec.errs.clear();
  EXPECT_EQ(ldxsto(&x.c, &d, "32", 2, "DD", 2, LDX_OPT_QUIET), -1);
  EXPECT_EQ(ldxsto(&x.c, &d, "32", 2, "DD", 2, LDX_OPT_QUIET | LDX_OPT_ERRNUM), -1);
  EXPECT_EQ(ldxsto(&x.c, &d, "32", 2, "DD", 2, LDX_OPT_ERRNUM), 1847);
  EXPECT_TRUE(x.rec.errs.empty());
  EXPECT_EQ(ldxsto(&x.c, &d, "32", 2, "DD", 2, 0), -1);
  EXPECT_EQ(ldxstd(&x.c, &d, "32", 2, "DD", 2), -1);
  EXPECT_EQ(x.rec.errs, (std::vector<int32_t>{1847, 1847}));
  // The UTF-16 reader.
  const uint16_t txt[] = {u'2', u'9', u'.', u'0', u'2', u'.', u'2', u'0', u'2', u'4'};
  const uint16_t model[] = {u'D', u'D', u'.', u'M', u'M', u'.', u'Y', u'Y', u'Y', u'Y'};
  ASSERT_EQ(ldxstou(&x.c, &d, txt, 10, model, 10, LDX_OPT_ERRNUM), 0);
  EXPECT_EQ(str(d), "2024-02-29 00:00:00");
  uint16_t wout[32];
  ASSERT_EQ(ldxdtsu(&x.c, wout, 32, &d, model, 10), 10);
  EXPECT_EQ(0, std::memcmp(wout, txt, sizeof txt));
  // Quoted text outside ASCII (and outside the BMP) survives both ways.
  const std::u16string qm = u"DD \"\u00e0 \U0001F600\" MM";
  int32_t wn = ldxdtsu(&x.c, wout, 32, &d, reinterpret_cast<const uint16_t *>(qm.data()), qm.size());
  ASSERT_GT(wn, 0);
  EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t *>(wout), static_cast<size_t>(wn)), u"29 \u00e0 \U0001F600 02");
  ldxdate q{};
  ASSERT_EQ(ldxstou(&x.c, &q, wout, static_cast<size_t>(wn), reinterpret_cast<const uint16_t *>(qm.data()), qm.size(),
                    LDX_OPT_ERRNUM), 0);
  EXPECT_EQ(q.day, 29);
  EXPECT_EQ(q.month, 2);
  uint8_t cm[64];
  EXPECT_GT(ldxstiu(&x.c, reinterpret_cast<const uint16_t *>(qm.data()), qm.size(), cm, sizeof cm), 0u);
  EXPECT_EQ(ldxdtsu(&x.c, wout, 3, &d, reinterpret_cast<const uint16_t *>(qm.data()), qm.size()), -1);  // too small
}

// Plans of fixed models are kept by the bytes of the compiled model, not by
// where it lies: a buffer compiled again with another model reads by the new
// one, also when read whole with what a longer model left behind its end.
TEST(DateFormat, OneBufferRecompiledWithOtherModels) {
  PinNow pin;
  Ctx x;
  const struct {
    const char *model, *text, *want;
  } cases[] = {
      {"YYYY-MM-DD HH24:MI:SS", "2024-02-29 13:45:59", "2024-02-29 13:45:59"},
      {"YYYY-DD-MM HH24:MI:SS", "2024-02-11 13:45:59", "2024-11-02 13:45:59"},
      {"YYYY-MM-DD HH24:SS:MI", "2024-02-29 13:45:59", "2024-02-29 13:59:45"},
      {"DD.MM.YYYY", "2024-02-29 13:45:59", "error 1843"},  // month "24"
      {"DD.MM.YYYY", "29.02.2023", "error 1839"}, {"DD.MM.RRRR", "29.02.2024", "2024-02-29 00:00:00"},
      {"DD.MM.RR", "29.02.96", "1996-02-29 00:00:00"}, {"DDD/YYYY", "366/2023", "error 1848"},
      {"YYYY-MM-DD HH24:MI:SS", "2024-02-29 13:45:59", "2024-02-29 13:45:59"},
  };
  uint8_t buf[64];
  std::memset(buf, 0x81, sizeof buf);
  for (const auto &k : cases) {
    size_t n = ldxsti(&x.c, k.model, std::strlen(k.model), buf, sizeof buf);
    ASSERT_GT(n, 0u) << k.model;
    for (size_t len : {n, sizeof buf}) {
      ldxdate d{1, 2, 3, 4, 5, 6, 7};
      int32_t r = ldxsto(&x.c, &d, k.text, std::strlen(k.text), reinterpret_cast<const char *>(buf), len, LDX_OPT_ERRNUM);
      EXPECT_EQ(r ? "error " + std::to_string(r) : str(d), k.want) << k.model << " " << len;
      if (r == 0) EXPECT_EQ(d.spare, 7);
    }
  }
}

// ----------------------------------------------------------- round trips

// A model that fixes the whole date: its elements shuffled, cased and
// suffixed at random, a separator between each two. *lo is the first day
// it can carry: unsigned years need an era before year 1, RRRR four digits.
std::string make_model(std::mt19937 &g, int32_t *lo) {
  auto pick = [&g](std::initializer_list<const char *> l) { return std::string(l.begin()[g() % l.size()]); };
  std::vector<std::string> parts;
  const bool jday = g() % 6 == 0;
  *lo = 1;
  if (jday) parts.push_back("J");
  if (!jday || g() % 2) {
    const std::string y = pick({"YYYY", "SYYYY", "Y,YYY", "SY,YYY", "NYYYY", "RRRR"});
    if (y[0] != 'S' && y[0] != 'N') {
      if (g() % 2) parts.push_back(pick({"AD", "BC", "A.D.", "B.C."}));
      else *lo = ctj(1, 1, 1);
      if (y == "RRRR") *lo = ctj(1000, 1, 1);
    }
    parts.push_back(y);
  }
  if (!jday && g() % 5 == 0) parts.push_back("DDD");
  else if (!jday) parts.push_back(pick({"MM", "MON", "MONTH", "RM"})), parts.push_back("DD");
  if (g() % 2) parts.push_back(pick({"D", "DY", "DAY"}));
  if (g() % 4 == 0) {
    parts.push_back("SSSSS");
  } else {
    if (g() % 2) parts.push_back("HH24");
    else parts.push_back(pick({"HH", "HH12"})), parts.push_back(pick({"AM", "PM", "A.M.", "P.M."}));
    parts.push_back("MI"), parts.push_back("SS");
  }
  std::shuffle(parts.begin(), parts.end(), g);
  // Numbers that may take a suffix, and those that may be spelled ("DSP"
  // would read as the element "DS").
  const std::string numeric = " YYYY SYYYY Y,YYY SY,YYY NYYYY RRRR DDD DD MM D HH24 HH HH12 MI SS SSSSS ";
  const std::string spellable = " YYYY DDD DD MM HH24 HH HH12 MI SS SSSSS ";
  std::string m = g() % 4 == 0 ? "FX " : "";
  for (size_t i = 0; i < parts.size(); ++i) {
    std::string e = parts[i], sep = pick({"-", "/", ":", " ", ", ", ".", ";", "\"T\"", "\" at \"", "\"<>\""});
    if (g() % 5 == 0) m += "FM";
    const size_t low = g() % 3;  // all lower case, capitalised, or as it is
    for (size_t k = low; low < 2 && k < e.size(); ++k) e[k] = static_cast<char>(std::tolower(e[k]));
    m += e;
    if (numeric.find(" " + parts[i] + " ") != std::string::npos && g() % 6 == 0) {
      const bool spell = spellable.find(" " + parts[i] + " ") != std::string::npos;
      const std::string sfx = spell ? pick({"TH", "th", "SP", "SPTH", "THSP"}) : pick({"TH", "th"});
      m += sfx;
      // Spelled numbers end at a separator that cannot join words.
      if (sfx.find("SP") != std::string::npos) sep = g() % 2 ? "/" : ";";
    }
    if (i + 1 < parts.size()) m += sep;
  }
  return m;
}

TEST(DateFormat, RoundTripsOverGeneratedModels) {
  Ctx x;
  PinNow pin;
  std::mt19937 g(20240229);
  int trips = 0;
  for (int mi = 0; mi < 400; ++mi) {
    int32_t lo = 1;
    const std::string model = make_model(g, &lo);
    uint8_t cm[512];
    const size_t clen = ldxsti(&x.c, model.data(), model.size(), cm, sizeof cm);
    ASSERT_GT(clen, 0u) << model << " error " << x.last();
    for (int di = 0; di < 40; ++di) {
      int32_t y, m, dd;
      jtc(lo + static_cast<int32_t>(g() % static_cast<uint32_t>(kMaxJday - lo + 1)), &y, &m, &dd);
      if (y == 0) continue;
      const ldxdate d = D(y, m, dd, static_cast<int>(g() % 24), static_cast<int>(g() % 60), static_cast<int>(g() % 60));
      char text[512];
      const int32_t n = ldxdts(&x.c, text, sizeof text, &d, reinterpret_cast<const char *>(cm), clen);
      ASSERT_GE(n, 0) << model << " " << str(d) << " error " << x.last();
      ldxdate back{};
      const int32_t r = ldxsto(&x.c, &back, text, static_cast<size_t>(n), reinterpret_cast<const char *>(cm), clen,
                               LDX_OPT_ERRNUM);
      ASSERT_EQ(r ? "error " + std::to_string(r) : str(back), str(d))
          << model << " text [" << std::string(text, static_cast<size_t>(n)) << "]";
      ++trips;
    }
  }
  EXPECT_GT(trips, 15000);
}

}  // namespace
