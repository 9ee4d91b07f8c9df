// The editors of long tables: G15.7, the field of the default layouts, and the shortest decimal
// that reads back to the same double. Both give the very characters of the general editors.

#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>

#include "data/format_edit.h"

namespace korvel {
namespace {

static_assert(std::endian::native == std::endian::little, "digits are laid out in words");

__extension__ using Wide = unsigned __int128;

constexpr int LOW_POWER = -302, HIGH_POWER = 316;  // scales of 7 digits for normal doubles
constexpr int EXACT_POWERS = 27;                   // 10**0 .. 10**27 have 64 bits at the most

// 10**k = mantissa * 2**exponent, mantissa in [2**63, 2**64) and cut, less than 2 units too small.
struct Power {
  std::uint64_t mantissa = 0;
  int exponent = 0;
};
// Made in 128 bits, where 316 cut steps lose fewer than 2**9 units.
struct LongPower {
  Wide mantissa = Wide{1} << 127;
  int exponent = -127;
  constexpr void times_ten() {
    const Wide quarter = mantissa >> 2;
    exponent += 3;
    if (mantissa + quarter < mantissa) {  // passed 2**128
      mantissa = (mantissa >> 1) + (quarter >> 1) + (mantissa & quarter & 1);
      ++exponent;
      mantissa |= Wide{1} << 127;
    } else {
      mantissa += quarter;
    }
  }
  constexpr void by_ten() {
    mantissa -= mantissa / 5 + (mantissa % 5 != 0 ? 1 : 0);
    exponent -= 3;
    if ((mantissa >> 127) == 0) {
      mantissa <<= 1;
      --exponent;
    }
  }
  constexpr Power cut() const {
    return {static_cast<std::uint64_t>(mantissa >> 64), exponent + 64};
  }
  // The smallest double that is no less: what doubles of this decade begin with.
  constexpr double above() const {
    constexpr Wide LOW = (Wide{1} << 75) - 1;
    auto m = static_cast<std::uint64_t>(mantissa >> 75);
    int e = exponent + 75;
    if ((mantissa & LOW) != 0) ++m;
    if (m == std::uint64_t{1} << 53) {
      m >>= 1;
      ++e;
    }
    if (e + 52 < -1022) return 0;
    if (e + 52 > 1023) return std::bit_cast<double>(std::uint64_t{0x7FF} << 52);
    return std::bit_cast<double>((m & ((std::uint64_t{1} << 52) - 1)) |
                                 static_cast<std::uint64_t>(e + 52 + 1023) << 52);
  }
};

struct Powers {
  std::array<Power, HIGH_POWER - LOW_POWER + 1> scale{};
  std::array<double, 310 + 310> decade{};  // [j+309]: the first double of [10**j, 10**(j+1))
};
constexpr Powers POWERS = [] {
  Powers p;
  const auto keep = [&p](int k, const LongPower& x) {
    if (k >= LOW_POWER && k <= HIGH_POWER)
      p.scale[static_cast<std::size_t>(k - LOW_POWER)] = x.cut();
    if (k >= -309 && k <= 310) p.decade[static_cast<std::size_t>(k + 309)] = x.above();
  };
  LongPower x;
  for (int k = 0; k <= HIGH_POWER; ++k, x.times_ten()) keep(k, x);
  x = LongPower{};
  for (int k = 0; k >= -309; --k, x.by_ten()) keep(k, x);
  return p;
}();

constexpr std::array<std::uint64_t, 13> WHOLE = {
    1,        10,        100,        1000,        10000,        100000,       1000000,
    10000000, 100000000, 1000000000, 10000000000, 100000000000, 1000000000000};

// The eight digits of x, below 10**8, as characters; the first one in the lowest byte. All pairs,
// then all digits are parted at once by products with a reciprocal.
std::uint64_t eight_digits(std::uint32_t x) {
  const std::uint64_t halves = x / 10000 | static_cast<std::uint64_t>(x % 10000) << 32;
  const std::uint64_t hundreds = (halves * 10486 >> 20) & 0x0000007F0000007F;
  const std::uint64_t pairs = hundreds | (halves - 100 * hundreds) << 16;
  const std::uint64_t tens = (pairs * 103 >> 10) & 0x000F000F000F000F;
  return (tens | (pairs - 10 * tens) << 8) + 0x3030303030303030;
}

void store(char* out, std::uint64_t word) { std::memcpy(out, &word, sizeof word); }

// n digits of m in front of `end`.
void digits_before(char* end, int n, std::uint64_t m) {
  for (; n > 0; --n, m /= 10) *--end = static_cast<char>('0' + m % 10);
}

// m / 10**n rounded to a whole number, ties to even.
std::uint64_t rounded_quotient(std::uint64_t m, int n) {
  const std::uint64_t by = WHOLE[static_cast<std::size_t>(n)];
  const std::uint64_t q = m / by, left = m % by, half = by / 2;
  return q + (left > half || (left == half && (q & 1) != 0) ? 1 : 0);
}

// Seven digits of a normal double, 0.DIGITS * 10**exponent. False when the product can't tell on
// which side of a tie the value lies.
bool seven_digits(double value, std::uint32_t& digits, int& exponent) {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const int b = static_cast<int>(bits >> 52 & 0x7FF) - 1023;
  // 10**e <= size < 10**(e+1); the estimate from the binary exponent may be one too small.
  const double size = std::fabs(value);
  int e = (b * 315653) >> 20;
  e += size >= POWERS.decade[static_cast<std::size_t>(e + 1 + 309)] ? 1 : 0;
  const int k = 6 - e;
  const Power& power = POWERS.scale[static_cast<std::size_t>(k - LOW_POWER)];
  const std::uint64_t m = (bits << 11) | std::uint64_t{1} << 63;
  const Wide product = Wide{m} * power.mantissa;
  // size * 10**k = product * 2**(b-63+exponent), between 10**6 and 10**7: 20 to 24 bits in front of
  // the binary point, 40 and more of the upper word behind it.
  const int shift = -(b - 63 + power.exponent) - 64;
  const auto high = static_cast<std::uint64_t>(product >> 64);
  std::uint64_t whole = high >> shift;
  const std::uint64_t rest = high & ((std::uint64_t{1} << shift) - 1);
  const std::uint64_t half = std::uint64_t{1} << (shift - 1);
  if (rest > half) {
    ++whole;
  } else if (rest + 3 >= half) [[unlikely]] {  // a cut power makes the product 3 units too small
    if (k >= 0 && k <= EXACT_POWERS) {
      const bool over = rest == half && static_cast<std::uint64_t>(product) != 0;
      if (over || (rest == half && (whole & 1) != 0)) ++whole;
    } else if (k < 0 && k >= -12 && size == std::floor(size)) {
      whole = rounded_quotient(static_cast<std::uint64_t>(size), -k);
    } else {
      return false;
    }
  }
  if (whole == 10000000) {
    whole = 1000000;
    ++e;
  }
  digits = static_cast<std::uint32_t>(whole);
  exponent = e + 1;
  return true;
}

}  // namespace

bool edit_table_value(char* out, double value) {
  constexpr std::uint64_t BLANKS = 0x2020202020202020;
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const auto binary = static_cast<unsigned>(bits >> 52 & 0x7FF);
  store(out, BLANKS);
  store(out + 7, BLANKS);
  if (bits << 1 == 0) {
    std::memcpy(out + 3, "0.000000", 8);  // NOLINT(bugprone-not-null-terminated-result): no string
    return true;
  }
  std::uint32_t m = 0;
  int exponent = 0;
  if (binary == 0 || binary == 0x7FF || !seven_digits(value, m, exponent)) return false;
  const char sign = value < 0 ? '-' : ' ';
  const std::uint64_t digits = eight_digits(m) >> 8;  // seven, the first in the lowest byte
  if (exponent >= 1 && exponent <= 7) {
    // The point goes in between: the digits behind it move one place up.
    const std::uint64_t front = (std::uint64_t{1} << 8 * exponent) - 1;
    store(out + 3, (digits & front) | std::uint64_t{'.'} << 8 * exponent | (digits & ~front) << 8);
    out[2] = sign;
    return true;
  }
  out[1] = sign;
  out[2] = '0';
  out[3] = '.';
  store(out + 4, digits | std::uint64_t{' '} << 56);
  if (exponent == 0) return true;
  const int size = exponent < 0 ? -exponent : exponent;
  if (size > 99) {
    out[11] = exponent < 0 ? '-' : '+';
    digits_before(out + 15, 3, static_cast<std::uint64_t>(size));
  } else {
    out[11] = 'E';
    out[12] = exponent < 0 ? '-' : '+';
    digits_before(out + 15, 2, static_cast<std::uint64_t>(size));
  }
  return true;
}

char* edit_shortest(char* out, double value) {
  if (!std::isfinite(value)) {
    const std::string_view text = std::isnan(value) ? "NaN" : value < 0 ? "-Inf" : "Inf";
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
  }
  // Decimals of no more than 15 digits are told apart by their doubles: one that gives the value
  // back is the shortest. Whether it stands with a point or an exponent is the shorter of the two,
  // and in the ranges below that is the point.
  const double size = std::fabs(value);
  if (size < 1e15) {
    const auto whole = static_cast<std::uint64_t>(size);
    if (static_cast<double>(whole) == size) {
      if (whole < 10000 || whole % 10000 != 0) {
        if (std::signbit(value)) *out++ = '-';
        return std::to_chars(out, out + 16, whole).ptr;
      }
    } else if (size >= 0.01 && size < 1e9) {
      // A wrong rounding is found out in the next line.
      // NOLINTNEXTLINE(bugprone-incorrect-roundings)
      const auto millionths = static_cast<std::uint64_t>(size * 1e6 + 0.5);
      if (static_cast<double>(millionths) / 1e6 == size) {
        if (value < 0) *out++ = '-';
        out = std::to_chars(out, out + 16, millionths / 1000000).ptr;
        *out++ = '.';
        store(out, eight_digits(static_cast<std::uint32_t>(millionths % 1000000) * 100));
        out += 6;
        while (out[-1] == '0') --out;
        return out;
      }
    }
  }
  return std::to_chars(out, out + SHORTEST_ROOM, value).ptr;
}

}  // namespace korvel
