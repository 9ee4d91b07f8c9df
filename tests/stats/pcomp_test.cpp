// PCOMP: results against R, rotation, normalisations, rows that count.
#include <gtest/gtest.h>

#include <cmath>

#include "stats/pcomp.h"
#include "stats_fixture.h"

namespace korvel {
namespace {

using korvel_test::expect_digits;
using korvel_test::LRE;
using korvel_test::PLANT;
using korvel_test::run_commands;
using korvel_test::values;

// R 4.2.2: prcomp(stackloss), prcomp(stackloss, scale.=TRUE), eigen(crossprod(columns of length
// 1)). The largest element of a vector is positive.
TEST(Pcomp, ResultsAgreeWithR) {
  run_commands(PLANT +
               "PCOMP A W C L / EVALUES=E EVECTORS=V PCINFORM=I\n"
               "PCOMP A W C L / CORRELAT EVALUES=EC PCOMPONE=Z\n"
               "PCOMP A W C L / CORRELAT PCOMPONE=Z1 NCODE=1 MAXFACTO=1\n"
               "PCOMP A W C L / CORRELAT PCOMPONE=Z2 NCODE=2 MINEIGEN=0.5\n"
               "PCOMP A W C L / SCALED EVALUES=ES\nPCOMP A W C L / RAW EVALUES=ER\n"
               "STAT A W C L / CORRELAT=R\n");
  const std::vector<double> e{194.11060256159476, 22.958979609003062, 7.1940547273557414,
                              1.960172625856051};
  expect_digits("E", e, 13);
  expect_digits(
      "V",
      {0.64153233211699967, 0.19535903863489723, 0.19734627539614499, 0.71507031854177916,
       0.057076065579555066, -0.059973624791391504, 0.95117864267742791, -0.29732923970182584,
       0.75030002853913946, -0.34454578691781423, -0.22806396190541847, -0.51606675650670852,
       0.14909210831109815, 0.91625662948227249, -0.065577942797855227, -0.36598478873791795},
      11);
  const std::vector<double> info = values("I");
  EXPECT_GE(LRE(info[5], 100 * (e[0] + e[1]) / (e[0] + e[1] + e[2] + e[3])), 13);
  EXPECT_GE(LRE(info[15], e[0] / e[3]), 12);
  EXPECT_GE(LRE(info[19], std::sqrt(e[0] / e[3])), 12);
  const std::vector<double> ec{2.9974717410873857, 0.73404447317623889, 0.21531140730728382,
                               0.05317237842909036};
  expect_digits("EC", ec, 13);
  const std::vector<double> z = values("Z"), z1 = values("Z1"), z2 = values("Z2");
  EXPECT_GE(LRE(z[0], 3.6502030778388561), 13);
  EXPECT_GE(LRE(z[20], 0.56000898000828858), 12);
  ASSERT_EQ(z1.size(), 21U);
  EXPECT_GE(LRE(z1[0], z[0] / std::sqrt(ec[0])), 14);
  ASSERT_EQ(z2.size(), 42U);
  EXPECT_GE(LRE(z2[21], z[21] * std::sqrt(ec[1])), 14);
  expect_digits(
      "ES", {3.8560725980689927, 0.13719787298024388, 0.0049120073769436234, 0.0018175215738175656},
      11);
  // The trace of X'X: the sums of squares.
  double squares = 0.0, trace = 0.0;
  for (const char* name : {"A", "W", "C", "L"}) {
    for (const double x : values(name)) squares += x * x;
  }
  for (const double v : values("ER")) trace += v;
  EXPECT_GE(LRE(trace, squares), 14);
}

// R 4.2.2: varimax(loadings of the first two components of stackloss, eps=1e-15), good to 1E-7.
// Columns may change sign.
TEST(Pcompv, AgreesWithR) {
  std::vector<double> a{-0.9464105468,  -0.9074438376, -0.605675489, -0.9547155083,
                        -0.07099884966, -0.2198560571, 0.7939418231, -0.2243286255};
  const std::vector<double> wanted{-0.8917413941, -0.917501319, -0.2251843677, -0.9624236334,
                                   0.3248554228,  0.1731540751, 0.9728712232,  0.1885358953};
  std::vector<double> work(4);
  EXPECT_LE(PCOMPV(a, 4, 2, false, work), 6);
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_NEAR(std::fabs(a[i]), std::fabs(wanted[i]), 2e-7) << i;
  }
  // Rows without any loading stay so, and equal columns are told apart.
  std::vector<double> equal{1, 0, 0.5, 1, 0, -0.5};
  PCOMPV(equal, 3, 2, false, work);
  EXPECT_EQ(equal[1], 0.0);
  EXPECT_NEAR(equal[0] * equal[0] + equal[3] * equal[3], 2.0, 1e-14);
  for (const double v : equal) EXPECT_TRUE(std::isfinite(v));
}

// Skipped rows hold the missing code, a result may take the place of a variable, and the values are
// those of the rows that count.
TEST(Pcomp, RowsAndNames) {
  run_commands(PLANT +
               "SKIPIF(A.EQ.62)\nPCOMP A W / PCOMPONE=P EVALUES=E\nDELETE SKIP$\n"
               "SORT A W / DESCEND\nSAMPLE 1 3 9 21\n"
               "PCOMP A W / PCOMPONE=A EVALUES=F BEG=1 END=21\n");
  const std::vector<double> p = values("P"), a = values("A"), e = values("E");
  ASSERT_EQ(p.size(), 42U);
  EXPECT_EQ(p[4], MACOM.XMISS);
  ASSERT_EQ(a.size(), 42U);
  EXPECT_EQ(a[5], MACOM.XMISS);
  double sum = 0.0, squares = 0.0;
  for (std::size_t i = 0; i < 21; ++i) {
    if (p[i] == MACOM.XMISS) continue;
    sum += p[i];
    squares += p[i] * p[i];
  }
  EXPECT_NEAR(sum, 0.0, 1e-10);
  EXPECT_GE(LRE(squares / 15.0, e[0]), 13);
}

}  // namespace
}  // namespace korvel
