#include "data/format_edit.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "data/format_parse.h"

namespace korvel {

namespace {

// The exact decimal digits of one double, at the most: 309 in front of the point, FORMAT_WIDTH
// behind.
constexpr std::size_t DIGITS_ROOM = 309 + FORMAT_WIDTH + 16;
constexpr int FAST_DIGITS = 15;  // digits that the extended-precision product can decide

constexpr auto POWERS = [] {  // 10**0 to 10**27 are exact in 64 bits of mantissa
  std::array<long double, 28> p{};
  long double x = 1;
  for (long double& e : p) {
    e = x;
    x *= 10;
  }
  return p;
}();
constexpr auto WHOLE_POWERS = [] {
  std::array<std::uint64_t, 20> p{};
  std::uint64_t x = 1;
  for (std::uint64_t& e : p) {
    e = x;
    x *= 10;
  }
  return p;
}();

void stars(char* out, int w) { std::memset(out, '*', static_cast<std::size_t>(w)); }

// n digits of m, with leading zeros.
void put_digits(char* out, int n, std::uint64_t m) {
  for (int i = n - 1; i >= 0; --i) {
    out[i] = static_cast<char>('0' + m % 10);
    m /= 10;
  }
}

int count_digits(std::uint64_t m) {
  int n = 1;
  while (n < 20 && m >= WHOLE_POWERS[static_cast<std::size_t>(n)]) ++n;
  return n;
}

// Rounds scaled, a product or quotient of a double and an exact power of ten with a relative error
// below 2**-63, to a whole number. False when the value lies so near a tie that the error could
// decide; the error of numbers up to 10**16 is below 2**-9.
bool round_scaled(long double scaled, std::uint64_t& m) {
  const long long nearest = std::llrint(scaled);
  const long double left = scaled - static_cast<long double>(nearest);
  m = static_cast<std::uint64_t>(nearest);
  return std::fabs(left) < 0.498L;
}

// The digits of |value| rounded to n significant ones, value = 0.DIGITS * 10**exponent.
struct Significant {
  int exponent = 0;
  std::array<char, DIGITS_ROOM> digits;
};
void round_significant(double value, int n, Significant& s) {
  value = std::fabs(value);
  if (n <= FAST_DIGITS) {
    // value lies in [2**(b-1), 2**b); the estimate of the exponent may be one too small.
    const int b = static_cast<int>(std::bit_cast<std::uint64_t>(value) >> 52) - 1022;
    int e = static_cast<int>(std::floor(static_cast<double>(b - 1) * 0.30102999566398120)) + 1;
    for (int tries = 0; tries < 2; ++tries, ++e) {
      const int shift = n - e;
      if (shift > 27 || shift < -27) break;
      const auto x = static_cast<long double>(value);
      const long double scaled = shift >= 0 ? x * POWERS[static_cast<std::size_t>(shift)]
                                            : x / POWERS[static_cast<std::size_t>(-shift)];
      const std::uint64_t top = WHOLE_POWERS[static_cast<std::size_t>(n)];
      std::uint64_t m = 0;
      const bool sure = round_scaled(scaled, m);
      if (m > top) continue;
      if (!sure) break;
      if (m == top) {
        m /= 10;
        ++e;
      }
      put_digits(s.digits.data(), n, m);
      s.exponent = e;
      return;
    }
  }
  std::array<char, DIGITS_ROOM> text;
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                 std::chars_format::scientific, n - 1)
                       .ptr;
  char* e = end;
  while (e[-1] != 'e') --e;
  s.digits[0] = text[0];
  if (n > 1) std::memcpy(s.digits.data() + 1, text.data() + 2, static_cast<std::size_t>(n - 1));
  int exponent = 0;
  std::from_chars(e[0] == '+' ? e + 1 : e, end, exponent);
  s.exponent = exponent + 1;
}

// The digits of |value| rounded to d decimals: `count` of them, the last d behind the point, and
// none at all when value rounds to zero and d is 0.
struct Decimals {
  int count = 0;
  bool zero = false;
  std::array<char, DIGITS_ROOM> digits;
};
void round_decimals(double value, int d, Decimals& s) {
  value = std::fabs(value);
  if (d <= FAST_DIGITS) {
    const long double scaled =
        static_cast<long double>(value) * POWERS[static_cast<std::size_t>(d)];
    std::uint64_t m = 0;
    if (scaled < 1e15L && round_scaled(scaled, m)) {
      s.zero = m == 0;
      s.count = m == 0 ? d : std::max(count_digits(m), d);
      put_digits(s.digits.data(), s.count, m);
      return;
    }
  }
  std::array<char, DIGITS_ROOM> text;
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, d).ptr;
  s.count = 0;
  s.zero = true;
  for (const char* p = text.data(); p != end; ++p) {
    if (*p == '.' || (s.count == 0 && p == text.data() && *p == '0')) continue;
    s.zero = s.zero && *p == '0';
    s.digits[static_cast<std::size_t>(s.count++)] = *p;
  }
}

