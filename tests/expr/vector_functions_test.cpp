// EXP and LOG against long double, and every vector width against every other.

#include "expr/vector_functions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "expr/trans_lanes.h"

namespace korvel {
namespace {

// Distance of r from the true value in units of the last place of the true value.
double ulps(double r, long double exact) {
  int exponent = 0;
  std::frexp(static_cast<double>(exact), &exponent);
  const double unit = std::ldexp(1.0, std::max(exponent - 53, -1074));
  return static_cast<double>(std::fabs(static_cast<long double>(r) - exact) / unit);
}

TEST(VectorFunctions, ExpWithinOneUlp) {
  std::mt19937_64 draw(1);
  std::uniform_real_distribution<double> unit(0, 1);
  double worst = 0;
  for (int i = 0; i < 300000; ++i) {
    const double x = i % 3 == 0   ? unit(draw) * 1454 - 745
                     : i % 3 == 1 ? unit(draw) * 4 - 2
                                  : unit(draw) * 0.7 - 0.35;
    worst = std::max(worst, ulps(EXP(x), expl(static_cast<long double>(x))));
  }
  EXPECT_LE(worst, 1.0);
  EXPECT_EQ(EXP(0.0), 1.0);
  EXPECT_EQ(EXP(-0.0), 1.0);
  EXPECT_EQ(EXP(-745.2), 0.0);
  EXPECT_EQ(EXP(-745.1), 0x1p-1074);
  EXPECT_EQ(EXP(-INFINITY), 0.0);
  EXPECT_EQ(EXP(INFINITY), INFINITY);
  EXPECT_TRUE(std::isnan(EXP(NAN)));
  EXPECT_TRUE(std::isfinite(EXP(709.0)));
}

TEST(VectorFunctions, LogWithinOneUlp) {
  std::mt19937_64 draw(2);
  std::uniform_real_distribution<double> unit(0, 1);
  double worst = 0;
  for (int i = 0; i < 300000; ++i) {
    const double u = unit(draw);
    const double x = i % 4 == 0   ? std::exp(u * 1400 - 700)
                     : i % 4 == 1 ? u * 2 + 1e-300
                     : i % 4 == 2 ? 0.9 + u * 0.2
                                  : 1 + (u - 0.5) * 1e-3;
    worst = std::max(worst, ulps(LOG(x), logl(static_cast<long double>(x))));
  }
  EXPECT_LE(worst, 1.0);
  EXPECT_EQ(LOG(1.0), 0.0);
  EXPECT_LE(ulps(LOG(0x1p-1074), logl(0x1p-1074L)), 1.0);
  EXPECT_LE(ulps(LOG(0x1p-1022), logl(0x1p-1022L)), 1.0);
  EXPECT_LE(ulps(LOG(1.7976931348623157e308), logl(1.7976931348623157e308L)), 1.0);
  EXPECT_EQ(LOG(INFINITY), INFINITY);
  EXPECT_TRUE(std::isnan(LOG(NAN)));
}

TEST(VectorFunctions, Powers) {
  struct Case {
    double x, y, value;
    PowerFault fault = PowerFault::none;
  };
  constexpr Case cases[] = {
      {0, 0, 1},
      {NAN, 0, 1},
      {0, 0.5, 0},
      {0, -0.5, 0},
      {0, -1, 0, PowerFault::zero},
      {-8, 1.0 / 3, 0, PowerFault::negative},
      {-2, 3, -8},
      {-2, -2, 0.25},
      {2, 64, 0x1p64},
      {2, 65, 0x1p65},
      {2, -1074, 0},  // the positive power is beyond the largest number
      {1, 2147483647, 1},
      {-1, -2147483647.0, -1},
  };
  for (const Case& c : cases) {
    PowerFault fault;
    const double r = POWER(c.x, c.y, fault);
    EXPECT_EQ(fault, c.fault) << c.x << "**" << c.y;
    if (fault == PowerFault::none) {
      EXPECT_EQ(r, c.value) << c.x << "**" << c.y;
    }
  }
  PowerFault fault;
  EXPECT_EQ(POWER(3.7, 5, fault), 3.7 * 3.7 * 3.7 * 3.7 * 3.7);
  EXPECT_EQ(POWER(2, 3000.5, fault), EXP(709)) << "the exponent is limited";
}

TEST(VectorFunctions, NormalDistribution) {
  // R: format(pnorm(c(-1.96, 0, 1)), digits = 17)
  EXPECT_NEAR(NCDF(-1.96), 0.024997895148220435, 1e-14);
  EXPECT_EQ(NCDF(0), 0.5);
  EXPECT_NEAR(NCDF(1), 0.84134474606854293, 1e-14);
  EXPECT_EQ(NCDF(-40), MACOM.SMALL);
  EXPECT_EQ(NCDF(40), 1.0 - MACOM.SMALL);
}

TEST(VectorFunctions, WholeNumbers) {
  constexpr int smallest = -2147483647 - 1;
  EXPECT_EQ(whole32(-1.9), -1);
  EXPECT_EQ(whole32(2147483647.9), 2147483647);
  EXPECT_EQ(whole32(2147483648.0), smallest);
  EXPECT_EQ(whole32(NAN), smallest);
  EXPECT_EQ(whole32(-2147483648.5), smallest);
}

std::vector<const LaneTable*> widths() {
  std::vector<const LaneTable*> tables = {&baseline::LANES};
#if defined(__x86_64__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2")) tables.push_back(&avx2::LANES);
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl")) {
    tables.push_back(&avx512::LANES);
  }
#endif
  return tables;
}

// Values of every kind, the awkward ones included.
std::vector<double> mixed(std::size_t n, unsigned seed) {
  std::mt19937_64 draw(seed);
  std::vector<double> x(n);
  for (double& v : x) {
    switch (draw() % 8) {
      case 0:
        v = 0.0;
        break;
      case 1:
        v = -0.0;
        break;
      case 2:
        v = 1e-310;
        break;
      case 3:
        v = static_cast<double>(draw() % 2000) - 1000;
        break;
      case 4:
        v = INFINITY;
        break;
      default:
        v = std::ldexp(static_cast<double>(draw() % 100000) - 30000, -10);
    }
  }
  return x;
}

TEST(VectorFunctions, EveryWidthGivesTheSameBytes) {
  const auto tables = widths();
  const auto all_loops = [](const LaneTable& t) {
    std::vector<LaneLoop> loops = {t.minus, t.abs,   t.dum,       t.not_, t.exp, t.exp_limited,
                                   t.log,   t.power, t.power_any, t.copy, t.sqrt};
    for (const auto& forms : {t.add, t.sub, t.mult, t.div, t.eq, t.ne, t.lt, t.le, t.gt, t.ge,
                              t.either, t.both, t.min, t.max}) {
      loops.insert(loops.end(), forms, forms + LANE_FORMS);
    }
    return loops;
  };
  const auto reference = all_loops(baseline::LANES);
  for (const std::size_t n : {std::size_t{1}, std::size_t{7}, std::size_t{8}, std::size_t{1000}}) {
    const auto a = mixed(n, 3), b = mixed(n, 4);
    for (std::size_t k = 0; k < reference.size(); ++k) {
      // The two-operand loops read all of b, the others its first two: a whole power of 3.
      std::vector<double> second = b;
      if (k < 11) second = {3.0, 1.0};
      std::vector<double> want(n, 7.0);
      const bool flag = reference[k](want.data(), a.data(), second.data(), n);
      for (const LaneTable* table : tables) {
        std::vector<double> got(n, 7.0);
        EXPECT_EQ(all_loops(*table)[k](got.data(), a.data(), second.data(), n), flag) << k;
        EXPECT_EQ(0, std::memcmp(got.data(), want.data(), n * sizeof(double))) << "loop " << k;
      }
      // One value at a time: the scalar path.
      const bool varies_a = k < 11 || (k - 11) % 3 != LANE_CV;
      const bool varies_b = k >= 11 && (k - 11) % 3 != LANE_VC;
      for (std::size_t i = 0; i < n; ++i) {
        double one = 0;
        reference[k](&one, &a[varies_a ? i : 0], varies_b ? &second[i] : second.data(), 1);
        EXPECT_EQ(0, std::memcmp(&one, &want[i], sizeof one)) << "loop " << k;
      }
    }
  }
}

TEST(VectorFunctions, AConstantKeepsTheSignOfItsZero) {
  for (const LaneTable* t : widths()) {
    const double zero = -0.0;
    const std::vector<double> a(11, 2.0);
    std::vector<double> r(11);
    t->mult[LANE_CV](r.data(), &zero, a.data(), r.size());
    for (const double v : r) EXPECT_TRUE(std::signbit(v));
  }
}

TEST(VectorFunctions, FaultsAreSeenInEveryLane) {
  for (const LaneTable* t : widths()) {
    for (std::size_t n = 1; n <= 20; ++n) {
      for (std::size_t at = 0; at < n; ++at) {
        std::vector<double> a(n, 2.0), r(n);
        EXPECT_FALSE(t->log(r.data(), a.data(), nullptr, n));
        EXPECT_FALSE(t->div[LANE_VV](r.data(), a.data(), a.data(), n));
        const double minus99 = -99999.0;
        EXPECT_FALSE(t->holds(nullptr, a.data(), &minus99, n));
        a[at] = 0.0;
        EXPECT_TRUE(t->log(r.data(), a.data(), nullptr, n));
        EXPECT_TRUE(t->div[LANE_VV](r.data(), a.data(), a.data(), n));
        a[at] = minus99;
        EXPECT_TRUE(t->sqrt(r.data(), a.data(), nullptr, n));
        EXPECT_TRUE(t->holds(nullptr, a.data(), &minus99, n));
      }
    }
  }
}

}  // namespace
}  // namespace korvel
