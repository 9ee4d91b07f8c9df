// SORTSH: the order of rows, the columns moved into it, order statistics; SORT as a command.
#include "data/sort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::values;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double INF = std::numeric_limits<double>::infinity();

// The standard library's stable sort of the kept rows, by the kernel's order.
std::vector<std::size_t> expected_order(const std::vector<double>& key, const SortRows& rows,
                                        bool descend) {
  std::vector<std::size_t> order;
  for (std::size_t i = rows.first; i < rows.last; ++i) {
    if (rows.used(i)) order.push_back(i);
  }
  std::ranges::stable_sort(order, [&](std::size_t a, std::size_t b) {
    if (std::isnan(key[a]) || std::isnan(key[b])) return !std::isnan(key[a]) && std::isnan(key[b]);
    return descend ? key[a] > key[b] : key[a] < key[b];
  });
  return order;
}

// Sorts key and a column of row numbers, with each amount of work space, and compares all bits.
void check(const std::vector<double>& key, const SortRows& rows, const char* what) {
  for (const bool descend : {false, true}) {
    const auto order = expected_order(key, rows, descend);
    const std::size_t n = order.size();
    ASSERT_EQ(count_rows(rows), n);
    for (const std::size_t words : {n, 2 * n, SORTSH_words(n)}) {
      std::vector<double> k = key, carried(key.size()), work(words);
      std::iota(carried.begin(), carried.end(), 0.0);
      std::vector<double> wanted = carried;
      double* const columns[] = {carried.data(), k.data()};
      ASSERT_EQ(SORTSH(k, columns, rows, descend, work), 0);
      std::size_t at = 0;
      for (std::size_t i = rows.first; i < rows.last; ++i) {
        if (rows.used(i)) wanted[i] = static_cast<double>(order[at++]);
      }
      ASSERT_EQ(carried, wanted) << what << " n=" << n << " words=" << words << descend;
      for (std::size_t i = 0; i < k.size(); ++i) {
        const auto source = static_cast<std::size_t>(wanted[i]);
        ASSERT_EQ(std::bit_cast<std::uint64_t>(k[i]), std::bit_cast<std::uint64_t>(key[source]))
            << what << i;
      }
    }
  }
}

// Keys that exercise each stage: few and many digits, ties, long runs that agree in their leading
// bits, keys that differ in bits that have no room beside the row number, marks of skipped rows.
TEST(Sortsh, AgreesWithAStableComparisonSort) {
  std::mt19937_64 bits(7);
  const auto fill = [&](std::size_t n, auto&& make) {
    std::vector<double> x(n);
    for (double& v : x) v = make();
    return x;
  };
  std::normal_distribution<double> draw;
  for (const std::size_t n : {1U, 2U, 25U, 4095U, 4096U, 150000U}) {
    const SortRows all{0, n, {}};
    check(fill(n, [&] { return draw(bits); }), all, "normal");
    check(fill(n, [&] { return static_cast<double>(bits() % 100); }), all, "ties");
    check(fill(n, [&] { return std::round(draw(bits) * 100) / 100; }), all, "decimals");
    check(fill(n, [&] { return 1.0 + static_cast<double>(bits() % 7) * 0x1p-52; }), all, "tails");
    check(fill(n, [&] { return bits() % 3 == 0 ? -99999.0 : 1.0 + double(bits() % n) * 0x1p-50; }),
          all, "outliers");
    check(fill(n, [&] { return std::bit_cast<double>(bits()); }), all, "any bits");
    check(std::vector<double>(n, 4.0), all, "constant");
    std::vector<double> marks = fill(n - n / 4, [&] { return bits() % 3 == 0 ? 2.0 : 0.0; });
    check(fill(n, [&] { return draw(bits); }), {n / 5, n, marks}, "skipped");
  }
}

// Runs of keys that agree but for their last bits, a short one and a long one behind it. With 20
// bits for the row the last bits of the short run, moved to the front of a record, look like the
// key 1.0.
TEST(Sortsh, RunsSideBySideStayApart) {
  std::vector<double> key(1000000);
  for (std::size_t i = 0; i < key.size(); ++i) {
    const std::size_t rank = i * 7919 % key.size();  // every rank once
    const std::uint64_t tail = rank < 9 ? (rank < 4 ? 0 : 0xBFF00) : rank % 3;
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(rank < 9 ? 0.5 : 1.0) | tail;
    key[i] = rank < 40000 ? std::bit_cast<double>(bits) : 2.0 + static_cast<double>(rank);
  }
  std::vector<double> wanted = key, work(SORTSH_words(key.size()));
  std::ranges::sort(wanted);
  ASSERT_EQ(SORTSH(key, work), 0);
  EXPECT_TRUE(key == wanted);
}

