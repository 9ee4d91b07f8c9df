#include "platform/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>

namespace korvel {
namespace {

// Out of a thread's routine an exception would end the process, and with it a host.
TEST(Parallel, WhatASectionThrowsReachesTheCaller) {
  constexpr int SECTIONS = 64;
  for (const int bad : {0, 1, SECTIONS - 1}) {
    const auto body = [bad](int s) {
      if (s == bad) throw std::bad_alloc();
    };
    EXPECT_THROW(parallel_sections(SECTIONS, body), std::bad_alloc) << bad;
  }
  std::atomic<int> ran = 0;
  parallel_sections(SECTIONS, [&](int) { ++ran; });
  EXPECT_EQ(ran, SECTIONS);
}

}  // namespace
}  // namespace korvel
