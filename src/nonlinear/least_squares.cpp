// Levenberg-Marquardt on all coefficients, and variable projection: the coefficients that enter
// linearly are solved for at every trial of the others.
//
// Golub and Pereyra (1973), SIAM Journal on Numerical Analysis 10, 413-432; Kaufman (1975), BIT 15,
// 49-57. With the linear columns in front, the triangle of the whole Jacobian holds in its lower
// right corner that of the others projected off them, which is Kaufman's Jacobian.

#include "nonlinear/least_squares.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "expr/kernels/vector_lanes.h"
#include "nonlinear/damped_steps.h"
#include "nonlinear/row_qr.h"

namespace korvel {
namespace {

constexpr double LAST_STEP = 1e-13;    // of the search for all coefficients, relative
constexpr double COARSE_STEP = 1e-8;   // of the projected search, which the full one follows
constexpr double SAME_SQUARES = 1e-9;  // minima whose SSE differ by less are one and its image
constexpr double NO_PIVOT = 1e-14;     // linear columns whose pivot is lost to rounding get 0

// What both forms lay out in the work space.
struct Room {
  std::span<double> u, J, rows, whole, b, damped;
  std::span<const double*> columns;  // K+1 pointers, the residuals last

  Room(std::span<double> work, std::int64_t n, int K) {
    const auto take = [&](std::size_t words) {
      const std::span<double> part = work.first(words);
      work = work.subspan(words);
      return part;
    };
    const auto length = static_cast<std::size_t>(n), order = static_cast<std::size_t>(K);
    u = take(length);
    J = take(length * order);
    rows = take(static_cast<std::size_t>(factor_words(K)));
    whole = take(triangle_words(K));
    b = take(order);
    static_assert(sizeof(const double*) <= sizeof(double));
    auto* const pointers = reinterpret_cast<const double**>(take(order + 1).data());
    std::uninitialized_fill_n(pointers, order + 1, nullptr);
    columns = {pointers, order + 1};
    damped = work;
  }
  const double* column(std::size_t j) const { return J.data() + j * u.size(); }
  double squares() const { return vector_lanes().dot(u.data(), u.data(), std::ssize(u)); }
};

class AllCoefficients final : public SquaresProblem {
 public:
  AllCoefficients(ResidualModel& model, Room& room) : model_(model), room_(room) {
    for (std::size_t j = 0; j + 1 < room.columns.size(); ++j) room.columns[j] = room.column(j);
    room.columns.back() = room.u.data();
  }
  bool evaluate(std::span<const double> a, std::span<double> R, double& SSE) override {
    if (!model_.evaluate(a, room_.u, R.empty() ? std::span<double>{} : room_.J)) return false;
    SSE = room_.squares();
    if (!R.empty()) factor_rows(R, room_.columns, std::ssize(room_.u), room_.rows);
    return true;
  }

 private:
  ResidualModel& model_;
  Room& room_;
};

class Projected final : public SquaresProblem {
 public:
  Projected(ResidualModel& model, Room& room, std::span<const bool> linear)
      : model_(model), room_(room), linear_(linear) {
    std::size_t at = 0;
    for (const bool wanted : {true, false}) {
      for (std::size_t j = 0; j < linear.size(); ++j) {
        if (linear[j] == wanted) room.columns[at++] = room.column(j);
      }
      if (wanted) q_ = at;
    }
    room.columns[at] = room.u.data();
  }

