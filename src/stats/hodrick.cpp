// HPFILT. The first-order conditions are (I + lambda K'K) tau = x with the second differences K.
// Here (I + lambda KK') u = Kx is solved and tau = x - lambda K'u taken: the same solution, but its
// digits stay as lambda grows, since the large numbers make the small correction and not the trend.
// A second solution for what is left of the equations, Kx - (I + lambda KK') u = K tau - u, which
// needs no large numbers, brings tau to the last digits whatever lambda is.
//
// The matrix has five diagonals with constant rows 1+6 lambda, -4 lambda, lambda; it is divided by
// lambda where that is above 1. Its factors L D L' soon come to a state that they had before, and
// from there on are taken as constants.

#include "stats/hodrick.h"

#include <algorithm>
#include <cmath>

namespace korvel {
namespace {

// A row of the factors: below the diagonal of L in its column, and the reciprocal of D.
struct HpRow {
  double first = 0.0;
  double second = 0.0;
  double reciprocal = 0.0;
  bool operator==(const HpRow&) const = default;
};

// Runs the factorisation: each call gives the next row.
class HpFactor {
 public:
  explicit HpFactor(double lambda)
      : diagonal_((lambda > 1.0 ? 1.0 / lambda : 1.0) + 6.0 * (lambda > 1.0 ? 1.0 : lambda)),
        off_(-4.0 * (lambda > 1.0 ? 1.0 : lambda)),
        far_(lambda > 1.0 ? 1.0 : lambda) {}
  HpRow next() {
    const double d = (diagonal_ - last_.first * last_off_) - far_ * before_.second;
    const double off = off_ - far_ * last_.first;
    if ((count_ & (count_ - 1)) == 0) {
      mark_ = last_;
      mark_before_ = before_;
    }
    ++count_;
    before_ = last_;
    last_ = {off / d, far_ / d, 1.0 / d};
    last_off_ = off;
    return last_;
  }
  // An earlier state has come back (Brent's search for a cycle): from here on the rows repeat
  // themselves, or a few rows that differ in their last bits do.
  bool steady() const { return count_ > 2 && last_ == mark_ && before_ == mark_before_; }

 private:
  double diagonal_, off_, far_;
  HpRow last_, before_;
  HpRow mark_, mark_before_;
  double last_off_ = 0.0;
  std::int64_t count_ = 0;
};

// Rows until the factors are constants, at most m.
std::int64_t changing_rows(double lambda, std::int64_t m) {
  HpFactor factor(lambda);
  std::int64_t k = 0;
  while (k < m) {
    factor.next();
    ++k;
    if (factor.steady()) break;
  }
  return k;
}

// The factors of the matrix: rows that change, then constants.
struct HpSolver {
  std::ptrdiff_t m;
  std::ptrdiff_t rows;
  double* u;  // m values, then two zeros
  double* first;
  double* second;
  double* reciprocal;

  HpSolver(double lambda, std::ptrdiff_t m_in, double* work)
      : m(m_in),
        rows(static_cast<std::ptrdiff_t>(changing_rows(lambda, m_in))),
        u(work),
        first(u + m + 2),
        second(first + rows),
        reciprocal(second + rows) {
    HpFactor factor(lambda);
    for (std::ptrdiff_t i = 0; i < rows; ++i) {
      const HpRow r = factor.next();
      first[i] = r.first;
      second[i] = r.second;
      reciprocal[i] = r.reciprocal;
    }
    u[m] = u[m + 1] = 0.0;
  }

  // Leaves in u the solution for the right-hand sides right(0), right(1) .., each asked for once,
  // in this order, before u[i] is overwritten.
  template <class F>
  void solve(F&& right) const {
    const double f = first[rows - 1];
    const double s = second[rows - 1];
    const double d = reciprocal[rows - 1];
    // 1. Forward.
    for (std::ptrdiff_t i = 0; i < rows; ++i) {
      double z = right(i);
      if (i > 1) z -= second[i - 2] * u[i - 2];
      if (i > 0) z -= first[i - 1] * u[i - 1];
      u[i] = z;
    }
    double one = u[rows - 1];
    double two = rows > 1 ? u[rows - 2] : 0.0;
    for (std::ptrdiff_t i = rows; i < m; ++i) {
      const double z = (right(i) - s * two) - f * one;
      two = one;
      one = z;
      u[i] = z;
    }
    // 2. Back.
    one = two = 0.0;
    for (std::ptrdiff_t i = m - 1; i >= rows; --i) {
      const double back = (u[i] * d - s * two) - f * one;
      two = one;
      one = back;
      u[i] = back;
    }
    for (std::ptrdiff_t i = rows - 1; i >= 0; --i) {
      u[i] = (u[i] * reciprocal[i] - second[i] * u[i + 2]) - first[i] * u[i + 1];
    }
  }

  // to := from - scale K'u for m+2 values.
  void correct(const double* from, double scale, double* to) const {
    to[0] = from[0] - scale * u[0];
    to[1] = from[1] - scale * (u[1] - 2.0 * u[0]);
    for (std::ptrdiff_t i = 2; i < m + 2; ++i) {
      to[i] = from[i] - scale * ((u[i - 2] - 2.0 * u[i - 1]) + u[i]);
    }
  }
};

}  // namespace

std::int64_t HPFILT_words(std::int64_t n, double lambda) {
  const std::int64_t m = std::max<std::int64_t>(n - 2, 0);
  return m + 2 + 3 * changing_rows(lambda, m);
}

void HPFILT(std::span<const double> x, double lambda, std::span<double> trend,
            std::span<double> work) {
  const auto n = static_cast<std::ptrdiff_t>(x.size());
  const std::ptrdiff_t m = n - 2;
  if (m < 1) {
    std::ranges::copy(x, trend.begin());
    return;
  }
  const HpSolver solver(lambda, m, work.data());
  // u is solved for times lambda where that is above 1.
  const double scale = std::min(lambda, 1.0);
  const double own = lambda > 1.0 ? 1.0 / lambda : 1.0;
  const auto difference = [](const double* v, std::ptrdiff_t i) {
    return (v[i] - 2.0 * v[i + 1]) + v[i + 2];
  };
  double* const tau = trend.data();
  const double* const v = x.data();
  solver.solve([&](std::ptrdiff_t i) { return difference(v, i); });
  solver.correct(v, scale, tau);
  const double* const u = solver.u;
  solver.solve([&](std::ptrdiff_t i) { return difference(tau, i) - own * u[i]; });
  solver.correct(tau, scale, tau);
}

}  // namespace korvel
