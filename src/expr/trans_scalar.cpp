// One observation of a code list: loading, the meaning of every operation, END.

#include <cmath>

#include "engine/output.h"
#include "engine/run.h"
#include "expr/expr.h"
#include "expr/operators.h"
#include "expr/trans.h"
#include "expr/vector_functions.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr double TRUE_VALUE = 1.0;

double truth(bool b) { return b ? TRUE_VALUE : 0.0; }

double draw_uniform() {
  seed_random();
  return FRAND(0.0);
}
double draw_normal() {
  seed_random();
  return FRANDN(0.0);
}

// A function that wants two arguments and has one: the missing code.
double no_argument(Run& run) {
  run.missing = true;
  return run.XMISS;
}

double smaller_or_larger(Run& run, const Step& s) {
  if (!s.two) return no_argument(run);
  if (run.SKIPMISS) {  // a missing argument loses
    if (run.ARG1 == run.XMISS) {
      if (run.ARG2 == run.XMISS) run.missing = true;
      return run.ARG2;
    }
    if (run.ARG2 == run.XMISS) return run.ARG1;
  }
  if (s.code == OP_MIN) return run.ARG2 < run.ARG1 ? run.ARG2 : run.ARG1;
  return run.ARG2 > run.ARG1 ? run.ARG2 : run.ARG1;
}

double power(Run& run, const Step& s) {
  PowerFault fault;
  const double r = POWER(*s.L, *s.R, fault);
  if (fault == PowerFault::none) return r;
  return domain_error(run, fault == PowerFault::zero ? "DIV" : "**", *s.L);
}

double exponential(Run&, const Step& s) {
  const double limit = MACOM.EXLIM;
  if (!(*s.R > limit)) return EXP(*s.R);
  if (OSCOM.OSPV) {
    const double rest = std::fmod(*s.R, limit);
    const double mantissa = EXP(rest);
    say<"(' EXP IS', G15.7, ' TIMES THE POWER', F8.0, ' OF EXP(', F5.0, ')')">(
        mantissa, std::trunc(*s.R / limit), limit);
    return mantissa;
  }
  *s.R = limit;  // the operand keeps the limited value
  return EXP(limit);
}

double sine(Run& run, const Step& s) {
  if (!s.two) return std::sin(*s.R);
  if (run.ARG2 != -1.0) return 0.0;
  if (std::fabs(run.ARG1) > 1.0) return domain_error(run, "SIN", run.ARG1);
  return std::asin(run.ARG1);
}

double season(const Run& run, const Step& s) {
  const int n = whole32(*s.R);
  return n >= 1 ? truth(run.obs % n == 1) : 0.0;
}

void warn_missing(const Run& run) {
  if (!OSCOM.OMSWRN || run.quiet_end) return;
  if (run.SKIPMISS) {
    warn<"(' ...WARNING..OBSERVATION', I5, ' IS ASSIGNED MISSING CODE=', F7.0)">(run.obs,
                                                                                 run.XMISS);
  } else {
    warn<
        "(' ...WARNING..OBSERVATION', I5, ' USED MISSING DATA CODE=', F7.0, "
        "' TRY SKIPMISS OPTION')">(run.obs, run.XMISS);
  }
}

void mark_skipped(Run& run) {
  const auto i = static_cast<std::size_t>(run.obs) - 1;
  if (i < run.skip.size()) {
    if (run.skip[i] == 0.0) temporary(temporary_place("N")) -= 1.0;
    run.skip[i] = 1.0;
  }
  if (OSCOM.OSKWRN) say<"(' ...NOTE..OBSERVATION', I6, ' WILL BE SKIPPED')">(run.obs);
}

