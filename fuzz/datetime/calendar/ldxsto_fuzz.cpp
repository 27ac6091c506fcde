// Arbitrary text read by an arbitrary model: the first byte picks how much
// of the input is the model, the rest is the date text.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "datetime/calendar/ldx_impl.h"
#include "ldx.h"

namespace {
void ignore(ldxctx *, int32_t) {}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  ldx_internal::pin_now_for_test(1721038830LL * 1000000);
  ldxctx ctx;
  ldxbegin(&ctx, nullptr, ignore, nullptr);
  size_t split = data[0] < size ? data[0] : size - 1;
  const char *model = reinterpret_cast<const char *>(data + 1);
  size_t mlen = split;
  const char *text = model + mlen;
  size_t tlen = size - 1 - mlen;
  ldxdate d{};
  int32_t r = ldxsto(&ctx, &d, text, tlen, model, mlen, LDX_OPT_ERRNUM);
  if (r == 0 && ldxchk(&ctx, &d, 0) & ~0x1000u) __builtin_trap();  // a read date must be valid
  ldxsto(&ctx, &d, text, tlen, nullptr, 0, LDX_OPT_QUIET);
  // A compiled model from the same bytes, and the UTF-16 reader.
  uint8_t compiled[512];
  size_t n = ldxsti(&ctx, model, mlen, compiled, sizeof compiled);
  if (n) ldxsto(&ctx, &d, text, tlen, reinterpret_cast<const char *>(compiled), n, LDX_OPT_QUIET);
  if (n && (compiled[1] & ldx_internal::kHdrFixed)) {
    // Fixed models take the fast readers and writers; without the fixed bit
    // the same model takes the general ones, which must agree. A compiled
    // model is the caller's memory: with one byte spoiled in both (the second
    // pass) the fast ones must step aside, not read or write differently.
    for (int pass = 0; pass < 2 && (pass == 0 || (tlen > 0 && n > 2)); ++pass) {
      uint8_t fast[512], slow[512];
      std::memcpy(fast, compiled, n);
      if (pass == 1) {
        fast[2 + static_cast<uint8_t>(text[0]) % (n - 2)] = static_cast<uint8_t>(text[tlen - 1]);
        if (text[0] & 0x40) fast[1] |= ldx_internal::kHdrEbcdic;
      }
      std::memcpy(slow, fast, n);
      slow[1] = static_cast<uint8_t>(slow[1] & ~ldx_internal::kHdrFixed);
      const char *mf = reinterpret_cast<const char *>(fast), *ms = reinterpret_cast<const char *>(slow);
      ldxdate a{1, 2, 3, 4, 5, 6, 7}, b = a;
      int32_t ra = ldxsto(&ctx, &a, text, tlen, mf, n, LDX_OPT_ERRNUM);
      int32_t rb = ldxsto(&ctx, &b, text, tlen, ms, n, LDX_OPT_ERRNUM);
      if (ra != rb || std::memcmp(&a, &b, sizeof a) != 0) __builtin_trap();
      // Every output size up to enough, and a year before Christ.
      char oa[80], ob[80];
      const ldxdate ws[2] = {ra == 0 ? a : ldxdate{2024, 2, 29, 13, 5, 9, 0}, {-44, 3, 15, 0, 30, 0, 0}};
      for (const ldxdate &w : ws)
        for (size_t cap = 0; cap < sizeof oa; ++cap) {
          std::memset(oa, '?', sizeof oa);
          std::memset(ob, '?', sizeof ob);
          int32_t na = ldxdts(&ctx, oa, cap, &w, mf, n);
          int32_t nb = ldxdts(&ctx, ob, cap, &w, ms, n);
          // The same text, and nothing written past it.
          if (na != nb || (na >= 0 && std::memcmp(oa, ob, static_cast<size_t>(na) + 1) != 0)) __builtin_trap();
        }
    }
  }
  uint16_t wt[300], wm[300];
  size_t wtn = tlen < 300 ? tlen : 300, wmn = mlen < 300 ? mlen : 300;
  for (size_t i = 0; i < wtn; ++i) wt[i] = static_cast<uint16_t>(static_cast<uint8_t>(text[i]) * 37u);
  for (size_t i = 0; i < wmn; ++i) wm[i] = static_cast<uint8_t>(model[i]);
  ldxstou(&ctx, &d, wt, wtn, wm, wmn, LDX_OPT_QUIET);
  // Models read as UTF-16 also write: arbitrary code units, surrogates too.
  for (size_t i = 0; i < wmn; ++i) wm[i] = static_cast<uint16_t>(wm[i] | (wt[i % (wtn ? wtn : 1)] << 8));
  uint16_t wout[64];
  const ldxdate when{2024, 2, 29, 13, 5, 9, 0};
  ldxdtsu(&ctx, wout, sizeof wout / sizeof wout[0], &when, wm, wmn);
  return 0;
}
