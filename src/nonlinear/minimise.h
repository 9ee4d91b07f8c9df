// Minimisers of a smooth function of a few parameters: NLFMIN, NLQN with NLLS, simulated annealing,
// and numeric first and second derivatives.
//
// All of them take the function as an Objective. They print their iterations and warnings as the
// report tells them, set $ERR, and leave the best point in the parameters. Ctrl-C (stop_requested)
// ends them between evaluations with the best point so far. Nothing is allocated behind the call
// of carve.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "engine/workspace.h"

namespace korvel {

class Progress;

// The one form of callback. f is what is minimised.
class Objective {
 public:
  struct Value {
    double f = 0.0;
    bool good = true;  // false: there is no value at this point (GOODFUN)
  };
  // Value at b (K words). `gradient` has K words, or none when only the value is wanted; an
  // objective without derivatives of its own (analytic false) is never asked for them.
  virtual Value evaluate(std::span<const double> b, std::span<double> gradient) = 0;
  bool analytic = true;
  // Parameter i and the slope by it as they are printed; another value than b[i] where the function
  // is iterated in units of its own.
  virtual double shown(std::span<const double> b, std::size_t i) const { return b[i]; }
  virtual double shown_slope(std::span<const double> g, std::size_t i) const { return g[i]; }
  Progress* progress = nullptr;  // told of each evaluation by those that run over many rows

 protected:
  ~Objective() = default;
};

// How iterations are told: printed is `scale` f under `label`. names: one a parameter, for traces.
struct MinimiserReport {
  std::string_view label = " FUNCTION VALUE= ";  // or " LOG-LIKELIHOOD FUNCTION= "
  double scale = 1.0;                            // -1 for a maximum; -N for a mean log-likelihood
  std::string_view heading{};  // printed before each value (the entropy forms), empty: none
  bool print = true;           // iterations at all; PITER and OPUT decide the rest
};

// The Hessian as unit lower triangle L and diagonal D, packed by columns, n(n+1)/2 words: D first
// of each column. Storage of the room: SAME finds the factors of the run before.
struct HessianFactors {
  std::span<double> LD;
  int n = 0;
  static constexpr std::int64_t words(int n) { return static_cast<std::int64_t>(n) * (n + 1) / 2; }
  void identity();
  bool positive() const;  // all of D above 0
  // s := -(L D L')^-1 g.
  void direction(std::span<const double> g, std::span<double> s) const;
  // L D L' := L D L' + factor v v' (v is destroyed). False when the result is not positive
  // definite; the factors are then as before. Gill and Murray (1972), Fletcher and Powell (1974).
  bool update(std::span<double> v, double factor) const;
  // The factors of a packed symmetric matrix; false when it is not positive definite.
  bool factorise(std::span<const double> packed_matrix) const;
  // inverse (packed n) := (L D L')^-1.
  void inverse(std::span<double> packed_inverse) const;
};
// The factors of the last run of NLINEAR or MLE, and their order (0: none); for n parameters.
HessianFactors kept_factors(int n, bool same);

struct Minimum {
  double f = 0.0;
  int iterations = 0, evaluations = 0;
  int updates = 0;  // of the factors since they were last the identity
  bool converged = false;
  bool stopped = false;  // by the user
  int ERR = 0;           // 52023, 52027, 52029, 52030 as set in $ERR; 0 a clean end
};

// Words of work space of NLFMIN, NLQN and ANNEAL for n parameters (the factors come on top).
std::int64_t minimiser_words(int n);

// b: the start, at the end the best point; gradient: n words, that of the best point. Options from
// NLCOM: CONV, ITER, PITER, ESTFN, STEPSIZE, METHODCODE; sets FUNVAL, DFN, NLSTAT, GOODFUN.
// quiet_limit: the caller polishes and says itself that ITER was reached.
Minimum NLFMIN(Objective& objective, std::span<double> b, std::span<double> gradient,
               HessianFactors factors, const MinimiserReport& report, std::span<double> work,
               bool quiet_limit = false);
Minimum NLQN(Objective& objective, std::span<double> b, std::span<double> gradient,
             HessianFactors factors, const MinimiserReport& report, std::span<double> work);

// Simulated annealing: Corana, Marchesi, Martini and Ridella (1987), Goffe, Ferrier and Rogers
// (1994). Reads the bounds and the SA options of NLCOM. IER as in the published algorithm.
struct Annealed {
  Minimum minimum;
  // 0 done, 1 SAITER reached, 2 start out of bounds, 3 temperature, 4 stopped, 5 refused. With 2
  // and 5 the command has been marked as failed.
  int IER = 0;
};
Annealed ANNEAL(Workspace ws, Objective& objective, std::span<double> b, std::span<double> work,
                const MinimiserReport& report);

// METHOD=: sets METHODCODE. With `byname` empty the code is `standard`. False: no such method.
bool method_code(std::string_view byname, int standard);

// Numeric gradient, central differences of absolute width NLCOM.STEPSIZE; b is put back. With
// `relative` the width is STEPSIZE max(|b|, 0.001).
bool NLNUM(Objective& objective, std::span<double> b, std::span<double> gradient,
           bool relative = false);
// Second derivatives of the objective, packed n. Step DELTA max(|b|, 0.01): central differences of
// the gradient made symmetric when it is analytic, else of four values. work: 2n words.
bool numeric_hessian(Objective& objective, std::span<double> b, std::span<double> hessian,
                     std::span<double> work);
// Up to 5 Newton steps on the gradient with the numeric Hessian, while f does not grow. Returns f.
double newton_polish(Objective& objective, std::span<double> b, std::span<double> gradient,
                     std::span<double> work);
std::int64_t newton_words(int n);

}  // namespace korvel
