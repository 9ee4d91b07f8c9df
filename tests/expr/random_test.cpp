// The random streams, bit by bit. The expected numbers come from tools/random_reference.py.

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "expr/expr.h"

namespace korvel {
namespace {

struct StreamCase {
  int level;
  double seed;
  std::array<double, 4> uniform;  // numbers 1, 2, 3 and 2000
  std::array<double, 4> normal;   // numbers 1, 2, 3 and 5000
};
constexpr StreamCase STREAMS[] = {
    {4,
     0,
     {0x1.c5365ed1484c8p-5, 0x1.939dbf99a5dbep-1, 0x1.81e2f2cff2000p-14, 0x1.769fb05312bb6p-1},
     {0x1.31afe64bb3aa9p-4, 0x1.1edd9fc0ff4adp+0, 0x1.940e7f66cb889p+0, -0x1.6ea52f0e625a3p-7}},
    {4,
     1234,
     {0x1.2171d43aaa118p-1, 0x1.9a1f7a88745abp-1, 0x1.4080a64ebd3aep-2, 0x1.fe738b4efbfcep-2},
     {0x1.98ffa2bb4efa2p-1, -0x1.95ae66d441adbp-1, -0x1.568f584d72a67p-1, 0x1.33bc5445716e5p-1}},
    {1,
     1,
     {0x1.5ce36675155f2p-2, 0x1.ad05669bac5dcp-1, 0x1.0bc30b1f1a4a5p-2, 0x1.9f59678dbfdbfp-1},
     {0x1.d6a4a4d90673ap-2, -0x1.df6c623646ec6p-1, -0x1.6204e1e3a9549p-3, 0x1.a743ea4ed89fep-3}},
    {2,
     8191,
     {0x1.f791acd194d44p-2, 0x1.fa5c89c9ec186p-1, 0x1.a671517b99bf9p-2, 0x1.0cf48d0c4dab5p-1},
     {0x1.53a6f3d52cc51p-1, -0x1.1a331a25456b9p+1, -0x1.6b6de8268e38bp-1, 0x1.c9573340a26bep-2}},
    {3,
     5,
     {0x1.b0d3975543d7cp-1, 0x1.391b62f14ec4fp-2, 0x1.17218e3c4ab8bp-1, 0x1.d62c0c244c3dfp-1},
     {-0x1.36fc1e6ed51eap+0, -0x1.c3215d64deb16p-1, -0x1.9a079e53f9c2fp-1, -0x1.30dfbf09a2c37p-1}},
    {5,
     123456,
     {0x1.3ccd5ee5ff600p-1, 0x1.d49e0460f571ep-1, 0x1.fd2cee560d9c5p-1, 0x1.e0c755d9515b4p-3},
     {0x1.cd127259463e3p-1, 0x1.48f19a0700c43p+0, -0x1.3f1999465b34ap+1, 0x1.1d9c79a7914e0p-1}},
    {6,
     77,
     {0x1.aa343e51a3fa0p-1, 0x1.a2ab1195b6856p-1, 0x1.cc2647bcf8e68p-1, 0x1.2ca3852f1c3c9p-1},
     {0x1.6746b9ac1039dp+0, 0x1.3ea7880e38218p-1, 0x1.25e8e585d1c1ep+0, 0x1.5a3da8fa14c26p-3}},
};

std::array<double, 4> shown(const std::vector<double>& x) { return {x[0], x[1], x[2], x.back()}; }

TEST(Random, StreamsToTheLastBit) {
  for (const StreamCase& c : STREAMS) {
    RANCOM = RanCom{};
    set_ranlevel(c.level);
    std::vector<double> u(2000), z(5000);
    for (std::size_t i = 0; i < u.size(); ++i) u[i] = FRAND(i == 0 ? c.seed : 0.0);
    EXPECT_EQ(shown(u), c.uniform) << c.level << " " << c.seed;
    RANCOM = RanCom{};
    set_ranlevel(c.level);
    for (std::size_t i = 0; i < z.size(); ++i) z[i] = FRANDN(i == 0 ? c.seed : 0.0);
    EXPECT_EQ(shown(z), c.normal) << c.level << " " << c.seed;
  }
}

TEST(Random, BulkIsTheSameStream) {
  const std::size_t n = 20000;
  RANCOM = RanCom{};
  std::vector<double> single(2 * n);
  for (std::size_t i = 0; i < n; ++i) single[i] = FRANDN(0.0);
  for (std::size_t i = n; i < 2 * n; ++i) single[i] = i % 3 == 0 ? FRANDN(0.0) : FRAND(0.0);
  RANCOM = RanCom{};
  std::vector<double> bulk(2 * n);
  std::span<double> rest(bulk);
  for (std::size_t k = 1; rest.size() > n; ++k) {
    const std::size_t m = std::min(k % 97, rest.size() - n);
    fill_normal(rest.first(m));
    rest = rest.subspan(m);
  }
  for (std::size_t i = n; i < 2 * n; ++i) {
    if (i % 3 == 0)
      fill_normal({&bulk[i], 1});
    else
      fill_uniform({&bulk[i], 1});
  }
  EXPECT_EQ(single, bulk);
}

TEST(Random, SeedsThatAreAlike) {
  const auto first = [](double seed) {
    RANCOM = RanCom{};
    return FRAND(seed);
  };
  EXPECT_EQ(first(8190), first(0));  // the seed counts modulo 8190
  EXPECT_EQ(first(-77), first(77));
  EXPECT_NE(first(78), first(77));
  RANCOM = RanCom{};
  FRAND(5);
  const double second = FRAND(0);
  FRAND(5);
  EXPECT_EQ(FRAND(0), second) << "a seed other than 0 restarts every time";
}

TEST(Random, ExpressionsSeedOnce) {
  RANCOM = RanCom{};
  OSCOM.ORANST = false;
  set_ranseed(1234);
  seed_random();
  EXPECT_TRUE(OSCOM.ORANST);
  EXPECT_EQ(FRAND(0), 0x1.4080a64ebd3aep-2);
  seed_random();  // nothing: the generator runs
  EXPECT_EQ(FRAND(0), 0x1.161b9c772b42ep-1);
  set_ranseed(1234);  // the same seed goes on
  seed_random();
  EXPECT_EQ(FRAND(0), 0x1.efe98f210100dp-1);
  set_ranseed(-1234);  // another setting, the same stream from the start
  seed_random();
  EXPECT_EQ(FRAND(0), 0x1.4080a64ebd3aep-2);
  set_ranseed(0);
  OSCOM.ORANST = false;
}

TEST(Random, LevelChanges) {
  RANCOM = RanCom{};
  OSCOM.ORANST = true;  // RANFIX before any draw: the level may change under it
  set_ranlevel(6);
  EXPECT_TRUE(OSCOM.ORANST);
  EXPECT_EQ(RANCOM.I127, 532);
  FRAND(0);
  set_ranlevel(6);
  EXPECT_TRUE(OSCOM.ORANST) << "no change";
  set_ranlevel(2);
  EXPECT_FALSE(OSCOM.ORANST) << "a running generator starts anew";
  set_ranlevel(9);
  EXPECT_EQ(ranlevel(), 2);
  set_ranlevel(4);
}

TEST(Random, Moments) {
  RANCOM = RanCom{};
  std::vector<double> z(1000000);
  fill_normal(z);
  double m1 = 0, m2 = 0, m4 = 0;
  for (const double v : z) {
    m1 += v;
    m2 += v * v;
    m4 += v * v * v * v;
  }
  const auto n = static_cast<double>(z.size());
  EXPECT_NEAR(m1 / n, 0.0, 0.005);  // five standard errors
  EXPECT_NEAR(m2 / n, 1.0, 0.0071);
  EXPECT_NEAR(m4 / n, 3.0, 0.049);
}

}  // namespace
}  // namespace korvel
