// TRANS: runs a code list over the observations of the working range MBEG..MEND.
//
//   trans.cpp            set-up, the loop over observations, the end
//   trans_scalar.cpp     one observation: the meaning of every operation
//   trans_series.cpp     operations that reach beyond the observation: LAG, SUM, DATA, SAMP, RECODE
//   trans_calculus.cpp   DERIVATIVE and INTEGRATE
//   trans_plan.cpp       whether and how a list can run by blocks of observations
//   trans_blocks.cpp     the blocks
//   trans_lanes.cpp      their loops
//
// A list without memory from one observation to the next runs operation by operation over blocks. A
// block in which anything but plain arithmetic comes up (a domain error, a missing code, ...) is
// thrown away and run one observation at a time, so both ways give the same bytes and messages.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "expr/genr.h"

namespace korvel {

enum class TransPath : std::uint8_t { automatic, scalar, blocks };

// A bound of INTEGRATE: a number, or the name of a variable.
struct Bound {
  double value = 0;
  std::string_view name;
};

struct TransJob {
  int IKOD = 0;        // the command; DERIVATIVE and INTEGRATE run in their own way
  int variable = 0;    // DERIVATIVE: number of the variable of differentiation
  Bound lower, upper;  // INTEGRATE
  const double* coefficients = nullptr;  // TEST: values of the first LHS operands
  double* test_values = nullptr;         // TEST: results, indexed by NTRS
  TransPath path = TransPath::automatic;
};

// Runs the list that GENR has left. A new target has its place; its elements are set here. False
// when the run broke off with an error (ODONT is set); a run that ends because a variable is
// exhausted at the last observation is good, and shortens a new target. Sets LASTN, ONOTIF, NTRS
// (after a true ENDIF).
bool TRANS(Workspace ws, const Formula& formula, const TransJob& job);

// Compiles and runs one statement over MBEG..MEND: what GENC does when the range is known. False
// after a failure.
bool run_formula(Workspace ws, const GenrJob& job, const TransJob& trans);

// ---- Inside TRANS
// --------------------------------------------------------------------------------

// Where the values of an operand come from.
struct Source {
  double* base = nullptr;         // element 1; null: a $ temporary or the variable of integration
  const double* whole = nullptr;  // element 1 of the variable, also when a column is picked
  std::int32_t rows = 0;          // elements from base on
  std::int32_t offset = 0;        // elements of a series in front of base
  std::int32_t entry = 0;         // of the variable list
  std::int32_t variable = 0;      // number without its column
  std::int32_t LENGTH = 0;
  std::int32_t COLUMNS = 0;
  bool checked = true;    // a wrong type is an error (reported at the first observation)
  bool fits = true;       // the type is one that a formula can use
  bool assigned = false;  // the list stores into it
  bool scalar() const { return LENGTH == 1; }
};

// A quadruple, its operands found.
struct Step {
  double* L = nullptr;  // never null: a dummy when there is no left operand
  double* R = nullptr;
  double* result = nullptr;
  std::int32_t code = 0;
  std::int32_t left = 0, right = 0;  // places in the list of variables, 0: another operand
  std::int32_t slot = 0;             // operand number of the state of LAG and SUM
  std::int32_t flag = 0;             // END: its flag
  bool check_left = false, check_right = false;  // the run stops when that variable is exhausted
  bool note_left = false, note_right = false;    // a missing code is noted under SKIPMISS
  bool two = false;                              // a comma stands before: ARG1 and ARG2 count
};

enum class Outcome : std::uint8_t { good, stopped, failed, finished };

class Ecdf;  // sorted series for empirical distribution values (ecdf.h)

// The state of one run.
struct Run {
  Workspace ws;
  const Formula* formula = nullptr;
  const TransJob* job = nullptr;
  std::span<Source> sources;
  std::span<Step> steps;
  std::span<double> skip;  // SKIP$; empty: nothing is skipped by it
  bool skipping = false;
  int target = 0;         // place of the assigned variable in the list, 0 none
  bool SKIPMISS = false;  // OSMISS at the start
  double XMISS = 0;
  int obs = 0;
  int shortest = 0;      // no variable is exhausted up to this observation
  int exhausted = 0;     // place of the exhausted variable that stops the run, 0 none
  bool missing = false;  // the observation met a missing code or a domain error
  double ARG1 = 0, ARG2 = 0;
  bool samp_done = false;  // SAMP(n) has drawn
  bool types_checked = false;
  bool storing = true;     // false: END keeps its value in `value` (DERIVATIVE, INTEGRATE)
  bool quiet_end = false;  // END prints no missing-code warning
  double value = 0;        // value of the last END
  Ecdf* ecdf = nullptr;
  int lower = 0, upper = 0;  // places of the bounds of INTEGRATE, 0: numbers

  Source& source(int place) const { return sources[static_cast<std::size_t>(place) - 1]; }
  bool processed(int observation) const {
    return !skipping || observation > static_cast<int>(skip.size()) ||
           skip[static_cast<std::size_t>(observation) - 1] <= 0.0;
  }
};

// Loads the operands for an observation and checks their types (once). Failed: reported.
Outcome load_observation(Run& run, int obs);
// Runs the whole list at the loaded observation.
Outcome run_list(Run& run);

// A domain error: the warning, the missing flag; returns the missing code.
double domain_error(Run& run, std::string_view op, double operand);

// Operations over stored series (trans_series.cpp); good, or the end of the run.
Outcome lag_step(Run& run, const Step& s, double& result);
Outcome sum_step(Run& run, const Step& s, double& result);
Outcome element_step(Run& run, int place, double index, double& result);
Outcome data_step(Run& run, const Step& s, double& result);
Outcome samp_step(Run& run, const Step& s, double& result);
Outcome recode_step(Run& run, const Step& s, double& result);
Outcome need_variable();  // reports that a function wants a variable

// DERIVATIVE and INTEGRATE at the loaded observation.
Outcome derivative_observation(Run& run, int place);
Outcome integrate_observation(Run& run);

// Stores v in the target at the observation.
Outcome store_target(Run& run, double v);

// Runs blocks from position `first` of the processing order as far as they go; returns the position
// at which the loop by observations has to go on (MEND+1 when all is done). Outcomes other than
// good are those of an observation that had to be run alone; `obs` of the run tells which.
struct Stretch {
  int next = 0;
  Outcome outcome = Outcome::good;
};
Stretch run_blocks(Run& run, int first);
// The observation at a position of the processing order.
inline int observation_at(int position) {
  return OSCOM.OBACK ? DATCOM.MEND - position + DATCOM.MBEG : position;
}
// One observation the slow way: loads, runs, advances nothing.
Outcome run_observation(Run& run, int obs);

}  // namespace korvel
