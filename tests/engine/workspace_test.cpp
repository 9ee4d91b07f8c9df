// The data area: making, growing, deleting, compressing; numbers of options.
#include "engine/workspace.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>

#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "engine/options.h"
#include "engine/output.h"
#include "engine/run.h"
#include "harness.h"

namespace korvel {
namespace {

class WorkspaceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    (void)korvel_test::run_commands("");  // leaves the areas of an ended run
    std::int64_t largest = 0;
    ASSERT_TRUE(new_workspace(16, 12, &largest));  // 2048 words
    RESET(workspace());
    RUNCOM.ended = false;
    OCOM = OCom{};
    ws = workspace();
  }
  int make(const std::string& name, int length, double first) {
    const int I = NEWVAR(ws, name, {.LEN = length});
    auto x = elements(ws, I);
    std::iota(x.begin(), x.end(), first);
    return I;
  }
  Workspace ws;
};

TEST_F(WorkspaceTest, KeepsWhatItHeldWhenAVariableGrows) {
  make("A", 3, 1);
  const int b = make("B", 3, 10);
  EXPECT_EQ(ws.KADD(b), 8);
  const int a = NEWVAR(ws, "A", {.LEN = 5});  // no room between A and B: goes behind B
  EXPECT_EQ(a, 3);
  EXPECT_EQ(DATCOM.NDL, 1);
  const auto x = elements(ws, a);
  EXPECT_EQ((std::vector<double>(x.begin(), x.end())),
            (std::vector<double>{1, 2, 3, MACOM.XMISS, MACOM.XMISS}));
  EXPECT_EQ(VARNUM(ws, "a"), a);
  // A deleted place is used again when it fits.
  EXPECT_EQ(NEWVAR(ws, "C", {.LEN = 2}), 1);
  EXPECT_EQ(DATCOM.NDL, 0);
  // The last variable grows and shrinks where it is.
  EXPECT_EQ(NEWVAR(ws, "A", {.LEN = 9}), a);
  EXPECT_EQ(ADDCOM.LASADD, ws.KADD(a) - 1 + 13);
}

TEST_F(WorkspaceTest, DeletedLastVariablesGiveTheirWordsBack) {
  make("A", 3, 1);
  make("B", 4, 1);
  make("C", 5, 1);
  EXPECT_EQ(free_variable(ws, 2), 8);
  EXPECT_EQ(ADDCOM.LASADD, 24);
  EXPECT_EQ(free_variable(ws, 3), 9);
  EXPECT_EQ(ADDCOM.LASADD, 7);  // the blank entry before it went too
  EXPECT_EQ(DATCOM.NVARS, 1);
  EXPECT_EQ(DATCOM.NDL, 0);
}

TEST_F(WorkspaceTest, AShortageLosesNothing) {
  make("A", 500, 1);
  make("B", 500, 1);
  EXPECT_EQ(NEWVAR(ws, "A", {.LEN = 2000}), 0);
  EXPECT_TRUE(OCOM.ODONT);
  EXPECT_EQ(elements(ws, VARNUM(ws, "A")).size(), 500U);
  EXPECT_EQ(elements(ws, VARNUM(ws, "A"))[499], 500.0);
  {
    const Scratch room(ws, 1000);
    ASSERT_TRUE(room);
    EXPECT_EQ(NEWVAR(ws, "C", {.LEN = 100}), 0);  // scratch space is not given away
    const Scratch more(ws, 100);
    EXPECT_FALSE(more);
  }
  EXPECT_NE(NEWVAR(ws, "C", {.LEN = 900}), 0);
  for (int i = 0; i < 12; ++i) NEWVAR(ws, "V" + std::to_string(i), {.LEN = 1});
  EXPECT_EQ(DATCOM.NVARS, 12);
}

TEST_F(WorkspaceTest, ARefusedSizeKeepsTheData) {
  make("A", 3, 1);
  std::int64_t largest = 0;
  EXPECT_FALSE(new_workspace(std::int64_t{1} << 40, 12, &largest));
#if defined(__SANITIZE_ADDRESS__) || defined(KORVEL_SANITIZED)
  GTEST_SKIP() << "the sanitizer's own memory passes any limit";
#endif
  rlimit old{};
  getrlimit(RLIMIT_AS, &old);
  const rlimit tight{std::min<rlim_t>(rlim_t{1} << 32, old.rlim_max), old.rlim_max};
  setrlimit(RLIMIT_AS, &tight);  // within the limit of sizes, but the machine says no
  const bool made = new_workspace(8000000, 12, &largest);
  setrlimit(RLIMIT_AS, &old);
  EXPECT_FALSE(made);
  EXPECT_EQ(elements(workspace(), VARNUM(workspace(), "A"))[2], 3.0);
}