// Acts on the value of a statement. `pass` is set when the next statement is to be passed over.
Outcome end_statement(Run& run, const Step& s, double v, bool& pass) {
  pass = false;
  const bool flagged = run.missing;
  run.missing = false;
  if (s.flag == END_IF) {
    if (v > 0.0)
      OCOM.ONOTIF = false;
    else
      pass = true;
    return Outcome::good;
  }
  if (flagged) {
    run.missing = true;  // for the callers that look behind a value
    warn_missing(run);
    run.missing = false;
    v = run.XMISS;
  }
  run.value = v;
  if (!run.storing) return Outcome::good;
  switch (s.flag) {
    case END_ASSIGN:
      return store_target(run, v);
    case END_SKIPIF:
      if (v > 0.0) mark_skipped(run);
      return Outcome::good;
    case END_TEST:
      run.job->test_values[GENCOM.NTRS] = v;
      return Outcome::good;
    case END_ENDIF:
      if (!(v > 0.0)) return Outcome::good;
      GENCOM.NTRS = ENDIF_TRUE;
      if (OCOM.OPUT) say<"(' ...NOTE..ENDIF IS TRUE AT OBSERVATION', I10)">(run.obs);
      return Outcome::finished;
    default:
      say<"(1X, G15.8)">(v);
      return Outcome::good;
  }
}

void print_type_error(Run& run, const Source& source) {
  fail<"(' ...ERROR..', A, ' IS NOT A DATA VECTOR')">(NAME(run.ws, source.variable));
}

// Types, once, at the first observation that is processed.
bool check_types(Run& run) {
  run.types_checked = true;
  for (const Source& source : run.sources) {
    if (!source.fits && source.checked) {
      print_type_error(run, source);
      return false;
    }
  }
  return true;
}

// Place of the last listed variable that is exhausted at the observation: its name is printed.
int last_exhausted(const Run& run) {
  for (int place = static_cast<int>(run.sources.size()); place > 0; --place) {
    const Source& source = run.source(place);
    if (source.base != nullptr && source.checked && !source.scalar() && run.obs > source.rows) {
      return place;
    }
  }
  return 0;
}

bool reads_exhausted(const Run& run, const Step& s) {
  const auto gone = [&](int place) {
    const Source& source = run.source(place);
    return source.base != nullptr && !source.scalar() && run.obs > source.rows;
  };
  return (s.check_left && gone(s.left)) || (s.check_right && gone(s.right));
}

}  // namespace

double domain_error(Run& run, std::string_view op, double operand) {
  if (OSCOM.OMSWRN || !run.missing) {
    warn<
        "(' ...WARNING..ILLEGAL ', A, ' IN OBS', I5, ',VALUE=', G10.3, "
        "' USING MISSING CODE=', F7.0)">(op, run.obs, operand, run.XMISS);
  }
  run.missing = true;
  return run.XMISS;
}

Outcome load_observation(Run& run, int obs) {
  run.obs = obs;
  GENCOM.LASTN = obs;
  run.missing = false;
  if (!run.types_checked && !check_types(run)) return Outcome::failed;
  double* operand = run.formula->operands.data();
  for (const Source& source : run.sources) {
    if (source.base != nullptr) {
      const int at = source.scalar() ? 1 : obs;
      if (at <= source.rows) *operand = source.base[at - 1];
    }
    ++operand;
  }
  return Outcome::good;
}

Outcome store_target(Run& run, double v) {
  const Source& target = run.source(run.target);
  if (target.base == nullptr) {
    temporary(-target.entry - 1) = v;
    return Outcome::good;
  }
  if (run.obs > target.rows) {
    run.exhausted = run.target;
    return Outcome::stopped;
  }
  target.base[run.obs - 1] = v;
  return Outcome::good;
}

