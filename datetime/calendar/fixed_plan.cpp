// Layout plans of fixed models and the per-thread set of them (see
// fixed_impl.h): making a plan from a compiled model, and finding the plan
// of a model again.
#include "datetime/calendar/fixed_impl.h"
#include "datetime/calendar/format_impl.h"

namespace ldx_internal {

namespace {

// Makes the plan of a fixed model; false when the model is not one a plan
// can serve (read_fixed and the general writer then do, and answer alike).
// *klen receives the bytes the plan depends on: the model up to its
// terminator.
bool make_plan(const uint8_t *m, size_t mlen, Plan &p, size_t *klen) {
  uint8_t lo[kPlanTextMax] = {}, span[kPlanTextMax] = {};
  uint8_t off[64] = {};
  size_t pos = 0, nf = 0;
  uint64_t seen = 0;
  bool twice = false, ended = false, fill = false;
  size_t i = 2;
  for (; i < mlen; i += 2) {
    const uint8_t b = m[i];
    if (b == 0) {
      ended = true;
      break;
    }
    if (i + 1 >= mlen) return false;
    if (b == 0x81) {
      if (pos >= kPlanTextMax) return false;
      lo[pos++] = m[i + 1];
      continue;
    }
    if (b >= kFixedIn.size() || (m[i + 1] & (LDX_FLAG_TH | LDX_FLAG_SP))) return false;
    const FixedIn &e = kFixedIn[b];
    if (e.width == 0 || pos + e.width > kPlanTextMax || nf == sizeof p.fields / sizeof p.fields[0]) return false;
    for (size_t k = 0; k < e.width; ++k) lo[pos + k] = '0', span[pos + k] = 9;
    p.fields[nf++] = {static_cast<uint8_t>(pos), e.width, e.slot, e.kslot, e.kval, b == C_D, e.min, e.span};
    fill |= (m[i + 1] & LDX_FLAG_FILL) != 0;
    twice |= (seen >> b) & 1;
    seen |= uint64_t{1} << b;
    off[b] = static_cast<uint8_t>(pos);
    pos += e.width;
  }
  if (!ended || pos < kPlanTextMin || i + 1 > sizeof p.model) return false;
  for (int w = 0; w < 2; ++w) {
    for (int k = 0; k < 16; ++k) {
      const int32_t at = plan_window(pos, w, k);
      p.lo[w][k] = at < 0 ? 0 : lo[at];
      p.span[w][k] = at < 0 ? 0 : span[at];
    }
  }
  constexpr uint64_t kSimple = (uint64_t{1} << C_YYYY) | (uint64_t{1} << C_RRRR) | (uint64_t{1} << C_MM) |
                               (uint64_t{1} << C_DD) | (uint64_t{1} << C_HH24) | (uint64_t{1} << C_MI) |
                               (uint64_t{1} << C_SS);
  constexpr uint64_t kYear = (uint64_t{1} << C_YYYY) | (uint64_t{1} << C_RRRR);
  p.simple = !twice && (seen & ~kSimple) == 0 && (seen & kYear) && (seen & kYear) != kYear &&
             (seen >> C_MM & 1) && (seen >> C_DD & 1);
  if (p.simple) {
    auto at = [&](int32_t code) { return (seen >> code & 1) ? off[code] : uint8_t{0xFF}; };
    p.oy = (seen >> C_YYYY & 1) ? off[C_YYYY] : off[C_RRRR];
    p.om = off[C_MM];
    p.od = off[C_DD];
    p.oh = at(C_HH24);
    p.omi = at(C_MI);
    p.os = at(C_SS);
  }
  p.fill = fill;
  p.textlen = static_cast<uint8_t>(pos);
  p.nfields = static_cast<uint8_t>(nf);
  *klen = i + 1;
  return true;
}

// A plan entry is kept by the model up to its terminator, so that a caller
// passing the whole buffer the model was compiled into still finds it. An
// entry saying "no plan" may be kept by a prefix only: taking it for another
// model costs that model its plan, never a wrong answer.
inline bool entry_for(const Plan &e, const uint8_t *m, size_t mlen) {
  return e.klen && e.klen <= mlen && equal_bytes(e.model, m, e.klen);
}

// The first bytes of a model (at most 8): entries whose tag differs need
// no closer look, so finding one of several models costs a few compares.
inline uint64_t model_tag(const uint8_t *m, size_t n) {
  if (n >= 8) return load_word(m);
  uint64_t t = 0;
  for (size_t i = 0; i < n; ++i) t |= uint64_t{m[i]} << (8 * i);
  return t;
}

constexpr int kPlans = 4;
struct PlanSet {
  uint64_t tags[kPlans];
  Plan plans[kPlans];
  uint8_t next;  // the entry to replace next
};
thread_local PlanSet tl_plans;

// A new plan in place of the oldest entry.
[[gnu::noinline]] const Plan *make_entry(PlanSet &c, const uint8_t *m, size_t mlen, uint64_t tag) {
  Plan &q = c.plans[c.next];
  c.tags[c.next] = tag;
  c.next = static_cast<uint8_t>((c.next + 1) % kPlans);
  size_t klen = 0;
  if (!make_plan(m, mlen, q, &klen)) {
    q.textlen = 0;
    klen = mlen < sizeof q.model ? mlen : sizeof q.model;
  }
  std::memcpy(q.model, m, klen);
  q.klen = static_cast<uint8_t>(klen);
  return &q;
}

}  // namespace

const Plan *plan_for(const uint8_t *m, size_t mlen) {
  PlanSet &c = tl_plans;
  const uint64_t tag = model_tag(m, mlen);
  const Plan *p = nullptr;
  for (int i = 0; i < kPlans; ++i) {
    if (c.tags[i] == tag && entry_for(c.plans[i], m, mlen)) {
      p = &c.plans[i];
      break;
    }
  }
  if (!p) p = make_entry(c, m, mlen, tag);
  return p->textlen ? p : nullptr;
}

}  // namespace ldx_internal
