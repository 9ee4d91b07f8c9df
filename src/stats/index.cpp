// INDEXC: the commands INDEX and SMOOTH. Options, list and sample; then the work of either.
//   reads SCNCOM list, OPTCOM, the sample and calendar; sets MBEG, MEND, NOB, $ERR and the failure
//   flags.
#include "stats/index.h"

#include <algorithm>

#include "data/data.h"
#include "engine/commands.h"
#include "stats/stats.h"
#include "stats/stats_results.h"

namespace korvel {
namespace {

constexpr int T_ERR = temporary_place("ERR");
constexpr double ERR_INDEX = 54010;

bool take_series(Workspace ws, IndexJob& job) {
  for (const ListItem& item : SCNCOM.list()) {
    const Place place = INFO(ws, item.var);
    if (OCOM.ODONT) return false;
    const std::span<double> data = elements(ws, item.var);
    if (data.empty() || place.ITYPE < SERIES || place.ITYPE > MATRIX2) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(NAME(ws, item.var));
      return false;
    }
    if (item.lag != 0 || item.order != 0 || item.group) {
      fail<"(' ...ERROR..LAGS AND GROUPS ARE NOT ALLOWED IN ', A)">(
          INPCOM.IKOD == K_SMOOTH ? "SMOOTH" : "INDEX");
      return false;
    }
    const auto rows = static_cast<std::size_t>(place.rows());
    for (std::size_t at = 0; at + rows <= data.size(); at += rows) {
      job.series.push_back({NAME(ws, item.var), &data[at]});
    }
  }
  return true;
}

bool take_sample(Workspace ws, IndexJob& job) {
  DATCOM.MBEG = std::max(IndexOption::integer<"BEG">(), 1);
  DATCOM.MEND = IndexOption::integer<"END">();
  CKSMPL(ws, SCNCOM.list());
  if (OCOM.ODONT) return false;
  if (DATCOM.MEND < DATCOM.MBEG) {
    fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(DATCOM.MBEG, DATCOM.MEND);
    return false;
  }
  DATCOM.NSKIP = 0;
  if (skipping()) {
    job.skip = skip_vector(ws);
    DATCOM.NSKIP = static_cast<int>(job.skip.size());
    SKIPIT(ws);
  }
  DATCOM.NOB = DATCOM.MEND - DATCOM.MBEG + 1 - DATCOM.NSKIP;
  job.N = DATCOM.NOB;
  if (job.N >= 1) return true;
  fail(" ...ERROR..NO OBSERVATIONS FOUND");
  return false;
}

// Periods of the moving average: NMA, for SMOOTH also the seasons. 0: none are wanted.
int moving_periods() {
  if (IndexOption::given<"NMA">()) return IndexOption::integer<"NMA">();
  if (INPCOM.IKOD != K_SMOOTH || IndexOption::chosen<"HPFILTER">()) return 0;
  if (IndexOption::given<"NSPAN">()) return IndexOption::integer<"NSPAN">();
  return DATCOM.ITIME2 != 0 && DATCOM.ITIME3 > 1 ? DATCOM.ITIME3 : 0;
}

// A result that this use of the command does not make is told, or it would be missed much later.
template <FixedText WORD>
void tell_unmade() {
  if (!IndexOption::named<WORD>().text.empty()) {
    warn<"(' ...WARNING..THE ', A, ' OPTION HAS NO EFFECT')">(WORD.view());
  }
}

template <FixedText... WORDS>
void tell_unmade_unless(bool made) {
  if (!made) (tell_unmade<WORDS>(), ...);
}

}  // namespace

void index_failed() { temporary(T_ERR) = ERR_INDEX; }

void INDEXC(Workspace ws) {
  const Trace trace("INDEXC");
  // 1. Options.
  OPTION_START(INDEXOPT.view());
  IndexOption::set<"MAX">(OSCOM.OMXX);
  IndexOption::set<"DUMP">(OSCOM.ODMMP);
  OPTION_SCAN(ws, INDEXOPT.view());
  if (OCOM.ODONT || OSCOM.OSCAN || name_lacking(INDEXOPT.view())) return;
  const bool smooths =
      INPCOM.IKOD == K_SMOOTH || IndexOption::given<"NMA">() || IndexOption::chosen<"HPFILTER">();
  if (SCNCOM.NF == 0) {
    return say(smooths ? " COMMAND STRUCTURE: SMOOTH vars / options"
                       : " COMMAND STRUCTURE: INDEX p1 q1 p2 q2 ... / options");
  }
  // 2. The list, which indexes take in pairs.
  IndexJob job;
  job.print = OCOM.OPUT;
  if (!take_series(ws, job)) return index_failed();
  if (!smooths) {
    if (job.series.size() % 2 != 0) {
      return index_fail<"(' ...ERROR..AN ODD NUMBER OF VARIABLES IS GIVEN...')">();
    }
    if (job.series.size() == 2) {
      return index_fail<"(' ...ERROR..YOU CANNOT CREATE AN INDEX FROM ONLY 1 GOOD')">();
    }
  }
  const bool filters = smooths && IndexOption::chosen<"HPFILTER">();
  const bool averages = smooths && (!filters || IndexOption::given<"NMA">());
  tell_unmade_unless<"DIVISIA", "PAASCHE", "LASPEYRE", "FISHER", "QDIVISIA", "QPAASCHE", "QLASPEYR",
                     "QFISHER">(!smooths);
  tell_unmade_unless<"MAVE", "SAMAVE", "SFAC", "EMAVE">(averages);
  tell_unmade_unless<"TREND">(filters);
  // 3. The sample, and the work.
  if (!take_sample(ws, job)) return index_failed();
  if (smooths)
    SMOOTHN(ws, job, moving_periods());
  else
    INDEXN(ws, job);
}

}  // namespace korvel
