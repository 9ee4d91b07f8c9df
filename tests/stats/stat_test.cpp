// STAT: certified moments and analyses of variance (NIST StRD), R's matrices and tests, data at the
// ends of the range of reals.
#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <map>
#include <random>

#include "expr/kernels/packed.h"
#include "stats/stats_moments.h"
#include "stats_fixture.h"

namespace korvel {
namespace {

using korvel_test::expect_digits;
using korvel_test::holds;
using korvel_test::LRE;
using korvel_test::PLANT;
using korvel_test::run_commands;
using korvel_test::temp;
using korvel_test::values;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double INF = std::numeric_limits<double>::infinity();
const std::string NIST = std::string(KORVEL_TEST_DATA) + "/nist/";

TEST(Stat, CertifiedMoments) {
  struct Case {
    const char* file;
    double mean, deviation;
  };
  for (const Case& c : {Case{"PiDigits", 4.53480000000000, 2.86733906028871},
                        Case{"Lew", -177.435000000000, 277.332168044316},
                        Case{"Michelso", 299.852400000000, 0.0790105478190518},
                        Case{"NumAcc1", 10000002, 1}, Case{"NumAcc2", 1.2, 0.1}}) {
    run_commands("READ(" + NIST + c.file +
                 ".csv) / NAMES EOF\nSTAT Y / MEANS=M STDEVS=S VARIANCE=V\n");
    ASSERT_EQ(values("M").size(), 1U) << c.file;
    EXPECT_GE(LRE(values("M")[0], c.mean), 15.0) << c.file;
    EXPECT_GE(LRE(values("S")[0], c.deviation), 13.0) << c.file;
    EXPECT_GE(LRE(values("V")[0], c.deviation * c.deviation), 13.0) << c.file;
  }
}

// The groups of a file as columns. The data of SmLs04 as reals have the exact F
// 21.000000000776102144, those of SiRstv 1.1804623744024467803 (mpmath 1.3, 50 digits).
TEST(Stat, CertifiedAnalysesOfVariance) {
  struct Case {
    const char* file;
    double certified, exact;
  };
  for (const Case& c :
       {Case{"SiRstv", 1.18046237440255, 1.1804623744024467803},
        Case{"SmLs01", 21.0, 21.00000000000000148}, Case{"SmLs04", 21.0, 21.000000000776102144}}) {
    std::ifstream in(NIST + c.file + ".dat");
    std::map<int, std::vector<std::string>> groups;
    std::string line;
    bool data = false;
    for (int number = 1; std::getline(in, line); ++number) {
      int group = 0;
      char value[64];
      if (data && std::sscanf(line.c_str(), "%d %63s", &group, value) == 2) {
        groups[group].emplace_back(value);
      }
      data = data || (number > 50 && line.substr(0, 5) == "Data:");
    }
    std::string names, commands = "SAMPLE 1 " + std::to_string(groups[1].size()) + "\n?READ ";
    for (const auto& [g, v] : groups) names += "G" + std::to_string(g) + " ";
    commands += names + "\n";
    for (std::size_t t = 0; t < groups[1].size(); ++t) {
      for (const auto& [g, v] : groups) commands += v[t] + " ";
      commands += "\n";
    }
    run_commands(commands + "END\nSTAT " + names + "/ ANOVA\n");
    EXPECT_GE(LRE(temp("F"), c.certified), 10.0) << c.file;
    EXPECT_GE(LRE(temp("F"), c.exact), 13.0) << c.file;
  }
}

// R 4.2.2 on `stackloss`: colMeans, sd, cor, cov, median; weights 1 to 21 by their definition.
TEST(Stat, ResultsAgreeWithR) {
  run_commands(PLANT +
               "STAT A W C L / MEANS=M STDEVS=S CORRELAT=R COVARIAN=V RANKCORR=K MEDIANS=D "
               "MINIMUMS=LO MAXIMUMS=HI SUMS=T CPDEVIAT=P CPRODUCT=X MODES=O\nGENR I=TIME(0)\n"
               "STAT A W C L / WEIGHT=I MEANS=WM VARIANCE=WV\nSTAT A / DN VARIANCE=VN\n"
               "STAT A W L / MOMENTS=Q\nOLS L A W / COEF=B\nOLS L A W / MOMENTS=Q COEF=BQ\n");
  expect_digits(
      "M", {60.428571428571431, 21.095238095238095, 86.285714285714292, 17.523809523809526}, 15);
  expect_digits(
      "S", {9.1682682583540753, 3.1607714549578225, 5.3585712381460153, 10.171622523565489}, 14.5);
  expect_digits("R",
                {1, 0.78185233295215451, 1, 0.50014287489945863, 0.39093953782809027, 1,
                 0.91966345290585527, 0.87550440441944699, 0.39982958709931055, 1},
                14);
  expect_digits("V",
                {84.057142857142864, 22.657142857142858, 9.9904761904761905, 24.571428571428573,
                 6.621428571428571, 28.714285714285715, 85.76428571428572, 28.147619047619049,
                 21.792857142857144, 103.46190476190476},
                14);
  expect_digits("K",
                {1, 0.73306993617567651, 1, 0.59379856022489153, 0.34876355119526237, 1,
                 0.91802473462394585, 0.85208377597927243, 0.49737800495733714, 1},
                14);
  EXPECT_EQ(values("D"), (std::vector<double>{58, 20, 87, 15}));
  EXPECT_EQ(values("O"), (std::vector<double>{58, 18, 87, 8}));
  EXPECT_EQ(values("LO"), (std::vector<double>{50, 17, 72, 7}));
  EXPECT_EQ(values("HI"), (std::vector<double>{80, 27, 93, 42}));
  EXPECT_EQ(values("T"), (std::vector<double>{1269, 443, 1812, 368}));
  EXPECT_NEAR(values("P")[0], 84.057142857142864 * 20, 1e-10);
  EXPECT_NEAR(values("X")[0], 84.057142857142864 * 20 + 1269.0 * 1269.0 / 21, 1e-8);
  expect_digits("WM", {57, 19.792207792207794, 85.060606060606062, 13.090909090909092}, 14.5);
  expect_digits(
      "WV", {50.509090909090908, 4.9455726092089725, 35.905234159779617, 36.159504132231405}, 14);
  expect_digits("VN", {84.057142857142864 * 20 / 21}, 14);
  // The moments with a column of ones are those that OLS reads.
  expect_digits("BQ", values("B"), 10);
}

// R 4.2.2: aov, bartlett.test, kruskal.test, wilcox.test(exact=F, correct=F), t.test, binom.test.
TEST(Stat, TestsAgreeWithR) {
  run_commands(PLANT + "STAT A W C L / ANOVA\n");
  EXPECT_GE(LRE(temp("F"), 403.71931154005262), 13);
  EXPECT_GE(LRE(temp("PVAL"), 3.3760417963662163e-48), 11);
  run_commands(PLANT + "STAT A W C L / BARTLETT\n");
  EXPECT_GE(LRE(temp("CHI"), 27.647892069801596), 13);
  EXPECT_GE(LRE(temp("PVAL"), 4.3056671882233e-06), 11);
  run_commands(PLANT + "STAT A W C L / NPARAM\n");
  EXPECT_GE(LRE(temp("CHI"), 71.687841691412629), 13);
  EXPECT_GE(LRE(temp("PVAL"), 1.856871981658962e-15), 11);
  const auto two = run_commands(PLANT + "STAT W L / NPARAM\n");
  EXPECT_GE(LRE(temp("PVAL"), 0.0071973800659179774), 13);
  for (const char* text : {"U=   332.00     N1=21 N2=21", "P-VALUE= 0.00487",
                           "MEANS:   1.5365     WITH     40.00 D.F. P-VALUE= 0.13228",
                           "NEGATIVE=4 ZERO=0 POSITIVE=17"}) {
    EXPECT_TRUE(holds(two, text)) << text << "\n" << two.text;
  }
  run_commands(PLANT + "STAT W L / BEHRENSF\n");
  EXPECT_GE(LRE(temp("DF"), 23.826793484998792), 13);
  EXPECT_GE(LRE(temp("PVAL"), 0.13757955623010154), 11);
}

// Missing values count by column, by common rows in matrices and under SAMEOBS; groups may have
// different lengths.
TEST(Stat, RowsThatCount) {
  const std::string data =
      "SAMPLE 1 6\n?READ X Y\n1 2\n2 -99999\n3 5\n-99999 4\n5 9\n7 1\nEND\nSET SKIPMISS "
      "NOWARNMISS\n";
  run_commands(data +
               "STAT X Y / MEANS=M CPDEVIAT=P\nSTAT X Y / SAMEOBS MEANS=C\n"
               "SKIPIF(X.EQ.7)\nSTAT X Y / MEANS=K SUMS=T\n");
  expect_digits("M", {3.6, 4.2}, 15);
  expect_digits("C", {4, 4.25}, 15);
  expect_digits("P", {20, 1, 38.75}, 14);
  expect_digits("K", {2.75, 5}, 15);
  const auto groups = run_commands(
      "SAMPLE 1 3\n?READ X\n1 2 3\nEND\nSAMPLE 1 5\n?READ Y\n2 4 6 8 10\nEND\nSTAT X Y / ANOVA "
      "MEANS=M\n");
  EXPECT_EQ(values("M"), (std::vector<double>{2, 6}));
  EXPECT_FALSE(holds(groups, "TWO-WAY"));
  // By hand: between 3*5*(6-2)^2/8 = 30, within 2 + 40.
  EXPECT_GE(LRE(temp("F"), 30.0 / (42.0 / 6.0)), 14);
}

// ---- The kernel --------------------------------------------------------------------------------

SeriesMoments moments_of(const SeriesRows& s) {
  std::vector<double> work(static_cast<std::size_t>(series_moments_words(1, s.rows)));
  SeriesMoments m;
  series_moments({&s, 1}, {&m, 1}, work);
  return m;
}

TEST(SeriesMoments, EndsOfTheRange) {
  const std::vector<double> x{NaN, 1, INF, 2, -INF, 6, NaN};
  const SeriesMoments m = moments_of({.x = x.data(), .rows = std::ssize(x)});
  EXPECT_EQ(m.n, 3);
  EXPECT_EQ(m.no_number, 4);
  EXPECT_EQ(m.mean, 3);
  EXPECT_EQ(m.squares, 14);
  EXPECT_EQ(m.exponent, 0);
  EXPECT_EQ(m.least, 1);
  EXPECT_EQ(m.most, 6);
  for (const double unit : {0x1p1000, 0x1p-1000, 0x1p-1070}) {
    const std::vector<double> y{1 * unit, 3 * unit, 8 * unit};
    const SeriesMoments h = moments_of({.x = y.data(), .rows = 3});
    EXPECT_EQ(h.mean, 4 * unit);
    EXPECT_EQ(std::ldexp(std::sqrt(h.squares / 26.0), h.exponent), unit);
  }
  const std::vector<double> constant(1000, 0.1);
  const SeriesMoments c = moments_of({.x = constant.data(), .rows = 1000});
  EXPECT_EQ(c.mean, 0.1);
  EXPECT_EQ(c.squares, 0.0);
  const std::vector<double> none{NaN, NaN};
  EXPECT_EQ(moments_of({.x = none.data(), .rows = 2}).n, 0);
}

// Sections, marks and weights: against sums in extended precision. The mean stands a million
// deviations from zero.
TEST(SeriesMoments, LongSeries) {
  std::mt19937_64 bits(3);
  std::normal_distribution<double> draw;
  constexpr std::size_t N = 200003;
  std::vector<double> x(N), y(N), w(N), marks(N);
  for (std::size_t i = 0; i < N; ++i) {
    x[i] = 1e6 + draw(bits);
    y[i] = x[i] + draw(bits);
    w[i] = 0.5 + static_cast<double>(bits() % 4);
    marks[i] = bits() % 5 == 0 ? 1.0 : 0.0;
  }
  const double* columns[] = {x.data(), y.data()};
  SeriesMoments m[2];
  std::vector<double> work(
      static_cast<std::size_t>(std::max(series_moments_words(2, N), common_cross_words(2, N))));
  std::vector<double> cross(3);
  const SeriesRows series[] = {{.x = x.data(), .rows = N, .weight = w.data(), .marks = marks},
                               {.x = y.data(), .rows = N, .weight = w.data(), .marks = marks}};
  series_moments(series, m, work);
  common_cross({.x = columns, .rows = N, .weight = w.data(), .marks = marks}, m, work, cross);
  long double sw = 0, sx = 0, sy = 0, xx = 0, xy = 0;
  for (std::size_t i = 0; i < N; ++i) {
    if (marks[i] > 0) continue;
    const long double a = x[i] - 1e6L, b = y[i] - 1e6L;
    sw += w[i];
    sx += w[i] * a;
    sy += w[i] * b;
    xx += w[i] * a * a;
    xy += w[i] * a * b;
  }
  const auto close = [](double found, long double wanted) {
    EXPECT_GE(LRE(found, static_cast<double>(wanted)), 13);
  };
  close((m[0].mean - 1e6) + m[0].low, sx / sw);
  close(m[0].squares, xx - sx * sx / sw);
  close(cross[packed(1, 1)], xx - sx * sx / sw);
  close(cross[packed(2, 1)], xy - sx * sy / sw);
  // Correlations keep their digits where products of variances would leave the range.
  std::vector<double> a{0x1p-900, 0x1p-400, 0x1p102}, variances(2);
  correlations(a, 2, variances);
  EXPECT_EQ(a, (std::vector<double>{1, 0.5, 1}));
}

}  // namespace
}  // namespace korvel
