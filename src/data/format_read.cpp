// Reading editors: the characters of one field to a value.

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "data/format_edit.h"
#include "data/format_parse.h"
#include "data/list_numbers.h"

namespace korvel {

namespace {

constexpr char upper_case(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool same_word(std::string_view text, std::string_view word) {
  return std::ranges::equal(text, word, [](char a, char b) { return upper_case(a) == b; });
}

}  // namespace

bool read_real_field(std::string_view field, int d, double& value) {
  // 1. The field without its blanks.
  std::array<char, FORMAT_WIDTH> packed;
  std::size_t n = 0;
  for (const char c : field.substr(0, packed.size())) {
    if (c != ' ') packed[n++] = c;
  }
  value = 0;
  if (n == 0) return true;
  std::string_view text(packed.data(), n);
  // 2. Sign, and the two values that are words.
  const bool minus = text[0] == '-';
  if (minus || text[0] == '+') text.remove_prefix(1);
  if (same_word(text, "NAN")) {
    value = std::numeric_limits<double>::quiet_NaN();
    return true;
  }
  if (same_word(text, "INF") || same_word(text, "INFINITY")) {
    value = std::numeric_limits<double>::infinity() * (minus ? -1.0 : 1.0);
    return true;
  }
  // 3. Digits, their point taken out.
  std::array<char, FORMAT_WIDTH> digits;
  std::size_t count = 0, at = 0;
  std::int64_t decimals = -1;  // behind the point, -1 without one
  for (; at < text.size(); ++at) {
    if (text[at] == '.' && decimals < 0) {
      decimals = 0;
    } else if (is_digit(text[at])) {
      digits[count++] = text[at];
      if (decimals >= 0) ++decimals;
    } else {
      break;
    }
  }
  if (count == 0) return false;
  std::int64_t scale = decimals < 0 ? -d : -decimals;
  // 4. The exponent: E or D with or without a sign, or the sign alone.
  if (at < text.size()) {
    const char letter = upper_case(text[at]);
    if (letter == 'E' || letter == 'D') ++at;
    const bool sign = at < text.size() && (text[at] == '+' || text[at] == '-');
    const bool below = sign && text[at] == '-';
    if (sign) ++at;
    if (!sign && letter != 'E' && letter != 'D') return false;
    if (at == text.size()) return false;
    std::int64_t exponent = 0;
    for (; at < text.size() && is_digit(text[at]); ++at) {
      exponent = std::min<std::int64_t>(exponent * 10 + (text[at] - '0'), 1000000);
    }
    if (at < text.size()) return false;
    scale += below ? -exponent : exponent;
  }
  if (!decimal_value(digits.data(), count, scale, value)) return false;
  if (minus) value = -value;
  return true;
}

double read_word_field(std::string_view field) {
  std::array<char, 8> text;
  text.fill(' ');
  if (field.size() > text.size()) field.remove_prefix(field.size() - text.size());
  std::memcpy(text.data(), field.data(), field.size());
  double word = 0;
  std::memcpy(&word, text.data(), text.size());
  return word;
}

}  // namespace korvel
