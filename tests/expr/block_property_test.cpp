// Random statements run by blocks and one observation at a time: everything that can be seen
// afterwards must be the same, byte by byte.

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "data/data.h"
#include "data/sample.h"
#include "expr/formula_fixture.h"

namespace korvel {
namespace {

using korvel_test::FormulaRoom;

class StatementMaker {
 public:
  explicit StatementMaker(unsigned seed) : draw_(seed) {}

  int below(int n) { return static_cast<int>(draw_() % static_cast<unsigned>(n)); }

  std::string expression(int depth) {
    static constexpr std::array<const char*, 9> OPERATORS = {"+",    "-",    "*",    "/",    "**",
                                                             ".GT.", ".EQ.", ".OR.", ".AND."};
    static constexpr std::array<const char*, 14> ONE = {"ABS",  "LOG",  "EXP", "SQRT",  "INT",
                                                        "DUM",  "SUM",  "SIN", "NCDF",  "LGAM",
                                                        "SEAS", "TIME", "LAG", "RECODE"};
    static constexpr std::array<const char*, 5> TWO = {"MIN", "MAX", "MOD", "SUM", "LAG"};
    if (depth == 0) return leaf();
    switch (below(12)) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
        return "(" + expression(depth - 1) + pick(OPERATORS) + expression(depth - 1) + ")";
      case 5:
        return "(-" + expression(depth - 1) + ")";
      case 6:
        return "(.NOT." + expression(depth - 1) + ")";
      case 7:
        return std::string(pick(TWO)) + "(" + leaf() + "," + leaf() + ")";
      case 8:
        return "(" + expression(depth - 1) + "**" + std::to_string(below(6) - 1) + ")";
      case 9:
        return std::string("A(") + (below(2) != 0 ? "-" : "+") + std::to_string(below(4)) + ")";
      case 10:
        if (below(6) == 0) return below(2) != 0 ? "UNI(" + leaf() + ")" : "NOR(1," + leaf() + ")";
        [[fallthrough]];
      default:
        return std::string(pick(ONE)) + "(" + expression(depth - 1) + ")";
    }
  }

  std::string leaf() {
    static constexpr std::array<const char*, 12> LEAVES = {
        "A", "B", "C", "M", "S", "2", "0.5", "A", "B", "3", "RECODE(A,T)", "B(7)"};
    return pick(LEAVES);
  }

