// Weights of the moments: two-stage and three-stage least squares, and the generalized method of
// moments with its windows.

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/vector_lanes.h"
#include "nonlinear/nl_parts.h"

namespace korvel {
namespace {

enum class Window : std::uint8_t { White, Trunc, Bartlett, Tukey, Parzen, Matrix };

struct WindowWord {
  std::string_view word;
  Window window;
};
constexpr std::array<WindowWord, 8> WINDOWS = {{{"HETCOV", Window::White},
                                                {"NONE", Window::White},
                                                {"TRUNC", Window::Trunc},
                                                {"BARTLETT", Window::Bartlett},
                                                {"BARTWIN", Window::Bartlett},
                                                {"TUKEY", Window::Tukey},
                                                {"PARZEN", Window::Parzen},
                                                {"PARZWIN", Window::Parzen}}};

// GMM= of the running command.
Window window() {
  const auto found = std::ranges::find(WINDOWS, NLCOM.GMM.text, &WindowWord::word);
  return found != WINDOWS.end() ? found->window : Window::Matrix;
}

// Weight of lag j of L: Newey and West (1987); Andrews (1991).
double window_weight(Window w, int j, int L) {
  const double x = static_cast<double>(j) / (L + 1.0);
  switch (w) {
    case Window::Bartlett:
      return 1.0 - x;
    case Window::Tukey:
      return 0.5 * (1.0 + std::cos(std::numbers::pi * x));
    case Window::Parzen:
      return x <= 0.5 ? 1.0 - 6.0 * x * x + 6.0 * x * x * x : 2.0 * std::pow(1.0 - x, 3);
    default:
      return 1.0;
  }
}

// The given number of lags, else that of Newey and West (1994).
int lags_of(Window w, std::int64_t n) {
  if (w == Window::White) return 0;
  int L = NLCOM.AUTCOV;
  if (L == -999) L = static_cast<int>(4.0 * std::pow(static_cast<double>(n) / 100.0, 2.0 / 9.0));
  if (OCOM.OPUT) say<"(' ...NOTE..USING AUTCOV LAG LENGTH=', I5)">(L);
  return static_cast<int>(std::min<std::int64_t>(L, n - 1));
}

double instrument(const NlModel& m, int l, std::int64_t t) {
  const double* const z = m.Z[static_cast<std::size_t>(l)];
  return z == nullptr ? 1.0 : z[t];
}

// A symmetric matrix of the user's, as it stands in a packed or a full variable.
bool take_matrix(Workspace ws, int var, int order, std::span<double> to) {
  const Place place = INFO(ws, var);
  const std::span<const double> from = elements(ws, var);
  const auto n = static_cast<std::size_t>(order);
  if (place.ITYPE == SYMMETRIC && place.N2 == order) {
    std::copy_n(from.begin(), packed_words(order), to.begin());
  } else if (place.ITYPE == MATRIX2 && place.N2 == order && from.size() == n * n) {
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = 0; j <= i; ++j) {
        to[packed(static_cast<int>(i) + 1, static_cast<int>(j) + 1)] =
            0.5 * (from[j * n + i] + from[i * n + j]);
      }
    }
  } else if (order == 1 && from.size() == 1 && place.ITYPE == SERIES) {
    to[0] = from[0];
  } else {
    fail<"(' ...ERROR..', A, ' IS NOT A SYMMETRIC MATRIX OF ORDER', I5)">(NAME(ws, var), order);
    return false;
  }
  return true;
}

bool invert(std::span<double> a, int order, std::string_view name) {
  const int IFAULT = symmetric_inverse(a, order);
  if (IFAULT == 0) return true;
  OCOM.IFAULT = IFAULT;
  MATINV(IFAULT, name);
  return false;
}

// C := S^-1 (x) (Z'WZ)^-1, S^-1 in m.Sinverse.
bool projection(Workspace ws, NlModel& m) {
  Scratch room(ws, static_cast<std::int64_t>(packed_words(m.q)));
  if (!room) return false;
  const std::span<double> ZZ = room.words();
  for (int i = 1; i <= m.q; ++i) {
    for (int j = 1; j <= i; ++j) {
      double sum = 0.0;
      for (std::int64_t t = 0; t < m.used(); ++t) {
        const double w = m.weight == nullptr ? 1.0 : m.weight[m.p + t];
        sum += w * instrument(m, i - 1, t) * instrument(m, j - 1, t);
      }
      ZZ[packed(i, j)] = sum;
    }
  }
  if (!invert(ZZ, m.q, " INSTRUMENTS            ")) return false;
  for (int a = 1; a <= m.neq * m.q; ++a) {
    for (int b = 1; b <= a; ++b) {
      m.C[packed(a, b)] = m.Sinverse[packed((a - 1) / m.q + 1, (b - 1) / m.q + 1)] *
                          ZZ[packed((a - 1) % m.q + 1, (b - 1) % m.q + 1)];
    }
  }
  return true;
}

