// gen_territories - writes the territory rows of kelnls10 from ICU's locale
// data. Run at build time; its output is included by nls/territory.cpp.
//
//   gen_territories <output file>
//
// For each territory below it asks ICU for the month and day names and
// abbreviations, the meridian and era words, the first day of the week, the
// decimal, group and currency symbols and the date and time patterns, and
// turns the patterns into date format models of our own language. Texts are
// written as UTF-8 C string literals with every byte above 0x7F as an octal
// escape, so the output is plain ASCII whatever the compiler's source
// character set.
#include <unicode/ucal.h>
#include <unicode/udat.h>
#include <unicode/unum.h>
#include <unicode/ustring.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Wanted {
  const char *locale;     // ICU locale id
  const char *language;   // our language name
  const char *territory;  // our territory name
};

// American English stays the hand-kept first row of territory.cpp.
constexpr Wanted kWanted[] = {
    {"de_DE", "GERMAN", "GERMANY"},
    {"fr_FR", "FRENCH", "FRANCE"},
    {"es_ES", "SPANISH", "SPAIN"},
};

[[noreturn]] void die(const char *what, UErrorCode st) {
  std::fprintf(stderr, "gen_territories: %s: %s\n", what, u_errorName(st));
  std::exit(1);
}

std::string utf8(const UChar *s, int32_t n) {
  UErrorCode st = U_ZERO_ERROR;
  char buf[512];
  int32_t len = 0;
  u_strToUTF8(buf, sizeof buf, &len, s, n, &st);
  if (U_FAILURE(st)) die("u_strToUTF8", st);
  return std::string(buf, static_cast<size_t>(len));
}

std::string symbol(UDateFormat *f, UDateFormatSymbolType type, int32_t i) {
  UChar buf[128];
  UErrorCode st = U_ZERO_ERROR;
  int32_t n = udat_getSymbols(f, type, i, buf, 128, &st);
  if (U_FAILURE(st)) die("udat_getSymbols", st);
  return utf8(buf, n);
}

std::u16string pattern(const char *loc, UDateFormatStyle time, UDateFormatStyle date) {
  UErrorCode st = U_ZERO_ERROR;
  UDateFormat *f = udat_open(time, date, loc, nullptr, 0, nullptr, 0, &st);
  if (U_FAILURE(st)) die("udat_open", st);
  UChar buf[256];
  int32_t n = udat_toPattern(f, false, buf, 256, &st);
  if (U_FAILURE(st)) die("udat_toPattern", st);
  udat_close(f);
  return std::u16string(reinterpret_cast<const char16_t *>(buf), static_cast<size_t>(n));
}

// Year spelling of a converted pattern: the default format reads two-digit
// years through the century window, the short format keeps what the
// territory writes, the long format writes four digits.
enum class Years { Window, Short, Full };

