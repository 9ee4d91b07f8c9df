// COPY: blocks of rows and columns from variables into a variable, and between vectors and
// matrices.
//   reads SCNCOM list, OPTCOM, the sample words and SKIP$; sets the failure flags.
//
// The selected cells are one sequence, column after column: R rows and C columns of the sources, or
// the same sequence folded (VECTOR: one column, NROWS=n: columns of n). It is written into the
// target range in runs, so that every kind of source meets every kind of target in one place.

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "data/data.h"
#include "data/sample.h"
#include "engine/commands.h"
#include "engine/options.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"

namespace korvel {
namespace {

constexpr auto COPYOPT =
    option_table(logical("SYMMETRI"), logical("TRIANGLE"), logical("VECTOR"), integer_pair("FROWS"),
                 integer("*"), integer_pair("FCOLS"), integer("*"), integer_pair("TROWS"),
                 integer("*"), integer_pair("TCOLS"), integer("*"), integer("NROWS"));

void incompatible() { fail(" ...ERROR..REQUESTED ROWS OR COLUMNS INCOMPATIBLE"); }

// First and last row or column, counted from 1.
struct Range {
  std::int64_t first = 1;
  std::int64_t last = 0;
  bool given = false;
  std::int64_t count() const { return last - first + 1; }
  bool holds(std::int64_t i) const { return i >= first && i <= last; }
};
Range option_range(int place) {
  const auto at = static_cast<std::size_t>(place);
  return {OPTCOM.IOPT[at], OPTCOM.IOPT[at + 1], OPTCOM.igiven[at]};
}

// A variable as a table of cells, whatever its storage; rows and columns count from 1.
struct Cells {
  double* data = nullptr;
  int type = NOTYPE;
  std::int64_t rows = 0;
  std::int64_t columns = 0;
  bool packed_form() const { return type == SYMMETRIC || type == TRIANGLE; }
  std::int64_t plain_place(std::int64_t i, std::int64_t j) const { return (j - 1) * rows + i - 1; }
  double* packed_cell(std::int64_t i, std::int64_t j) const {
    return data + packed(static_cast<int>(i), static_cast<int>(j));
  }
  double get(std::int64_t i, std::int64_t j) const {
    if (!packed_form()) return data[plain_place(i, j)];
    return type == TRIANGLE && i < j ? 0.0 : *packed_cell(i, j);
  }
};
Cells cells_of(Workspace ws, int var) {
  const Place p = INFO(ws, var);
  const auto data = elements(ws, var);
  Cells c{
      .data = data.data(), .type = p.ITYPE, .rows = p.rows(), .columns = std::max(p.columns(), 1)};
  if (c.packed_form()) c.rows = c.columns = p.N2;
  return c;
}

// ---- What is copied

struct Source {
  Cells cells;
  int owner = 0;
  std::string_view name;
  Range columns;
};

struct Selection {
  std::vector<Source> sources;
  Range rows;
  std::span<const double> skip;  // rows that are left out; empty when FROWS names the rows
  std::int64_t R = 0;            // rows and columns of the block, after folding
  std::int64_t C = 0;
  std::int64_t cells = 0;
  bool folded = false;
  bool packed_order = false;  // the cells are the words of a packed triangle of order R
  bool used(std::int64_t i) const {
    // Marks of missing data belong to the command that set them.
    const auto at = static_cast<std::size_t>(i - 1);
    return at >= skip.size() || !(skip[at] > 0.0) || skip[at] == SKIP_MISSING;
  }
};

bool take_sources(Workspace ws, Selection& s) {
  int matrices = 0;
  for (const ListItem& item : SCNCOM.list().first(static_cast<std::size_t>(SCNCOM.NF - 1))) {
    if (item.var == 0) {
      fail<"(' ...ERROR..VARIABLE ', A, '   DOES NOT EXIST')">(item.name);
      return false;
    }
    const Cells cells = cells_of(ws, item.var);
    if (OCOM.ODONT) return false;
    const Owner owner = owner_of(item.var);
    // A column of a packed matrix is no run of words.
    if (cells.data == nullptr || cells.type > (owner.column > 0 ? MATRIX2 : TRIANGLE)) {
      fail<"(' ...ERROR..', A, ' IS NOT A SERIES OR MATRIX')">(item.name);
      return false;
    }
    if (cells.columns > 1 && ++matrices > 1) {
      fail(" ...ERROR..ONLY ONE MATRIX MAY BE READ AT A TIME ");
      return false;
    }
    s.sources.push_back({cells, owner.var, item.name, {1, cells.columns}});
  }
  // FCOLS picks columns of the matrix; where there is none every source must have them.
  const Range wanted = option_range(COPYOPT.place("FCOLS"));
  for (Source& x : s.sources) {
    if (!wanted.given || (matrices == 1 && x.cells.columns == 1)) continue;
    if (wanted.first < 1 || wanted.count() < 1) {
      incompatible();
      return false;
    }
    if (wanted.last > x.cells.columns) {
      fail<"(' ...ERROR..', A, ' HAS LESS COLS THAN REQUESTED')">(x.name);
      return false;
    }
    x.columns = wanted;
  }
  return true;
}

// The rows: FROWS, else the sample without what is skipped.
bool select_rows(Workspace ws, Selection& s) {
  s.rows = option_range(COPYOPT.place("FROWS"));
  if (!s.rows.given) {
    s.rows = {DATCOM.IBEG, DATCOM.IEND};
    if (DATCOM.IEND < 1) {  // no sample yet: as far as all of them go
      s.rows = {1, std::numeric_limits<int>::max()};
      for (const Source& x : s.sources) s.rows.last = std::min(s.rows.last, x.cells.rows);
    }
    if (skipping()) {
      s.skip = skip_vector(ws);
      if (OCOM.OPUT) say(" ...NOTE..SOME OBSERVATIONS MAY BE SKIPPED");
    }
  }
  if (s.rows.first < 1 || s.rows.count() < 1) {
    incompatible();
    return false;
  }
  for (const Source& x : s.sources) {
    if (s.rows.last <= x.cells.rows) continue;
    fail<"(' ...ERROR..', A, ' HAS LESS ROWS THAN REQUESTED')">(x.name);
    return false;
  }
  for (std::int64_t i = s.rows.first; i <= s.rows.last; ++i) s.R += s.used(i) ? 1 : 0;
  for (const Source& x : s.sources) s.C += x.columns.count();
  return s.R > 0 || (incompatible(), false);
}

// VECTOR and NROWS lay the cells out anew.
bool fold(Selection& s) {
  s.cells = s.R * s.C;  // both below 2**31
  const bool vector = OPTCOM.LOPT[COPYOPT.place("VECTOR")];
  const bool by_rows = OPTCOM.igiven[COPYOPT.place("NROWS")];
  const std::int64_t rows = vector ? s.cells : OPTCOM.IOPT[COPYOPT.place("NROWS")];
  s.folded = vector || by_rows;
  if (!s.folded) return true;
  if ((vector && by_rows) || rows < 1) return (incompatible(), false);
  s.packed_order =
      (OPTCOM.LOPT[COPYOPT.place("SYMMETRI")] || OPTCOM.LOPT[COPYOPT.place("TRIANGLE")]) &&
      s.cells == rows * (rows + 1) / 2;
  if (s.cells % rows != 0 && !s.packed_order) return (incompatible(), false);
  s.R = rows;
  s.C = s.packed_order ? rows : s.cells / rows;
  return true;
}

// ---- Where to

struct Target {
  std::string name;
  int owner = 0;  // 0: a new variable
  Cells old;      // as it is
  Cells cells;    // as it will be
  Range rows, columns;
  bool remade = false;    // its size or its kind changes
  bool replaced = false;  // nothing of the old one stays
};

bool find_target(Workspace ws, Target& t, int& column) {
  const ListItem& item = SCNCOM.list().back();
  t.name = item.name;
  column = item.column;
  if (item.var != 0) {
    const Owner o = owner_of(item.var);
    t.owner = o.var;
    column = o.column;
  }
  if (t.owner > 0 && t.owner <= DATCOM.NVARS) {
    t.name = NAME(ws, t.owner);
    t.old = cells_of(ws, t.owner);
  }
  const bool possible = t.owner == 0 || (t.owner > 0 && t.owner <= DATCOM.NVARS &&
                                         t.old.data != nullptr && t.old.type <= TRIANGLE);
  if (!possible || t.name == SKIPNAME || t.name.starts_with('$')) {
    fail<"(' ...ERROR..', A, ' IS NOT A SERIES OR MATRIX')">(item.name);
    return false;
  }
  if (column > t.old.columns && t.owner > 0) {
    fail<"(' ...ERROR..', A, ' HAS LESS COLS THAN REQUESTED')">(t.name);
    return false;
  }
  return true;
}

// The range of the target: TROWS and TCOLS, or the rows that were read and columns from 1.
bool place_block(const Selection& s, Target& t, int column) {
  const bool symmetric = OPTCOM.LOPT[COPYOPT.place("SYMMETRI")];
  const bool triangle = OPTCOM.LOPT[COPYOPT.place("TRIANGLE")];
  t.rows = option_range(COPYOPT.place("TROWS"));
  t.columns = option_range(COPYOPT.place("TCOLS"));
  if (!t.rows.given) {
    const bool from_1 = s.folded || symmetric || triangle;
    t.rows.first = from_1 ? 1 : s.rows.first;
    t.rows.last = t.rows.first + s.R - 1;
  }
  if (!t.columns.given) {
    t.columns.first = std::max(column, 1);
    t.columns.last = t.columns.first + s.C - 1;
  }
  t.cells.type = symmetric              ? SYMMETRIC
                 : triangle             ? TRIANGLE
                 : t.old.type > MATRIX2 ? t.old.type
                                        : NOTYPE;
  const bool packed_form = t.cells.packed_form();
  const bool fits = t.rows.first >= 1 && t.columns.first >= 1 && t.rows.count() == s.R &&
                    t.columns.count() == s.C && !(symmetric && triangle) && fits32(t.rows.last) &&
                    fits32(t.columns.last);
  const bool at_origin = t.rows.first == 1 && t.columns.first == 1;
  // SYMMETRI and TRIANGLE alone ask for a square block.
  const bool square = s.R == s.C || !(symmetric || triangle) || t.rows.given || t.columns.given;
  // A named column takes one column; a triangle has nothing above its diagonal.
  const bool one_column = column == 0 || (!packed_form && s.C == 1 && t.columns.first == column);
  const bool below = t.cells.type != TRIANGLE || t.columns.first <= t.rows.last;
  if (!fits || !square || !one_column || !below || (s.packed_order && !at_origin))
    return (incompatible(), false);
  // Another kind of storage would lose cells of the old variable, unless all of it is overwritten.
  if (t.owner > 0 && (t.old.packed_form() ? t.old.type : NOTYPE) != t.cells.type) {
    const bool all = at_origin && t.rows.last >= t.old.rows && t.columns.last >= t.old.columns;
    if (!all) return (incompatible(), false);
    t.replaced = true;
  }
  t.cells.rows = std::max(t.rows.last, t.replaced ? 0 : t.old.rows);
  t.cells.columns = std::max(t.columns.last, t.replaced ? 0 : t.old.columns);
  if (packed_form) {
    t.cells.rows = t.cells.columns = std::max(t.cells.rows, t.cells.columns);
  } else {
    t.cells.type = t.cells.columns > 1 || t.old.type == MATRIX2 ? MATRIX2 : SERIES;
  }
  t.remade =
      t.owner == 0 || t.replaced || t.cells.rows != t.old.rows || t.cells.columns != t.old.columns;
  return true;
}

// ---- The copy itself

// Calls sink(values) for the selected cells in order, as many at a time as lie side by side.
template <class Sink>
void read_cells(const Selection& s, Sink&& sink) {
  for (const Source& x : s.sources) {
    for (std::int64_t j = x.columns.first; j <= x.columns.last; ++j) {
      for (std::int64_t i = s.rows.first; i <= s.rows.last;) {
        if (!s.used(i)) {
          ++i;
        } else if (x.cells.packed_form()) {
          const double value = x.cells.get(i++, j);
          sink(std::span(&value, 1));
        } else {
          const std::int64_t from = i;
          while (i <= s.rows.last && s.used(i)) ++i;
          sink(std::span<const double>(x.cells.data + x.cells.plain_place(from, j),
                                       static_cast<std::size_t>(i - from)));
        }
      }
    }
  }
}

// Writes the sequence of cells into a range.
class RangeWriter {
 public:
  RangeWriter(const Cells& to, Range rows, Range columns, bool packed_order)
      : to_(to),
        rows_(rows),
        columns_(columns),
        packed_order_(packed_order),
        i_(rows.first),
        j_(columns.first) {}
  void operator()(std::span<const double> values) {
    if (packed_order_) {  // the words of a packed triangle as they stand
      std::ranges::copy(values, to_.data + done_);
      done_ += static_cast<std::ptrdiff_t>(values.size());
      return;
    }
    while (!values.empty()) {
      const auto n = std::min(values.size(), static_cast<std::size_t>(rows_.last - i_ + 1));
      put(values.first(n));
      values = values.subspan(n);
      i_ += static_cast<std::int64_t>(n);
      if (i_ > rows_.last) {
        i_ = rows_.first;
        ++j_;
      }
    }
  }

