// LOADTT, LOADX: the columns of a model, in place where they can stay.

#include <algorithm>

#include "data/data.h"
#include "engine/output.h"
#include "platform/parallel.h"
#include "regress/regress.h"

namespace korvel {
namespace {

// Element t of the listed column is base[t - 1].
const double* column_base(Workspace ws, const Place& place, const ListItem& item) {
  return &ws.DATA(std::int64_t{place.IADD} + std::int64_t{4} * place.INC) - item.lag;
}

// The range test that CKSMPL can't make: rows that a lag or a lead reaches, and variables that hold
// no column of numbers.
bool column_in_range(Workspace ws, const ListItem& item) {
  const Place place = INFO(ws, item.var);
  if (OCOM.ODONT) return false;
  if (place.IADD <= 0 || place.ITYPE < SERIES || place.ITYPE > MATRIX2) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(NAME(ws, item.var));
    return false;
  }
  if (DATCOM.MBEG - item.lag < 1 || DATCOM.MEND - item.lag > place.rows()) {
    fail<"(' ...ERROR..SAMPLE RANGE EXCEEDS LENGTH OF ', A, 2I10)">(
        NAME(ws, item.var), place.rows(), DATCOM.MEND - item.lag);
    return false;
  }
  return true;
}

// CKSMPL has looked at MBEG..MEND; a lag reaches rows before it. skip: the marks of the sample; a
// row that is left out has nothing to be told of.
void warn_missing_lags(const double* base, const ListItem& item, std::span<const double> skip) {
  if (!OSCOM.OWARN || !OSCOM.OMSWRN || item.lag <= 0) return;
  const int last = std::min(DATCOM.MEND, DATCOM.MBEG + item.lag - 1);
  for (int t = DATCOM.MBEG; t <= last; ++t) {
    const auto row = static_cast<std::size_t>(t - 1);
    const bool skipped = row < skip.size() && skip[row] > 0.0;
    if (base[row] == MACOM.XMISS && !skipped) {
      warn<"(' ...WARNING..MISSING DATA DETECTED IN OBS ', I0)">(t);
    }
  }
}

void copy_kept(const double* base, std::span<const double> skip, double* to) {
  const auto marks = static_cast<int>(skip.size());
  for (int t = DATCOM.MBEG; t <= DATCOM.MEND; ++t) {
    if (t <= marks && skip[static_cast<std::size_t>(t - 1)] > 0.0) continue;
    *to++ = base[t - 1];
  }
}

}  // namespace

KeptRows::KeptRows(Workspace ws, int blocks) : obs(DATCOM.MBEG - 1), blocks_(blocks) {
  if (OLSCOM.skips) skip_ = skip_vector(ws);
}

bool KeptRows::next() {
  const auto marks = static_cast<int>(skip_.size());
  ++row;
  for (;;) {
    do {
      ++obs;
    } while (obs <= marks && obs <= DATCOM.MEND && skip_[static_cast<std::size_t>(obs - 1)] > 0.0);
    if (obs <= DATCOM.MEND) return true;
    if (block + 1 >= blocks_) return false;
    ++block;
    obs = DATCOM.MBEG - 1;
  }
}

void count_rows(Workspace ws) {
  DATCOM.NOB = DATCOM.MEND - DATCOM.MBEG + 1;
  DATCOM.NSKIP = 0;
  OLSCOM.skips = false;
  if (!skipping()) return;
  DATCOM.NSKIP = static_cast<int>(skip_vector(ws).size());
  SKIPIT(ws);
  OLSCOM.skips = DATCOM.NSKIP > 0;
  DATCOM.NOB -= DATCOM.NSKIP;
}

std::span<const double> LOADTT(Workspace ws, const ListItem& item, std::span<double> to) {
  const double* base = column_base(ws, INFO(ws, item.var), item);
  copy_kept(base, OLSCOM.skips ? skip_vector(ws) : std::span<double>{}, to.data());
  return to;
}

int LOADX_copies(std::span<const ListItem> list) {
  if (!OLSCOM.skips) return 0;
  return static_cast<int>(
      std::ranges::count_if(list, [](const ListItem& i) { return i.var != DATCOM.MCON; }));
}

bool LOADX_in_place(Workspace ws, std::span<const ListItem> list, std::span<const double*> column) {
  const std::span<const double> skip = OLSCOM.skips ? skip_vector(ws) : std::span<double>();
  for (std::size_t k = 0; k < list.size(); ++k) {
    if (list[k].var == DATCOM.MCON) {
      column[k] = nullptr;
      continue;
    }
    if (!column_in_range(ws, list[k])) return false;
    const double* base = column_base(ws, INFO(ws, list[k].var), list[k]);
    warn_missing_lags(base, list[k], skip);
    column[k] = base + (DATCOM.MBEG - 1);
  }
  return true;
}

bool LOADX(Workspace ws, std::span<const ListItem> list, std::span<double> copies,
           std::span<const double*> column) {
  const Trace trace("LOADX");
  if (!LOADX_in_place(ws, list, column)) return false;
  if (!OLSCOM.skips) return true;
  // Copies without the skipped rows; each column is a section of its own.
  const std::span<const double> skip = skip_vector(ws);
  const auto rows = static_cast<std::size_t>(DATCOM.NOB);
  const auto copy_column = [&](int k) {
    const auto c = static_cast<std::size_t>(k);
    if (column[c] == nullptr) return;
    const auto before = static_cast<std::size_t>(LOADX_copies(list.first(c)));
    double* to = copies.data() + before * rows;
    copy_kept(column[c] - (DATCOM.MBEG - 1), skip, to);
    column[c] = to;
  };
  const int columns = static_cast<int>(list.size());
  constexpr int worth_threads = 20000;
  if (DATCOM.NOB < worth_threads) {
    for (int k = 0; k < columns; ++k) copy_column(k);
  } else {
    parallel_sections(columns, copy_column);
  }
  return true;
}

}  // namespace korvel
