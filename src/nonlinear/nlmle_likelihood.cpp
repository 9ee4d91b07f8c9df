// The log-likelihood of MLE: one pass over the rows.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/row_sections.h"
#include "limdep/likelihood_lanes.h"
#include "nonlinear/nlmle_parts.h"
#include "platform/progress.h"

namespace korvel {
namespace {

constexpr std::int64_t ROWS = 256;     // a dozen columns fill half of a first-level cache
constexpr std::int64_t LD = ROWS + 8;  // powers of two would share cache sets

// Work space of a section: columns of the block, the vectors of the terms, the scores of the outer
// product, then its sums.
struct Section {
  double *a, *w, *z, *z2, *log_f, *dz, *dz2, *u, *v, *scratch;
  std::array<double*, MOST_SHAPES> dshape{};
  double* scores;  // M columns
  double* sums;    // log-likelihood, gradient (M), products (packed M)
  bool good = true;

  static std::int64_t words(int K, int M) {
    const auto sums = 1 + M + static_cast<std::int64_t>(packed_words(M)) + 1;
    return LD * (K + 9 + MOST_SHAPES + M) + (sums + 7) / 8 * 8;
  }
  Section(double* work, int K, int M) : a(work) {
    double* next = a + LD * K;
    const auto take = [&] {
      double* const p = next;
      next += LD;
      return p;
    };
    w = take();
    z = take();
    z2 = take();
    log_f = take();
    dz = take();
    dz2 = take();
    u = take();
    v = take();
    scratch = take();
    for (double*& d : dshape) d = take();
    scores = next;
    sums = scores + LD * M;
  }
  double* value() const { return sums; }
  double* gradient() const { return sums + 1; }
  double* products(int M) const { return sums + 1 + M; }
  double* fault(int M) const { return sums + 1 + M + packed_words(M); }
};

enum class Wanted : std::uint8_t { value, gradient, products };

// Rows from..end of one section.
struct Pass {
  const MleFamily& family;
  const MleRows& rows;
  const StableDensity& stable;
  std::span<const double> b;
  Wanted wanted;

  int K() const { return rows.K(); }
  int M() const { return static_cast<int>(b.size()); }

  // One block: false when there is no value.
  bool block(Section& s, std::int64_t from, std::int64_t n) const {
    const LikelihoodLanes& lanes = likelihood_lanes();
    const auto padded = static_cast<std::ptrdiff_t>((n + 7) & ~std::int64_t{7});
    // 1. Columns, weights, indexes.
    for (int k = 0; k < K(); ++k) {
      const double* const x = rows.column[static_cast<std::size_t>(k)];
      lanes.load(x == nullptr ? nullptr : x + from, rows.shift[static_cast<std::size_t>(k)],
                 rows.scale[static_cast<std::size_t>(k)], n, s.a + k * LD);
    }
    lanes.load(rows.weight == nullptr ? nullptr : rows.weight + from, 0.0, rows.weight_factor, n,
               s.w);
    lanes.index(s.a, K(), LD, padded, b.data(), s.z);
    if (family.both) lanes.index(s.a, K(), LD, padded, b.data() + K(), s.z2);
    // 2. Terms; the rows that fill up the block count nothing.
    const auto at = [&](const double* p) { return p == nullptr ? nullptr : p + from; };
    const MleTerms terms{.rows = n,
                         .z = s.z,
                         .z2 = s.z2,
                         .y = rows.y + from,
                         .log_y = at(rows.log_y),
                         .log_rest = at(rows.log_rest),
                         .shape = b.data() + M() - family.shapes,
                         .stable = &stable,
                         .log_f = s.log_f,
                         .dz = s.dz,
                         .dz2 = s.dz2,
                         .dshape = s.dshape,
                         .u = s.u,
                         .v = s.v};
    if (!family.terms(terms)) return false;
    const auto fill_up = [&](double* p) { std::fill(p + n, p + padded, 0.0); };
    fill_up(s.log_f);
    lanes.dots(s.w, s.log_f, 1, LD, padded, s.value());
    if (wanted == Wanted::value) return true;
    fill_up(s.dz);
    if (family.both) fill_up(s.dz2);
    for (int j = 0; j < family.shapes; ++j) fill_up(s.dshape[static_cast<std::size_t>(j)]);
    if (wanted == Wanted::products)
      add_products(s, padded);
    else
      add_gradient(s, padded);
    return true;
  }