Outcome run_list(Run& run) {
  const bool gone = run.obs > run.shortest;
  const double XMISS = run.XMISS;
  const Step* const end = run.steps.data() + run.steps.size();
  double previous = 0.0;
  for (const Step* step = run.steps.data(); step != end; ++step) {
    const Step& s = *step;
    if (gone && reads_exhausted(run, s)) {
      run.exhausted = last_exhausted(run);
      return Outcome::stopped;
    }
    if (run.SKIPMISS && ((s.note_left && *s.L == XMISS) || (s.note_right && *s.R == XMISS))) {
      run.missing = true;
    }
    double r = 0.0;
    Outcome outcome = Outcome::good;
    switch (s.code) {
      case OP_ADD:
        r = *s.L + *s.R;
        break;
      case OP_SUB:
        r = *s.L - *s.R;
        break;
      case OP_MULT:
        r = *s.L * *s.R;
        break;
      case OP_DIV:
        r = *s.R == 0.0 ? domain_error(run, "DIV", *s.R) : *s.L / *s.R;
        break;
      case OP_POWER:
        r = power(run, s);
        break;
      case OP_EQUAL:
        if (s.left == 0)
          r = *s.R;
        else
          outcome = element_step(run, s.left, *s.R, r);
        break;
      case OP_MINUS:
        r = -*s.R;
        break;
      case OP_COMMA:
        if (s.two) {
          fail(" ...ERROR..ONLY ONE COMMA IS PERMITTED");
          return Outcome::failed;
        }
        run.ARG1 = *s.L;
        run.ARG2 = *s.R;
        r = *s.L;
        break;
      case OP_EXP:
        r = exponential(run, s);
        break;
      case OP_ABS:
        r = std::fabs(*s.R);
        break;
      case OP_LOG:
        r = *s.R <= 0.0 ? domain_error(run, "LOG", *s.R) : LOG(*s.R);
        break;
      case OP_INT:
        r = whole32(*s.R);
        break;
      case OP_SQRT:
        r = *s.R < 0.0 ? domain_error(run, "SQRT", *s.R) : std::sqrt(*s.R);
        break;
      case OP_DUM:
        r = truth(*s.R > 0.0);
        break;
      case OP_LAG:
        outcome = lag_step(run, s, r);
        break;
      case OP_UNI: {
        const double u = draw_uniform();
        r = s.two ? run.ARG1 + (run.ARG2 - run.ARG1) * u : u * *s.R;
        break;
      }
      case OP_NOR: {
        const double z = draw_normal();
        r = s.two ? z * run.ARG2 + run.ARG1 : z * *s.R;
        break;
      }
      case OP_SUM:
        outcome = sum_step(run, s, r);
        break;
      case OP_SEAS:
        r = season(run, s);
        break;
      case OP_SIN:
        r = sine(run, s);
        break;
      case OP_TIME:
        r = run.obs + *s.R;
        break;
      case OP_MIN:
      case OP_MAX:
        r = smaller_or_larger(run, s);
        break;
      case OP_DATA:
        outcome = data_step(run, s, r);
        break;
      case OP_SAMP:
        outcome = samp_step(run, s, r);
        break;
      case OP_NCDF:
        r = NCDF(*s.R);
        break;
      case OP_LGAM:
        r = *s.R <= 0.0 ? domain_error(run, "LGAM", *s.R) : log_gamma(*s.R);
        break;
      case OP_MOD:
        r = s.two && run.ARG2 != 0.0 ? std::fmod(run.ARG1, run.ARG2) : no_argument(run);
        break;
      case OP_RECODE:
        outcome = recode_step(run, s, r);
        break;
      case OP_E:
        r = *s.L * std::pow(10.0, whole32(*s.R));
        break;
      case OP_EQ:
        r = truth(*s.L == *s.R);
        break;
      case OP_NE:
        r = truth(*s.L != *s.R);
        break;
      case OP_LT:
        r = truth(*s.L < *s.R);
        break;
      case OP_LE:
        r = truth(*s.L <= *s.R);
        break;
      case OP_GT:
        r = truth(*s.L > *s.R);
        break;
      case OP_GE:
        r = truth(*s.L >= *s.R);
        break;
      case OP_OR:
        r = truth(*s.L > 0.0 || *s.R > 0.0);
        break;
      case OP_AND:
        r = truth(*s.L > 0.0 && *s.R > 0.0);
        break;
      case OP_NOT:
        r = truth(*s.R <= 0.0);
        break;
      case OP_END: {
        bool pass = false;
        outcome = end_statement(run, s, previous, pass);
        if (outcome != Outcome::good) return outcome;
        if (pass) {  // an IF that is false: on behind the next END
          do ++step;
          while (step != end && step->code != OP_END);
          if (step == end) return Outcome::good;
        }
        continue;
      }
      default:  // MISS and USER give 0
        break;
    }
    if (outcome != Outcome::good) return outcome;
    *s.result = r;
    previous = r;
  }
  return Outcome::good;
}

Outcome run_observation(Run& run, int obs) {
  const Outcome loaded = load_observation(run, obs);
  if (loaded != Outcome::good) return loaded;
  return run_list(run);
}

}  // namespace korvel