// Lays out sign, digits and point in w columns: the first `whole` digits stand in front of the
// point (which may be below 1: zeros come behind it). The zero of "0." is left out when it has no
// room.
void lay_fixed(char* out, int w, bool minus, const char* digits, int whole, int decimals) {
  const int sign = minus ? 1 : 0;
  const int need = sign + whole + 1 + decimals;
  if (need > w || (whole == 0 && decimals == 0 && need + 1 > w)) return stars(out, w);
  const bool zero = whole == 0 && need < w;
  int at = w - need - (zero ? 1 : 0);
  std::memset(out, ' ', static_cast<std::size_t>(at));
  if (minus) out[at++] = '-';
  if (zero) out[at++] = '0';
  std::memcpy(out + at, digits, static_cast<std::size_t>(whole));
  at += whole;
  out[at++] = '.';
  std::memcpy(out + at, digits + whole, static_cast<std::size_t>(decimals));
}

void edit_nonfinite(char* out, int w, double value) {
  const std::string_view text = std::isnan(value) ? "NaN" : value < 0 ? "-Inf" : "Inf";
  const int n = static_cast<int>(text.size());
  if (n > w) return stars(out, w);
  std::memset(out, ' ', static_cast<std::size_t>(w - n));
  std::memcpy(out + w - n, text.data(), text.size());
}

// [-][0].ddd and four columns of exponent: E+dd, or +ddd when it has three digits.
void lay_exponent(char* out, int w, int d, bool minus, const char* digits, int exponent,
                  char letter) {
  const int need = (minus ? 1 : 0) + 1 + d + 4;
  if (need > w) return stars(out, w);
  lay_fixed(out, w - 4, minus, digits, 0, d);
  char* e = out + w - 4;
  const auto size = static_cast<std::uint64_t>(exponent < 0 ? -exponent : exponent);
  const bool three = size > 99;
  if (!three) *e++ = letter;
  *e++ = exponent < 0 ? '-' : '+';
  put_digits(e, three ? 3 : 2, size);
}

}  // namespace

int integer_width(std::int64_t value) {
  const auto size =
      value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  return count_digits(size) + (value < 0 ? 1 : 0);
}

void edit_integer(char* out, int w, std::int64_t value) {
  const int n = integer_width(value);
  if (n > w) return stars(out, w);
  std::memset(out, ' ', static_cast<std::size_t>(w - n));
  out += w - n;
  const bool minus = value < 0;
  if (minus) *out++ = '-';
  const auto size =
      minus ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  put_digits(out, n - (minus ? 1 : 0), size);
}

void edit_fixed(char* out, int w, int d, double value) {
  if (!std::isfinite(value)) return edit_nonfinite(out, w, value);
  Decimals s;
  round_decimals(value, d, s);
  lay_fixed(out, w, std::signbit(value) && !s.zero, s.digits.data(), s.count - d, d);
}

void edit_exponent(char* out, int w, int d, double value, char letter) {
  if (!std::isfinite(value)) return edit_nonfinite(out, w, value);
  if (d < 1) return stars(out, w);
  Significant s;
  if (value == 0) {
    std::memset(s.digits.data(), '0', static_cast<std::size_t>(d));
  } else {
    round_significant(value, d, s);
  }
  lay_exponent(out, w, d, value < 0, s.digits.data(), s.exponent, letter);
}

void edit_general(char* out, int w, int d, double value) {
  if (w == 15 && d == 7 && edit_table_value(out, value)) return;
  if (!std::isfinite(value)) return edit_nonfinite(out, w, value);
  if (d < 1) return stars(out, w);
  Significant s;
  int whole = 0, decimals = d - 1;  // a zero is F(w-4).(d-1)
  if (value == 0) {
    std::memset(s.digits.data(), '0', static_cast<std::size_t>(d));
    whole = w - 4 > d ? 1 : 0;
  } else {
    round_significant(value, d, s);
    whole = s.exponent;
    decimals = d - whole;
    if (whole < 0 || decimals < 0) {
      return lay_exponent(out, w, d, value < 0, s.digits.data(), s.exponent, 'E');
    }
  }
  const int digits = std::max(whole + decimals, 1);
  if ((value < 0 ? 1 : 0) + digits + 1 > w - 4) return stars(out, w);
  lay_fixed(out, w - 4, value < 0, s.digits.data(), whole, decimals);
  std::memset(out + w - 4, ' ', 4);
}

void edit_text(char* out, int w, std::string_view text) {
  const auto room = static_cast<std::size_t>(w);
  const std::size_t n = std::min(room, text.size());
  if (n > 0) std::memcpy(out, text.data(), n);  // an empty view has no address
  std::memset(out + n, ' ', room - n);
}

void edit_logical(char* out, int w, bool value) {
  std::memset(out, ' ', static_cast<std::size_t>(w));
  out[w - 1] = value ? 'T' : 'F';
}

void edit_word(char* out, int w, double word) {
  std::array<char, 8> text;
  std::memcpy(text.data(), &word, text.size());
  // A number is no text: its bytes would be control characters.
  const auto control = [](char c) {
    return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f';
  };
  if (std::ranges::any_of(text, control)) {
    std::memset(out, '*', static_cast<std::size_t>(w));
    return;
  }
  const int blanks = std::max(w - 8, 0);
  std::memset(out, ' ', static_cast<std::size_t>(blanks));
  std::memcpy(out + blanks, text.data(), static_cast<std::size_t>(w - blanks));
}

}  // namespace korvel