  void add_gradient(Section& s, std::ptrdiff_t padded) const {
    const LikelihoodLanes& lanes = likelihood_lanes();
    const auto weigh = [&](double* d) {
      for (std::ptrdiff_t i = 0; i < padded; ++i) d[i] *= s.w[i];
    };
    weigh(s.dz);
    lanes.dots(s.dz, s.a, K(), LD, padded, s.gradient());
    if (family.both) {
      weigh(s.dz2);
      lanes.dots(s.dz2, s.a, K(), LD, padded, s.gradient() + K());
    }
    double* to = s.gradient() + M() - family.shapes;
    for (int j = 0; j < family.shapes; ++j) {
      lanes.dots(s.w, s.dshape[static_cast<std::size_t>(j)], 1, LD, padded, to + j);
    }
  }

  void add_products(Section& s, std::ptrdiff_t padded) const {
    double* to = s.scores;
    const auto scaled = [&](const double* d) {
      for (int k = 0; k < K(); ++k, to += LD) {
        for (std::ptrdiff_t i = 0; i < padded; ++i) to[i] = d[i] * s.a[k * LD + i];
      }
    };
    scaled(s.dz);
    if (family.both) scaled(s.dz2);
    for (int j = 0; j < family.shapes; ++j, to += LD) {
      std::copy_n(s.dshape[static_cast<std::size_t>(j)], padded, to);
    }
    likelihood_lanes().cross(s.w, s.scores, M(), LD, padded, s.scratch, s.products(M()));
  }

  void run(Section& s, std::int64_t from, std::int64_t end) const {
    std::fill(s.sums, s.fault(M()) + 1, 0.0);
    for (; from < end; from += ROWS) {
      if (block(s, from, std::min(ROWS, end - from))) continue;
      *s.fault(M()) = 1.0;
      return;
    }
  }
};

}  // namespace

std::int64_t MleLikelihood::words(const MleFamily& family, int K, std::int64_t rows) {
  const int table = family.type == MleType::STABLE ? StableDensity::words() : 0;
  return Section::words(K, mle_coefficients(family, K)) * RowSections(rows).count + table;
}

MleLikelihood::MleLikelihood(const MleFamily& family, const MleRows& rows, std::span<double> work)
    : family_(family), rows_(rows), work_(work) {
  if (family.type != MleType::STABLE) return;
  analytic = false;
  const std::size_t table = StableDensity::words();
  table_ = work.last(table);
  work_ = work.first(work.size() - table);
}

// The table of the density depends on the stability alone: most evaluations find it made. Beyond
// its bounds the stability counts as the bound, so that a search may run along it.
bool MleLikelihood::settle_stable(std::span<const double> b) {
  if (family_.type != MleType::STABLE) return true;
  return stable_.prepare(StableDensity::held(b[static_cast<std::size_t>(rows_.K())]), table_);
}

Objective::Value MleLikelihood::evaluate(std::span<const double> b, std::span<double> gradient) {
  if (!settle_stable(b)) return {.f = 0.0, .good = false};
  const int K = rows_.K(), M = static_cast<int>(b.size());
  const std::int64_t words = Section::words(K, M);
  const RowSections sections(rows_.rows);
  const Pass pass{family_, rows_, stable_, b, gradient.empty() ? Wanted::value : Wanted::gradient};
  sections.run([&](int s) {
    if (breaks_off && stop_requested()) return;
    Section section(work_.data() + words * s, K, M);
    pass.run(section, sections.begin(s), sections.end(s));
  });
  if (progress != nullptr) progress->add(1);
  if (breaks_off && stop_requested()) return {.f = HUGE_VAL, .good = false};
  Value value{.f = 0.0, .good = true};
  std::ranges::fill(gradient, 0.0);
  for (int s = 0; s < sections.count; ++s) {
    const Section section(work_.data() + words * s, K, M);
    if (*section.fault(M) != 0.0) value.good = false;
    value.f -= *section.value();
    for (std::size_t i = 0; i < gradient.size(); ++i) gradient[i] -= section.gradient()[i];
  }
  value.good = value.good && std::isfinite(value.f);
  return value;
}

bool MleLikelihood::outer_product(std::span<const double> b, std::span<double> product) {
  if (family_.type == MleType::STABLE) return false;
  const int K = rows_.K(), M = static_cast<int>(b.size());
  const std::int64_t words = Section::words(K, M);
  const RowSections sections(rows_.rows);
  const Pass pass{family_, rows_, stable_, b, Wanted::products};
  sections.run([&](int s) {
    Section section(work_.data() + words * s, K, M);
    pass.run(section, sections.begin(s), sections.end(s));
  });
  const std::span<double> to = product.first(packed_words(M));
  std::ranges::fill(to, 0.0);
  bool good = true;
  for (int s = 0; s < sections.count; ++s) {
    const Section section(work_.data() + words * s, K, M);
    if (*section.fault(M) != 0.0) good = false;
    for (std::size_t i = 0; i < to.size(); ++i) to[i] += section.products(M)[i];
  }
  return good && std::ranges::all_of(to, [](double v) { return std::isfinite(v); });
}

}  // namespace korvel
