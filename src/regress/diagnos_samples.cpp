// Bootstrap and jackknife of the coefficients.

#include <algorithm>
#include <cmath>

#include "data/format_edit.h"
#include "engine/output.h"
#include "engine/units.h"
#include "expr/expr.h"
#include "regress/diagnos_parts.h"

namespace korvel {
namespace {

constexpr int DEFAULT_SAMPLES = 100;
constexpr int VALUES_A_LINE = 5;

// Sums of values about a point near their mean, one a coefficient (and the error variance), in
// units whose squares stay within the range of reals.
struct Deviations {
  std::span<double> sum, squares, unit;

  Deviations(Scratch& scratch, const DiagnosModel& m, std::size_t values)
      : sum(scratch.take(values)), squares(scratch.take(values)), unit(scratch.take(values)) {
    std::ranges::fill(sum, 0.0);
    std::ranges::fill(squares, 0.0);
    std::ranges::fill(unit, m.unit * m.unit);
    for (std::size_t k = 0; k < m.scale.size(); ++k) unit[k] = m.scale[k] * m.unit;
  }
  void add(std::span<const double> d) const {
    for (std::size_t i = 0; i < sum.size(); ++i) {
      const double v = d[i] / unit[i];
      sum[i] += v;
      squares[i] += v * v;
    }
  }
  double mean(std::size_t i, double n) const { return sum[i] / n * unit[i]; }
  // Root of the sum of squares about the mean of n values, times `share`.
  double spread(std::size_t i, double n, double share) const {
    return std::sqrt(std::max(squares[i] - sum[i] * (sum[i] / n), 0.0) * share) * unit[i];
  }
};

// A numbered list of values, five a line.
void print_values(int number, const DiagnosWork& d, std::span<const double> change, double SIGMA2) {
  Line row;
  row.put<"(1X, I7)">(number);
  const int last = SIGMA2 >= 0.0 ? d.m.K : d.m.K - 1;
  for (int i = 0; i <= last; ++i) {
    if (i > 0 && i % VALUES_A_LINE == 0) {
      OUTLINE();
      row = Line();
      row.column(9);
    }
    const auto place = static_cast<std::size_t>(i);
    row.put<"(G13.5)">(i < d.m.K ? d.coef[place] + change[static_cast<std::size_t>(d.column_of(i))]
                                 : SIGMA2);
  }
  OUTLINE();
}

void print_row(std::string_view name, double average, double spread) {
  say<"(1X, A8, 3X, 2G13.5)">(name, average, spread);
}

}  // namespace

bool UnitRows::open(int unit) {
  if (unit == 0) return true;
  return user_unit(unit) && open_output_file(file_, unit, {}, WriteMode::replace);
}

void UnitRows::value(double v) {
  if (!file_.opened()) return;
  char text[SHORTEST_ROOM + 1] = " ";
  const char* end = edit_shortest(text + 1, v);
  const std::size_t skip = first_ ? 1 : 0;
  file_.write({text + skip, static_cast<std::size_t>(end - text) - skip});
  first_ = false;
}

void UnitRows::end_row() {
  file_.write("\n");
  first_ = true;
}

void UnitRows::finish() {
  if (file_.opened()) commit_output_file(file_);
}

void bootstrap(Workspace ws, const DiagnosWork& d) {
  // 1. As many samples at a time as stay in the cache; how many does not depend on the threads.
  const int wanted =
      FcastOption::given<"BOOTSAMP">() ? FcastOption::integer<"BOOTSAMP">() : DEFAULT_SAMPLES;
  const auto N = static_cast<std::size_t>(d.m.N);
  const auto K = static_cast<std::size_t>(d.m.K);
  constexpr std::size_t cached = 1 << 17;
  const int batch = static_cast<int>(std::clamp<std::size_t>(cached / N, 4, 256));
  const auto most = static_cast<std::size_t>(std::min(batch, wanted));
  UnitRows file;
  if (!file.open(FcastOption::integer<"BOOTUNIT">())) return;
  Scratch scratch(ws, static_cast<std::int64_t>(most * (N + 2 * K + 1) + 3 * (K + 1)));
  if (!scratch) return;
  Deviations all(scratch, d.m, K + 1);
  const std::span<double> draws = scratch.take(most * N);
  const std::span<double> g = scratch.take(most * K);
  const std::span<double> result = scratch.rest();
  // The estimate's degrees of freedom, unless rows of weight zero counted in them.
  const bool counted = SAVED.DF > 0.0 && SAVED.N == static_cast<double>(N);
  const double DF = counted ? SAVED.DF : static_cast<double>(d.m.N - d.m.K);
  const bool list =
      OCOM.OPUT && (FcastOption::chosen<"BOOTLIST">() || FcastOption::chosen<"LIST">());
  // 2. The draws are made in the order of the samples, by one stream; then the fits, on threads.
  seed_random();
  if (list) say<"(' BOOTSTRAPPING COEFFICIENTS FOR', I7, ' SAMPLES')">(wanted);
  int done = 0;
  while (done < wanted && !stop_requested()) {
    const int samples = std::min(batch, wanted - done);
    fill_uniform(draws.first(static_cast<std::size_t>(samples) * N));
    bootstrap_fits(d.m, samples, draws, g, result);
    for (int s = 0; s < samples; ++s) {
      const std::span<double> own = result.subspan(static_cast<std::size_t>(s) * (K + 1), K + 1);
      const double SIGMA2 = own[K] / DF * d.m.unit * d.m.unit;
      if (list) print_values(done + s + 1, d, own, SIGMA2);
      if (file) {
        for (int i = 0; i < d.m.K; ++i) {
          const auto place = static_cast<std::size_t>(i);
          file.value(d.coef[place] + own[static_cast<std::size_t>(d.column_of(i))]);
        }
        file.value(SIGMA2);
        file.end_row();
      }
      own[K] = SIGMA2 - SAVED.sigma2;
      all.add(own);
    }
    done += samples;
  }
  file.finish();
  // 3. What there is, also after a stop.
  if (!OCOM.OPUT || done == 0) return;
  if (!list || done < wanted) say<"(' BOOTSTRAPPING COEFFICIENTS FOR', I7, ' SAMPLES')">(done);
  say(" COEFFICIENT   AVERAGE     ST.DEV");
  const auto print = [&](std::string_view name, double center, std::size_t i) {
    print_row(name, center + all.mean(i, done),
              done > 1 ? all.spread(i, done, 1.0 / (done - 1)) : 0.0);
  };
  for (int i = 0; i < d.m.K; ++i) {
    print(d.name(i), d.coef[static_cast<std::size_t>(i)], static_cast<std::size_t>(d.column_of(i)));
  }
  print("SIGMA**2", SAVED.sigma2, K);
}

void print_jackknife(Workspace ws, const DiagnosWork& d) {
  const auto K = static_cast<std::size_t>(d.m.K);
  Scratch scratch(ws, static_cast<std::int64_t>(6 * K));
  if (!scratch) return;
  Deviations all(scratch, d.m, K);
  const std::span<double> g = scratch.take(K);
  const std::span<double> change = scratch.take(K);
  // From the coefficients of the estimate to those of least squares, which a restricted fit lacks.
  const std::span<double> shift = scratch.take(K);
  solve_r(d.m, d.Qe, shift);
  say(" JACKKNIFE COEFFICIENTS");
  const auto N = static_cast<double>(d.m.N);
  for (std::int64_t t = 0; t < d.m.N; ++t) {
    if (stop_requested()) return;
    const int obs = static_cast<int>(d.obs[static_cast<std::size_t>(t)]);
    if (!(left_out(d.m, d.Qe, t, g, change) > NO_LEVERAGE)) {
      warn<"(' ...WARNING..WITHOUT OBSERVATION', I7, ' A COEFFICIENT IS NOT DETERMINED')">(obs);
      return not_fitted("THE JACKKNIFE");
    }
    for (std::size_t k = 0; k < K; ++k) change[k] += shift[k];
    if (FcastOption::chosen<"LIST">()) print_values(obs, d, change, -1.0);
    all.add(change);
  }
  say(" COEFFICIENT   AVERAGE     ST.ERR ");
  for (int i = 0; i < d.m.K; ++i) {
    const auto k = static_cast<std::size_t>(d.column_of(i));
    print_row(d.name(i), d.coef[static_cast<std::size_t>(i)] + all.mean(k, N),
              all.spread(k, N, (N - 1.0) / N));
  }
}

}  // namespace korvel