 private:
  void put(std::span<const double> values) const {
    if (!to_.packed_form()) {
      std::ranges::copy(values, to_.data + to_.plain_place(i_, j_));
      return;
    }
    // Above the diagonal a triangle has no cells, and a symmetric matrix takes what the block does
    // not say below it.
    std::int64_t i = i_;
    for (const double value : values) {
      const bool mirrored = rows_.holds(j_) && columns_.holds(i);
      if (i >= j_ || (to_.type == SYMMETRIC && !mirrored)) *to_.packed_cell(i, j_) = value;
      ++i;
    }
  }
  const Cells& to_;
  Range rows_, columns_;
  bool packed_order_;
  std::int64_t i_, j_;
  std::ptrdiff_t done_ = 0;
};

// Makes or remakes the target, with zeros around the cells that stay. The old cells of a target
// that changes its shape are put aside first.
bool make_target(Workspace ws, Target& t, std::span<double> aside) {
  if (!t.remade) {
    t.cells.data = t.old.data;
    return true;
  }
  const std::int64_t rows = t.cells.rows, columns = t.cells.columns;
  std::int64_t length = 0;
  const bool possible = t.cells.packed_form() ? checked_product(rows, rows + 1, length)
                                              : checked_product(rows, columns, length);
  if (!possible) {
    ADDCOM.NEED = std::int64_t{1} << 31;  // more than any workspace has
    NOCORE();
    return false;
  }
  if (t.cells.packed_form()) length /= 2;
  std::copy_n(t.old.data, aside.size(), aside.begin());
  const int var =
      NEWVAR(ws, t.name,
             {.ITYPE = t.cells.type, .LEN = length, .N2 = static_cast<int>(columns), .fill = 0.0});
  if (var == 0) return false;
  clear_estimate();
  const auto data = elements(ws, var);
  t.cells.data = data.data();
  std::ranges::fill(data, 0.0);
  if (aside.empty()) return true;
  if (t.cells.packed_form()) {
    std::ranges::copy(aside, data.begin());  // rows of a packed triangle don't move when it grows
    return true;
  }
  const auto old_rows = static_cast<std::size_t>(t.old.rows);
  for (std::int64_t j = 1; j <= t.old.columns; ++j) {
    std::ranges::copy(aside.subspan(static_cast<std::size_t>(j - 1) * old_rows, old_rows),
                      t.cells.data + t.cells.plain_place(1, j));
  }
  return true;
}

void copy_block(Workspace ws, const Selection& s, Target& t) {
  const bool overlap = std::ranges::any_of(
      s.sources, [&](const Source& x) { return t.owner > 0 && x.owner == t.owner; });
  const auto staged = static_cast<std::size_t>(overlap ? s.cells : 0);
  const bool keeps = t.remade && t.owner > 0 && !t.replaced;
  const std::size_t kept = keeps ? elements(ws, t.owner).size() : 0;
  // 1. A block that comes from its own target is read before anything is written.
  Scratch room(ws, static_cast<std::int64_t>(staged + kept));
  if (!room) return;
  const std::span<double> stage = room.take(staged);
  const std::span<double> aside = room.take(kept);
  if (overlap) {
    auto out = stage.begin();
    read_cells(s,
               [&](std::span<const double> values) { out = std::ranges::copy(values, out).out; });
  }
  // 2. The target, then the block.
  if (!make_target(ws, t, aside)) return;
  RangeWriter write(t.cells, t.rows, t.columns, s.packed_order);
  if (overlap) {
    write(stage);
  } else {
    read_cells(s, write);
  }
}

}  // namespace

void COPYX(Workspace ws) {
  const Trace trace("COPYX");
  // 1. Options and the list. While scanning nothing has been made, so that a missing name counts
  //    nowhere.
  OPTION(ws, COPYOPT);
  if (OCOM.ODONT) return;
  if (SCNCOM.NF < 2) return fail(" ...ERROR..VARIABLES TO BE COPIED NOT SPECIFIED ");
  if (OSCOM.OSCAN) {
    for (const ListItem& item : SCNCOM.list().first(static_cast<std::size_t>(SCNCOM.NF - 1))) {
      if (item.var != 0) continue;
      OCOM.ODONT = true;
      return say<"(' ...ERROR..VARIABLE ', A, '   DOES NOT EXIST')">(item.name);
    }
    return;
  }
  for (const ListItem& item : SCNCOM.list()) {
    if (item.lag != 0 || item.order != 0 || item.group) {
      return fail(" ...ERROR..LAGS AND GROUPS ARE NOT ALLOWED IN COPY");
    }
  }
  // 2. The cells that are wanted, and the place for them: nothing changes before both are right.
  Selection selection;
  Target target;
  int column = 0;
  if (!take_sources(ws, selection) || !select_rows(ws, selection) || !fold(selection)) return;
  if (!find_target(ws, target, column) || !place_block(selection, target, column)) return;
  // 3. The copy.
  copy_block(ws, selection, target);
}

}  // namespace korvel
