// INDEX and SMOOTH: one handler. index.cpp holds the options and the sample, index_numbers.cpp
// INDEXN (price and quantity indexes), smooth.cpp moving averages and the Hodrick-Prescott filter.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "data/format.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/workspace.h"

namespace korvel {

inline constexpr auto INDEXOPT = option_table(
    logical("EXPENDIT"), logical("ALTERN"), logical("DUMP"), logical("LIST"), logical("CHAINED"),
    logical("MAX"), logical("QUANTITY"), logical("ARITHMET"), logical("CENTRAL"),
    logical("ADDITIVE"), logical("HPFILTER"), integer("BEG"), integer("END"), integer("BASEYEAR"),
    integer("NSPAN"), integer("NMA"), real("WEIGHT"), real("LAMBDA", 1600), variable("DIVISIA"),
    variable("PAASCHE"), variable("LASPEYRE"), variable("FISHER"), variable("QDIVISIA"),
    variable("QPAASCHE"), variable("QLASPEYR"), variable("QFISHER"), variable("MAVE"),
    variable("SAMAVE"), variable("SFAC"), variable("EMAVE"), variable("TREND"));
static_assert(INDEXOPT.words.size() == 31);

using IndexOption = OptionValues<INDEXOPT>;

inline constexpr double NO_CELL = -99999.0;  // a cell that has no value

// A listed series.
struct IndexSeries {
  std::string_view name;
  const double* x = nullptr;  // x[obs - 1] is observation obs
};

struct IndexJob {
  std::vector<IndexSeries> series;
  std::span<const double> skip;  // observations with a mark above 0 are not used
  std::int64_t N = 0;            // observations in use
  bool print = false;
  bool skipped(int obs) const {
    const auto at = static_cast<std::size_t>(obs - 1);
    return at < skip.size() && skip[at] > 0.0;
  }
};

// fail, and the code of this command in $ERR.
void index_failed();
template <FixedText FMT, class... Args>
void index_fail(const Args&... args) {
  fail<FMT>(args...);
  index_failed();
}

void INDEXN(Workspace ws, const IndexJob& job);
void SMOOTHN(Workspace ws, const IndexJob& job, int NMA);

// Sums of w neighbours: out[i] = x[i] + ... + x[i+w-1] for i = 0 .. n-w. No sum is the difference
// of two others, so that a large value spoils only the windows that hold it. work: n words.
void window_sums(std::span<const double> x, std::int64_t w, std::span<double> out,
                 std::span<double> work);

}  // namespace korvel
