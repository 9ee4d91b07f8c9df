// SMOOTHN: moving averages, seasonal factors, exponential averages, the Hodrick-Prescott filter.
// Each listed series is worked on by itself.

#include <algorithm>
#include <cmath>

#include "data/data.h"
#include "stats/hodrick.h"
#include "stats/index.h"
#include "stats/stats_results.h"

namespace korvel {

// Blocks of w values have running sums from their front and from their back; a window is the back
// part of one block and the front part of the next (van Herk 1992).
void window_sums(std::span<const double> x, std::int64_t w, std::span<double> out,
                 std::span<double> work) {
  const auto n = static_cast<std::int64_t>(x.size());
  const double* const from = x.data();
  double* const back = work.data();
  for (std::int64_t i = n - 1; i >= 0; --i) {
    const bool last = i == n - 1 || (i + 1) % w == 0;
    back[i] = last ? from[i] : from[i] + back[i + 1];
  }
  double front = 0.0;
  for (std::int64_t i = 0; i < n; ++i) {
    front = i % w == 0 ? from[i] : front + from[i];
    const std::int64_t first = i - w + 1;
    if (first < 0) continue;
    out[static_cast<std::size_t>(first)] = first % w == 0 ? front : back[first] + front;
  }
}

namespace {

struct Plan {
  int NMA = 0;    // 0: no moving averages
  int NSPAN = 0;  // seasons
  double W = 0.0;
  double LAMBDA = 0.0;
  bool additive = false;
};

// One series: what is in use, and its results by rank among the observations in use.
struct Smoothed {
  std::span<double> x;    // values, missing ones replaced
  std::span<double> obs;  // observation numbers
  std::span<double> MA, SI, SA, EMA, trend;
  std::span<double> factor;  // NSPAN
};

int season(const Plan& plan, double obs) {
  const int start = std::max(DATCOM.ITIME2, 1);
  return (static_cast<int>(obs) - 1 + start - 1) % plan.NSPAN;
}

int seasons(int NMA) {
  if (IndexOption::given<"NSPAN">()) return IndexOption::integer<"NSPAN">();
  return DATCOM.ITIME2 != 0 && DATCOM.ITIME3 > 1 ? DATCOM.ITIME3 : NMA;
}

bool settle(const IndexJob& job, int NMA, Plan& plan) {
  plan.NMA = NMA;
  plan.additive = IndexOption::chosen<"ADDITIVE">();
  plan.LAMBDA = IndexOption::real<"LAMBDA">();
  const bool averages =
      !IndexOption::chosen<"HPFILTER">() || IndexOption::given<"NMA">() || NMA > 0;
  if (averages && (NMA < 1 || NMA >= job.N)) {
    index_fail<"(' ...ERROR..NMA= MUST BE POSITIVE AND LESS THAN ', I0)">(job.N);
    return false;
  }
  if (averages) plan.NSPAN = seasons(NMA);
  const bool typed = IndexOption::given<"WEIGHT">();
  plan.W = typed ? IndexOption::real<"WEIGHT">() : 2.0 / (NMA + 1.0);
  if (typed && !(plan.W >= 0.0 && plan.W <= 1.0)) {
    index_fail<"(' ...ERROR..SMOOTHING WEIGHT MUST BE BETWEEN 0 AND 1')">();
    return false;
  }
  if (averages && plan.NSPAN < 1) {
    index_fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..NSPAN')">();
    return false;
  }
  if (IndexOption::chosen<"HPFILTER">() && !(plan.LAMBDA >= 0.0 && std::isfinite(plan.LAMBDA))) {
    index_fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..LAMBDA')">();
    return false;
  }
  return true;
}

bool no_value(double v) { return v == MACOM.XMISS || !std::isfinite(v); }

// Takes the observations in use. A missing one becomes the mean of the NMA values before it;
// without any before it, and where only the filter is asked for, it is left out.
void take_values(const IndexJob& job, const IndexSeries& series, const Plan& plan, Smoothed& s) {
  std::size_t n = 0;
  std::int64_t missing = 0;
  for (int t = DATCOM.MBEG; t <= DATCOM.MEND; ++t) {
    if (job.skipped(t)) continue;
    double v = series.x[t - 1];
    if (no_value(v)) {
      ++missing;
      const std::size_t before = std::min(n, static_cast<std::size_t>(plan.NMA));
      if (before == 0) continue;
      double sum = 0.0;
      for (std::size_t k = n - before; k < n; ++k) sum += s.x[k];
      v = sum / static_cast<double>(before);
      if (OSCOM.OWARN && job.print) {
        say<"(' ...NOTE..MISSING OBSERVATION ', I0, ' REPLACED WITH MOVING ', 'AVERAGE=', G13.5)">(
            t, v);
      }
    }
    s.x[n] = v;
    s.obs[n++] = t;
  }
  if (missing > 0 && job.print) say<"(' NUMBER OF MISSING OBSERVATIONS =', I6)">(missing);
  s.x = s.x.first(n);
  s.obs = s.obs.first(n);
}

// ---- Moving averages ---------------------------------------------------------------------------

// Behind the current value, or about it; an even number of periods about it counts the two outer
// ones of NMA+1 half.
void moving_average(const Plan& plan, Smoothed& s, std::span<double> sums, std::span<double> work) {
  const auto n = static_cast<std::int64_t>(s.x.size());
  const std::int64_t w = plan.NMA;
  std::ranges::fill(s.MA, NO_CELL);
  if (n < w) return;
  window_sums(s.x, w, sums, work);
  const bool central = IndexOption::chosen<"CENTRAL">();
  const std::int64_t half = w / 2;
  for (std::int64_t first = 0; first + w <= n; ++first) {
    const auto at = static_cast<std::size_t>(first);
    if (central && w % 2 == 0) {
      if (first + w < n) {
        s.MA[at + static_cast<std::size_t>(half)] =
            0.5 * (sums[at] + sums[at + 1]) / static_cast<double>(w);
      }
      continue;
    }
    const std::int64_t place = central ? first + half : first + w - 1;
    s.MA[static_cast<std::size_t>(place)] = sums[at] / static_cast<double>(w);
  }
  for (double& v : s.MA) v = std::isfinite(v) ? v : NO_CELL;
}

// Series over average (or less it), its mean season by season, and the series without that.
void seasonal_factors(const Plan& plan, Smoothed& s, std::span<double> count) {
  std::ranges::fill(s.factor, 0.0);
  std::ranges::fill(count, 0.0);
  for (std::size_t i = 0; i < s.x.size(); ++i) {
    const bool cell = s.MA[i] != NO_CELL && (plan.additive || s.MA[i] != 0.0);
    const double v = !cell ? NO_CELL : plan.additive ? s.x[i] - s.MA[i] : s.x[i] / s.MA[i];
    s.SI[i] = std::isfinite(v) ? v : NO_CELL;
    if (s.SI[i] == NO_CELL) continue;
    const auto k = static_cast<std::size_t>(season(plan, s.obs[i]));
    s.factor[k] += s.SI[i];
    count[k] += 1.0;
  }
  const double neutral = plan.additive ? 0.0 : 1.0;
  double sum = 0.0;
  double filled = 0.0;
  for (std::size_t k = 0; k < s.factor.size(); ++k) {
    if (count[k] == 0.0) continue;
    s.factor[k] /= count[k];
    sum += s.factor[k];
    filled += 1.0;
  }
  const double mean = filled > 0.0 ? sum / filled : neutral;
  for (std::size_t k = 0; k < s.factor.size(); ++k) {
    if (count[k] == 0.0) {
      s.factor[k] = neutral;
    } else if (plan.additive) {
      s.factor[k] -= mean;
    } else if (mean != 0.0) {
      s.factor[k] /= mean;
    }
  }
  for (std::size_t i = 0; i < s.x.size(); ++i) {
    const double f = s.factor[static_cast<std::size_t>(season(plan, s.obs[i]))];
    const double v = plan.additive ? s.x[i] - f : f != 0.0 ? s.x[i] / f : NO_CELL;
    s.SA[i] = std::isfinite(v) ? v : NO_CELL;
  }
}

void exponential_average(const Plan& plan, Smoothed& s) {
  double e = s.x.empty() ? 0.0 : s.x[0];
  for (std::size_t i = 0; i < s.x.size(); ++i) {
    if (i > 0) e = plan.W * s.x[i] + (1.0 - plan.W) * e;
    s.EMA[i] = e;
  }
}

void print_averages(const IndexSeries& series, const Plan& plan, const Smoothed& s) {
  say<"(1X, 'MOVING AVERAGES - PERIODS=', I0, ' NSPAN=', I0, ' WEIGHT=', G13.5)">(
      plan.NMA, plan.NSPAN, plan.W);
  say<"(' OBSERVATION  ', A8, '     MOVING-AVE   SEAS&IRREG  SA(', I0, ') EXP-MOV-AVE')">(
      series.name, plan.NSPAN);
  for (std::size_t i = 0; i < s.x.size(); ++i) {
    say<"(I9, 5G13.5)">(static_cast<int>(s.obs[i]), s.x[i], s.MA[i], s.SI[i], s.SA[i], s.EMA[i]);
    if (stop_requested()) return;
  }
  say(" SEASONAL FACTORS");
  for (std::size_t k = 0; k < s.factor.size(); k += 5) {
    Line row;
    row.put<"(1X)">();
    for (std::size_t j = k; j < std::min(k + 5, s.factor.size()); ++j) {
      row.put<"(G13.5)">(s.factor[j]);
    }
    OUTLINE();
  }
}

void print_filter(const IndexSeries& series, const Plan& plan, const Smoothed& s) {
  say<"(' HODRICK-PRESCOTT FILTER FOR ', A, ' LAMBDA=', G13.5)">(series.name, plan.LAMBDA);
  say(" OBSERVATION      TREND      STATIONARY");
  for (std::size_t i = 0; i < s.x.size(); ++i) {
    say<"(I9, 3X, 2G13.5)">(static_cast<int>(s.obs[i]), s.trend[i], s.x[i] - s.trend[i]);
    if (stop_requested()) return;
  }
}

// Values near the end of the range are scaled: their second differences must not leave it.
void filter(const Plan& plan, Smoothed& s, std::span<double> work) {
  constexpr double LARGE = 1e300;
  constexpr double DOWN = 0x1p-60;
  const bool large = std::ranges::any_of(s.x, [](double v) { return std::fabs(v) > LARGE; });
  if (!large) return HPFILT(s.x, plan.LAMBDA, s.trend, work);
  for (std::size_t i = 0; i < s.x.size(); ++i) s.trend[i] = s.x[i] * DOWN;
  HPFILT(s.trend, plan.LAMBDA, s.trend, work);
  for (double& v : s.trend) v = std::isfinite(v / DOWN) ? v / DOWN : NO_CELL;
}

// ---- Results -----------------------------------------------------------------------------------

// A named result of all series, kept until the command has ended well: it may take the place of one
// of them.
struct Kept {
  const NameOption* option = nullptr;
  std::span<double> words;  // `rows` for each series
  std::int64_t rows = 0;
};

void keep_rows(const Kept& kept, std::size_t series, const Smoothed& s,
               std::span<const double> values) {
  const auto to = kept.words.subspan(series * static_cast<std::size_t>(kept.rows),
                                     static_cast<std::size_t>(kept.rows));
  std::ranges::fill(to, MACOM.XMISS);
  for (std::size_t i = 0; i < s.obs.size(); ++i) {
    to[static_cast<std::size_t>(s.obs[i]) - 1] = values[i];
  }
}

}  // namespace

void SMOOTHN(Workspace ws, const IndexJob& job, int NMA) {
  const Trace trace("SMOOTHN");
  // 1. What is to be done, and room for it.
  Plan plan;
  if (!settle(job, NMA, plan)) return;
  const bool filters = IndexOption::chosen<"HPFILTER">();
  const bool averages = plan.NMA > 0;
  const std::int64_t columns = std::ssize(job.series);
  Kept kept[] = {{&IndexOption::named<"MAVE">(), {}, averages ? DATCOM.MEND : 0},
                 {&IndexOption::named<"SAMAVE">(), {}, averages ? DATCOM.MEND : 0},
                 {&IndexOption::named<"SFAC">(), {}, averages ? plan.NSPAN : 0},
                 {&IndexOption::named<"EMAVE">(), {}, averages ? DATCOM.MEND : 0},
                 {&IndexOption::named<"TREND">(), {}, filters ? DATCOM.MEND : 0}};
  const std::int64_t results = averages ? 6 : 0;
  const std::int64_t hp = filters ? job.N + HPFILT_words(job.N, plan.LAMBDA) : 0;
  std::int64_t words = (2 + results) * job.N + std::int64_t{2} * plan.NSPAN + hp;
  for (const Kept& k : kept) {
    if (!k.option->text.empty()) words += columns * k.rows;
  }
  Scratch room(ws, fits32(words) ? words : -1);
  if (!room) return index_failed();
  for (Kept& k : kept) {
    if (!k.option->text.empty() && k.rows > 0) {
      k.words = room.take(static_cast<std::size_t>(columns * k.rows));
    }
  }
  const auto N = static_cast<std::size_t>(job.N);
  const auto spans = static_cast<std::size_t>(plan.NSPAN);
  const std::span<double> x = room.take(N);
  const std::span<double> obs = room.take(N);
  const std::span<double> factor = room.take(spans);
  const std::span<double> count = room.take(spans);
  const std::span<double> rest = room.rest();
  // 2. One series after the other.
  for (std::size_t c = 0; c < job.series.size(); ++c) {
    const IndexSeries& series = job.series[c];
    Smoothed s;
    s.x = x;
    s.obs = obs;
    s.factor = factor;
    take_values(job, series, plan, s);
    const std::size_t n = s.x.size();
    const auto part = [&](std::size_t k) { return rest.subspan(k * N, n); };
    if (averages) {
      s.MA = part(0);
      s.SI = part(1);
      s.SA = part(2);
      s.EMA = part(3);
      moving_average(plan, s, rest.subspan(4 * N, N), rest.subspan(5 * N, N));
      seasonal_factors(plan, s, count);
      exponential_average(plan, s);
      if (job.print) print_averages(series, plan, s);
      if (!kept[0].words.empty()) keep_rows(kept[0], c, s, s.MA);
      if (!kept[1].words.empty()) keep_rows(kept[1], c, s, s.SA);
      if (!kept[2].words.empty())
        std::ranges::copy(factor, kept[2].words.subspan(c * spans).begin());
      if (!kept[3].words.empty()) keep_rows(kept[3], c, s, s.EMA);
    }
    if (filters) {
      s.trend = rest.subspan(static_cast<std::size_t>(results) * N, n);
      filter(plan, s, rest.subspan(static_cast<std::size_t>(results + 1) * N));
      if (job.print) print_filter(series, plan, s);
      if (!kept[4].words.empty()) keep_rows(kept[4], c, s, s.trend);
    }
    if (stop_requested()) return;
  }
  // 3. Results: a column a series.
  for (const Kept& k : kept) {
    if (k.words.empty()) continue;
    const std::span<double> to =
        result_variable(ws, *k.option, columns > 1 ? MATRIX2 : SERIES,
                        static_cast<std::int64_t>(k.words.size()), static_cast<int>(columns));
    std::ranges::copy(k.words.first(to.size()), to.begin());
  }
}

}  // namespace korvel
