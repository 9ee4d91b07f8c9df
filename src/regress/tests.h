// Restrictions and hypothesis tests on estimated coefficients: TEST, RESTRICT, CONFID.
//
// Every estimator hands its result to save_estimate; TEST, CONFID, FCAST and DIAGNOS work on what
// was saved. A restriction or hypothesis is a row of R and a right-hand value r: the gradient of
// the expression with respect to each coefficient, found symbolically, and its value at zero
// coefficients; a nonlinear one is tested by the delta method.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "engine/options.h"
#include "engine/workspace.h"

namespace korvel {

struct Estimate;

// An equation of a system: its part of the coefficients, its dependent variable.
struct SavedEquation {
  int first = 0, K = 0;  // place from 0, number
  double sigma2 = 0.0;   // variance of its errors, 0 not known: that of the estimate
  double rho = 0.0;      // autoregressive coefficient of its errors
  ListItem dependent;    // its name is a view into SavedEstimate::names
};

// The last estimate as the commands behind it see it. Valid while ADDCOM.KTEST is not 0.
struct SavedEstimate {
  int IKOD = 0;                // command that made it
  std::vector<ListItem> list;  // K regressors (the constant included), dependent variable last
  std::vector<char> names;     // their names, NAMELEN characters each, for the views in `list`
  std::vector<double> coef;    // K
  std::vector<double> cov;     // packed K, as printed (scaled by sigma squared)
  std::vector<double> means;   // K+1 column means
  double sigma2 = 0.0, SSE = 0.0, DF = 0.0, N = 0.0;
  bool DN = false;         // asymptotic: normal and chi-square in place of t and F
  bool constant = true;    // the model has a constant
  int MBEG = 1, MEND = 0;  // its working range
  // What forecasts need beyond the coefficients. save_estimate clears these; the estimator sets
  // them behind it.
  bool log_dependent = false;  // the dependent variable was a logarithm of the listed one
  std::vector<double> rho;     // autoregressive coefficients of the errors, by lag (AUTO)
  std::vector<double> theta;   // moving-average coefficients of the errors
  std::vector<double> before;  // disturbances u(0), u(-1), .. before MBEG that were estimated
  bool first_rows = true;      // AUTO kept the first rows (no DROP)
  // AUTO: rows are as far apart as their observations (MISS). With gap_obs above 0 only that one
  // lies gap_steps behind the row before it, all others are neighbours (GAP).
  bool gaps = false;
  int gap_obs = 0;
  double gap_steps = 1.0;
  std::vector<SavedEquation> equations;  // of SYSTEM, in order; empty: one equation
  int choices = 2;                       // of LOGIT: coefficients stand in choices-1 blocks
  double low = 0.0, share = 1.0;         // PROBIT, LOGIT: P = low + share F(x'b)
  double limit = 0.0;                    // TOBIT
  bool upper = false;                    // ... and it is one from above
  int index_coefs = 0;  // MLE, HETERO: coefficients of the mean's index, the first ones; 0 all
  bool second_index = false;  // MLE: as many of a second index stand behind them, then the shapes
  int family = -1;            // MLE: its MleType
  bool variance_in_mean = false;  // HETERO: the mean has a term of the variance
  bool tested = false;            // $VAL1 .. $CT22 hold a test of two hypotheses on this estimate
  bool made_columns = false;  // the regressors were made from what is listed (IMLS, DLRX, PILAGS)
  // What DIAGNOSE needs to find the rows and residuals of the fit again; set by OLS.
  bool least_squares = false;  // the fit is the listed columns times the coefficients
  bool plain = false;          // ... without restrictions, ridge or coefficients from outside
  int KWT = 0;                 // variable number of the weight, 0 none
  bool NORMALIZ = true;        // the weights were scaled to mean one
  int K() const { return static_cast<int>(coef.size()); }
};
extern SavedEstimate SAVED;

// Keeps the estimate of the results stage, after the covariance has got its scale, and sets KTEST.
// Storage grows to the largest model of the run and is reused: nothing is allocated in a loop.
void save_estimate(Workspace ws, const Estimate& est);

// q restrictions R b = r on K coefficients, R by rows.
struct Restrictions {
  int q = 0;
  std::vector<double> R;
  std::vector<double> r;
  bool faulty = false;  // an expression has no value at the coefficients
};

// Reads the RESTRICT lines that follow an estimator with the option RESTRICT, up to END; the
// estimator has asked for them. False
// after an error, which has been reported; the lines up to END have been passed over. `equations`:
// those of a system, whose coefficients are named NAME:equation.
bool read_restrictions(Workspace ws, std::span<const ListItem> regressors, Restrictions& out,
                       std::span<const SavedEquation> equations = {});

// The restrictions that distributed-lag terms stand for: X(first.last,order,endcon) lies on a
// polynomial of that order. `regressors` holds each lag of a term as an entry of its own with its
// `order` and `endcon`. Almon (1965).
bool lag_restrictions(std::span<const ListItem> regressors, Restrictions& out);

// Restricted least squares in place: b* = b - C R'(R C R')^-1 (R b - r), C* = C - C R'(R C R')^-1 R
// C with C = (X'X)^-1 packed. False when R C R' is singular (reported, $ERR = 15018).
bool restrict_estimate(Workspace ws, const Restrictions& restrictions, std::span<double> coef,
                       std::span<double> cov);

// Wald statistic of q values v with gradients G (q x K by rows) under the packed covariance C.
struct WaldTest {
  double W = 0.0;  // v'(G C G')^-1 v
  int IFAULT = 0;  // G C G' is singular or not positive
};
WaldTest wald(std::span<const double> v, std::span<const double> G, std::span<const double> C,
              int K, Workspace ws);

void TEST(Workspace ws);    // TEST; RESTRICT outside its block is refused by the command loop
void CONFID(Workspace ws);  // CONFIDEN

}  // namespace korvel
