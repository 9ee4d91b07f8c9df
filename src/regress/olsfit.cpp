// The method branch of OLSEST: Gram-Schmidt on the data, Householder, or the normal equations with
// their variants (ridge, stepwise, given coefficients, given moments, row by row).

#include <algorithm>
#include <array>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/lsreg.h"
#include "expr/kernels/packed.h"
#include "regress/hhest.h"
#include "regress/ols_parts.h"

namespace korvel {
bool refuse_values(Workspace ws, int var) {
  fail<"(' ...ERROR..VARIABLE ', A, ' HOLDS VALUES THAT ARE NOT NUMBERS')">(NAME(ws, var));
  temporary(temporary_place("ERR")) = 6017;
  return false;
}

bool refuse_size(Workspace ws, int var) {
  fail<"(' ...ERROR..VARIABLE ', A, ' IS TOO LARGE OR TOO SMALL FOR THIS FIT. RESCALE IT')">(
      NAME(ws, var));
  temporary(temporary_place("ERR")) = 6017;
  return false;
}

namespace {

constexpr int T_ERR = temporary_place("ERR");
constexpr double ERR_NAME = 6016;
constexpr double ERR_COLLINEAR = 6017;

std::span<ListItem> columns_of_model() {
  return model_list().first(static_cast<std::size_t>(OLSCOM.NF));
}

void warn_collinear(Workspace ws, int column) {
  warn<"(' ...WARNING..THIS USUALLY INDICATES PERFECT MULTICOLLINEARITY WITH VARIABLE ', A)">(
      NAME(ws, model_list()[static_cast<std::size_t>(column - 1)].var));
  temporary(T_ERR) = ERR_COLLINEAR;
}

// The fit failed: the reason, the variable that brought it about, the code for scripts.
bool report_fault(Workspace ws, int IFAULT, std::int64_t rows, std::string_view caller) {
  OCOM.IFAULT = IFAULT;
  if (IFAULT == FEWER_ROWS) {
    fail<"(' ...ERROR..FEWER OBSERVATIONS THAN VARIABLES:', I10)">(rows);
  } else {
    MATINV(IFAULT, caller);
    warn_collinear(ws, std::abs(IFAULT));
  }
  temporary(T_ERR) = ERR_COLLINEAR;
  return false;
}

void warn_constants(Workspace ws, std::span<const double> squares) {
  if (!OCOM.OPUT || !OSCOM.OWARN) return;
  const std::span<const ListItem> list = columns_of_model();
  for (std::size_t k = 0; k + 1 < list.size(); ++k) {
    if (squares[k] == 0.0 && list[k].var != DATCOM.MCON) {
      warn<"(' ...WARNING..VARIABLE ', A, ' IS A CONSTANT')">(NAME(ws, list[k].var));
    }
  }
}

// Sums of squares that overflow or underflow ask for the columns to be scaled; values that are not
// finite can't be fitted at all.
enum class Range : std::uint8_t { Fine, Scale, Refused };

template <class F>
Range check_range(Workspace ws, const ColumnList& x, F&& square_sum) {
  constexpr double least = 1e-240;
  constexpr double most = 1e240;
  bool scale = false;
  for (int j = 1; j <= x.columns(); ++j) {
    const double T = square_sum(j);
    scale = scale || !(T >= least && T <= most);
  }
  if (!scale) return Range::Fine;
  const std::span<const ListItem> list = model_list();
  for (std::size_t k = 0; k < x.column.size(); ++k) {
    if (x.column[k] == nullptr) continue;
    if (!std::all_of(x.column[k], x.column[k] + x.rows,
                     [](double v) { return std::isfinite(v); })) {
      refuse_values(ws, list[k].var);
      return Range::Refused;
    }
  }
  return Range::Scale;
}

// Powers of two that bring the largest value of every column near 1.
void choose_scales(const ColumnList& x, std::span<double> scale) {
  for (std::size_t k = 0; k < x.column.size(); ++k) {
    scale[k] = 1.0;
    if (x.column[k] == nullptr) continue;
    double largest = 0.0;
    for (std::int64_t t = 0; t < x.rows; ++t) {
      largest = std::max(largest, std::fabs(x.column[k][t]));
    }
    if (largest > 0.0) scale[k] = std::ldexp(1.0, std::clamp(-std::ilogb(largest), -1020, 1020));
  }
}

// A fit of scaled columns as that of the columns themselves. False when a result has no place in
// the range of reals.
bool unscale(Workspace ws, FitRoom& room, std::span<const double> scale) {
  const int K = OLSCOM.NF - 1;
  const double y = scale[static_cast<std::size_t>(K)];
  const auto s = [&](int j) { return scale[static_cast<std::size_t>(j - 1)]; };
  for (int i = 1; i <= K + 1; ++i) {
    const auto k = static_cast<std::size_t>(i - 1);
    room.means[k] /= s(i);
    room.squares[k] = room.squares[k] / s(i) / s(i);
    for (int j = 1; j < i; ++j) room.factor[packed(i, j)] *= s(j) / s(i);
    room.factor[packed(i, i)] = room.factor[packed(i, i)] / s(i) / s(i);
    if (i > K) break;
    room.coef[k] = room.coef[k] * s(i) / y;
    for (int j = 1; j <= i; ++j) room.cov[packed(i, j)] = room.cov[packed(i, j)] * s(i) * s(j);
    if (!std::isfinite(room.coef[k]) || !std::isfinite(room.cov[packed(i, i)])) {
      return refuse_size(ws, model_list()[k].var);
    }
  }
  const double before = FCOM.SSE;
  FCOM.SSE = FCOM.SSE / y / y;
  const int dependent = model_list()[static_cast<std::size_t>(K)].var;
  if (!std::isfinite(FCOM.SSE)) return refuse_size(ws, dependent);
  // A variance that underflows would be printed as a certain coefficient. The variable whose size
  // is further from 1 is named.
  for (int i = 1; i <= K; ++i) {
    if (before > 0.0 && FCOM.SSE * room.cov[packed(i, i)] < 1e-306) {
      const bool by_y = std::abs(std::ilogb(y)) > std::abs(std::ilogb(s(i)));
      return refuse_size(ws, by_y ? dependent : model_list()[static_cast<std::size_t>(i - 1)].var);
    }
  }
  return true;
}

// ---- Gram-Schmidt

bool fit_gs(Workspace ws, FitData& data, FitRoom& room) {
  const int NF = OLSCOM.NF;
  const int K = NF - 1;
  const int first = OLSCOM.weighted || data.again ? NF : 0;  // the moments are there already
  int IFAULT = GSREG(data.x, room.work, room.factor, first, room.means, room.squares);
  if (IFAULT == FEWER_ROWS) return report_fault(ws, IFAULT, data.rows, {});
  const Range range = check_range(ws, data.x, [&](int j) { return gs_square_sum(room.factor, j); });
  if (range == Range::Refused) return false;
  ColumnList x = data.x;
  if (range == Range::Scale) {
    choose_scales(data.raw, room.scale);
    x.scale = room.scale;
    if (OLSCOM.weighted) {
      for (std::size_t k = 0; k < x.column.size(); ++k) room.means[k] *= room.scale[k];
      for (std::size_t k = 0; k < x.column.size(); ++k) {
        room.squares[k] = room.squares[k] * room.scale[k] * room.scale[k];
      }
    }
    IFAULT = GSREG(x, room.work, room.factor, first, room.means, room.squares);
  }
  if (!data.again) warn_constants(ws, room.squares);
  if (IFAULT != 0) return report_fault(ws, IFAULT, data.rows, "GRAM-SCHMIDT REGRESSION");
  gs_coefficients(room.factor, NF, room.coef);
  gs_inverse(room.factor, NF, room.cov);
  FCOM.SSE = room.factor[packed(NF, NF)];
  // Badly conditioned: the coefficients and the inverse are refined, each with further sweeps.
  if (worth_refining(gs_condition(room.factor, room.cov, NF), NF, data.rows)) {
    const Refinement fit = GSREFINE(x, room.factor, room.work, room.coef);
    if (fit.IFAULT == 0) FCOM.SSE = fit.SSE;
    if (K <= MOST_EXACT) LSINVERSE(x, K, room.work, room.cov);
  }
  return range != Range::Scale || unscale(ws, room, room.scale);
}

// ---- Householder

bool fit_hh(Workspace ws, FitData& data, FitRoom& room) {
  const int NF = OLSCOM.NF;
  const auto columns = static_cast<std::size_t>(NF);
  HHCON();
  if (data.rows < NF - 1) return report_fault(ws, FEWER_ROWS, data.rows, {});
  HouseholderWork work = share_householder(room.work, NF, data.rows);
  ColumnList x = data.x;
  load_householder(x, work);
  const Range range =
      check_range(ws, data.x, [&](int j) { return work.squares[static_cast<std::size_t>(j - 1)]; });
  if (range == Range::Refused) return false;
  if (range == Range::Scale) {
    choose_scales(data.raw, room.scale);
    x.scale = room.scale;
    load_householder(x, work);
  }
  if (!OLSCOM.weighted) {
    householder_moments(work, room.means, room.squares);
  } else if (range == Range::Scale) {
    for (std::size_t k = 0; k < columns; ++k) {
      room.means[k] *= room.scale[k];
      room.squares[k] = room.squares[k] * room.scale[k] * room.scale[k];
    }
  }
  warn_constants(ws, room.squares);
  const int IFAULT = HHEST(x, work, room);
  if (IFAULT != 0) {
    OCOM.IFAULT = IFAULT;
    fail(" ...ERROR..SINGULAR SYSTEM. NO SOLUTION");
    warn_collinear(ws, IFAULT);
    return false;
  }
  if (range == Range::Scale && !unscale(ws, room, room.scale)) return false;
  HHLSM(ws, data, room, work);
  return true;
}

// ---- Normal equations

// A matrix that an option names: symmetric of order n. Null after the error.
const double* symmetric_option(Workspace ws, int var, int n) {
  const Place place = INFO(ws, var);
  if (place.ITYPE == SYMMETRIC && place.N2 == n) return elements(ws, var).data();
  fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(NAME(ws, var));
  temporary(T_ERR) = ERR_NAME;
  return nullptr;
}

// Raw moments of the user (regressors, constant, dependent variable) in place of those of the data.
bool given_moments(Workspace ws, FitRoom& room, double* SWT) {
  const int NF = OLSCOM.NF;
  const double* raw = symmetric_option(ws, OLSCOM.MOMENTS, NF);
  if (raw == nullptr) return false;
  if (!OLSCOM.CONSTANT) {
    // Without a constant nobody knows the means: moments about zero are all there is.
    std::fill_n(room.means.begin(), NF, 0.0);
    std::copy_n(raw, packed_words(NF), room.cross.begin());
    return true;
  }
  const int constant = NF - 1;
  *SWT = raw[packed(constant, constant)];
  for (int k = 1; k <= NF; ++k) {
    room.means[static_cast<std::size_t>(k - 1)] = raw[packed(k, constant)] / *SWT;
  }
  for (int i = 1; i <= NF; ++i) {
    for (int j = 1; j <= i; ++j) {
      const double product =
          room.means[static_cast<std::size_t>(i - 1)] * room.means[static_cast<std::size_t>(j - 1)];
      const bool ones = i == constant || j == constant;
      room.cross[packed(i, j)] = ones ? 0.0 : raw[packed(i, j)] - *SWT * product;
    }
  }
  return true;
}

// The moment matrix and, from it, the sums of squares. The constant of complex data is no column of
// ones, so their fit is made about zero.
bool form_moments(Workspace ws, FitData& data, FitRoom& room, double* SWT) {
  double scale = 1.0;
  MomentRows rows{.x = data.raw};
  if (data.in_place) {
    rows.weight = data.weight;
    rows.skip = data.skip;
    if (data.weight != nullptr) scale = weights_in_place(ws, data.weight);
  } else if (OLSCOM.weighted) {
    rows.weight = room.weight.data();
  }
  if (OLSCOM.MOMENTS != 0) return given_moments(ws, room, SWT);
  *SWT = LSMOM(rows, room.work, room.means, room.cross) / scale;
  if (scale != 1.0) {
    for (double& c : room.cross) c /= scale;
  }
  return true;
}

// Digits that an error of rounding in the moments leaves of the coefficients, told when few.
void warn_lost_digits(double condition) {
  if (!OCOM.OPUT) return;
  constexpr double enough = 8.0;
  const double digits = 15.65 - std::log10(std::max(condition, 1.0));
  if (digits >= enough) return;
  warn<"(' ...WARNING..NORMAL EQUATIONS KEEP ABOUT', I3, ' DIGITS HERE. METHOD=GS KEEPS MORE')">(
      std::max(0, static_cast<int>(digits)));
}

// Leaves the chosen regressors in the list and in everything that runs beside it.
void close_up(std::span<const double> chosen, FitData& data, FitRoom& room) {
  const std::span<ListItem> list = model_list();
  const auto NF = chosen.size();
  for (std::size_t k = 0; k < NF; ++k) {
    const auto from = static_cast<std::size_t>(chosen[k]);
    const int i = static_cast<int>(k) + 1;
    list[k] = list[from];
    room.column[k] = room.column[from];
    room.means[k] = room.means[from];
    room.scale[k] = room.scale[from];
    for (std::size_t j = 0; j <= k; ++j) {
      room.cross[packed(i, static_cast<int>(j) + 1)] =
          room.cross[packed(static_cast<int>(chosen[k]) + 1, static_cast<int>(chosen[j]) + 1)];
    }
  }
  OLSCOM.NF = static_cast<int>(NF);
  room.coef = room.coef.first(NF - 1);
  room.cov = room.cov.first(packed_words(static_cast<int>(NF) - 1));
  room.means = room.means.first(NF);
  room.squares = room.squares.first(NF);
  room.cross = room.cross.first(packed_words(static_cast<int>(NF)));
  data.raw.column = room.column.first(NF);
  data.x.column = data.raw.column;
}

bool choose_regressors(Workspace ws, FitData& data, FitRoom& room, double SWT) {
  // Work on a copy: moments about the means with a constant, else about zero.
  const MomentView view{room.means, room.cross, SWT, OLSCOM.CONSTANT};
  if (OLSCOM.CONSTANT) {
    std::copy(room.cross.begin(), room.cross.end(), room.spare.begin());
  } else {
    raw_moments(view, OLSCOM.NF, room.spare);
  }
  const auto columns = static_cast<std::size_t>(OLSCOM.NF);
  const std::span<double> start = room.row.first(columns);
  const std::span<double> chosen = room.row.subspan(columns, columns);
  const int count = STEPWISE(ws, room.spare, start, chosen);
  if (count == 0) return false;
  close_up(chosen.first(static_cast<std::size_t>(count)), data, room);
  return true;
}

// Coefficients that INCOEFFI= names, in the order regressors, constant.
bool take_coefficients(Workspace ws, std::span<double> coef) {
  const std::span<const double> given = elements(ws, OLSCOM.INCOEFFI);
  if (given.size() < coef.size()) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(NAME(ws, OLSCOM.INCOEFFI));
    temporary(T_ERR) = ERR_NAME;
    return false;
  }
  std::copy_n(given.begin(), coef.size(), coef.begin());
  return true;
}

bool fit_normal(Workspace ws, FitData& data, FitRoom& room) {
  double SWT = FCOM.ZZ;
  if (!form_moments(ws, data, room, &SWT)) return false;
  const bool of_data = OLSCOM.MOMENTS == 0;
  Range range = Range::Fine;
  if (of_data)
    range = check_range(ws, data.raw, [&](int j) {
      const double mean = room.means[static_cast<std::size_t>(j - 1)];
      return room.cross[packed(j, j)] + SWT * mean * mean;
    });
  if (range == Range::Refused) return false;
  if (range == Range::Scale) {
    choose_scales(data.raw, room.scale);
    data.raw.scale = room.scale;
    if (!form_moments(ws, data, room, &SWT)) return false;
    data.raw.scale = {};
  }
  if (OLSCOM.stepwise && !choose_regressors(ws, data, room, SWT)) return false;
  const int NF = OLSCOM.NF;
  const auto columns = static_cast<std::size_t>(NF);
  for (std::size_t k = 0; k < columns; ++k) {
    const int i = static_cast<int>(k) + 1;
    room.squares[k] = room.cross[packed(i, i)];
  }
  warn_constants(ws, room.squares);
  if (data.rows < NF - 1) return report_fault(ws, FEWER_ROWS, data.rows, {});
  const bool given = OLSCOM.INCOEFFI != 0;
  if (given) {
    if (!take_coefficients(ws, room.coef)) return false;
    if (range == Range::Scale) {
      for (std::size_t k = 0; k + 1 < columns; ++k) {
        room.coef[k] *= room.scale[columns - 1] / room.scale[k];
      }
    }
  }
  const MomentView view{room.means.first(columns), room.cross, SWT,
                        OLSCOM.CONSTANT && OLSCOM.build != Build::Imls};
  const NormalFit fit = LSREG(view, FCOM.RIDG, given, room.spare, room.coef, room.cov);
  if (fit.IFAULT != 0) return report_fault(ws, fit.IFAULT, data.rows, "NORMAL EQUATIONS");
  FCOM.SSE = fit.SSE;
  if (FCOM.RIDG == 0.0 && !given) warn_lost_digits(fit.condition);
  if (range == Range::Scale && !unscale(ws, room, room.scale)) return false;
  return !OLSCOM.RECURSIV || print_recursive(ws, data, room);
}

}  // namespace

