// TRANS: set-up, the loop over the observations, the end of a run.

#include "expr/trans.h"

#include <algorithm>
#include <limits>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "expr/ecdf.h"
#include "expr/operators.h"

namespace korvel {
namespace {

constexpr int HEADER = 4;
constexpr int NO_END = std::numeric_limits<int>::max();

bool has_recode(const Formula& formula) {
  return std::ranges::any_of(formula.list_of_quads(),
                             [](const Quad& q) { return q.code == OP_RECODE; });
}

// Finds the values of one list entry; `column` picks one by number for a target. False: reported.
bool find_source(Workspace ws, int entry, int column, bool recode, bool integrating,
                 Source& source) {
  source = Source{};
  source.entry = entry;
  if (entry < 0 && entry > -9000) return true;  // a $ temporary
  int number = entry < 0 ? -9000 - entry : entry;
  if (integrating && number == DATCOM.MAXVAR) return true;
  if (const Owner owner = owner_of(number); owner.column > 0) {
    column = owner.column;
    number = owner.var;
  }
  source.variable = number;
  if (number > DATCOM.NVARS) {  // the list and the table disagree: nothing can be trusted
    XXIT(1);
    return false;
  }
  const int A = ws.KADD(number);
  const Place p = INFO(ws, number);
  if (p.IADD <= 0 || p.INC < 1) {
    source.fits = false;
    return true;
  }
  source.LENGTH = p.LEN;
  source.COLUMNS = p.N2;
  double* first = &ws.DATA(A + HEADER);
  source.whole = source.base = first;
  source.rows = p.LEN;
  const bool matrix = p.ITYPE == MATRIX2 || p.ITYPE == SYMMETRIC || p.ITYPE == TRIANGLE;
  source.fits =
      p.ITYPE == SERIES || (p.ITYPE == MATRIX2 && p.N2 == 1) || ((recode || column > 0) && matrix);
  if (p.N2 > 1) source.rows = p.rows();
  if (column > 1) {
    if (column > (p.N2 > 1 ? p.N2 : p.LEN)) {
      fail<"(' ...ERROR..ROW OR COLUMN', I6, ' EXCEEDS VARIABLE SIZE')">(column);
      return false;
    }
    if (p.N2 > 1) {
      source.base = first + static_cast<std::ptrdiff_t>(column - 1) * source.rows;
    } else {  // "column" c of a series: the series from its element c on
      source.offset = column - 1;
      source.base = first + source.offset;
      source.rows = p.LEN - source.offset;
    }
  }
  return true;
}

// The lists of sources and steps lie in scratch words: no constructor runs there, so each is
// written whole.
template <class T>
constexpr std::int64_t words_for(std::int64_t n) {
  return (n * static_cast<std::int64_t>(sizeof(T)) + 7) / 8;
}
template <class T>
std::span<T> place_in(Scratch& scratch, std::int64_t n) {
  const auto words = scratch.take(static_cast<std::size_t>(words_for<T>(n)));
  return {reinterpret_cast<T*>(words.data()), static_cast<std::size_t>(n)};
}

bool is_variable(int k) { return k >= 1 && k <= GENCOM.LHS; }

// Quadruple i with its operands found. `lags` and `sums` count the state slots.
Step make_step(const Formula& formula, int i, int& lags, int& sums, double& dummy) {
  const std::span<Quad> quads = formula.list_of_quads();
  const Quad& q = quads[static_cast<std::size_t>(i)];
  Step s;
  s.code = q.code;
  s.L = q.left > 0 ? &formula.operand(q.left) : &dummy;
  if (q.code == OP_END) {
    s.R = s.result = &dummy;
    s.flag = q.result;
    return s;
  }
  s.R = &formula.operand(q.right);
  s.result = &formula.operand(q.result);
  s.left = is_variable(q.left) ? q.left : 0;
  s.right = is_variable(q.right) ? q.right : 0;
  s.two = i > 0 && quads[static_cast<std::size_t>(i) - 1].code == OP_COMMA;
  s.check_left = s.left != 0;
  s.check_right = s.right != 0;
  s.note_left = q.left > 0;
  s.note_right = true;
  switch (q.code) {
    case OP_EQUAL:  // the series of X(n) is not read at the observation
      if (q.left > 0) s.check_left = s.note_left = false;
      break;
    case OP_LAG:
      s.slot = GENCOM.ICON + ++lags;
      s.note_right = false;
      break;
    case OP_SUM:
      s.slot = GENCOM.ICON + GENCOM.NLAG + ++sums;
      s.note_right = false;
      break;
    case OP_DATA:
    case OP_SAMP:
    case OP_RECODE:
    case OP_MISS:
    case OP_MIN:
    case OP_MAX:
      s.note_right = false;
      break;
    case OP_COMMA:
      switch (quads[static_cast<std::size_t>(i) + 1].code) {
        case OP_DATA:
          s.check_left = false;
          s.note_left = s.note_right = false;
          break;
        case OP_RECODE:
          s.check_right = false;
          s.note_left = s.note_right = false;
          break;
        case OP_MIN:
        case OP_MAX:
        case OP_LAG:
        case OP_SUM:
          s.note_left = s.note_right = false;
          break;
        default:
          break;
      }
      break;
    default:
      break;
  }
  return s;
}

// Marks of SKIPMISS are for one command: they go. Then what is left to skip.
void set_up_skipping(Workspace ws, Run& run) {
  if (!skipping()) return;
  run.skip = skip_vector(ws);
  std::ranges::replace(run.skip, 9.0, 0.0);
  if (static_cast<int>(run.skip.size()) < DATCOM.MBEG) return;
  DATCOM.NSKIP = static_cast<int>(run.skip.size());
  SKIPIT(ws);
  run.skipping = DATCOM.NSKIP > 0;
}

// INTEGRATE: a bound given by name becomes the next entry of the list.
bool bound_entry(Workspace ws, const Formula& formula, const Bound& bound, int& place) {
  place = 0;
  if (bound.name.empty()) return true;
  const int number = VARNUM(ws, bound.name);
  if (number == 0) {
    fail<"(' ...ERROR..UNDEFINED VARIABLE..', A)">(bound.name);
    return false;
  }
  const auto list = formula.list.first(static_cast<std::size_t>(GENCOM.LHS));
  const auto at = std::ranges::find(list, number);
  if (number > 0 && at != list.end()) {
    place = static_cast<int>(at - list.begin()) + 1;
    return true;
  }
  if (static_cast<std::size_t>(GENCOM.LHS) >= formula.list.size()) {
    fail<"(' ...ERROR..MAXIMUM NUMBER OF VARIABLES IS ', I0, ' USE SIZE COMMAND')">(DATCOM.MAXVAR);
    return false;
  }
  formula.list[static_cast<std::size_t>(GENCOM.LHS)] = number;
  place = ++GENCOM.LHS;
  if (number < 0) formula.operand(place) = temporary(-number - 1);
  return true;
}

Outcome one_observation(Run& run, int derivative_place, int obs) {
  const Outcome loaded = load_observation(run, obs);
  if (loaded != Outcome::good) return loaded;
  switch (run.job->IKOD) {
    case K_DERIVATI:
      return derivative_observation(run, derivative_place);
    case K_INTEGRAT:
      if (obs > run.shortest) {
        for (const int bound : {run.lower, run.upper}) {
          if (bound > 0 && run.source(bound).base != nullptr && !run.source(bound).scalar() &&
              obs > run.source(bound).rows) {
            run.exhausted = bound;
            return Outcome::stopped;
          }
        }
      }
      return integrate_observation(run);
    default:
      return run_list(run);
  }
}

// A new target holds zeros wherever nothing is stored. When every observation of the range gets a
// value, only those in front of it are left.
void zero_new_target(const Run& run, bool conditional) {
  const Source& target = run.source(run.target);
  const bool all_stored = !run.skipping && !conditional && target.COLUMNS == 1;
  std::fill_n(run.ws.base() + (target.whole - run.ws.base()),
              all_stored ? DATCOM.MBEG - 1 : target.LENGTH, 0.0);
}

// The stop on an exhausted variable. True when it ended the run as it should.
bool finish_stopped(Run& run, bool at_last) {
  const Source& source = run.source(run.exhausted);
  GENCOM.LASTN = run.obs - 1 + source.offset;
  if (!at_last) {
    fail_warning<"(' ...WARNING..FINISHED AT OBS', I5, ' THE LENGTH OF ', A)">(
        GENCOM.LASTN, NAME(run.ws, source.variable));
    return false;
  }
  warn<"(' ...WARNING..FINISHED AT OBS', I5, ' THE LENGTH OF ', A)">(GENCOM.LASTN,
                                                                     NAME(run.ws, source.variable));
  if (OCOM.ONEWV && run.target > 0) {
    const int A = run.ws.KADD(GENCOM.NTRS);
    run.ws.DATA(A + 2) = GENCOM.LASTN;
  }
  return true;
}

}  // namespace

bool TRANS(Workspace ws, const Formula& formula, const TransJob& job) {
  const Trace trace("TRANS");
  Run run;
  run.ws = ws;
  run.formula = &formula;
  run.job = &job;
  run.XMISS = MACOM.XMISS;
  run.SKIPMISS = OSCOM.OSMISS;
  // 1. Bounds of INTEGRATE, the place of DERIVATIVE's variable.
  const bool integrating = job.IKOD == K_INTEGRAT;
  int derivative_place = 0;
  if (integrating) {
    if (!bound_entry(ws, formula, job.lower, run.lower)) return false;
    if (!bound_entry(ws, formula, job.upper, run.upper)) return false;
    if (OCOM.OPUT) say(" OBSERVATION  LOWERBOUND    UPPERBOUND     INTEGRAL");
  }
  if (job.IKOD == K_DERIVATI) {
    for (int k = 1; k <= GENCOM.LHS; ++k) {
      if (formula.entry(k) == job.variable) derivative_place = k;
    }
  }
  // 2. An IF is false until it has been true somewhere.
  const std::span<Quad> quads = formula.list_of_quads();
  if (quads.empty()) return true;
  const Quad& last = quads.back();
  const bool lone_if = last.code == OP_END && last.result == END_IF;
  bool conditional = false;
  for (const Quad& q : quads) {
    if (q.code == OP_END && q.result == END_IF) OCOM.ONOTIF = conditional = true;
    if (q.code == OP_END && q.result == END_ASSIGN) run.target = q.right;
  }
  // 3. What is skipped.
  set_up_skipping(ws, run);
  // 4. Sources, steps, and the state of LAG and SUM.
  Scratch scratch(ws, words_for<Source>(GENCOM.LHS) +
                          words_for<Step>(static_cast<std::int64_t>(quads.size())) + 2);
  if (!scratch) return false;
  double dummy = 0.0;
  run.sources = place_in<Source>(scratch, GENCOM.LHS);
  run.steps = place_in<Step>(scratch, static_cast<std::int64_t>(quads.size()));
  const bool recode = has_recode(formula);
  run.shortest = NO_END;
  for (int k = 1; k <= GENCOM.LHS; ++k) {
    const int column = k == run.target ? GENCOM.LHSCOL : 0;
    Source& source = run.source(k);
    if (job.coefficients != nullptr) {
      source = Source{};
      source.entry = formula.entry(k);
      formula.operand(k) = job.coefficients[k - 1];
      continue;
    }
    if (!find_source(ws, formula.entry(k), column, recode, integrating, source)) return false;
    source.assigned = k == run.target;
    if (source.base != nullptr && !source.scalar()) {
      run.shortest = std::min(run.shortest, source.rows);
    }
  }
  // A column of a variable is stored through another entry than the variable itself.
  if (run.target > 0 && run.source(run.target).base != nullptr) {
    for (Source& source : run.sources) {
      if (source.variable == run.source(run.target).variable) source.assigned = true;
    }
  }
  int lags = 0, sums = 0;
  for (int i = 0; i < static_cast<int>(quads.size()); ++i) {
    run.steps[static_cast<std::size_t>(i)] = make_step(formula, i, lags, sums, dummy);
  }
  for (int k = 1; k <= GENCOM.NLAG + GENCOM.NSUM; ++k) formula.operand(GENCOM.ICON + k) = 0.0;
  Ecdf ecdf;
  run.ecdf = &ecdf;
  // 5. The observations.
  const bool every = DATCOM.MEND == 1 || last.result == END_ENDIF || job.coefficients != nullptr;
  if (every) run.skipping = false;
  Outcome outcome = Outcome::good;
  int position = DATCOM.MBEG;
  int last_position = DATCOM.MEND;  // of the processing order: the last one that is not skipped
  if (run.skipping) {
    while (last_position > position && !run.processed(observation_at(last_position))) {
      --last_position;
    }
  }
  if (OCOM.ONEWV && run.target > 0) zero_new_target(run, conditional);
  const bool by_blocks = job.IKOD != K_DERIVATI && !integrating && job.coefficients == nullptr;
  while (position <= DATCOM.MEND && outcome == Outcome::good) {
    if (by_blocks) {
      const Stretch stretch = run_blocks(run, position);
      position = stretch.next;
      outcome = stretch.outcome;
      if (position > DATCOM.MEND || outcome != Outcome::good) break;
    }
    for (; position <= DATCOM.MEND; ++position) {
      const int obs = observation_at(position);
      GENCOM.LASTN = obs;
      if (!run.processed(obs)) continue;
      outcome = one_observation(run, derivative_place, obs);
      if (outcome != Outcome::good) break;
      if ((position & 0xfff) == 0 && stop_requested()) outcome = Outcome::failed;
    }
  }
  // 6. The end.
  if (!lone_if) OCOM.ONOTIF = false;
  switch (outcome) {
    case Outcome::stopped:
      return finish_stopped(run, run.obs == observation_at(last_position));
    case Outcome::failed:
      OCOM.ODONT = true;
      return false;
    default:
      return true;
  }
}

}  // namespace korvel
