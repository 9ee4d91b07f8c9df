#include "engine/host.h"

#include <gtest/gtest.h>

#include <array>

#include "engine/files.h"
#include "harness.h"

namespace korvel {
namespace {

// tests/engine/host.c drives whole runs; here is what a host can't bring about.
TEST(Macdep, ACodeBeyondTheTableEndsTheRun) {
  korvel_test::run_commands("");
  RUNCOM.ended = false;
  char name[] = "/tmp/korvel_test_XXXXXX";
  close(mkstemp(name));
  ASSERT_TRUE(main_output().open(name));
  std::array<char, 8> buffer{"PWD"};
  // Without a host the codes of hosts do nothing; 37 is the last of them.
  for (int code = 0; code <= 37; ++code) EXPECT_EQ(MACDEP(code, buffer, 3), 0);
  EXPECT_FALSE(RUNCOM.ended);
  EXPECT_STREQ(buffer.data(), "PWD");
  MACDEP(38, buffer, 3);
  EXPECT_TRUE(RUNCOM.ended);
  main_output().close();
  std::ifstream in(name);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  unlink(name);
  EXPECT_EQ(text, " ...ERROR.ILLEGAL IND IN MACDEP\n ...ERROR..STOP ERROR CODE = 38\n");
}

}  // namespace
}  // namespace korvel
