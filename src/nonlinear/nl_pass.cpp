// One evaluation of all equations over all rows, and the autoregressive form of their residuals.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/output.h"
#include "expr/kernels/vector_lanes.h"
#include "expr/operators.h"
#include "nonlinear/nl_parts.h"

namespace korvel {
namespace {

// Kinds of faults: a bit of a row's mark each.
struct FaultKind {
  int code;
  std::string_view name;
};
constexpr FaultKind FAULTS[] = {
    {OP_DIV, "DIVIDE"},
    {OP_LOG, "LOG"},
    {OP_SQRT, "SQRT"},
    {OP_POWER, "**"},
    {OP_LGAM, "LGAM"},
    {OP_SIN, "SIN"},
    {DENSITY_FAULT, "DENSITY"},
    {OP_UNI, "UNI"},
    {OP_NOR, "NOR"},
    {OP_SEAS, "SEAS"},
    {OP_MIN, "MIN"},
    {OP_MAX, "MAX"},
    {OP_DATA, "DATA"},
    {OP_SAMP, "SAMP"},
    {OP_MOD, "MOD"},
    {OP_LAG, "LAG"},
};
constexpr int LOGICAL_FAULT = 16, OTHER_FAULT = 17;
constexpr int MOST_TOLD = 100;  // lines of one command; a bad model would fill pages with them

struct FaultCom {
  std::vector<std::uint32_t> told;  // by row
  int lines = 0;
};
FaultCom FAULTCOM;

int fault_bit(int kind) {
  for (std::size_t i = 0; i < std::size(FAULTS); ++i) {
    if (FAULTS[i].code == kind) return static_cast<int>(i);
  }
  return kind >= OP_EQ && kind <= OP_NOT ? LOGICAL_FAULT : OTHER_FAULT;
}
std::string_view fault_name(int bit) {
  if (bit == LOGICAL_FAULT) return "LOGICAL";
  return bit == OTHER_FAULT ? "FUNC" : FAULTS[bit].name;
}

struct FaultCount {
  NlModel* m;
  bool quiet;
  int count = 0;
};
void take_fault(void* context, int operation, std::int64_t row) {
  FaultCount& c = *static_cast<FaultCount*>(context);
  ++c.count;
  if (!c.quiet) report_fault(*c.m, operation, row);
}

std::int64_t columns_of(const NlEquation& eq) {
  return 1 + static_cast<std::int64_t>(eq.coefficient.size());
}

// Columns of the autoregressive form: M residuals, and a derivative for each coefficient.
std::int64_t filtered_columns(const NlModel& m) {
  return m.p > 0 ? std::int64_t{m.neq} * (m.K + 1) : 0;
}

std::int64_t planned_words(const NlEquation& eq) {
  return GradientBlocks::plan_words(eq.code.size(), eq.derivative.size());
}

void set_coefficients(NlModel& m, std::span<const double> b) {
  for (int j = 0; j < m.neq; ++j) {
    NlEquation& eq = m.eq[static_cast<std::size_t>(j)];
    std::copy_n(b.begin(), m.NCOEF, eq.operands.begin());
  }
}

// The autoregressive coefficient of lag i (from 1) of equation j on the residuals of equation l;
// its place among all coefficients, -1: there is none.
int rho_place(const NlModel& m, int i, int j, int l) {
  const int lag = i - 1;
  if (m.neq > 1 && NLCOM.ACROSS) return m.NCOEF + (lag * m.neq + j) * m.neq + l;
  if (j != l) return -1;
  return m.neq > 1 && NLCOM.DRHO ? m.NCOEF + lag * m.neq + j : m.NCOEF + lag;
}

// e_j = u_j - sum rho u_l(-i), and -de_j of each coefficient.
void filter_equation(NlModel& m, std::span<const double> b, int j, bool derivatives) {
  const auto n = static_cast<std::ptrdiff_t>(m.used());
  const auto K = static_cast<std::size_t>(m.K);
  const auto row = static_cast<std::size_t>(j);
  const VectorLanes& lanes = vector_lanes();
  double* const e = m.e[row];
  std::copy_n(m.eq[row].value_rows.data() + m.p, n, e);
  if (derivatives) {
    for (std::size_t k = 0; k < K; ++k) std::fill_n(m.D[row * K + k], n, 0.0);
    const NlEquation& eq = m.eq[row];
    for (std::size_t c = 0; c < eq.coefficient.size(); ++c) {
      const double* from = eq.derivatives.data() + static_cast<std::ptrdiff_t>(c) * m.rows + m.p;
      std::copy_n(from, n, m.D[row * K + static_cast<std::size_t>(eq.coefficient[c])]);
    }
  }
  for (int i = 1; i <= m.p; ++i) {
    for (int l = 0; l < m.neq; ++l) {
      const int place = rho_place(m, i, j, l);
      if (place < 0) continue;
      const double rho = b[static_cast<std::size_t>(place)];
      const NlEquation& other = m.eq[static_cast<std::size_t>(l)];
      const double* const lagged = other.value_rows.data() + (m.p - i);
      lanes.add(-rho, lagged, n, e);
      if (!derivatives) continue;
      lanes.add(1.0, lagged, n, m.D[row * K + static_cast<std::size_t>(place)]);
      for (std::size_t c = 0; c < other.coefficient.size(); ++c) {
        const double* from =
            other.derivatives.data() + static_cast<std::ptrdiff_t>(c) * m.rows + (m.p - i);
        lanes.add(-rho, from, n, m.D[row * K + static_cast<std::size_t>(other.coefficient[c])]);
      }
    }
  }
}

}  // namespace

void clear_faults() {
  FAULTCOM.told.clear();
  FAULTCOM.lines = 0;
}

void report_fault(NlModel& m, int kind, std::int64_t row) {
  if (!OSCOM.OWARN || FAULTCOM.lines > MOST_TOLD) return;
  if (FAULTCOM.told.empty()) FAULTCOM.told.assign(static_cast<std::size_t>(m.rows), 0);
  const auto at = static_cast<std::size_t>(row);
  const int bit = fault_bit(kind);
  if ((FAULTCOM.told[at] >> bit & 1U) != 0) return;
  FAULTCOM.told[at] |= 1U << bit;
  if (++FAULTCOM.lines > MOST_TOLD) {
    return warn(" ...WARNING..FURTHER ILLEGAL OPERATIONS ARE NOT SHOWN");
  }
  warn<"(' ...WARNING..ILLEGAL ', A, ' IN OBS.', I0, ', VALUE REPLACED BY ZERO')">(
      fault_name(bit), m.observations[at]);
}

FaultListener fault_listener(NlModel& m) {
  return {[](void* context, int operation, std::int64_t row) {
            report_fault(*static_cast<NlModel*>(context), operation, row);
          },
          &m};
}

std::int64_t pass_words(const NlModel& m) {
  std::int64_t words = 0;
  for (int j = 0; j < m.neq; ++j) {
    const NlEquation& eq = m.eq[static_cast<std::size_t>(j)];
    words += planned_words(eq) + columns_of(eq) * m.rows;
  }
  words += filtered_columns(m) * m.used();
  if (NLCOM.WEIGHT.var > 0) words += m.neq * m.used();
  return words + m.neq * m.used();  // mixed
}

void carve_pass(NlModel& m, std::span<double> room) {
  const auto take = [&](std::int64_t n) {
    const std::span<double> part = room.first(static_cast<std::size_t>(n));
    room = room.subspan(static_cast<std::size_t>(n));
    return part;
  };
  const auto M = static_cast<std::size_t>(m.neq);
  const auto K = static_cast<std::size_t>(m.K);
  m.e.assign(M, nullptr);
  m.D.assign(M * K, nullptr);
  for (std::size_t j = 0; j < M; ++j) {
    NlEquation& eq = m.eq[j];
    BlockFormula formula;
    formula.code = eq.code;
    formula.operands = eq.operands;
    formula.columns = eq.column;
    formula.observations = m.observations;
    formula.rows = m.rows;
    formula.value = eq.value;
    if (!NLCOM.NUMERIC) formula.derivative = eq.derivative;
    eq.blocks.plan(formula, take(planned_words(eq)));
    eq.value_rows = take(m.rows);
    eq.derivatives = take((columns_of(eq) - 1) * m.rows);
    m.e[j] = eq.value_rows.data();
    if (m.p > 0) continue;
    for (std::size_t c = 0; c < eq.coefficient.size(); ++c) {
      m.D[j * K + static_cast<std::size_t>(eq.coefficient[c])] =
          eq.derivatives.data() + static_cast<std::ptrdiff_t>(c) * m.rows;
    }
  }
  if (m.p > 0) {
    for (std::size_t j = 0; j < M; ++j) {
      m.e[j] = take(m.used()).data();
      for (std::size_t k = 0; k < K; ++k) m.D[j * K + k] = take(m.used()).data();
    }
  }
  m.mixed = take(m.neq * m.used());
  m.weighted = m.weight != nullptr ? take(m.neq * m.used()) : std::span<double>{};
}

std::int64_t evaluation_words(const NlModel& m) {
  std::int64_t words = 0;
  for (int j = 0; j < m.neq; ++j) {
    words = std::max(words, m.eq[static_cast<std::size_t>(j)].blocks.work_words());
  }
  return words;
}

int NLPASS(NlModel& m, std::span<const double> b, bool derivatives, bool quiet) {
  set_coefficients(m, b);
  FaultCount faults{&m, quiet};
  const FaultListener listener{take_fault, &faults};
  const auto rows = static_cast<std::size_t>(m.rows);
  for (int j = 0; j < m.neq; ++j) {
    NlEquation& eq = m.eq[static_cast<std::size_t>(j)];
    eq.blocks.evaluate(eq.value_rows, derivatives ? eq.derivatives : std::span<double>{}, rows,
                       m.pass, listener);
    if (m.is_function()) continue;
    double* const u = eq.value_rows.data();
    if (eq.y == nullptr) {
      for (std::size_t t = 0; t < rows; ++t) u[t] = -u[t];
    } else {
      for (std::size_t t = 0; t < rows; ++t) u[t] = eq.y[t] - u[t];
    }
  }
  for (int j = 0; m.p > 0 && j < m.neq; ++j) filter_equation(m, b, j, derivatives);
  return faults.count;
}

bool plain_residuals(NlModel& m, std::span<const double> b, std::span<double> u,
                     std::span<double> J) {
  set_coefficients(m, b);
  NlEquation& eq = m.eq[0];
  const auto rows = static_cast<std::size_t>(m.rows);
  if (!eq.blocks.evaluate(u, J, rows, m.pass)) return false;
  for (std::size_t t = 0; eq.y != nullptr && t < rows; ++t) u[t] -= eq.y[t];
  if (m.weight == nullptr) return true;
  for (std::size_t t = 0; t < rows; ++t) u[t] *= std::sqrt(m.weight[t]);
  for (std::size_t k = 0; k * rows < J.size(); ++k) {
    double* const column = &J[k * rows];
    for (std::size_t t = 0; t < rows; ++t) column[t] *= std::sqrt(m.weight[t]);
  }
  return true;
}

}  // namespace korvel
