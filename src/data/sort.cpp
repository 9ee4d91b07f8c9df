// SORT: the observations of the listed variables in the order of the first one.
//   reads SCNCOM list, OPTCOM, the sample words and SKIP$; sets MBEG, MEND, NOB and the failure
//   flags.

#include "data/sort.h"

#include <algorithm>
#include <vector>

#include "data/data.h"
#include "engine/options.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr auto SORTOPT = option_table(logical("LIST"), logical("DESCEND"), logical("MAX"),
                                      integer("BEG"), integer("END"));
constexpr int TO_IEND = -999;  // END=-999: to the end of the sample
constexpr int NAMES_PER_LINE = 10;

// The columns of the list, each once: a matrix has several, and a column that is listed twice must
// not be moved twice. The key is the first column of the first entry. False after the error line.
bool take_columns(Workspace ws, std::vector<double*>& columns) {
  for (const ListItem& item : SCNCOM.list()) {
    const Place place = INFO(ws, item.var);
    if (OCOM.ODONT) return false;
    const auto data = elements(ws, item.var);
    if (data.empty() || place.ITYPE > MATRIX2) {
      fail<"(' ...ERROR..', A, ' IS NOT A SERIES OR FULL MATRIX')">(item.name);
      return false;
    }
    if (item.lag != 0 || item.order != 0 || item.group) {
      fail(" ...ERROR..LAGS AND GROUPS ARE NOT ALLOWED IN SORT");
      return false;
    }
    const auto rows = static_cast<std::size_t>(place.rows());
    for (std::size_t at = 0; at + rows <= data.size(); at += rows) columns.push_back(&data[at]);
  }
  std::ranges::sort(columns);
  columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
  return true;
}

void print_names(Workspace ws, std::size_t n, bool descend) {
  say<"(' SORTING', I8, ' OBSERVATIONS BY VARIABLE ', A, A)">(
      n, NAME(ws, SCNCOM.INLIST[0].var), descend ? " IN DESCENDING ORDER" : "");
  WordRows names(NAMES_PER_LINE);
  for (const ListItem& item : SCNCOM.list()) names.add(NAME(ws, item.var));
  names.end();
}

}  // namespace

void SORTD(Workspace ws) {
  const Trace trace("SORTD");
  // 1. Options and the range.
  INPCOM.LKOD = INPCOM.IKOD;
  OPTION_START(SORTOPT.view());
  OPTCOM.LOPT[SORTOPT.place("LIST")] = OPTCOM.LOPT[SORTOPT.place("MAX")] = OSCOM.OMXX;
  OPTION_SCAN(ws, SORTOPT.view());
  if (OCOM.ODONT || OSCOM.OSCAN) return;
  const bool list = OPTCOM.LOPT[SORTOPT.place("LIST")] || OPTCOM.LOPT[SORTOPT.place("MAX")];
  const bool descend = OPTCOM.LOPT[SORTOPT.place("DESCEND")];
  const int end = OPTCOM.IOPT[SORTOPT.place("END")];
  DATCOM.MBEG = OPTCOM.IOPT[SORTOPT.place("BEG")];
  DATCOM.MEND = end == TO_IEND ? DATCOM.IEND : end;
  const bool no_range = OPTCOM.igiven[SORTOPT.place("END")] && end != TO_IEND && end < 1;
  // 2. The list, and the sample.
  if (SCNCOM.NF == 0) return fail(" ...ERROR..VARIABLES TO BE SORTED NOT SPECIFIED");
  std::vector<double*> columns;
  if (!take_columns(ws, columns)) return;
  CKSMPL(ws, SCNCOM.list());
  if (OCOM.ODONT) return;
  if (no_range || DATCOM.MBEG < 1 || DATCOM.MEND < DATCOM.MBEG) {
    return fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(DATCOM.MBEG,
                                                                              DATCOM.MEND);
  }
  SortRows rows{.first = static_cast<std::size_t>(DATCOM.MBEG - 1),
                .last = static_cast<std::size_t>(DATCOM.MEND)};
  DATCOM.NSKIP = 0;
  if (skipping()) {
    rows.skip = skip_vector(ws);
    DATCOM.NSKIP = static_cast<int>(rows.skip.size());
    SKIPIT(ws);
  }
  DATCOM.NOB = DATCOM.MEND - DATCOM.MBEG + 1 - DATCOM.NSKIP;
  if (DATCOM.NOB < 1) return fail(" ...ERROR..NO OBSERVATIONS FOUND");
  // 3. Work space: as much as the kernel can use, at least a word an observation.
  const auto n = static_cast<std::size_t>(DATCOM.NOB);
  const auto free = static_cast<std::int64_t>(ADDCOM.SCRTOP) - ADDCOM.LASADD;
  const auto most = static_cast<std::int64_t>(SORTSH_words(n));
  if (free < DATCOM.NOB) {
    ADDCOM.NEED = DATCOM.NOB * static_cast<std::int64_t>(columns.size()) + 1 + ADDCOM.LASADD +
                  (ADDCOM.MAXADD - ADDCOM.SCRTOP);
    return NOCORE();
  }
  const Scratch work(ws, std::min(free, most));
  if (!work) return;
  // 4. Sort: the rows that are skipped stay where they are.
  if (list && OCOM.OPUT) print_names(ws, n, descend);
  const std::span<const double> key = elements(ws, SCNCOM.INLIST[0].var);
  OCOM.IFAULT = SORTSH(key, columns, rows, descend, work.words());
  if (OCOM.IFAULT != 0) return NOCORE();
  if (OCOM.OPUT) {
    say<"(' ...NOTE..DATA HAS BEEN SORTED BY VARIABLE ', A)">(NAME(ws, SCNCOM.INLIST[0].var));
  }
}

}  // namespace korvel
