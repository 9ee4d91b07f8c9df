// Nonlinear least squares, likelihood, ARCH and GMM models with their minimisers.
//
//   nlin.cpp          NLIN: the option table, checks and dispatch of NLINEAR, MLE, HETERO and GME
//   minimise.h        NLFMIN, NLQN, NLLS, annealing, numeric derivatives, one form of callback
//   least_squares.h   Levenberg-Marquardt steps and variable projection for sums of squares
//   nl*.cpp           NLINEAR: block, code lists, FUNCNL, covariances, results, forecasts
//   nlmle*.cpp        NLMLE: the regression families of MLE
//   nlhet*.cpp        NLHET: ARCH, GARCH and the variance forms of HETERO
//   gme*.cpp          maximum entropy
//
// The room owns NLCOM (options and state of one run). Results go to the stage of regress/, and to
// SAVED (regress/tests.h), so that TEST, CONFID and FCAST work after every estimate.
#pragma once

#include <cstdint>
#include <span>

#include "engine/options.h"
#include "engine/workspace.h"

namespace korvel {

// Options and state of the running command. NLIN fills it from the option table; members carry the
// names of the options. The texts of name options live as long as the command.
struct NlCom {
  int IKOD = 0;  // NLINEAR, MLE, HETERO or GME
  // Logical options.
  bool MAX = false, DUMP = false, LIST = false, RSTAT = false, PCOV = false, PCOR = false;
  bool DN = true, AUTO = false, DRHO = false, ACROSS = false, NUMERIC = false, OPGSTART = false;
  bool OPGCOV = false, EVAL = false, SAME = false, LM = false, CONSTANT = true, ANOVA = false;
  bool LOGLOG = false, LOGLIN = false, LINLOG = false, LININVER = false, LOGINVER = false;
  bool REWIND = true, NORMALIZ = true, LOGDENS = false, DENSITY = false, NUMCOV = false;
  bool GENRVAR = false, PRESAMP = false, SOLVE = false, MINFUNC = false, MAXFUNC = false;
  bool CONEXOGS = false, S3SLS = true, PWEIGHT = true, PSIGMA = true, HYBRID = false;
  // Integer options. AUTCOV -999: the default lag rule.
  int ORDER = 0, ITER = 100, NCOEF = 0, ARCH = 0, PITER = 15, IN = 0, OUT = 0, GARCH = 0;
  int AUTCOV = -999, PENTYPE = 0;
  int SANEPS = 4, SANS = 20, SANT = 100, SAITER = 1000000;
  bool arch_given = false, garch_given = false, order_given = false, numcov_given = false;
  // Real options. CONV is CONVERGE=. ARCHM -999: no such term.
  double CONV = 1e-5, STEPSIZE = 1e-4, ESTFN = 100.0, DELTA = 1e-4, ARCHM = -999.0, LOGEPS = 0.0;
  double PENLAMBD = 1.0, PENLOW = -9e20, PENHI = 9e20;
  double SATRF = 0.85, SAUPFAC = 10.0, SALOWFAC = -10.0, SACONV = 1e20;
  bool saupfac_given = false, salowfac_given = false;
  // Name options.
  NameOption PREDICT, RESID, COEF, COV, TRATIO, STDERR, COR, IDVAR, SIGMA, STARTING;
  NameOption ZMATRIX, GMATRIX, WEIGHT, METHOD, TYPE, STDRESID, MODEL, GMM;
  NameOption ZENTROPY, VENTROPY, GMMOUT, QPRIOR, UPRIOR, SIGMAZ, STDERR2, SALOWER, SAUPPER;
  // State of the minimisers.
  double FUNVAL = 0.0;  // function value at the last evaluation
  double DFN = 0.0;     // expected reduction of the next step
  int NLSTAT = 0;       // 0 running, 1 in the line step, 2 converged or stopped, 3 limit of ITER
  int METHODCODE = 0;   // place of METHOD= in the table of methods, -1: annealing alone
  bool GOODFUN = true;  // the last evaluation gave a value
};
inline constinit NlCom NLCOM{};

void NLIN(Workspace ws);   // NLINEAR, MLE, HETERO, GME
void NLIN1(Workspace ws);  // NLINEAR behind the option line
void NLMLE(Workspace ws);  // MLE
void NLHET(Workspace ws);  // HETERO
// Maximum entropy: the list is a dependent variable and its regressors.
void GME(Workspace ws);

// Fitted values of the last NLINEAR run for observations beg..end: left side minus residual of
// equation number `equation` from 0 (the value of the formula), from the formula kept with the
// estimate, at the coefficients `coef`. False after an error (reported), also when there was no
// such run.
bool nonlinear_forecast(Workspace ws, int equation, int beg, int end, std::span<const double> coef,
                        std::span<double> yhat);
bool nonlinear_fits_data();  // that run had residuals; a density or a function has no fitted values
int nonlinear_equation(int var);  // the one with that left side, -1 none; a lone one fits all
double nonlinear_variance(int equation);  // of its residuals, 0: that of the estimate
int nonlinear_coefficients();  // of the equations of that run, in front of those of their errors

}  // namespace korvel
