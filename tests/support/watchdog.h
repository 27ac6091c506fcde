// watchdog.h - one watchdog for a test binary whose tests take locks.
//
// Including this header arms a timer around every test of the binary: a test
// still running after kel_test::kWatchdogSeconds ends the process with its
// name, so that a lock that hangs fails one test quickly instead of holding
// the suite until ctest's timeout (a stuck thread cannot be joined).
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace kel_test {

inline constexpr int kWatchdogSeconds = 240;

class WatchdogListener : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo &info) override {
    done_ = false;
    std::string name = std::string(info.test_suite_name()) + "." + info.name();
    t_ = std::thread([this, name] {
      std::unique_lock<std::mutex> l(m_);
      if (!cv_.wait_for(l, std::chrono::seconds(kWatchdogSeconds), [this] { return done_; })) {
        std::fprintf(stderr, "watchdog: %s still running after %d s\n", name.c_str(), kWatchdogSeconds);
        std::fflush(stderr);
        std::_Exit(3);
      }
    });
  }
  void OnTestEnd(const ::testing::TestInfo &) override {
    {
      std::lock_guard<std::mutex> l(m_);
      done_ = true;
    }
    cv_.notify_all();
    t_.join();
  }
  std::mutex m_;
  std::condition_variable cv_;
  bool done_ = false;
  std::thread t_;
};

inline const bool kWatchdogInstalled =
    (::testing::UnitTest::GetInstance()->listeners().Append(new WatchdogListener), true);

}  // namespace kel_test
