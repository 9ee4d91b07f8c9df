// Fitted values of PROBIT and LOGIT: success tables, residual sums, the listing.

#include <algorithm>
#include <array>
#include <cmath>

#include "expr/kernels/row_sections.h"
#include "limdep/limdep_parts.h"
#include "stats/probability.h"

namespace korvel {
namespace {

// The sums of one section.
struct FitPart {
  RowBlock block;
  double* right;
  double* shares;
  double* slopes;
  double* scalars;  // f, squares, weighted, chow, P

  static constexpr int SCALARS = 5;
  static std::int64_t words(int columns, int choices) {
    return (RowBlock::words(columns, choices) + std::int64_t{2} * choices * choices + columns +
            SCALARS + 7) &
           ~std::int64_t{7};
  }
  FitPart(double* work, int columns, int choices)
      : block(work, columns, choices),
        right(work + RowBlock::words(columns, choices)),
        shares(right + std::ptrdiff_t{choices} * choices),
        slopes(shares + std::ptrdiff_t{choices} * choices),
        scalars(slopes + columns) {}
};

// The index beyond which F makes a one the likelier outcome.
bool predicts_one(const LimModel& m, double z, double P) {
  return m.model.low == 0.0 && m.model.share == 1.0 ? z > 0.0 : P > 0.5;
}

void add_binary(const LimModel& m, FitPart& part) {
  RowBlock& block = part.block;
  const LikelihoodLanes& lanes = likelihood_lanes();
  (m.model.kind == RowKind::probit ? lanes.fitted_probit : lanes.fitted_logit)(
      block.terms(m.model), block.P, block.Q, block.f);
  for (std::int64_t t = 0; t < block.n; ++t) {
    const double w = block.w[t], P = block.P[t], Q = block.Q[t];
    block.f[t] *= w;
    part.scalars[0] += block.f[t];
    if (!(w > 0.0)) continue;
    const bool one = block.y[t] == 1.0;
    const double e = one ? Q : P;  // |y - P|
    double* const shares = part.shares + (one ? 2 : 0);
    part.right[(one ? 2 : 0) + (predicts_one(m, block.z[t], P) ? 1 : 0)] += w;
    shares[0] += w * Q;
    shares[1] += w * P;
    part.scalars[1] += e * e;
    part.scalars[2] += one ? Q / P : P / Q;
    part.scalars[3] += w * (e * e);
    part.scalars[4] += w * P;
  }
  lanes.dots(block.f, block.a, m.rows.columns(), RowBlock::LD, block.padded, part.slopes);
}

void add_choices(const LimModel& m, FitPart& part) {
  RowBlock& block = part.block;
  const int others = m.choices - 1;
  RowSums unused;
  likelihood_lanes().choices(block.z, others, RowBlock::LD, block.terms(m.model), block.P0, unused);
  for (std::int64_t t = 0; t < block.n; ++t) {
    const double w = block.w[t];
    const auto y = static_cast<std::ptrdiff_t>(block.y[t]);
    double* const shares = part.shares + y * m.choices;
    const auto P = [&](int j) {
      return j == 0 ? block.P0[t] : block.z[(j - 1) * RowBlock::LD + t];
    };
    int likeliest = 0;
    for (int j = 0; j <= others; ++j) {
      if (P(j) > P(likeliest)) likeliest = j;
      shares[j] += w * P(j);
    }
    part.right[y * m.choices + likeliest] += w;
  }
}

void keep_index(LimModel& m, const RowBlock& block, std::int64_t from) {
  if (m.index.empty()) return;
  for (int j = 0; j < m.choices - 1; ++j) {
    std::copy_n(block.z + j * RowBlock::LD, block.n, m.index.data() + j * m.rows.rows + from);
  }
}

// A number of observations: whole without weights.
void put_count(const LimModel& m, Line& row, double n) {
  if (m.rows.weight == nullptr)
    row.put<"(I11)">(std::llround(n));
  else
    row.put<"(G11.4)">(n);
}

constexpr int A_LINE = 8;  // choices side by side

// Calls body(first, last) for runs of choices that fit into a line.
template <class F>
void by_lines(int choices, F&& body) {
  for (int from = 0; from < choices; from += A_LINE) body(from, std::min(choices, from + A_LINE));
}

void print_predictions(const LimModel& m, const FitSums& sums) {
  const int J = m.choices;
  const Line blank;
  Line title;
  title.put<"(20X, 'PREDICTION SUCCESS TABLE')">();
  OUTLINE();
  by_lines(J, [&](int from, int to) {
    Line first, second;
    first.put<"(22X, 'PREDICTED')">();
    second.put<"(' ACTUAL  ')">();
    for (int j = from; j < to; ++j) second.put<"(I11)">(j);
    OUTLINE();
    for (int i = 0; i < J; ++i) {
      Line row;
      row.put<"(1X, I6, 2X)">(i);
      for (int j = from; j < to; ++j) {
        put_count(m, row, sums.right[static_cast<std::size_t>(i * J + j)]);
      }
      OUTLINE();
    }
  });
  double right = 0.0, naive = 0.0;
  for (int j = 0; j < J; ++j) {
    right += sums.right[static_cast<std::size_t>(j * J + j)];
    naive = std::max(naive, m.observed[static_cast<std::size_t>(j)]);
  }
  const double percentage = 100.0 * right / m.N, naive_percentage = 100.0 * naive / m.N;
  if (m.rows.weight == nullptr)
    say<"(' NUMBER OF RIGHT PREDICTIONS =    ', I10)">(std::llround(right));
  else
    say<"(' NUMBER OF RIGHT PREDICTIONS =    ', G13.5)">(right);
  say<"(' PERCENTAGE OF RIGHT PREDICTIONS = ', G13.5)">(percentage);
  say<"(' NAIVE MODEL PERCENTAGE OF RIGHT PREDICTIONS = ', G13.5)">(naive_percentage);
  if (right < naive) {
    say(" ...NOTE..YOUR PERCENTAGE OF RIGHT PREDICTIONS  IS WORSE THAN THE NAIVE MODEL");
  }
}

void print_residual_sums(const LimModel& m, const FitSums& sums) {
  const Line blank;
  Line zero, one, squares, weighted;
  zero.put<"(' EXPECTED OBSERVATIONS AT 0  = ', G13.5, ' OBSERVED = ', G13.5)">(m.N - sums.P,
                                                                                m.observed[0]);
  one.put<"(' EXPECTED OBSERVATIONS AT 1  = ', G13.5, ' OBSERVED = ', G13.5)">(sums.P,
                                                                               m.observed[1]);
  squares.put<"(' SUM OF SQUARED \"RESIDUALS\" =       ', G13.5)">(sums.squares);
  weighted.put<"(' WEIGHTED SUM OF SQUARED \"RESIDUALS\" = ', G13.5)">(shown(sums.weighted));
  OUTLINE();
}

// Hensher and Johnson (1981); McFadden (1979).
void print_hensher_johnson(const LimModel& m, const FitSums& sums) {
  const int J = m.choices;
  const double N = m.N;
  const auto n = [&](int i, int j) { return sums.shares[static_cast<std::size_t>(i * J + j)]; };
  const auto column = [&](int j) {
    double sum = 0.0;
    for (int i = 0; i < J; ++i) sum += n(i, j);
    return sum;
  };
  const auto observed = [&](int j) { return m.observed[static_cast<std::size_t>(j)]; };
  const auto proportional_error = [&](int j) { return above(column(j) / N, observed(j) / N); };
  double right = 0.0, index = 0.0, concentration = 0.0;
  for (int j = 0; j < J; ++j) {
    const double share = column(j) / N;
    right += n(j, j) / N;
    index += above(n(j, j) / N, share * share);
    concentration += share * share;
  }
  const Line blank;
  Line title;
  title.put<"(' HENSHER-JOHNSON PREDICTION SUCCESS TABLE')">();
  OUTLINE();
  // A share keeps its places: a negative one with an exponent would touch what stands before it.
  const auto put_share = [](Line& row, double v) {
    if (std::fabs(v) < 10.0)
      row.put<"(F8.4, 3X)">(v);
    else
      row.put<"(G11.4)">(v);
  };
  // One row: a count or share for each choice, then what belongs to the whole.
  const auto counts = [&](std::string_view label, int from, int to, auto&& value, double whole,
                          double share) {
    Line row;
    row.put<"(A19)">(label);
    for (int j = from; j < to; ++j) row.put<"(G11.4)">(value(j));
    if (to == J) row.put<"(G11.4, F9.4)">(whole, share);
    OUTLINE();
  };
  const auto shares = [&](std::string_view label, int from, int to, auto&& value, double whole) {
    Line row;
    row.put<"(A19)">(label);
    for (int j = from; j < to; ++j) put_share(row, value(j));
    if (to == J) put_share(row, whole);
    OUTLINE();
  };
  by_lines(J, [&](int from, int to) {
    // The heading is laid out for two choices; more of them move what stands behind.
    Line first, second, third;
    const int wider = 11 * (to - from - 2);
    if (to == J) {
      if (wider >= 0) first.column(wider + 1);
      first.put<"('                                 OBSERVED    OBSERVED')">();
    }
    second.put<"('          PREDICTED  CHOICE')">();
    if (to == J) {
      if (wider > 0) second.column(wider + 28);
      second.put<"('        COUNT       SHARE')">();
    }
    third.put<"('ACTUAL', 13X)">();
    for (int j = from; j < to; ++j) third.put<"(I8, 3X)">(j);
    OUTLINE();
    for (int i = 0; i < J; ++i) {
      char label[19];
      std::fill_n(label, 19, ' ');
      compose<"(I4)">(label, 19, 0, i);
      counts(
          {label, 19}, from, to, [&](int j) { return n(i, j); }, observed(i), observed(i) / N);
    }
    counts(" PREDICTED COUNT   ", from, to, column, N, 1.0);
    shares(
        " PREDICTED SHARE   ", from, to, [&](int j) { return column(j) / N; }, 1.0);
    shares(
        " PROP. SUCCESSFUL  ", from, to, [&](int j) { return shown(n(j, j) / column(j)); }, right);
    shares(
        " SUCCESS INDEX     ", from, to,
        [&](int j) { return shown(above(n(j, j) / column(j), column(j) / N)); }, index);
    Line error;
    error.put<"(' PROPORTIONAL ERROR')">();
    for (int j = from; j < to; ++j) error.put<"(F8.4, 3X)">(proportional_error(j));
    OUTLINE();
  });
  say<"(' NORMALIZED SUCCESS INDEX   ', G13.5)">(shown(index / (1.0 - concentration)));
}

}  // namespace

std::int64_t fit_sum_words(int columns, int choices, std::int64_t rows) {
  return FitPart::words(columns, choices) * RowSections(rows).count;
}

void fit_sums(LimModel& m, FitSums& sums) {
  const int columns = m.rows.columns(), J = m.choices;
  const std::int64_t words = FitPart::words(columns, J);
  const RowSections sections(m.rows.rows);
  sections.run([&](int s) {
    FitPart part(m.work.data() + words * s, columns, J);
    std::fill(part.right, part.scalars + FitPart::SCALARS, 0.0);
    for (std::int64_t from = sections.begin(s); from < sections.end(s); from += RowBlock::ROWS) {
      part.block.load(m.rows, from, std::min(RowBlock::ROWS, sections.end(s) - from));
      part.block.index(m.rows, J, m.b);
      keep_index(m, part.block, from);
      if (J == 2)
        add_binary(m, part);
      else
        add_choices(m, part);
    }
  });
  FitPart first(m.work.data(), columns, J);
  const std::ptrdiff_t length = first.scalars + FitPart::SCALARS - first.right;
  for (int s = 1; s < sections.count; ++s) {
    const FitPart part(m.work.data() + words * s, columns, J);
    for (std::ptrdiff_t i = 0; i < length; ++i) first.right[i] += part.right[i];
  }
  const auto square = static_cast<std::size_t>(J) * static_cast<std::size_t>(J);
  sums.right = {first.right, square};
  sums.shares = {first.shares, square};
  sums.slopes = {first.slopes, static_cast<std::size_t>(columns)};
  sums.f = first.scalars[0];
  sums.squares = first.scalars[1];
  sums.weighted = first.scalars[2];
  sums.chow = first.scalars[3];
  sums.P = first.scalars[4];
  // Slopes of the columns as they are.
  if (J == 2) gradient_from_units(m.units, sums.slopes, sums.slopes);
}

void print_success(const LimModel& m, const FitSums& sums) {
  print_predictions(m, sums);
  if (m.choices == 2) print_residual_sums(m, sums);
  print_hensher_johnson(m, sums);
}

double fitted_probability(const LimModel& m, std::size_t row, int choice) {
  const auto rows = static_cast<std::size_t>(m.rows.rows);
  if (m.choices > 2) {
    double top = 0.0;
    const auto z = [&](int j) {
      return j == 0 ? 0.0 : m.index[static_cast<std::size_t>(j - 1) * rows + row];
    };
    for (int j = 1; j < m.choices; ++j) top = std::max(top, z(j));
    double sum = 0.0;
    for (int j = 0; j < m.choices; ++j) sum += std::exp(z(j) - top);
    return std::exp(z(choice) - top) / sum;
  }
  const double z = m.index[row];
  const double limited = std::clamp(z, -MACOM.EXLIM, MACOM.EXLIM);
  const double F =
      m.model.kind == RowKind::probit ? normal_cdf(z) : 1.0 / (1.0 + std::exp(-limited));
  return m.model.low + m.model.share * F;
}

void print_choices(Workspace ws, const LimModel& m) {
  const bool wide = OSCOM.OWIDE && m.choices == 2;
  const int columns = wide ? 60 : 30;
  Line first, second;
  if (wide) {
    first.put<
        "(' OBSERVATION           OBSERVED         PREDICTED   ', 3X, 'CALCULATED', 9X, "
        "'X=ACTUAL   *=PREDICTED')">();
    second.put<"(6X, 'NO.', 17X, 'VALUE', 12X, 'VALUE', 10X, A8)">("INDEX");
  } else if (m.choices == 2) {
    first.put<"(' ', '    OBS.   OBSERVED     PREDICTED   CALCULATED')">();
    second.put<"(6X, 'NO.', 4X, 'VALUE', 8X, 'VALUE', 7X, A8)">("INDEX");
  } else {
    first.put<"(' ', '    OBS.   OBSERVED     PROBABILITIES OF THE CHOICES')">();
    second.put<"(6X, 'NO.', 4X, 'VALUE')">();
  }
  OUTLINE();
  KeptRows kept(ws);
  while (kept.next()) {
    if (stop_requested()) return;
    const auto t = static_cast<std::size_t>(kept.row);
    const double y = m.rows.y[t];
    if (m.choices > 2) {
      Line row;
      row.put<"(1X, I7, 1X, G13.5)">(kept.obs, y);
      for (int j = 0; j < m.choices; ++j) {
        if (j > 0 && j % A_LINE == 0) {
          OUTLINE();
          row = Line();
          row.column(23);
        }
        row.put<"(G13.5)">(fitted_probability(m, t, j));
      }
      OUTLINE();
      continue;
    }
    // The strip runs from probability 0 to 1; the prediction covers the actual value.
    std::array<char, 60> strip{};
    strip.fill(' ');
    const double P = fitted_probability(m, t, 1);
    strip[static_cast<std::size_t>(y == 1.0 ? columns - 1 : 0)] = 'X';
    strip[static_cast<std::size_t>(std::lround((columns - 1) * P))] = '*';
    const std::string_view text(strip.data(), static_cast<std::size_t>(columns));
    Line row;
    if (wide)
      row.put<"(1X, I7, 9X, 3G17.5, 1X, A60)">(kept.obs, y, P, m.index[t], text);
    else
      row.put<"(1X, I7, 1X, 3G13.5, 1X, A30)">(kept.obs, y, P, m.index[t], text);
    OUTLINE();
  }
}

}  // namespace korvel
