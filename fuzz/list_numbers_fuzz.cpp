// Numbers in free form, token by token, against the conversion of the standard library.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "data/format_edit.h"
#include "data/list_numbers.h"

namespace {

using namespace korvel;

void check(bool holds) {
  if (!holds) std::abort();
}

// The token under the library's rules; false when it has other characters or another shape.
bool library_value(std::string token, double& value) {
  const bool sign = !token.empty() && (token[0] == '+' || token[0] == '-');
  const bool minus = sign && token[0] == '-';
  if (sign) token.erase(0, 1);
  if (token.find_first_not_of("0123456789.EeDd+-") != std::string::npos) return false;
  std::ranges::replace_if(
      token, [](char c) { return c == 'D' || c == 'd' || c == 'E'; }, 'e');
  if (token.empty() || token[0] == '-') return false;
  const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
  if (end != token.data() + token.size()) return false;
  if (error == std::errc::result_out_of_range) {
    // Too small or too large: the library of the C language tells which.
    value = std::strtod(token.c_str(), nullptr);
    if (std::isinf(value)) return false;
  } else if (error != std::errc{}) {
    return false;
  }
  if (minus) value = -value;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const char* p = reinterpret_cast<const char*>(data);
  const char* const end = p + size;
  while (p != end) {
    if (ends_number(*p)) {
      ++p;
      continue;
    }
    const char* stop = std::find_if(p, end, ends_number);
    const std::string token(p, stop);
    const char* from = p;
    double value = 0, wanted = 0;
    const bool ok = scan_number(p, end, value);
    check(p == (ok ? stop : from));
    const bool known = library_value(token, wanted);
    check(ok == known);
    if (ok) check(std::bit_cast<std::uint64_t>(value) == std::bit_cast<std::uint64_t>(wanted));
    double field = 0;
    if (ok && token.size() <= 1000) {
      // A field of the same characters is the same number; without a point d counts from the right.
      check(read_real_field(token, 0, field));
      check(std::bit_cast<std::uint64_t>(field) == std::bit_cast<std::uint64_t>(value));
    }
    p = stop;
  }
  return 0;
}