 private:
  template <std::size_t N>
  const char* pick(const std::array<const char*, N>& words) {
    return words[draw_() % N];
  }
  std::mt19937 draw_;
};

constexpr int MOST = 1500;

// The room and its data, made anew for each run so that both begin alike.
void furnish(FormulaRoom& room, unsigned seed, int n) {
  StatementMaker draw(seed + 1000003);
  std::vector<double> a, b, c, m;
  const bool wild = draw.below(3) == 0;
  for (int i = 0; i < MOST; ++i) {
    a.push_back(draw.below(1000) / 100.0 + 0.01);
    b.push_back(wild && draw.below(300) == 0 ? 0.0 : draw.below(2000) / 7.0 - 80);
    c.push_back(wild && draw.below(400) == 0 ? 800.0 : draw.below(5));
    m.push_back(draw.below(100) == 0 ? MACOM.XMISS : i);
  }
  if (draw.below(5) == 0) c.resize(static_cast<std::size_t>(n - draw.below(3)));
  room.series("A", a);
  room.series("B", b);
  room.series("C", c);
  room.series("M", m);
  room.series("S", {draw.below(4) / 2.0});
  room.series("T", {0, 3, 3, 2, 5, 4, 10, 20, 30});
  room.ws.DATA(room.ws.KADD(VARNUM(room.ws, "T")) + 1) = MATRIX2;
  room.ws.DATA(room.ws.KADD(VARNUM(room.ws, "T")) + 3) = 3;
  room.series("OLD", std::vector<double>(MOST, 5.0));
  room.sample(1 + draw.below(3), n);
  OSCOM.OSKWRN = draw.below(2) != 0;
  OSCOM.OSMISS = draw.below(3) == 0;
  OSCOM.OBACK = draw.below(5) == 0;
  OSCOM.OSPV = draw.below(10) == 0;
  OSCOM.ORANST = true;
  temporary(temporary_place("N")) = n;
  if (draw.below(3) == 0) {
    OSCOM.OSKIP = make_skip_vector(room.ws, MOST);
    for (double& mark : skip_vector(room.ws)) mark = draw.below(9) == 0 ? 1.0 : 0.0;
  }
}

// All that a run leaves behind.
struct After {
  bool good = false;
  std::string printed;
  std::string memory;
  bool operator==(const After&) const = default;
};

After run_one(const std::string& text, int ikod, unsigned seed, int n, TransPath path) {
  FormulaRoom room(1000, 60);
  furnish(room, seed, n);
  RANCOM = RanCom{};
  OCOM.ONOTIF = false;
  After after;
  after.good = room.run(ikod, text, path);
  after.printed = room.printed();
  const auto keep = [&](const void* p, std::size_t size) {
    after.memory.append(static_cast<const char*>(p), size);
  };
  keep(room.ws.base(), static_cast<std::size_t>(ADDCOM.LASADD) * sizeof(double));
  temporary(temporary_place("DATE")) = temporary(temporary_place("TIME")) = 0;  // the clock
  keep(TEMCOM.TEMVAL.data(), sizeof TEMCOM.TEMVAL);
  keep(RANCOM.R3, sizeof RANCOM.R3);
  keep(&RANCOM.U1, sizeof RANCOM.U1);
  const int flags[] = {OCOM.ONOTIF, OCOM.ODONT, GENCOM.LASTN, DATCOM.NVARS};
  keep(flags, sizeof flags);
  return after;
}

void compare(const std::string& text, int ikod, unsigned seed, int n) {
  const After slow = run_one(text, ikod, seed, n, TransPath::scalar);
  const After fast = run_one(text, ikod, seed, n, TransPath::blocks);
  EXPECT_EQ(slow.good, fast.good) << text;
  EXPECT_EQ(slow.printed, fast.printed) << text;
  EXPECT_TRUE(slow.memory == fast.memory) << text << " seed " << seed << " n " << n;
}

TEST(BlockProperty, RandomStatements) {
  const unsigned last = std::getenv("KORVEL_THREADS") != nullptr ? 300 : 1500;
  for (unsigned seed = 1; seed <= last; ++seed) {
    StatementMaker make(seed);
    const int n = std::array{5, 511, 513, 700, MOST}[static_cast<std::size_t>(make.below(5))];
    const std::string value = make.expression(make.below(5));
    switch (make.below(8)) {
      case 0:
        compare("(" + make.expression(2) + ")OLD=" + value, K_IF, seed, n);
        break;
      case 1:
        compare("(" + make.expression(2) + ")NEW=" + value, K_IF, seed, n);
        break;
      case 2:
        compare("(" + value + ")", K_IF, seed, n);
        break;
      case 3:
        compare(value, K_SKIPIF, seed, n);
        break;
      case 4:
        compare("OLD=OLD+" + value, K_GENR, seed, n);
        break;
      case 5:
        compare("$T1=" + value, K_GENR, seed, n);
        break;
      default:
        compare("NEW=" + value, K_GENR, seed, n);
        break;
    }
    if (HasFailure()) break;
  }
}

// Enough blocks for several threads; faults far apart, so that messages come from several of them.
TEST(BlockProperty, Sections) {
  constexpr int n = 40000;
  const std::array statements = {"Y=LOG(X)+X**2", "Y=X-X(-1)", "Y=SQRT(X)*EXP(X)", "X=X+1",
                                 "Y=1/X",         "Y=SUM(X)",  "Y=NOR(X)"};
  for (const char* text : statements) {
    std::array<std::string, 2> seen;
    for (const TransPath path : {TransPath::scalar, TransPath::blocks}) {
      FormulaRoom room;
      room.sample(1, n);
      std::vector<double> x;
      for (int i = 0; i < n; ++i) x.push_back(i % 9001 == 77 ? 0.0 : 1.0 + i % 13);
      room.series("X", x);
      RANCOM = RanCom{};
      OSCOM.ORANST = true;
      ASSERT_TRUE(room.genr(text, path));
      std::string& all = seen[path == TransPath::blocks ? 1 : 0];
      all = room.printed();
      all.append(reinterpret_cast<const char*>(room.ws.base()),
                 static_cast<std::size_t>(ADDCOM.LASADD) * sizeof(double));
    }
    EXPECT_TRUE(seen[0] == seen[1]) << text;
  }
}

// The same again with other numbers of threads and narrower vectors, in a process of its own.
TEST(BlockProperty, ThreadsAndWidths) {
  if (std::getenv("KORVEL_THREADS") != nullptr) GTEST_SKIP() << "one of the inner runs";
  for (const char* setting : {"KORVEL_THREADS=1 KORVEL_LANES=baseline",
                              "KORVEL_THREADS=3 KORVEL_LANES=avx2", "KORVEL_THREADS=4"}) {
    char self[1024] = {};
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof self - 1), 0);
    const std::string command =
        std::string(setting) + " '" + self + "' --gtest_filter='BlockProperty.*' >/dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << setting;
  }
}

}  // namespace
}  // namespace korvel
