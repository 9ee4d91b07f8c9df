// The fast editors give the characters of the exact ones.
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "data/format_edit.h"

namespace korvel {
namespace {

// G15.7 laid out from the digits of %.6e, which the C library rounds on the exact binary value,
// ties to even.
std::string general_15_7(double value) {
  if (value == 0) return "   0.000000    ";
  char text[64];
  std::snprintf(text, sizeof text, "%.6e", std::fabs(value));
  const std::string digits = std::string(text, 1) + std::string(text + 2, 6);
  const int e = std::atoi(text + 9) + 1;
  std::string field;
  if (e >= 0 && e <= 7) {
    const auto whole = static_cast<std::size_t>(e);
    field = (e == 0 ? "0" : "") + digits.substr(0, whole) + "." + digits.substr(whole) + "    ";
  } else {
    std::snprintf(text, sizeof text, std::abs(e) > 99 ? "%c%03d" : "E%c%02d", e < 0 ? '-' : '+',
                  std::abs(e));
    field = "0." + digits + text;
  }
  if (value < 0) field = "-" + field;
  return std::string(15 - field.size(), ' ') + field;
}

void check(double value) {
  char field[16] = {};
  edit_general(field, 15, 7, value);
  ASSERT_EQ(std::string(field, 15), general_15_7(value)) << value;
  char fast[64], exact[64];
  const std::string shortest(fast, edit_shortest(fast, value));
  ASSERT_EQ(shortest, std::string(exact, std::to_chars(exact, exact + 64, value).ptr));
}

TEST(FormatFast, PowersOfTenAndTheirNeighbours) {
  for (int j = -323; j <= 308; ++j) {
    const double power = std::strtod(("1e" + std::to_string(j)).c_str(), nullptr);
    double below = power, above = power;
    for (int k = 0; k < 4; ++k) {
      check(below);
      check(-above);
      below = std::nextafter(below, 0.0);
      above = std::nextafter(above, 1e308);
      check(power * (1 - 5e-8 * (1 + (k - 2) * 1e-9)));  // seven nines and the tie above them
    }
  }
  for (const double value : {0.0, -0.0, 5e-324, 1.7976931348623157e308}) check(value);
}

TEST(FormatFast, RandomValues) {
  std::mt19937_64 random(1);
  const auto below = [&](std::uint64_t n) { return static_cast<double>(random() % n); };
  for (int i = 0; i < 40000; ++i) {
    const double any = std::bit_cast<double>(random());
    if (std::isfinite(any)) check(any);
    const int power = static_cast<int>(random() % 24) - 12;
    check(-std::ldexp(below(1ULL << 53), -53) * std::pow(10.0, power));
    check(below(1000000000000));  // whole numbers, ties among them
    check(below(2000000000) * 5);
    check(below(100000000) / 1000);  // decimals
    check(below(100000000) / 1000000);
    check(below(1000) / 100000000);
    check((below(10000000) + 0.5) * std::pow(10.0, power));
    check(std::ldexp(below(1 << 24), -static_cast<int>(random() % 30)));  // exact ties
  }
}

}  // namespace
}  // namespace korvel
