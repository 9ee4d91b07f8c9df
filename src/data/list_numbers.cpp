#include "data/list_numbers.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>

namespace korvel {

namespace {

constexpr std::int64_t FAR =
    1000000000;  // an exponent of this size is over or under for any digits

}  // namespace

bool decimal_value(const char* digits, std::size_t n, std::int64_t scale, double& value) {
  while (n > 0 && *digits == '0') {
    ++digits;
    --n;
  }
  while (n > 0 && digits[n - 1] == '0') {
    --n;
    ++scale;
  }
  value = 0;
  if (n == 0) return true;
  if (n <= 19) {
    std::uint64_t m = 0;
    for (std::size_t i = 0; i < n; ++i) m = m * 10 + static_cast<std::uint64_t>(digits[i] - '0');
    if (m <= WHOLE_DOUBLES && scale >= -22 && scale <= 22) {
      const double ten = TENS[static_cast<std::size_t>(scale < 0 ? -scale : scale)];
      value = scale < 0 ? static_cast<double>(m) / ten : static_cast<double>(m) * ten;
      return true;
    }
  }
  const std::int64_t size = static_cast<std::int64_t>(n) + scale;  // value < 10**size
  if (size > 310) return false;
  if (size < -330) return true;
  // The longest decimal on which a rounding can depend has 768 digits: from there on it only counts
  // whether something follows.
  constexpr std::size_t ENOUGH = 780;
  std::array<char, ENOUGH + 16> text;
  std::size_t kept = std::min(n, ENOUGH);
  std::memcpy(text.data(), digits, kept);
  if (kept < n) {
    scale += static_cast<std::int64_t>(n - kept);
    // digits has no zeros at its end, so something other than zero did follow.
    if (text[kept - 1] == '0') text[kept - 1] = '1';
  }
  text[kept++] = 'e';
  char* const end = std::to_chars(text.data() + kept, text.data() + text.size(), scale).ptr;
  const auto result = std::from_chars(text.data(), end, value);
  if (result.ec == std::errc{}) return true;
  value = 0;
  return size < 0;
}

bool scan_long_number(const char*& p, const char* end, double& value) {
  const char* stop = p;
  while (stop != end && !ends_number(*stop)) ++stop;
  const char* q = p;
  const bool minus = q != stop && *q == '-';
  if (q != stop && (*q == '-' || *q == '+')) ++q;
  // The digits without their point; long ones are copied around it.
  const auto digit = [&](const char* c) { return c != stop && *c >= '0' && *c <= '9'; };
  const char* const whole = q;
  while (digit(q)) ++q;
  auto n = static_cast<std::size_t>(q - whole);
  const char* fraction = q;
  const bool point = q != stop && *q == '.';
  if (point) {
    fraction = ++q;
    while (digit(q)) ++q;
  }
  const auto decimals = static_cast<std::size_t>(q - fraction);
  if (n + decimals == 0) return false;
  std::int64_t scale = -static_cast<std::int64_t>(decimals);
  // Edited fields with an exponent of three digits have no letter: 0.1000000-119.
  const bool bare = point && stop - q == 4 && (*q == '+' || *q == '-');
  if (bare || (q != stop && (*q == 'E' || *q == 'e' || *q == 'D' || *q == 'd'))) {
    if (!bare) ++q;
    const bool below = q != stop && *q == '-';
    if (q != stop && (*q == '-' || *q == '+')) ++q;
    if (!digit(q)) return false;
    std::int64_t exponent = 0;
    for (; digit(q); ++q) exponent = std::min(exponent * 10 + (*q - '0'), FAR);
    scale += below ? -exponent : exponent;
  }
  if (q != stop) return false;
  double size = 0;
  std::array<char, 64> few;
  if (n + decimals <= few.size()) {
    std::memcpy(few.data(), whole, n);
    std::memcpy(few.data() + n, fraction, decimals);
    if (!decimal_value(few.data(), n + decimals, scale, size)) return false;
  } else {
    std::string many(whole, n);
    many.append(fraction, decimals);
    if (!decimal_value(many.data(), many.size(), scale, size)) return false;
  }
  value = minus ? -size : size;
  p = stop;
  return true;
}

}  // namespace korvel
