// The sample of one command: CKSMPL checks its variables and carries out SKIPMISS, SKIPIT counts
// what is skipped, SKIPKT gives the gaps to time-series estimators.

#include <algorithm>
#include <array>
#include <cstdint>

#include "data/data.h"
#include "data/sample.h"
#include "engine/commands.h"
#include "engine/options.h"
#include "engine/output.h"
#include "platform/cpu.h"
#include "platform/parallel.h"

namespace korvel {

namespace baseline {
std::size_t count_equal(const double* x, std::size_t n, double value);
}
#if defined(__x86_64__)
namespace avx2 {
std::size_t count_equal(const double* x, std::size_t n, double value);
}
namespace avx512 {
std::size_t count_equal(const double* x, std::size_t n, double value);
}
#endif

namespace {

using CountEqual = std::size_t (*)(const double*, std::size_t, double);

CountEqual widest_count() {
#if defined(__x86_64__)
  switch (cpu_lanes()) {
    case Lanes::avx512:
      return avx512::count_equal;
    case Lanes::avx2:
      return avx2::count_equal;
    case Lanes::baseline:
      break;
  }
#endif
  return baseline::count_equal;
}

constexpr std::size_t SHORT_RUN = 1 << 17;  // below this the threads cost more than they save
constexpr int MOST_SECTIONS = 64;

}  // namespace

std::size_t count_equal(std::span<const double> x, double value) {
  static const CountEqual count = widest_count();
  if (x.size() < SHORT_RUN) return count(x.data(), x.size(), value);
  const std::size_t sections = std::min<std::size_t>(x.size() / (SHORT_RUN / 2), MOST_SECTIONS);
  const std::size_t step = x.size() / sections + 1;
  std::array<std::size_t, MOST_SECTIONS> found{};
  parallel_sections(static_cast<int>(sections), [&](int s) {
    const std::size_t from = std::min(step * static_cast<std::size_t>(s), x.size());
    const std::size_t to = std::min(from + step, x.size());
    found[static_cast<std::size_t>(s)] = count(x.data() + from, to - from, value);
  });
  std::size_t total = 0;
  for (const std::size_t n : found) total += n;
  return total;
}

namespace {

// A listed entry that has storage: its columns lie one behind the other.
struct Listed {
  const double* data = nullptr;
  std::int64_t rows = 0;
  int columns = 0;
  int type = 0;
  std::span<const double> column(int j) const {
    return {data + j * rows, static_cast<std::size_t>(rows)};
  }
};

// Temporaries, the constant, list codes and entries without storage have no rows.
bool with_storage(Workspace ws, int var, Listed& x) {
  if (var <= 0 || (var > DATCOM.MAXVAR && var <= 2 * DATCOM.MAXVAR)) return false;
  const Place p = INFO(ws, var);
  if (p.IADD <= 0 || p.ITYPE == NOTYPE || p.LEN <= 0) return false;
  x.columns = std::max(p.columns(), 1);
  x.rows = p.LEN / x.columns;
  x.type = p.ITYPE;
  x.data = &ws.DATA(p.IADD + std::int64_t{4});
  return true;
}

// True when some column of x holds the missing code in row i (from 1).
bool missing_in(const Listed& x, std::int64_t i) {
  for (int j = 0; j < x.columns; ++j) {
    if (x.data[j * x.rows + i - 1] == MACOM.XMISS) return true;
  }
  return false;
}

// True when some column holds the missing code in rows from..to: one pass over the data.
bool any_missing(const Listed& x, std::int64_t from, std::int64_t to) {
  for (int j = 0; j < x.columns; ++j) {
    const auto run = x.column(j).subspan(static_cast<std::size_t>(from - 1),
                                         static_cast<std::size_t>(to - from + 1));
    if (count_equal(run, MACOM.XMISS) > 0) return true;
  }
  return false;
}

// SKIPMISS off: a warning for each observation with missing data.
void warn_missing(Workspace ws, int var, const Listed& x) {
  const std::int64_t from = std::max(DATCOM.MBEG, 1);
  const std::int64_t to = std::min<std::int64_t>(DATCOM.MEND, x.rows);
  if (from > to || !any_missing(x, from, to)) return;
  for (std::int64_t i = from; i <= to; ++i) {
    if (!missing_in(x, i)) continue;
    warn<"(' ...WARNING..OBSERVATION', I6, ' OF ', A, ' HAS MISSING DATA VALUE=', F7.0)">(
        i, NAME(ws, var), MACOM.XMISS);
    if (stop_requested()) return;
  }
}

// SKIPMISS on: observations whose value is missing are skipped in this command. With a lag the
// value that observation i uses lies `lag` rows earlier.
void skip_missing(Workspace ws, const ListItem& item, const Listed& x) {
  const std::span<double> skip = skip_vector(ws);
  const auto length = static_cast<std::int64_t>(skip.size());
  if (length < DATCOM.MEND && OSCOM.OMSWRN) {
    say<"(' ...NOTE..SKIPMISS OPTION CHECKING UP TO OBS', I8)">(length);
  }
  const auto from = std::max<std::int64_t>({DATCOM.MBEG, 1, std::int64_t{1} + item.lag});
  const auto to = std::min<std::int64_t>({DATCOM.MEND, length, x.rows + std::int64_t{item.lag}});
  if (from > to || !any_missing(x, from - item.lag, to - item.lag)) return;
  for (std::int64_t i = from; i <= to; ++i) {
    double& mark = skip[static_cast<std::size_t>(i - 1)];
    if (mark != 0.0 || !missing_in(x, i - item.lag)) continue;
    mark = SKIP_MISSING;
    if (!OSCOM.OMSWRN) continue;
    say<"(' OBSERVATION', I6, ' IS SKIPPED BECAUSE ', A, ' MISSING')">(i, NAME(ws, item.var));
    if (stop_requested()) return;
  }
}

// MEND from the data: the rows of the shortest listed variable, 0 when none has storage.
void sample_from_data(Workspace ws, std::span<const ListItem> list) {
  std::int64_t shortest = 999999999;
  for (const ListItem& item : list) {
    Listed x;
    if (with_storage(ws, item.var, x)) shortest = std::min(shortest, x.rows);
  }
  DATCOM.MEND = shortest == 999999999 ? 0 : static_cast<int>(shortest);
  if (OSCOM.ODMMP) say<"(' LENGTH OF SHORTEST VARIABLE IS ', I8)">(DATCOM.MEND);
}

}  // namespace

void CKSMPL(Workspace ws, std::span<const ListItem> list) {
  const Trace trace("CKSMPL");
  // The variables of NLINEAR are known only when its lines have been read.
  const bool nonlinear = INPCOM.IKOD == K_NLINEAR && list.empty();
  // 1. The marks of the last command's missing data go, also those left when SKIPMISS was put off.
  if (skipping()) {
    const std::span<double> skip = skip_vector(ws);
    DATCOM.NSKIP = static_cast<int>(skip.size());
    std::ranges::replace(skip, SKIP_MISSING, 0.0);
  }
  // 2. The range, when no sample has been defined.
  if (!nonlinear && DATCOM.MEND <= 0) sample_from_data(ws, list);
  if (OSCOM.OSMISS && DATCOM.LSKIP == 0) {
    const int n = marks_wanted(DATCOM.MEND);
    if (n > 0 && !make_skip_vector(ws, n)) return;
    DATCOM.NSKIP = std::max(n, 0);
  }
  if (nonlinear) return;
  // 3. Missing data, and variables shorter than the range.
  const bool skips = OSCOM.OSMISS && DATCOM.LSKIP > 0;
  const bool warns = !OSCOM.OSMISS && OSCOM.OMSWRN && OSCOM.OWARN;
  const std::size_t tested =
      INPCOM.IKOD == K_FCAST ? list.size() - std::min<std::size_t>(list.size(), 1) : list.size();
  bool too_short = false;
  for (std::size_t k = 0; k < list.size(); ++k) {
    const ListItem& item = list[k];
    Listed x;
    if (!with_storage(ws, item.var, x)) continue;
    if (INPCOM.IKOD != K_READ && x.type <= MATRIX2) {
      // The lags of one variable stand side by side: one warning is enough.
      const bool again = k > 0 && list[k - 1].var == item.var;
      if (warns && !again) warn_missing(ws, item.var, x);
      // The last variable of FCAST is the one to be predicted.
      if (skips && k < tested) skip_missing(ws, item, x);
    }
    if (x.rows < DATCOM.MEND) {
      error_line<"(' ...ERROR..SAMPLE RANGE EXCEEDS LENGTH OF ', A, 2I10)">(NAME(ws, item.var),
                                                                            x.rows, DATCOM.MEND);
      too_short = true;
    } else if (x.rows > DATCOM.MEND && OSCOM.ODMMP) {
      say<"(' ...NOTE..LENGTH OF ', A, 'EXCEEDS SAMPLE RANGE')">(NAME(ws, item.var));
    }
  }
  if (too_short) mark_failed();
}

void SKIPIT(Workspace ws, int sections, int section_length, int lags) {
  const std::span<double> skip = skip_vector(ws);
  const auto length = std::min<std::int64_t>(DATCOM.NSKIP, static_cast<std::int64_t>(skip.size()));
  DATCOM.NSKIP = 0;
  DATCOM.JBEG = 0;
  if (length < DATCOM.MBEG || DATCOM.MBEG < 1) return;
  const std::int64_t end = std::min<std::int64_t>(DATCOM.MEND, length);
  if (end < DATCOM.MBEG) return;
  const auto range = skip.subspan(static_cast<std::size_t>(DATCOM.MBEG - 1),
                                  static_cast<std::size_t>(end - DATCOM.MBEG + 1));
  const auto positive = [](double v) { return v > 0.0; };
  const auto marked = static_cast<int>(std::ranges::count_if(range, positive));
  if (marked > 0) {
    const auto first = std::ranges::find_if(range, positive) - range.begin();
    DATCOM.JBEG = DATCOM.MBEG + static_cast<int>(first) - 1;
  }
  DATCOM.NSKIP = marked;
  if (sections <= 1 || lags <= 0) return;
  // Pooled data: the first observations of each cross-section have lags in the previous one.
  int length_of_one = section_length > 0 ? section_length : (DATCOM.NOB - marked) / sections;
  length_of_one = std::max(length_of_one, 1);
  int position = 0;
  for (const double v : range) {
    if (v > 0.0) continue;
    position = position == length_of_one ? 1 : position + 1;
    if (position <= lags) ++DATCOM.NSKIP;
  }
}

void SKIPKT(Workspace ws, std::span<double> gaps) {
  const int mode = DATCOM.NSKIP;
  if (mode < 0) std::ranges::fill(gaps, 0.0);
  DATCOM.NSKIP = 0;
  if (mode == -2) return;
  const std::span<double> skip = skip_vector(ws);
  const std::int64_t end =
      std::min<std::int64_t>(DATCOM.MEND, static_cast<std::int64_t>(skip.size()));
  std::size_t kept = 0;  // observations kept so far; what is skipped before the first has no gap
  double run = 0;
  for (std::int64_t i = std::max(DATCOM.MBEG, 1); i <= end; ++i) {
    if (skip[static_cast<std::size_t>(i - 1)] > 0.0) {
      ++DATCOM.NSKIP;
      run += 1.0;
      if (mode == -1 && kept > 0 && kept <= gaps.size()) gaps[kept - 1] = run;
    } else {
      run = 0;
      ++kept;
    }
  }
}

}  // namespace korvel
