#include "limdep/likelihood.h"

#include <algorithm>
#include <limits>

#include "expr/kernels/packed.h"
#include "expr/kernels/row_sections.h"
#include "platform/cpu.h"

namespace korvel {

namespace baseline {
const LikelihoodLanes& likelihood_lane_set();
}
#if defined(__x86_64__)
namespace avx2 {
const LikelihoodLanes& likelihood_lane_set();
}
namespace avx512 {
const LikelihoodLanes& likelihood_lane_set();
}
#endif

const LikelihoodLanes& likelihood_lanes() {
#if defined(__x86_64__)
  if (cpu_lanes() == Lanes::avx512) return avx512::likelihood_lane_set();
  if (cpu_lanes() == Lanes::avx2) return avx2::likelihood_lane_set();
#endif
  return baseline::likelihood_lane_set();
}

namespace {

// What a section adds up: gradient, information (by blocks of choices), sums.
struct Part {
  RowBlock block;
  double* gradient;
  double* cross;
  double* sums;  // LLF, worst, lowest

  static std::int64_t words(int columns, int choices) {
    const int others = choices - 1;
    const auto pairs = static_cast<std::int64_t>(packed_words(others));
    return (RowBlock::words(columns, choices) + std::int64_t{others} * columns +
            pairs * static_cast<std::int64_t>(packed_words(columns)) + 3 + 7) &
           ~std::int64_t{7};
  }
  Part(double* work, int columns, int choices)
      : block(work, columns, choices),
        gradient(work + RowBlock::words(columns, choices)),
        cross(gradient + std::int64_t{choices - 1} * columns),
        sums(cross + packed_words(choices - 1) * packed_words(columns)) {}
};

TermLoop loop_of(const LikelihoodLanes& lanes, RowKind kind) {
  switch (kind) {
    case RowKind::linear:
      return lanes.linear;
    case RowKind::group:
      return lanes.group;
    case RowKind::probit:
      return lanes.probit;
    case RowKind::logit:
      return lanes.logit;
    case RowKind::tobit:
      break;
  }
  return lanes.tobit;
}

void add_choices(const LikelihoodLanes& lanes, const RowTerms& terms, int columns, int choices,
                 Part& part, RowSums& sums) {
  RowBlock& block = part.block;
  const int others = choices - 1;
  const std::size_t triangle = packed_words(columns);
  lanes.choices(block.z, others, RowBlock::LD, terms, block.P0, sums);
  for (int j = 0; j < others; ++j) {
    const double* P = block.z + j * RowBlock::LD;
    lanes.choice_gradient(terms, P, j + 1.0, block.f);
    lanes.dots(block.f, block.a, columns, RowBlock::LD, block.padded,
               part.gradient + std::ptrdiff_t{j} * columns);
    for (int k = 0; k <= j; ++k) {
      lanes.choice_curvature(terms, P, block.z + k * RowBlock::LD, block.Q);
      lanes.cross(block.Q, block.a, columns, RowBlock::LD, block.padded, block.scratch,
                  part.cross + packed(j + 1, k + 1) * triangle);
    }
  }
}

void run_section(const LikelihoodRows& rows, const RowModel& model, int choices,
                 std::span<const double> b, Part& part, std::int64_t from, std::int64_t end) {
  const LikelihoodLanes& lanes = likelihood_lanes();
  const int columns = rows.columns();
  RowSums sums;
  std::fill(part.gradient, part.sums, 0.0);
  for (; from < end; from += RowBlock::ROWS) {
    RowBlock& block = part.block;
    block.load(rows, from, std::min(RowBlock::ROWS, end - from));
    block.index(rows, choices, b);
    const RowTerms terms = block.terms(model);
    if (choices > 2) {
      add_choices(lanes, terms, columns, choices, part, sums);
      continue;
    }
    loop_of(lanes, model.kind)(terms, sums);
    lanes.dots(block.f, block.a, columns, RowBlock::LD, block.padded, part.gradient);
    lanes.cross(block.Q, block.a, columns, RowBlock::LD, block.padded, block.scratch, part.cross);
  }
  part.sums[0] = sums.LLF;
  part.sums[1] = sums.worst;
  part.sums[2] = sums.lowest;
}

}  // namespace

void RowBlock::load(const LikelihoodRows& rows, std::int64_t from, std::int64_t count) {
  const LikelihoodLanes& lanes = likelihood_lanes();
  n = count;
  padded = static_cast<std::ptrdiff_t>((n + 7) & ~std::int64_t{7});
  for (int k = 0; k < rows.columns(); ++k) {
    const auto c = static_cast<std::size_t>(k);
    const double* x = rows.column[c] == nullptr ? nullptr : rows.column[c] + from;
    lanes.load(x, rows.shift[c], rows.scale[c], n, a + k * LD);
  }
  lanes.load(rows.y + from, 0.0, 1.0, n, y);
  const double* weight = rows.weight == nullptr ? nullptr : rows.weight + from;
  lanes.load(weight, 0.0, rows.weight_factor, n, w);
}

void RowBlock::index(const LikelihoodRows& rows, int choices, std::span<const double> b) const {
  const int columns = rows.columns();
  for (int j = 0; j < choices - 1; ++j) {
    likelihood_lanes().index(a, columns, LD, padded, b.data() + std::ptrdiff_t{j} * columns,
                             z + j * LD);
  }
}

std::int64_t likelihood_words(int columns, int choices, std::int64_t rows) {
  return Part::words(columns, choices) * RowSections(rows).count;
}

RowSums likelihood(const LikelihoodRows& rows, const RowModel& model, int choices,
                   std::span<const double> b, std::span<double> gradient,
                   std::span<double> information, std::span<double> work) {
  const int columns = rows.columns();
  const int others = choices - 1;
  const std::int64_t words = Part::words(columns, choices);
  const RowSections sections(rows.rows);
  sections.run([&](int s) {
    Part part(work.data() + words * s, columns, choices);
    run_section(rows, model, choices, b, part, sections.begin(s), sections.end(s));
  });
  std::ranges::fill(gradient, 0.0);
  std::ranges::fill(information, 0.0);
  RowSums total;
  for (int s = 0; s < sections.count; ++s) {
    const Part part(work.data() + words * s, columns, choices);
    for (int i = 0; i < others * columns; ++i) {
      gradient[static_cast<std::size_t>(i)] += part.gradient[i];
    }
    // Block (j,k) of choices is symmetric in its columns; only its lower triangle was summed.
    const double* cross = part.cross;
    for (int j = 0; j < others; ++j) {
      for (int k = 0; k <= j; ++k, cross += packed_words(columns)) {
        for (int r = 1; r <= columns; ++r) {
          const int last = j == k ? r : columns;
          for (int c = 1; c <= last; ++c) {
            information[packed(j * columns + r, k * columns + c)] += cross[packed(r, c)];
          }
        }
      }
    }
    total.LLF += part.sums[0];
    total.worst = std::max(total.worst, part.sums[1]);
    total.lowest = std::min(total.lowest, part.sums[2]);
  }
  return total;
}

void survey_columns(const LikelihoodRows& rows, std::span<ColumnSurvey> out,
                    std::span<double> work) {
  // A section is a column here: it reads the rows in order.
  constexpr double huge = std::numeric_limits<double>::max();
  const std::int64_t words = RowBlock::LD;
  const auto survey_column = [&](int k) {
    const auto c = static_cast<std::size_t>(k);
    ColumnSurvey survey{.low = huge,
                        .high = -huge,
                        .low_at_zero = huge,
                        .high_at_zero = -huge,
                        .low_at_one = huge,
                        .high_at_one = -huge};
    if (rows.column[c] == nullptr) return;
    const LikelihoodLanes& lanes = likelihood_lanes();
    double* w = work.data() + words * k;
    for (std::int64_t from = 0; from < rows.rows; from += RowBlock::ROWS) {
      const std::int64_t n = std::min(RowBlock::ROWS, rows.rows - from);
      lanes.load(rows.weight == nullptr ? nullptr : rows.weight + from, 0.0, rows.weight_factor, n,
                 w);
      lanes.survey(rows.column[c] + from, rows.y + from, w, n, survey);
    }
    out[c] = survey;
  };
  constexpr std::int64_t worth_threads = 20000;
  if (rows.rows < worth_threads) {
    for (int k = 0; k < rows.columns(); ++k) survey_column(k);
  } else {
    parallel_sections(rows.columns(), survey_column);
  }
}

}  // namespace korvel
