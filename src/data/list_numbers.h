// Numbers in free form, correctly rounded. Pure functions: threads may scan at the same time.
//
// A number is an optional sign, digits with or without a point, and an exponent behind E, e, D or
// d, or of a sign and three digits, as edited fields have it. Blank, tab, comma and the end of the
// line end it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace korvel {

constexpr bool ends_number(char c) {
  return c == ' ' || c == ',' || c == '\n' || c == '\t' || c == '\r';
}

// Powers of ten that a double holds exactly.
inline constexpr std::array<double, 23> TENS = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
inline constexpr std::uint64_t WHOLE_DOUBLES = std::uint64_t{1} << 53;

// digits * 10**scale, where digits points at n decimal digits without a point. False when the value
// is beyond the largest double; what is too small for one is zero.
bool decimal_value(const char* digits, std::size_t n, std::int64_t scale, double& value);

// The rest of scan_number: exponents, long numbers, and what is no number.
bool scan_long_number(const char*& p, const char* end, double& value);

// Scans the number at p. True: p stands on the character behind it, which ends a number. False:
// what stands there up to the next separator is no number (letters, two points, an exponent without
// digits, a value beyond the largest double) and p has not moved.
//
// The usual case needs no more than a product or quotient of two exact doubles, which is correctly
// rounded (Clinger 1990, PLDI): at most 19 digits, below 2**53 in all, without an exponent.
inline bool scan_number(const char*& p, const char* end, double& value) {
  const char* q = p;
  const bool minus = q != end && *q == '-';
  if (q != end && (*q == '-' || *q == '+')) ++q;
  const char* const first = q;
  std::uint64_t m = 0;
  for (; q != end; ++q) {
    const auto digit = static_cast<unsigned>(static_cast<unsigned char>(*q)) - '0';
    if (digit > 9) break;
    m = m * 10 + digit;
  }
  std::ptrdiff_t n = q - first, decimals = 0;
  if (q != end && *q == '.') {
    const char* const point = ++q;
    for (; q != end; ++q) {
      const auto digit = static_cast<unsigned>(static_cast<unsigned char>(*q)) - '0';
      if (digit > 9) break;
      m = m * 10 + digit;
    }
    decimals = q - point;
    n += decimals;
  }
  if (n == 0 || n > 19 || m > WHOLE_DOUBLES || (q != end && !ends_number(*q))) [[unlikely]] {
    return scan_long_number(p, end, value);
  }
  const double size = static_cast<double>(m) / TENS[static_cast<std::size_t>(decimals)];
  value = minus ? -size : size;
  p = q;
  return true;
}

}  // namespace korvel