TEST(Sortsh, ZerosAreEqualAndNanComesLast) {
  std::vector<double> x{NaN, 0.0, INF, -0.0, 5, -NaN, -INF, 0.0, -3}, work(2 * x.size());
  check(x, {0, x.size(), {}}, "special");
  ASSERT_EQ(SORTSH(x, work), 0);
  EXPECT_EQ(x[0], -INF);
  EXPECT_EQ((std::vector<bool>{std::signbit(x[2]), std::signbit(x[3]), std::signbit(x[4])}),
            (std::vector<bool>{false, true, false}));
  EXPECT_EQ(x[6], INF);
  EXPECT_TRUE(std::isnan(x[7]) && std::isnan(x[8]));
  EXPECT_EQ(SORTSH(x, std::span(work).first(x.size() - 1)), 1);
  const auto order = sort_order(std::vector<double>{30, 10, 20, 10}, work);
  EXPECT_EQ((std::vector<std::uint64_t>(order.begin(), order.end())),
            (std::vector<std::uint64_t>{1, 3, 2, 0}));
}

// Quartiles: R 4.2.2, quantile(x, c(.25, .5, .75)).
TEST(SortStatistics, QuartilesAndModes) {
  struct Case {
    std::vector<double> x;
    double lower, median, upper, mode;
    std::size_t frequency, modes;
  };
  for (const Case& c : {Case{{7}, 7, 7, 7, 7, 1, 1},
                        {{1, 2}, 1.25, 1.5, 1.75, 1, 1, 2},
                        {{1, 3, 3, 8, 9, 9, 20}, 3, 8, 9, 3, 2, 2},
                        {{-5, 0, 0, 0, 2, 7}, 0, 0, 1.5, 0, 3, 1},
                        {{1, 2, 4, 8, 16, 32, 64, 128, NaN}, 3.5, 12, 40, 1, 1, 8}}) {
    const SortStatistics s = sort_statistics(c.x);
    EXPECT_EQ(s.lower, c.lower);
    EXPECT_EQ(s.median, c.median);
    EXPECT_EQ(s.upper, c.upper);
    EXPECT_EQ(s.mode, c.mode);
    EXPECT_EQ(s.frequency, c.frequency);
    EXPECT_EQ(s.modes, c.modes);
  }
}

constexpr const char* DATA = "SAMPLE 1 5\nREAD X Y\n3 1\n-0 2\n5 3\n3 4\n-2 5\nEND\n";

TEST(Sort, MovesRowsTogether) {
  run_commands(std::string(DATA) + "SORT X Y Y\n");  // a column that is listed twice moves once
  EXPECT_EQ(values("X"), (std::vector<double>{-2, 0, 3, 3, 5}));
  EXPECT_EQ(values("Y"), (std::vector<double>{5, 2, 1, 4, 3}));
  run_commands(std::string(DATA) + "SORT X Y / DESCEND\n");
  EXPECT_EQ(values("Y"), (std::vector<double>{3, 1, 4, 2, 5}));
  EXPECT_EQ(values("X"), (std::vector<double>{5, 3, 3, 0, -2}));
  run_commands(std::string(DATA) + "SORT X Y / BEG=2 END=4\n");
  EXPECT_EQ(values("Y"), (std::vector<double>{1, 2, 4, 3, 5}));
  run_commands(std::string(DATA) + "SAMPLE 1 2 4 5\nSKIPIF(Y.EQ.4)\nSORT X Y\n");
  EXPECT_EQ(values("Y"), (std::vector<double>{5, 2, 3, 4, 1}));
  // A matrix goes with all its columns, and one column of it may be the key.
  const char* matrix = "READ M / ROWS=3 COLS=2\n1 9\n2 7\n3 8\nSAMPLE 1 3\n";
  run_commands(std::string(matrix) + "SORT M:2 M\n");
  EXPECT_EQ(values("M"), (std::vector<double>{2, 3, 1, 7, 8, 9}));
}

// 100,000 rows in a workspace with room for one word an observation, and with less.
TEST(Sort, SortsInLittleRoom) {
  const std::string make =
      "SAMPLE 1 100000\nGENR X=TIME(0)*7919-100003*INT(TIME(0)*7919/100003)\n"
      "GENR Y=X+1\n";
  for (const std::int64_t par : {4000, 2400}) {
    const Listing out = run_commands(make + "SORT X Y\n", par);
    EXPECT_TRUE(holds(out, "DATA HAS BEEN SORTED BY VARIABLE X")) << out.text;
    const auto x = values("X"), y = values("Y");
    EXPECT_TRUE(std::ranges::is_sorted(x));
    for (std::size_t i = 0; i < x.size(); ++i) ASSERT_EQ(y[i], x[i] + 1);
  }
  const Listing out = run_commands(make + "SORT X Y\n", 2000);
  // 100,000 x 2 + 1 + LASADD = 400,009 words are wanted of 256,000.
  EXPECT_TRUE(holds(out, " ...ERROR..INSUFFICIENT MEMORY. AT LEAST 144009 MORE WORDS NEEDED"))
      << out.text;
}

}  // namespace
}  // namespace korvel
