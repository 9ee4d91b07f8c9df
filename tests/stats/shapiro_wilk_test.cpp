// Reference: R 4.2.2, shapiro.test(x)$statistic.
#include "stats/shapiro_wilk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace korvel {
namespace {

TEST(ShapiroWilk, AgreesWithPublishedAlgorithm) {
  const std::vector<double> x = {1.2, -0.3, 0.5, 2.2, -1.7, 0.1, 0.9, -0.8, 1.1, 3.5};
  struct Case {
    std::size_t n;
    double W;
  };
  for (const Case& c :
       {Case{10, 0.984404288265535}, {3, 0.998520710059171}, {5, 0.993047625931543}}) {
    std::vector<double> sorted(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(c.n));
    std::ranges::sort(sorted);
    std::vector<double> work(c.n / 2);
    EXPECT_NEAR(shapiro_wilk(sorted, work), c.W, 2e-6) << c.n;
  }
  const std::vector<double> equal(7, 2.5);
  std::vector<double> work(3);
  EXPECT_EQ(shapiro_wilk(equal, work), 0.0);
}

}  // namespace
}  // namespace korvel
