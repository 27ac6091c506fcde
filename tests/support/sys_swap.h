// sys_swap.h - replaces entries of a system-layer table for one test.
//
// Each concern of sys/ calls the platform through a table (sys/*_impl.h);
// test builds reach it through a pointer that a Swap points at its own copy
// for as long as it lives:
//
//   kel_test::Swap<sl_internal::FileOps> files(sl_internal::g_file_os);
//   files.ops.write = [](int64_t h, const void *b, size_t n) -> int64_t {
//     return sl_internal::kFileOs.write(h, b, n < 3 ? n : 3);  // short writes
//   };
//
// Replacements are plain functions (lambdas without captures), so what they
// count or script lives in variables of the test; the platform's own entries
// stay reachable as sl_internal::k*Os. Restore happens when the Swap goes out
// of scope; no thread of the library may still be inside a replaced entry then.
// The tables exist in test builds only (KEL_TEST_HOOKS): tests that swap are
// compiled in those builds only.
#pragma once

#ifdef KEL_TEST_HOOKS

#include <atomic>

namespace kel_test {

template <class Ops>
class Swap {
 public:
  explicit Swap(std::atomic<const Ops *> &slot) : slot_(slot), saved_(slot.load()), ops(*saved_) { slot_.store(&ops); }
  ~Swap() { slot_.store(saved_); }
  Swap(const Swap &) = delete;
  Swap &operator=(const Swap &) = delete;

 private:
  std::atomic<const Ops *> &slot_;
  const Ops *saved_;

 public:
  Ops ops;  // the entries in use while the Swap lives: replace any of them
};

}  // namespace kel_test

#endif