// Turns an ICU date pattern into one of our format models. Names are written
// in lower case when the territory writes them so ("janvier"), otherwise with
// an initial capital. Texts a model cannot hold (time zones, weeks) are
// dropped; literal letters are quoted.
std::string model(const std::u16string &p, Years years, bool lower_names) {
  std::string out, lit;
  bool names = false;
  auto flush = [&] {
    if (!lit.empty()) {
      out += '"' + lit + '"';
      lit.clear();
    }
  };
  for (size_t i = 0; i < p.size();) {
    char16_t c = p[i];
    if (c == u'\'') {
      // Quoted text; '' is a quote.
      size_t j = i + 1;
      std::u16string q;
      for (; j < p.size(); ++j) {
        if (p[j] == u'\'') {
          if (j + 1 < p.size() && p[j + 1] == u'\'') {
            q += u'\'';
            ++j;
            continue;
          }
          break;
        }
        q += p[j];
      }
      lit += utf8(reinterpret_cast<const UChar *>(q.data()), static_cast<int32_t>(q.size()));
      i = j + 1;
      continue;
    }
    if ((c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z')) {
      size_t n = 1;
      while (i + n < p.size() && p[i + n] == c) ++n;
      i += n;
      flush();
      switch (c) {
        case u'y': case u'u':
          out += years == Years::Full ? "YYYY" : (years == Years::Window || n == 2) ? "RR" : "RRRR";
          break;
        case u'M': case u'L':
          if (n <= 2) {
            out += "MM";
          } else {
            out += n == 3 ? (lower_names ? "mon" : "Mon") : (lower_names ? "month" : "Month");
            names = true;
          }
          break;
        case u'd': out += "DD"; break;
        case u'E': case u'c': case u'e':
          out += n >= 4 ? (lower_names ? "day" : "Day") : (lower_names ? "dy" : "Dy");
          names = true;
          break;
        case u'H': case u'k': out += "HH24"; break;
        case u'h': case u'K': out += "HH"; break;
        case u'm': out += "MI"; break;
        case u's': out += "SS"; break;
        case u'a': case u'b': case u'B': out += "AM"; break;
        case u'G': out += "AD"; break;
        default:
          // Zones, weeks, fractions: nothing of ours; drop the separator
          // written before them as well.
          while (!out.empty() && (out.back() == ' ' || out.back() == ',')) out.pop_back();
          break;
      }
      continue;
    }
    ++i;
    if (c == 0x00A0 || c == 0x202F || c == 0x2009) c = u' ';
    if (c < 0x80) {
      flush();
      out += static_cast<char>(c);
    } else {
      lit += utf8(reinterpret_cast<const UChar *>(&c), 1);
    }
  }
  flush();
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return names ? "fm" + out : out;
}

std::string number_symbol(UNumberFormat *nf, UNumberFormatSymbol s) {
  UChar buf[32];
  UErrorCode st = U_ZERO_ERROR;
  int32_t n = unum_getSymbol(nf, s, buf, 32, &st);
  if (U_FAILURE(st)) die("unum_getSymbol", st);
  return utf8(buf, n);
}

void literal(FILE *f, const std::string &s) {
  std::fputc('"', f);
  for (unsigned char b : s) {
    if (b >= 0x80 || b < 0x20) std::fprintf(f, "\\%03o", b);
    else if (b == '"' || b == '\\') std::fprintf(f, "\\%c", b);
    else std::fputc(b, f);
  }
  std::fputc('"', f);
}

void list(FILE *f, const std::vector<std::string> &v) {
  std::fputs("{", f);
  for (size_t i = 0; i < v.size(); ++i) {
    if (i) std::fputs(", ", f);
    literal(f, v[i]);
  }
  std::fputs("},\n", f);
}

void row(FILE *f, const Wanted &w) {
  UErrorCode st = U_ZERO_ERROR;
  UDateFormat *df = udat_open(UDAT_DEFAULT, UDAT_DEFAULT, w.locale, nullptr, 0, nullptr, 0, &st);
  if (U_FAILURE(st)) die("udat_open", st);
  std::vector<std::string> months, mabbr, days, dabbr;
  for (int i = 0; i < 12; ++i) {
    months.push_back(symbol(df, UDAT_MONTHS, i));
    mabbr.push_back(symbol(df, UDAT_SHORT_MONTHS, i));
  }
  for (int i = 1; i <= 7; ++i) {  // ICU counts Sunday as 1
    days.push_back(symbol(df, UDAT_WEEKDAYS, i));
    dabbr.push_back(symbol(df, UDAT_SHORT_WEEKDAYS, i));
  }
  std::string am = symbol(df, UDAT_AM_PMS, 0), pm = symbol(df, UDAT_AM_PMS, 1);
  std::string bc = symbol(df, UDAT_ERAS, 0), ad = symbol(df, UDAT_ERAS, 1);
  std::string bcname = symbol(df, UDAT_ERA_NAMES, 0), adname = symbol(df, UDAT_ERA_NAMES, 1);
  udat_close(df);

  UCalendar *cal = ucal_open(nullptr, 0, w.locale, UCAL_GREGORIAN, &st);
  if (U_FAILURE(st)) die("ucal_open", st);
  int32_t first = ucal_getAttribute(cal, UCAL_FIRST_DAY_OF_WEEK) - 1;
  ucal_close(cal);

  UNumberFormat *nf = unum_open(UNUM_DECIMAL, nullptr, 0, w.locale, nullptr, &st);
  if (U_FAILURE(st)) die("unum_open", st);
  std::string dec = number_symbol(nf, UNUM_DECIMAL_SEPARATOR_SYMBOL);
  std::string grp = number_symbol(nf, UNUM_GROUPING_SEPARATOR_SYMBOL);
  std::string cur = number_symbol(nf, UNUM_CURRENCY_SYMBOL);
  unum_close(nf);

  const bool lower = !months[0].empty() && months[0][0] >= 'a' && months[0][0] <= 'z';
  std::u16string shortdate = pattern(w.locale, UDAT_NONE, UDAT_SHORT);

  std::fprintf(f, "{\n");
  for (const std::string &s :
       {std::string(w.language), std::string(w.territory), model(shortdate, Years::Window, lower),
        model(pattern(w.locale, UDAT_NONE, UDAT_FULL), Years::Full, lower), model(shortdate, Years::Short, lower),
        model(pattern(w.locale, UDAT_SHORT, UDAT_NONE), Years::Full, lower), dec, grp, cur}) {
    literal(f, s);
    std::fputs(",\n", f);
  }
  std::fprintf(f, "%d,\n", first);
  list(f, months);
  list(f, mabbr);
  list(f, days);
  list(f, dabbr);
  // Meridian and era words with periods are the territory's own words;
  // the era names go with them.
  for (const std::string &s : {am, pm, am, pm, ad, bc, ad, bc, adname, bcname}) {
    literal(f, s);
    std::fputs(",\n", f);
  }
  std::fprintf(f, "},\n");
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: gen_territories <output>\n");
    return 2;
  }
  std::string tmp = std::string(argv[1]) + ".tmp";
  FILE *f = std::fopen(tmp.c_str(), "w");
  if (!f) {
    std::perror(argv[1]);
    return 1;
  }
  std::fprintf(f, "// Generated by gen_territories from ICU %s locale data. Do not edit.\n", U_ICU_VERSION);
  for (const Wanted &w : kWanted) row(f, w);
  if (std::fclose(f) != 0 || std::rename(tmp.c_str(), argv[1]) != 0) {
    std::perror(argv[1]);
    return 1;
  }
  return 0;
}