  // Leaves `a` and the linear coefficients that belong to it in room.b.
  bool solve_linear(std::span<const double> a) {
    // At 0 the right side is the left side of the equation itself.
    place(a, {});
    if (!model_.evaluate(room_.b, room_.u, room_.J)) return false;
    std::swap(room_.columns[q_], room_.columns.back());
    factor_rows(room_.whole, room_.columns.first(q_ + 1), std::ssize(room_.u), room_.rows);
    std::swap(room_.columns[q_], room_.columns.back());
    const std::span<double> c = room_.rows.first(q_);
    const int q = static_cast<int>(q_);
    solve_triangle(room_.whole, q, q, c, NO_PIVOT);
    place(a, c);
    return true;
  }
  bool evaluate(std::span<const double> a, std::span<double> R, double& SSE) override {
    // 1. The linear ones.
    if (!solve_linear(a)) return false;
    // 2. What is left.
    if (!model_.evaluate(room_.b, room_.u, R.empty() ? std::span<double>{} : room_.J)) return false;
    SSE = room_.squares();
    if (R.empty()) return true;
    // 3. The corner of the whole triangle.
    factor_rows(room_.whole, room_.columns, std::ssize(room_.u), room_.rows);
    const std::size_t K = linear_.size(), p = K - q_;
    for (std::size_t j = 0; j <= p; ++j) {
      for (std::size_t i = 0; i < p; ++i) R[j * p + i] = room_.whole[(j + q_) * K + i + q_];
    }
    return true;
  }
  std::size_t free_ones() const { return linear_.size() - q_; }

 private:
  // room.b from both kinds; empty c: zeros.
  void place(std::span<const double> a, std::span<const double> c) {
    std::size_t ia = 0, ic = 0;
    for (std::size_t j = 0; j < linear_.size(); ++j) {
      if (linear_[j])
        room_.b[j] = c.empty() ? 0.0 : c[ic++];
      else
        room_.b[j] = a[ia++];
    }
  }

  ResidualModel& model_;
  Room& room_;
  std::span<const bool> linear_;
  std::size_t q_ = 0;  // linear coefficients
};

// Terms of the same form can change places, and the sign of some coefficients doesn't count; which
// of the equal minima a search finds is then left to rounding. The one that has the order and the
// signs of the starting values is taken.
void keep_likeness(SquaresProblem& problem, std::span<double> a, std::span<const double> start,
                   double SSE) {
  const auto as_good = [&] {
    double trial = 0.0;
    return problem.evaluate(a, {}, trial) && trial <= SSE * (1.0 + SAME_SQUARES);
  };
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!(a[i] * start[i] < 0.0)) continue;
    a[i] = -a[i];
    if (!as_good()) a[i] = -a[i];
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    for (std::size_t j = i + 1; j < a.size(); ++j) {
      if (!((a[i] - a[j]) * (start[i] - start[j]) < 0.0)) continue;
      std::swap(a[i], a[j]);
      if (!as_good()) std::swap(a[i], a[j]);
    }
  }
}

}  // namespace

std::int64_t least_squares_words(std::int64_t n, int K) {
  return n * (std::int64_t{K} + 1) + factor_words(K) +
         static_cast<std::int64_t>(triangle_words(K)) + std::int64_t{3} * K + 1 + damped_words(K);
}

SquaresFit levenberg_marquardt(ResidualModel& model, std::int64_t n, std::span<double> b,
                               std::span<double> work) {
  const int K = static_cast<int>(b.size());
  Room room(work, n, K);
  AllCoefficients problem(model, room);
  return damped_steps(problem, b, n - K, LAST_STEP, room.damped);
}

SquaresFit variable_projection(ResidualModel& model, std::int64_t n, std::span<double> b,
                               std::span<const bool> linear, std::span<double> work) {
  const int K = static_cast<int>(b.size());
  Room room(work, n, K);
  Projected problem(model, room, linear);
  const std::size_t p = problem.free_ones();
  const std::span<double> a = room.damped.first(p), start = room.damped.subspan(p, p);
  std::size_t at = 0;
  for (std::size_t j = 0; j < b.size(); ++j) {
    if (!linear[j]) a[at++] = b[j];
  }
  std::ranges::copy(a, start.begin());
  const SquaresFit projected =
      damped_steps(problem, a, n - K, COARSE_STEP, room.damped.subspan(2 * p));
  if (!projected.good) return projected;
  if (!projected.stopped) keep_likeness(problem, a, start, projected.SSE);
  // The last trial need not be the best point.
  if (!problem.solve_linear(a)) return projected;
  std::ranges::copy(room.b, b.begin());
  SquaresFit fit = projected;
  if (!projected.stopped) {
    fit = levenberg_marquardt(model, n, b, work);
    fit.steps += projected.steps;
  }
  return fit;
}

}  // namespace korvel