void identity(std::span<double> a, int order) {
  std::ranges::fill(a, 0.0);
  for (int i = 1; i <= order; ++i) a[packed(i, i)] = 1.0;
}

// C := V^-1 with V the covariance of the moments: sum of w_j (G_j + G_j').
bool moment_covariance(Workspace ws, NlModel& m) {
  const int order = m.neq * m.q;
  const std::int64_t n = m.used();
  Scratch room(ws, n * order);
  if (!room) return false;
  double* const columns = room.words().data();
  for (int j = 0; j < m.neq; ++j) {
    for (int l = 0; l < m.q; ++l) {
      double* const to = columns + (std::int64_t{j} * m.q + l) * n;
      const double* const e = m.e[static_cast<std::size_t>(j)];
      for (std::int64_t t = 0; t < n; ++t) {
        const double w = m.weight == nullptr ? 1.0 : m.weight[m.p + t];
        to[t] = w * instrument(m, l, t) * e[t];
      }
    }
  }
  const Window w = window();
  const int L = lags_of(w, n);
  const VectorLanes& lanes = vector_lanes();
  for (int a = 1; a <= order; ++a) {
    const double* const x = columns + std::int64_t{a - 1} * n;
    for (int b = 1; b <= a; ++b) {
      const double* const y = columns + std::int64_t{b - 1} * n;
      double sum = lanes.dot(x, y, n);
      for (int j = 1; j <= L; ++j) {
        sum += window_weight(w, j, L) * (lanes.dot(x + j, y, n - j) + lanes.dot(y + j, x, n - j));
      }
      m.C[packed(a, b)] = sum;
    }
  }
  if (NLCOM.DUMP) print_packed(" WEIGHTING MATRIX           ", m.C, order, {});
  if (OCOM.OPUT) say(" ...NOTE..ATTEMPTING INVERSION OF WEIGHTING MATRIX");
  return invert(m.C, order, " WEIGHTING MATRIX       ");
}

}  // namespace

void residual_moments(NlModel& m) {
  const VectorLanes& lanes = vector_lanes();
  const auto n = static_cast<std::ptrdiff_t>(m.used());
  for (int i = 1; i <= m.neq; ++i) {
    for (int j = 1; j <= i; ++j) {
      const double* const a = m.e[static_cast<std::size_t>(i) - 1];
      const double* const b = m.e[static_cast<std::size_t>(j) - 1];
      double sum = 0.0;
      if (m.weight == nullptr) {
        sum = lanes.dot(a, b, n);
      } else {
        for (std::ptrdiff_t t = 0; t < n; ++t) sum += m.weight[m.p + t] * a[t] * b[t];
      }
      m.S[packed(i, j)] = sum / m.N;
    }
  }
}

bool invert_sigma(NlModel& m) {
  if (NLCOM.DUMP) print_packed(" SIGMA MATRIX PREINVERSE", m.S, m.neq, {});
  if (OCOM.OPUT) say(" ...NOTE..ATTEMPTING INVERSION OF SIGMA MATRIX");
  std::ranges::copy(m.S, m.Sinverse.begin());
  return invert(m.Sinverse, m.neq, " SIGMA MATRIX           ");
}

bool gmm_given_matrix() { return !NLCOM.GMM.text.empty() && window() == Window::Matrix; }

bool given_sigma(Workspace ws, const NlModel& m) {
  if (m.form != NlForm::Moments || m.neq < 2 || NLCOM.SIGMA.var <= 0) return false;
  const Place place = INFO(ws, NLCOM.SIGMA.var);
  return (place.ITYPE == SYMMETRIC || place.ITYPE == MATRIX2) && place.N2 == m.neq;
}

bool settle_gmm(Workspace ws, NlModel& m) {
  if (!gmm_given_matrix()) return true;
  if (NLCOM.GMM.var <= 0) {
    fail<"(' ...ERROR..GMM= ', A, ' IS NEITHER A FORM OF THE WEIGHTS NOR A MATRIX')">(
        NLCOM.GMM.text);
    return false;
  }
  return take_matrix(ws, NLCOM.GMM.var, m.neq * m.q, m.C);
}

bool weigh_moments(Workspace ws, NlModel& m, NlWeights weights, std::span<const double> b) {
  switch (weights) {
    case NlWeights::Given:
      if (!settle_gmm(ws, m)) return false;
      if (NLCOM.DUMP) print_packed(" WEIGHTING MATRIX- INPUT", m.C, m.neq * m.q, {});
      return true;
    case NlWeights::Projection:
      identity(m.S, m.neq);
      identity(m.Sinverse, m.neq);
      return projection(ws, m);
    case NlWeights::Sigma:
      NLPASS(m, b, false, false);
      residual_moments(m);
      if (given_sigma(ws, m) && !take_matrix(ws, NLCOM.SIGMA.var, m.neq, m.S)) return false;
      return invert_sigma(m) && projection(ws, m);
    case NlWeights::Moments:
      NLPASS(m, b, false, false);
      return moment_covariance(ws, m);
  }
  return false;
}

}  // namespace korvel
