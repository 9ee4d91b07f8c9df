// Random values under random descriptors, for the comparison with a Fortran compiler's own editing.
//   format_cases cases COUNT FILE   writes one case a line: letter, width, decimals, bits of the
//   value format_cases edit FILE          edits the cases of FILE and prints one field a line
//   between bars
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>
#include <string_view>

#include "data/format_edit.h"

namespace {

struct Case {
  char letter = 'F';
  int w = 1, d = 0;
  std::int64_t bits = 0;
};

// Values where editing has its edges: halves and quarters (ties), decimals, integers, powers of ten
// and their neighbours, all magnitudes, zeros.
double draw(std::mt19937_64& random) {
  const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  const double sign = pick(2) == 0 ? 1.0 : -1.0;
  switch (pick(8)) {
    case 0:
      return sign * static_cast<double>(pick(40000)) / 16.0;
    case 1:
      return sign * static_cast<double>(pick(2000000)) / 1000.0;
    case 2:
      return sign * static_cast<double>(pick(1000000000));
    case 3: {
      const double x = std::pow(10.0, pick(41) - 20);
      return sign * std::nextafter(x, pick(2) == 0 ? 0.0 : 1e300);
    }
    case 4:
      return sign * std::pow(10.0, pick(31) - 15) * (1.0 - std::pow(10.0, -pick(17)) / 2);
    case 5: {
      const auto x = std::bit_cast<double>(random());
      return std::isfinite(x) ? x : 0.0;
    }
    case 6:
      return sign * 0.0;
    default:
      return sign * std::ldexp(static_cast<double>(random() >> 11), pick(100) - 80);
  }
}

// True when the value has nothing but nines under Ew.d.
bool all_nines(int d, double value) {
  char field[64];
  korvel::edit_exponent(field, 40, d, value, 'E');
  const std::string_view digits(field + 36 - d, static_cast<std::size_t>(d));
  return digits.find_first_not_of('9') == std::string_view::npos;
}

void write_cases(long count, const char* path) {
  std::mt19937_64 random(20240607);
  std::ofstream out(path);
  for (long i = 0; i < count; ++i) {
    Case c;
    c.letter = "FEDGIA"[random() % 6];
    c.w = 1 + static_cast<int>(random() % 26);
    c.d = static_cast<int>(random() % 19);
    if (random() % 4 != 0 && c.d + 7 > c.w) c.w = c.d + 2 + static_cast<int>(random() % 12);
    if (c.letter == 'E' || c.letter == 'D' || c.letter == 'G') c.d += c.d == 0 ? 1 : 0;
    if (c.letter == 'I') {
      c.bits = static_cast<std::int64_t>(random()) >> (random() % 64);
    } else if (c.letter == 'A') {
      c.bits = 0;
      for (int k = 0; k < 8; ++k) c.bits = c.bits * 256 + static_cast<int>('A' + random() % 26);
    } else {
      double value = draw(random);
      while (c.letter == 'G' && all_nines(c.d, value)) value = draw(random);
      c.bits = std::bit_cast<std::int64_t>(value);
    }
    out << c.letter << ' ' << c.w << ' ' << c.d << ' ' << c.bits << '\n';
  }
}

void edit_cases(const char* path) {
  std::ifstream in(path);
  Case c;
  char field[64];
  while (in >> c.letter >> c.w >> c.d >> c.bits) {
    const auto value = std::bit_cast<double>(c.bits);
    switch (c.letter) {
      case 'F':
        korvel::edit_fixed(field, c.w, c.d, value);
        break;
      case 'G':
        korvel::edit_general(field, c.w, c.d, value);
        break;
      case 'I':
        korvel::edit_integer(field, c.w, c.bits);
        break;
      case 'A':
        korvel::edit_word(field, c.w, value);
        break;
      default:
        korvel::edit_exponent(field, c.w, c.d, value, c.letter);
    }
    std::cout << c.letter << c.w << '.' << c.d << ' ' << c.bits << " |"
              << std::string_view(field, static_cast<std::size_t>(c.w)) << "|\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc > 1 ? argv[1] : "";
  if (what == "cases" && argc == 4) {
    write_cases(std::atol(argv[2]), argv[3]);
  } else if (what == "edit" && argc == 3) {
    std::ios::sync_with_stdio(false);
    edit_cases(argv[2]);
  } else {
    return 2;
  }
  return 0;
}
