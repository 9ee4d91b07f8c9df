// The data of an NLINEAR run: instruments, sample, columns, weights; parameters through units.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>

#include "data/data.h"
#include "data/list_numbers.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "engine/units.h"
#include "nonlinear/nl_parts.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

void tell_range() {
  if (!OCOM.OPUT || (DATCOM.MBEG == DATCOM.IBEG && DATCOM.MEND == DATCOM.IEND)) return;
  say<"(' ...NOTE..SAMPLE RANGE SET TO:', I7, ',', I7)">(DATCOM.MBEG, DATCOM.MEND);
}

bool finite_column(const double* x, std::int64_t rows) {
  return std::all_of(x, x + rows, [](double v) { return std::isfinite(v); });
}

// Weights scaled to sum to the number of rows, or counted as replications.
bool settle_weights(Workspace ws, NlModel& m, const double* given, std::span<double> w) {
  const double sum =
      usable_weights(ws, {given, static_cast<std::size_t>(m.rows)}, m.list.back().var, m.p);
  if (sum == 0.0) return false;
  const double factor = NLCOM.PWEIGHT ? static_cast<double>(m.used()) / sum : 1.0;
  if (!NLCOM.PWEIGHT) m.N = sum;
  for (std::int64_t t = 0; t < m.rows; ++t) w[static_cast<std::size_t>(t)] = factor * given[t];
  m.weight = w.data();
  return true;
}

}  // namespace

void keep_instruments(Workspace ws, NlModel& m) {
  m.instruments.assign(SCNCOM.list().begin(), SCNCOM.list().end());
  m.instrument_names.assign(m.instruments.size() * NAMELEN, ' ');
  for (std::size_t i = 0; i < m.instruments.size(); ++i) {
    const std::string_view name = NAME(ws, m.instruments[i].var);
    char* to = m.instrument_names.data() + i * NAMELEN;
    std::memcpy(to, name.data(), std::min<std::size_t>(name.size(), NAMELEN));
    m.instruments[i].name = {to, std::min<std::size_t>(name.size(), NAMELEN)};
  }
}

bool settle_sample(Workspace ws, NlModel& m) {
  OLSCOM = OlsCom{};
  OLSCOM.DN = NLCOM.DN;
  OLSCOM.CONSTANT = false;
  // 1. The columns behind the variables of the equations.
  for (const ListItem& z : m.instruments) m.list.push_back(z);
  m.q = static_cast<int>(m.instruments.size());
  if (m.q > 0 && NLCOM.CONEXOGS) {
    m.list.push_back(ListItem{.var = DATCOM.MCON, .name = {}});
    ++m.q;
  }
  if (NLCOM.WEIGHT.var > 0) m.list.push_back(ListItem{.var = NLCOM.WEIGHT.var, .name = {}});
  // 2. The range; with PRESAMP the rows before it come along.
  if (NLCOM.PRESAMP) DATCOM.MBEG -= m.p;
  if (DATCOM.MBEG < 1) {
    fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(DATCOM.MBEG);
    return false;
  }
  CKSMPL(ws, m.list);
  if (OCOM.ODONT) return false;
  count_rows(ws);
  m.rows = DATCOM.NOB;
  if (m.used() < 1) {
    fail<"(' ...ERROR..', I6, ' OBSERVATIONS IS NOT ENOUGH FOR ESTIMATION')">(
        std::max<std::int64_t>(m.used(), 0));
    return false;
  }
  m.N = static_cast<double>(m.used());
  return true;
}

std::int64_t data_words(const NlModel& m) {
  const std::int64_t columns = LOADX_copies(m.list) + (NLCOM.WEIGHT.var > 0 ? 1 : 0);
  return columns * m.rows;
}

bool load_data(Workspace ws, NlModel& m, std::span<double> room) {
  const auto rows = static_cast<std::size_t>(m.rows);
  m.loaded.assign(m.list.size(), nullptr);
  m.weight = nullptr;
  const bool weighted = NLCOM.WEIGHT.var > 0;
  const std::span<double> w = weighted ? room.first(rows) : room.first(0);
  if (!LOADX(ws, m.list, room.subspan(w.size()), m.loaded)) return false;
  for (std::size_t k = 0; k < m.list.size(); ++k) {
    if (m.loaded[k] != nullptr && !finite_column(m.loaded[k], m.rows)) {
      return refuse_values(ws, m.list[k].var);
    }
  }
  if (weighted && !settle_weights(ws, m, m.loaded.back(), w)) return false;
  // 1. Columns of the equations and of the instruments.
  for (int j = 0; j < m.neq; ++j) {
    NlEquation& eq = m.eq[static_cast<std::size_t>(j)];
    if (eq.dependent >= 0) eq.y = m.loaded[static_cast<std::size_t>(eq.dependent)];
    eq.column.assign(static_cast<std::size_t>(eq.first_entry) - 1 + eq.places.size(), nullptr);
    for (std::size_t i = 0; i < eq.places.size(); ++i) {
      if (eq.places[i] < 0) continue;
      eq.column[static_cast<std::size_t>(eq.first_entry) - 1 + i] =
          m.loaded[static_cast<std::size_t>(eq.places[i])];
    }
  }
  const auto first = m.loaded.begin() + m.variables;
  m.Z.assign(first, first + m.q);
  for (const double*& z : m.Z) {
    if (z != nullptr) z += m.p;
  }
  // 2. Numbers of the observations; the first p rows only lend their residuals.
  m.observations.clear();
  KeptRows kept(ws);
  while (kept.next()) m.observations.push_back(kept.obs);
  if (m.p > 0) DATCOM.MBEG = m.observations[static_cast<std::size_t>(m.p)];
  DATCOM.NOB = static_cast<int>(m.used());
  tell_range();
  return true;
}

bool read_parameters(int unit, std::string_view word, std::span<double> b) {
  const auto failed = [&] {
    fail<"(' ...ERROR..ATTEMPT TO USE ', A, ' PARAMETERS FROM  UNIT ', I3, ' FAILED')">(word, unit);
    return false;
  };
  if (!user_unit(unit)) return failed();
  DataUnit* const source = open_data_unit(unit, {}, NLCOM.REWIND);
  if (source == nullptr) return failed();
  const std::string_view text = source->rest();
  const char* p = text.data();
  const char* const end = p + text.size();
  std::int64_t lines = 0;
  std::size_t got = 0;
  while (p != end && got < b.size()) {
    if (ends_number(*p)) {
      lines += *p++ == '\n' ? 1 : 0;
    } else if (scan_number(p, end, b[got])) {
      ++got;
    } else {
      fail(" ...ERROR..SYNTAX ERROR");
      return failed();
    }
  }
  if (got < b.size()) return failed();
  source->pass(static_cast<std::size_t>(p - text.data()), lines);
  return true;
}

bool write_parameters(int unit, std::span<const double> b) {
  if (!user_unit(unit)) return false;
  FileOutput file;
  if (!open_output_file(file, unit, {}, WriteMode::replace)) return false;
  for (const double value : b) {  // the shortest digits that read back
    char digits[40];
    const auto done = std::to_chars(digits, digits + sizeof digits, value);
    file.write({digits, static_cast<std::size_t>(done.ptr - digits)});
    file.write("\n");
  }
  return commit_output_file(file);
}

}  // namespace korvel
