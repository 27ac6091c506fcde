// Global contexts, language environments and territory items.
//
// An environment is a territory row and a character set. A global context
// keeps the environments made from it, so that one name asked twice gives
// the same handle, and frees them at lxlterm. The default global context
// (a null glo) lives as long as the process.
#include <cstring>
#include <mutex>
#include <new>

#include "nls/nls_impl.h"

using namespace nls_internal;

struct lxglo {
  std::mutex mx;
  struct node {
    node *next;
    lxenv env;
  } *envs = nullptr;
};

namespace {

lxglo &default_glo() {
  static lxglo g;
  return g;
}

int32_t copy_out(std::string_view s, char *buf, size_t len) {
  if (buf != nullptr && len > 0) {
    size_t n = s.size() < len - 1 ? s.size() : len - 1;
    memcpy(buf, s.data(), n);
    buf[n] = '\0';
  }
  return static_cast<int32_t>(s.size());
}

// A territory text in the environment's character set.
int32_t copy_text(const lxenv *env, std::string_view s, char *buf, size_t len) {
  if (env->cs->id == LX_CSID_AL32UTF8) return copy_out(s, buf, len);
  // Every character takes at most four bytes in any of our sets.
  char tmp[512];
  int64_t n = lxgcnv(tmp, sizeof tmp, env->cs->id, s.data(), s.size(), LX_CSID_AL32UTF8);
  if (n < 0) return -1;
  return copy_out(std::string_view(tmp, static_cast<size_t>(n)), buf, len);
}

const lxenv *env_or_default(const lxenv *env) {
  if (env != nullptr) return env;
  static const lxenv *dflt = lxhLangEnv(nullptr, "AMERICAN_AMERICA.US7ASCII", 25);
  return dflt;
}

}  // namespace

extern "C" {

KELAPI lxglo *lxlinit(void *, int32_t) {
  void *p = nls_malloc(sizeof(lxglo));
  return p ? new (p) lxglo : nullptr;
}

KELAPI int32_t lxlterm(lxglo *glo) {
  if (glo == nullptr) return -1;
  for (auto *n = glo->envs; n != nullptr;) {
    auto *next = n->next;
    nls_free(n);
    n = next;
  }
  glo->~lxglo();
  nls_free(glo);
  return 0;
}

KELAPI const lxenv *lxhLangEnv(lxglo *glo, const char *name, size_t len) {
  if (name == nullptr) return nullptr;
  std::string_view s(name, len);
  std::string_view lang, terr, csname = "US7ASCII";
  size_t dot = s.find('.');
  if (dot != std::string_view::npos) {
    csname = s.substr(dot + 1);
    s = s.substr(0, dot);
  }
  size_t us = s.find('_');
  lang = s.substr(0, us);
  if (us != std::string_view::npos) terr = s.substr(us + 1);
  const territory *t = find_territory(lang, terr);
  const charset *cs = find_charset_name(csname);
  if (t == nullptr || cs == nullptr) return nullptr;
  lxglo &g = glo ? *glo : default_glo();
  std::lock_guard<std::mutex> lock(g.mx);
  for (auto *n = g.envs; n != nullptr; n = n->next)
    if (n->env.terr == t && n->env.cs == cs) return &n->env;
  auto *n = static_cast<lxglo::node *>(nls_malloc(sizeof(lxglo::node)));
  if (n == nullptr) return nullptr;
  n->env = lxenv{t, cs, &g};
  n->next = g.envs;
  g.envs = n;
  return &n->env;
}

KELAPI lxglo *lxGetGloPtr(const lxenv *env) { return env ? env->glo : nullptr; }

KELAPI int32_t lxinitc(lxctx *out, lxglo *glo, const lxenv *env) {
  if (out == nullptr) return -1;
  out->glo = glo;
  out->env = env_or_default(env);
  return out->env == nullptr ? -1 : 0;
}

KELAPI int32_t lxhlinfo(const lxenv *env, int32_t item, char *buf, size_t len) {
  env = env_or_default(env);
  if (env == nullptr) return -1;
  const territory &t = *env->terr;
  if (item >= LX_MONTH_NAME && item < LX_MONTH_NAME + 12) return copy_text(env, t.months[item - LX_MONTH_NAME], buf, len);
  if (item >= LX_MONTH_ABBR && item < LX_MONTH_ABBR + 12) return copy_text(env, t.month_abbr[item - LX_MONTH_ABBR], buf, len);
  if (item >= LX_DAY_NAME && item < LX_DAY_NAME + 7) return copy_text(env, t.days[item - LX_DAY_NAME], buf, len);
  if (item >= LX_DAY_ABBR && item < LX_DAY_ABBR + 7) return copy_text(env, t.day_abbr[item - LX_DAY_ABBR], buf, len);
  switch (item) {
    case LX_DEFAULT_DATE_FMT: return copy_text(env, t.date_fmt, buf, len);
    case LX_CHARSET_NAME: return copy_out(env->cs->name, buf, len);
    case LX_LONG_DATE_FMT: return copy_text(env, t.long_date_fmt, buf, len);
    case LX_SHORT_TIME_FMT: return copy_text(env, t.short_time_fmt, buf, len);
    case LX_SHORT_DATE_FMT: return copy_text(env, t.short_date_fmt, buf, len);
    case LX_LANGUAGE_NAME: return copy_out(t.language, buf, len);
    case LX_TERRITORY_NAME: return copy_out(t.territory, buf, len);
    case LX_DECIMAL_CHAR: return copy_text(env, t.decimal, buf, len);
    case LX_GROUP_SEP: return copy_text(env, t.group, buf, len);
    case LX_AM: return copy_text(env, t.am, buf, len);
    case LX_PM: return copy_text(env, t.pm, buf, len);
    case LX_AM_DOTS: return copy_text(env, t.am_dots, buf, len);
    case LX_PM_DOTS: return copy_text(env, t.pm_dots, buf, len);
    case LX_AD: return copy_text(env, t.ad, buf, len);
    case LX_BC: return copy_text(env, t.bc, buf, len);
    case LX_AD_DOTS: return copy_text(env, t.ad_dots, buf, len);
    case LX_BC_DOTS: return copy_text(env, t.bc_dots, buf, len);
    case LX_CURRENCY: return copy_text(env, t.currency, buf, len);
    case LX_AD_NAME: return copy_text(env, t.ad_name, buf, len);
    case LX_BC_NAME: return copy_text(env, t.bc_name, buf, len);
    default: return -1;
  }
}

KELAPI int32_t lxhninfo(const lxenv *env, int32_t item) {
  env = env_or_default(env);
  if (env == nullptr) return -1;
  switch (item) {
    case LX_FIRST_DAY: return env->terr->first_day;
    case LX_CHARSET_KIND: return env->cs->kind;
    case LX_CHARSET_ID: return env->cs->id;
    case LX_MAX_CHAR_BYTES: return env->cs->maxbytes;
    case LX_GREGORIAN: return 1;
    case LX_TERR_CHANGED: return 0;
    default: return -1;
  }
}

// Every territory here keeps the Gregorian calendar: the date code is told
// to use its own rules.
KELAPI int32_t lxeadm(const lxenv *, int32_t *, int32_t *, int32_t *, int32_t) { return 0; }
KELAPI int32_t lxeldd(const lxenv *, int32_t *, int32_t *, int32_t *) { return 0; }

}  // extern "C"
