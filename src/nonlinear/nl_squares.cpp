// Sums of squares by blocks of rows.

#include "nonlinear/nl_squares.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/vector_lanes.h"
#include "nonlinear/row_qr.h"

namespace korvel {
namespace {

constexpr std::int64_t LONG_DATA = 4096;  // rows; shorter columns stay in the cache as they are
constexpr double NEAR = 1e-4;             // relative: steps from there on lead to the same minimum
constexpr double NO_PIVOT = 1e-14;        // linear columns whose pivot is lost to rounding get 0
constexpr std::size_t LINE = 8;           // words of a cache line: sections don't share one

std::size_t whole_lines(std::size_t words) { return (words + LINE - 1) / LINE * LINE; }

// What a section takes: sums, a triangle, a block of columns.
struct SectionRoom {
  std::size_t sums, triangle, block, each;
  explicit SectionRoom(int K)
      : sums(whole_lines(static_cast<std::size_t>(K) + 1)),
        triangle(whole_lines(triangle_words(K))),
        block((static_cast<std::size_t>(K) + 1) * QR_ROWS),
        each(sums + triangle + block) {}
};
static_assert(QR_ROWS == GRADIENT_BLOCK);

std::span<double> section_words(const NlModel& m, int section) {
  const SectionRoom room(m.K);
  const std::size_t at = static_cast<std::size_t>(section) * room.each;
  return m.stream.subspan(at, room.each);
}
std::span<double> reduce_space(const NlModel& m) {
  const SectionRoom room(m.K);
  return m.stream.subspan(static_cast<std::size_t>(GradientBlocks::MOST_SECTIONS) * room.each);
}

double dot(const double* x, const double* y, std::size_t n) {
  return vector_lanes().dot(x, y, static_cast<std::ptrdiff_t>(n));
}

// f - y in place.
void subtract_left(const NlModel& m, std::int64_t row, std::size_t n, double* value) {
  const double* const y = m.eq[0].y;
  for (std::size_t i = 0; y != nullptr && i < n; ++i) {
    value[i] -= y[static_cast<std::size_t>(row) + i];
  }
}

struct SumTaker final : BlockTaker {
  NlModel& m;
  bool gradient;
  SumTaker(NlModel& model, bool with_gradient) : m(model), gradient(with_gradient) {}
  void take(int section, std::int64_t row, std::size_t n, double* value, double* derivatives,
            std::size_t ld) override {
    const std::span<double> sums = section_words(m, section);
    subtract_left(m, row, n, value);
    if (m.weight == nullptr) {
      sums[0] += dot(value, value, n);
    } else {
      const double* const w = m.weight + row;
      double sum = 0.0;
      for (std::size_t i = 0; i < n; ++i) {
        const double u = value[i];
        value[i] = w[i] * u;
        sum += value[i] * u;
      }
      sums[0] += sum;
    }
    for (std::size_t k = 0; gradient && k < static_cast<std::size_t>(m.K); ++k) {
      sums[k + 1] += dot(derivatives + k * ld, value, n);
    }
  }
};

struct ProductTaker final : BlockTaker {
  NlModel& m;
  std::span<const double> v;
  ProductTaker(NlModel& model, std::span<const double> by_rows) : m(model), v(by_rows) {}
  void take(int section, std::int64_t row, std::size_t n, double*, double* derivatives,
            std::size_t ld) override {
    const std::span<double> sums = section_words(m, section);
    for (std::size_t k = 0; k < static_cast<std::size_t>(m.K); ++k) {
      sums[k + 1] += dot(derivatives + k * ld, &v[static_cast<std::size_t>(row)], n);
    }
  }
};

// The triangle of the first `columns` coefficients in `order`, with the residuals behind them.
struct TriangleTaker final : BlockTaker {
  NlModel& m;
  std::span<const std::int32_t> order;
  TriangleTaker(NlModel& model, std::span<const std::int32_t> columns) : m(model), order(columns) {}
  void take(int section, std::int64_t row, std::size_t n, double* value, double* derivatives,
            std::size_t ld) override {
    const SectionRoom room(m.K);
    const std::span<double> words = section_words(m, section);
    double* const block = words.data() + room.sums + room.triangle;
    subtract_left(m, row, n, value);
    double root[QR_ROWS];
    for (std::size_t i = 0; m.weight != nullptr && i < n; ++i) {
      root[i] = std::sqrt(m.weight[static_cast<std::size_t>(row) + i]);
    }
    const auto copy = [&](const double* from, double* to) {
      if (m.weight == nullptr) {
        std::copy_n(from, n, to);
      } else {
        for (std::size_t i = 0; i < n; ++i) to[i] = root[i] * from[i];
      }
    };
    for (std::size_t c = 0; c < order.size(); ++c) {
      copy(derivatives + static_cast<std::size_t>(order[c]) * ld, block + c * QR_ROWS);
    }
    double* const u = block + order.size() * QR_ROWS;
    copy(value, u);
    words[0] += dot(u, u, n);
    reflect_rows(words.subspan(room.sums), static_cast<int>(order.size()), block, QR_ROWS,
                 static_cast<std::ptrdiff_t>(n));
  }
};

void clear_sections(const NlModel& m) {
  const SectionRoom room(m.K);
  for (int s = 0; s < m.eq[0].blocks.sections(); ++s) {
    std::ranges::fill(section_words(m, s).first(room.sums + room.triangle), 0.0);
  }
}

void set_coefficients(NlModel& m, std::span<const double> b) {
  std::ranges::copy(b, m.eq[0].operands.begin());
}

double joined(const NlModel& m, std::size_t place) {
  double sum = 0.0;
  for (int s = 0; s < m.eq[0].blocks.sections(); ++s) sum += section_words(m, s)[place];
  return sum;
}

}  // namespace

bool streams(const NlModel& m) {
  return m.form == NlForm::Squares && m.p == 0 && !NLCOM.NUMERIC && m.rows >= LONG_DATA &&
         m.eq[0].coefficient.size() == static_cast<std::size_t>(m.K);
}

std::int64_t stream_words(const NlModel& m) {
  if (!streams(m)) return 0;
  const SectionRoom room(m.K);
  return static_cast<std::int64_t>(room.each) * GradientBlocks::MOST_SECTIONS +
         m.eq[0].blocks.reduce_words();
}

double stream_squares(NlModel& m, std::span<const double> b, std::span<double> gradient,
                      FaultListener listener) {
  set_coefficients(m, b);
  clear_sections(m);
  SumTaker taker(m, !gradient.empty());
  m.eq[0].blocks.reduce(taker, !gradient.empty(), reduce_space(m), listener);
  for (std::size_t k = 0; k < gradient.size(); ++k) gradient[k] = joined(m, k + 1);
  return joined(m, 0);
}

void stream_products(NlModel& m, std::span<const double> b, std::span<const double> v,
                     std::span<double> products) {
  set_coefficients(m, b);
  clear_sections(m);
  ProductTaker taker(m, v);
  m.eq[0].blocks.reduce(taker, true, reduce_space(m));
  for (std::size_t k = 0; k < products.size(); ++k) products[k] = joined(m, k + 1);
}

NlSquares::NlSquares(NlModel& m, std::span<const char> linear) : m_(m) {
  const auto K = static_cast<std::size_t>(m.K);
  for (const bool wanted : {true, false}) {
    for (std::size_t k = 0; k < K; ++k) {
      const bool is_linear = !linear.empty() && linear[k] != 0;
      if (is_linear == wanted) order_.push_back(static_cast<std::int32_t>(k));
    }
    if (wanted) q_ = static_cast<int>(order_.size());
  }
  b_.resize(K);
  c_.assign(K, 0.0);
  whole_.resize(triangle_words(m.K));
}

bool NlSquares::triangle(std::span<const double> b, int columns, std::span<double> R, double& SSE) {
  set_coefficients(m_, b);
  clear_sections(m_);
  TriangleTaker taker(m_, std::span(order_).first(static_cast<std::size_t>(columns)));
  if (!m_.eq[0].blocks.reduce(taker, true, reduce_space(m_))) return false;
  const SectionRoom room(m_.K);
  const std::size_t words = triangle_words(columns);
  std::ranges::fill(R.first(words), 0.0);
  for (int s = 0; s < m_.eq[0].blocks.sections(); ++s) {
    reflect_rows(R, columns, section_words(m_, s).data() + room.sums, columns, columns);
  }
  SSE = joined(m_, 0);
  return true;
}

bool NlSquares::evaluate(std::span<const double> a, std::span<double> R, double& SSE) {
  const std::size_t K = order_.size(), q = static_cast<std::size_t>(q_), p = K - q;
  // 1. The linear ones: at 0 the right side is the left side of the equation itself.
  if (q > 0) {
    std::ranges::fill(c_, 0.0);
    place(a, b_);
    double zero = 0.0;
    if (!triangle(b_, q_, whole_, zero)) return false;
    solve_triangle(whole_, q_, q_, c_, NO_PIVOT);
  }
  place(a, b_);
  if (R.empty()) {
    bool clean = true;
    const FaultListener listener{
        [](void* context, int, std::int64_t) { *static_cast<bool*>(context) = false; }, &clean};
    SSE = stream_squares(m_, b_, {}, listener);
    return clean;
  }
  // 2. The corner of the whole triangle: what is left of the others behind the linear ones.
  if (!triangle(b_, m_.K, whole_, SSE)) return false;
  for (std::size_t j = 0; j <= p; ++j) {
    for (std::size_t i = 0; i < p; ++i) R[j * p + i] = whole_[(j + q) * K + i + q];
  }
  return true;
}

bool NlSquares::enough(std::span<const double> a) {
  if (known_.empty()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const double b = known_[static_cast<std::size_t>(order_[static_cast<std::size_t>(q_) + i])];
    if (!(std::fabs(a[i] - b) <= NEAR * std::fabs(b))) return false;
  }
  arrived_ = true;
  return true;
}

void NlSquares::place(std::span<const double> a, std::span<double> b) const {
  const auto q = static_cast<std::size_t>(q_);
  for (std::size_t i = 0; i < order_.size(); ++i) {
    b[static_cast<std::size_t>(order_[i])] = i < q ? c_[i] : a[i - q];
  }
}

void NlSquares::pick(std::span<const double> b, std::span<double> a) const {
  for (std::size_t i = 0; i < a.size(); ++i) {
    a[i] = b[static_cast<std::size_t>(order_[static_cast<std::size_t>(q_) + i])];
  }
}

}  // namespace korvel
