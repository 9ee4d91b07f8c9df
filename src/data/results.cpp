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

// Column `column` for a result of `length` elements. The matrix keeps its other columns: the
// shorter ones end with missing codes.
int make_column(Workspace ws, std::string_view name, int column, std::int64_t length) {
  const int old = VARNUM(ws, name);
  const Place place = old > 0 ? INFO(ws, old) : Place{};
  const bool data = place.ITYPE == SERIES || place.ITYPE == MATRIX2;
  const bool matrix = data && place.N2 > 0 && (place.N2 > 1 || column > 1);
  const std::int64_t old_rows = matrix ? place.LEN / place.N2 : 0;
  const std::int64_t rows = std::max(length, old_rows);
  const bool grows = matrix && rows > old_rows;
  Scratch room(ws, grows ? std::int64_t{place.LEN} : 0);
  if (!room) return 0;
  const std::span<double> kept = room.words();
  if (grows) std::ranges::copy(elements(ws, old), kept.begin());
  const int var = NEWVAR(
      ws, name, {.ITYPE = SERIES, .LEN = rows, .N2 = matrix ? place.N2 : 1, .column = column});
  if (var == 0) return 0;
  const int whole = VARNUM(ws, name);
  if (grows) {
    const std::span<double> all = elements(ws, whole);
    std::ranges::fill(all, MACOM.XMISS);
    for (std::int64_t c = 0; c < place.N2; ++c) {
      std::copy_n(kept.begin() + c * old_rows, old_rows, all.begin() + c * rows);
    }
  }
  // The only column of a matrix is the variable itself: the number of the column would stand for
  // one element of it.
  const int target = INFO(ws, whole).N2 > 1 ? var : whole;
  const std::span<double> to = elements(ws, target);
  if (std::ssize(to) > length) {
    std::ranges::fill(to.subspan(static_cast<std::size_t>(length)), MACOM.XMISS);
  }
  return target;
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
  if (column == 0) return NEWVAR(ws, name, {.ITYPE = type, .LEN = length, .N2 = N2});
  return make_column(ws, name, column, length);
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
