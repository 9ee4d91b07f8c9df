// Numbers in free form: exact results and what is no number.
#include "data/list_numbers.h"

#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>

namespace korvel {
namespace {

struct Scanned {
  bool ok = false;
  double value = -1;
  std::size_t used = 0;
};
Scanned scan(const std::string& text) {
  Scanned s;
  const char* p = text.data();
  s.ok = scan_number(p, text.data() + text.size(), s.value);
  s.used = static_cast<std::size_t>(p - text.data());
  return s;
}

TEST(ListNumbers, Values) {
  const struct {
    const char* text;
    double value;
    std::size_t used;
  } table[] = {
      {"0", 0.0, 1},
      {"-1.5 2", -1.5, 4},
      {"+12,3", 12.0, 3},
      {".5\t", 0.5, 2},
      {"5.\n", 5.0, 2},
      {"1e3\r", 1000.0, 3},
      {"1.25D-2", 0.0125, 7},
      {"1d0", 1.0, 3},
      {"0000000000000000000000000000.1", 0.1, 30},
      {"9007199254740993", 9007199254740992.0, 16},  // a tie: to even
      {"9007199254740995", 9007199254740996.0, 16},  // a tie: to even
      {"1844674407370955161.6", 1844674407370955161.6, 21},
      {"12345678901234567890123456789", 1.2345678901234568e28, 29},
      {"2.2250738585072011e-308", 2.2250738585072011e-308, 23},
      {"4.9406564584124654e-324", 4.9406564584124654e-324, 23},
      {"1e-400", 0.0, 6},
      {"0e999999999999", 0.0, 14},
      {"1.7976931348623157e308", 1.7976931348623157e308, 22},
      {"123456789e-400", 0.0, 14},
  };
  for (const auto& t : table) {
    const Scanned s = scan(t.text);
    EXPECT_TRUE(s.ok) << t.text;
    EXPECT_EQ(s.value, t.value) << t.text;
    EXPECT_EQ(s.used, t.used) << t.text;
  }
  EXPECT_TRUE(std::signbit(scan("-0").value));
}

TEST(ListNumbers, WhatIsNoNumberStaysWhereItIs) {
  for (const char* text :
       {"", "+", "-", ".", "1.2.3", "1e", "1e+", "1x", "x1", "NaN", "inf", "0x10", "1e400",
        "1.8e308", "1e999999999999", "--1", "1-2", "1e5.0", "1_0"}) {
    const Scanned s = scan(text);
    EXPECT_FALSE(s.ok) << text;
    EXPECT_EQ(s.used, 0U) << text;
  }
}

// A tie between two doubles that digits far behind decide: 1 + 2**-53 written out, then 800 zeros.
TEST(ListNumbers, DigitsFarBehindDecideTies) {
  const std::string tie = "1.00000000000000011102230246251565404236316680908203125";
  EXPECT_EQ(scan(tie).value, 1.0);
  EXPECT_EQ(scan(tie + std::string(900, '0')).value, 1.0);
  EXPECT_EQ(scan(tie + std::string(900, '0') + "1").value, std::nextafter(1.0, 2.0));
}

TEST(ListNumbers, ReadsBackWhatWasWritten) {
  std::mt19937_64 random(17);
  for (int i = 0; i < 200000; ++i) {
    auto x = std::bit_cast<double>(random());
    if (!std::isfinite(x)) continue;
    if (i % 2 == 0)
      x = static_cast<double>(static_cast<std::int64_t>(random() % 2000000) - 1000000) / 1000;
    char text[64];
    const auto end = i % 3 == 0
                         ? std::to_chars(text, text + 64, x, std::chars_format::scientific, 16)
                         : std::to_chars(text, text + 64, x);
    const char* p = text;
    double back = 0;
    ASSERT_TRUE(scan_number(p, end.ptr, back)) << std::string(text, end.ptr);
    ASSERT_EQ(p, end.ptr);
    ASSERT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(x))
        << std::string(text, end.ptr);
  }
}

// Decimals of 15 to 25 digits next to the ties between doubles, against strtod of the C library.
TEST(ListNumbers, RoundsAsTheLibraryDoes) {
  std::mt19937_64 random(19);
  for (int i = 0; i < 100000; ++i) {
    std::string text = std::to_string(random());
    if (i % 2 == 0) text += std::to_string(random() % 1000000);
    text.insert(random() % text.size(), ".");
    text += 'e' + std::to_string(static_cast<int>(random() % 600) - 300);
    const Scanned s = scan(text);
    const double wanted = std::strtod(text.c_str(), nullptr);
    if (std::isinf(wanted)) {
      ASSERT_FALSE(s.ok) << text;
    } else {
      ASSERT_EQ(s.value, wanted) << text;
    }
  }
}

}  // namespace
}  // namespace korvel