TEST_F(WorkspaceTest, FindsColumnsAndElements) {
  const int m = NEWVAR(ws, "M", {.ITYPE = MATRIX2, .LEN = 6, .N2 = 2});
  auto x = elements(ws, m);
  std::iota(x.begin(), x.end(), 1.0);
  const auto second = elements(ws, m * DATCOM.MXCOL + 2);
  EXPECT_EQ((std::vector<double>(second.begin(), second.end())), (std::vector<double>{4, 5, 6}));
  // A third column: the others keep their place.
  const int c = NEWVAR(ws, "M", {.ITYPE = SERIES, .LEN = 3, .column = 3});
  EXPECT_EQ(c, m * DATCOM.MXCOL + 3);
  EXPECT_EQ(INFO(ws, m).N2, 3);
  EXPECT_EQ(elements(ws, m)[3], 4.0);
  const int s = make("S", 3, 7);
  EXPECT_EQ(elements(ws, s * DATCOM.MXCOL + 2)[0], 8.0);
  INFO(ws, s * DATCOM.MXCOL + 4);
  EXPECT_TRUE(OCOM.ODONT);
  EXPECT_EQ(VARNUM(ws, "$R2"), -10);
  EXPECT_EQ(VARNUM(ws, "$R"), 0);
  EXPECT_EQ(VARNUM(ws, "$SIG22"), 0);
}

// Random makes and deletes against a plain map, then COMPRESS: every variable keeps its values.
TEST_F(WorkspaceTest, StandsUpToRandomUse) {
  std::mt19937 random(7);
  std::vector<std::vector<double>> model(10);
  for (int step = 0; step < 4000; ++step) {
    const std::size_t k = random() % model.size();
    const std::string name = "V" + std::to_string(k);
    if (random() % 3 == 0) {
      const int I = VARNUM(ws, name);
      if (I > 0) free_variable(ws, I);
      model[k].clear();
    } else {
      const auto n = static_cast<int>(1 + random() % 120);
      const int I = NEWVAR(ws, name, {.LEN = n});
      if (I > 0) {
        auto x = elements(ws, I);
        for (double& v : x) v = static_cast<double>(random());
        model[k].assign(x.begin(), x.end());
      }
    }
    if (random() % 50 == 0) SAVEX(ws);
    int previous = 0;
    for (int i = 1; i <= DATCOM.NVARS; ++i) {
      ASSERT_GT(ws.KADD(i), previous);
      previous = ws.KADD(i);
    }
    for (std::size_t j = 0; j < model.size(); ++j) {
      const int I = VARNUM(ws, "V" + std::to_string(j));
      const auto x = I > 0 ? elements(ws, I) : std::span<double>{};
      ASSERT_EQ(std::vector<double>(x.begin(), x.end()), model[j]) << "step " << step;
    }
    OCOM.ODONT = false;
  }
}

TEST(Numbers, AreReadExactly) {
  const struct {
    const char* text;
    double value;
    int used;
    std::int64_t fraction;
  } cases[] = {{"12", 12, 2, 0},
               {"-1.50", -1.5, 5, 50},
               {"1980.01", 1980.01, 7, 1},
               {".5", 0.5, 2, 5},
               {"1E-3", 1e-3, 4, 0},
               {"2D2", 200, 3, 0},
               {"1E", 1, 1, 0},
               {"1E+5X", 1e5, 4, 0},
               {"0.1", 0.1, 3, 1},
               {"123456789012345678901234567890", 123456789012345678901234567890.0, 30, 0},
               {"1E-400", 0, 6, 0},
               {"1E400", 0, 0, 0},
               {"1..2", 0, 0, 0},
               {"-", 0, 0, 0},
               {"", 0, 0, 0},
               {"+.E5", 0, 0, 0}};
  for (const auto& c : cases) {
    const Number n = FSUMS(c.text);
    EXPECT_EQ(n.used, c.used) << c.text;
    if (c.used > 0) {
      EXPECT_EQ(n.value, c.value) << c.text;
      EXPECT_EQ(n.fraction, c.fraction) << c.text;
    }
  }
}

}  // namespace
}  // namespace korvel
