#include "data/results.h"

namespace korvel {
namespace {

// A name that commands can use: anything else would make a variable that nobody can reach, or one
// that the sample rests on.
bool usable_name(std::string_view name) {
  const auto part = [](char c) { return NAMCHK(c) >= 0 || c == '_' || c == '$'; };
  return !name.empty() && NAMCHK(name[0]) == 1 && std::ranges::all_of(name, part) &&
         name != "SKIP$";
}

}  // namespace

int make_result(Workspace ws, const NameOption& option, VarType type, std::int64_t length, int N2) {
  std::string_view name = option.typed;
  if (option.text.empty() || OCOM.ODONT) return 0;
  int column = 0;
  if (const auto colon = name.find(':'); colon != std::string_view::npos) {
    if (type == SERIES) column = static_cast<int>(FSUMS(name.substr(colon + 1)).whole);
    name = name.substr(0, colon);
  }
  if (!usable_name(name)) {
    fail<"(' ...ERROR..ILLEGAL VARIABLE NAME:', A)">(name);
    return 0;
  }
  if (!fits32(length)) {
    ADDCOM.NEED = length;
    NOCORE();
    return 0;
  }
  return NEWVAR(ws, name, {.ITYPE = type, .LEN = length, .N2 = N2, .column = column});
}

void store_vector(Workspace ws, const NameOption& option, std::span<const double> values) {
  if (values.empty()) return;
  store_vector(ws, option, values.size(),
               [&](int i) { return values[static_cast<std::size_t>(i)]; });
}

int store_symmetric(Workspace ws, const NameOption& option, std::span<const double> a, int order) {
  const auto words = static_cast<std::int64_t>(packed_words(order));
  const int var = make_result(ws, option, SYMMETRIC, words, order);
  if (var != 0) std::copy_n(a.begin(), packed_words(order), elements(ws, var).begin());
  return var;
}

void print_bare_triangle(std::span<const double> a, int order, int a_line, int indent,
                         double factor) {
  for (int i = 1; i <= order; ++i) {
    Line row;
    if (indent > 0) row.column(indent);
    for (int j = 1; j <= i; ++j) {
      if (j > 1 && (j - 1) % a_line == 0) {
        OUTLINE();
        row = Line();
        if (indent > 0) row.column(indent);
      }
      row.put<"(G13.5)">(factor * a[packed(i, j)]);
    }
    OUTLINE();
    if (stop_requested()) return;
  }
}

}  // namespace korvel