std::int64_t fit_words(int NF, std::int64_t rows) {
  const std::int64_t K = std::min(NF - 1, MOST_EXACT);
  if (OLSCOM.METHOD == Method::NORMAL) {
    // The recursive fit starts with a Gram-Schmidt fit of its first rows.
    const std::int64_t start = OLSCOM.RECURSIV ? GSREG_words(NF, NF) : 0;
    return std::max(LSMOM_words(NF, rows), start);
  }
  if (OLSCOM.METHOD == Method::HH) return HHEST_words(NF, rows);
  return std::max(GSREG_words(NF, rows), LSINVERSE_words(static_cast<int>(K), rows));
}

bool fit_model(Workspace ws, FitData& data, FitRoom& room) {
  switch (OLSCOM.METHOD) {
    case Method::NORMAL:
      return fit_normal(ws, data, room);
    case Method::HH:
      return fit_hh(ws, data, room);
    case Method::GS:
      break;
  }
  return fit_gs(ws, data, room);
}

bool take_covariance(Workspace ws, std::span<double> cov, int K) {
  const double* given = symmetric_option(ws, OLSCOM.INCOVARI, K);
  if (given == nullptr) return false;
  std::copy_n(given, cov.size(), cov.begin());
  OLSCOM.MULSIGSQ = false;
  return true;
}

}  // namespace korvel
