// Linear regression: the OLS command, its core and the results stage that estimators share.
//
//   ols.cpp             OLS: options, model list, sample; olslist.cpp the list of the model
//   olsest.cpp          OLSEST: data, fit, restrictions, statistics, results
//   olsload.cpp         LOADTT, LOADX: columns in place or copied without skipped rows
//   olsbuild.cpp        rows that are made: complex data, double length, inverse lags
//   olsweigh.cpp        WEIGHT=: weighted moments, roots of the weights
//   olsfit.cpp          the method branch: Gram-Schmidt, normal equations, given coefficients
//   hhest.cpp           the Householder fit; hhlsm.cpp its exact tests for autocorrelation
//   stepwise.cpp        choice of regressors; recursive.cpp the fit one row at a time
//   olslags.cpp         restricted fits: F test on restrictions, tests on lagged coefficients
//   yhats.cpp           YHATS: robust covariance
//   olsinflu.cpp        influence of single observations
//   olsout.cpp          OLSOUT: temporaries, summary; olsout_anova.cpp its model selection and
//                       variance tables, olsout_table.cpp coefficients and their matrices
//   olspc.cpp           coefficients of the variables behind principal components
//   olsres.cpp          OLSRES: residual statistics; olsres_list.cpp the listing, olsres_normal.cpp
//                       the tests of normality, olsres_plot.cpp the files of residual plots
//   olsstore.cpp        variables that keep results
//   systems*.cpp        SYSTEM, 2SLS, INST: systems.h says what is where
// The room owns OLSCOM (options and plan of one estimation) and sets FCOM. The kernels are in
// expr/kernels/gsreg.h, lsreg.h and moments.h.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "engine/options.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"

namespace korvel {

// How the fit is made.
enum class Method : std::uint8_t {
  GS,      // Gram-Schmidt on the data
  NORMAL,  // normal equations
  HH,      // Householder
};

// Data that are made of the listed columns before the fit.
enum class Build : std::uint8_t {
  Plain,   // none: the columns themselves
  Imls,    // complex: the rows of the real parts, then those of the imaginary parts
  Dlrx,    // double length: the parenthesised columns stand below the others
  Pilags,  // weighted sums of all past values
};

// Options and plan of the running estimation. Set by OLS from its option table (same names), read
// by the core and by the results stage.
struct OlsCom {
  // Options.
  bool MAX = false, CONSTANT = true, DUMP = false, LIST = false, RSTAT = false;
  bool LOGLOG = false, LOGLIN = false, LINLOG = false, LININVER = false, LOGINVER = false;
  bool PCOV = false, PCOR = false, ANOVA = false, DN = false, DLAG = false, GF = false, LM = false;
  bool MULSIGSQ = true, HETCOV = false, NORMALIZ = true, REPLICAT = false, UT = false;
  bool INFLUENC = false, DFBETAS = false, AUXRSQR = false, RESTRICT = false, RECURSIV = false;
  bool POLAR = false, GNUPLOT = false, APPEND = false;
  bool DWPVALUE = false, PLUSH = false, MISS = false;
  Method METHOD = Method::GS;
  int AUTCOV = 0;  // lags of the robust covariance
  int ORDER = 1, GAP = 0, NMISS = 0;
  int NPOP = 0;         // population size, 0 infinite
  double INSIG2 = 0.0;  // fixed error variance, 0 none
  double INDW = 0.0, ALPHA = 0.0, RHO = 0.0;
  // Stepwise: p-values to enter and to leave; F values take their place when they are given.
  double PE = 0.05, PX = 0.05, FE = 0.0, FX = 0.0;
  bool by_FE = false, by_FX = false;
  // Names of variables for results; empty: not wanted. The texts are OLSCOM's own, since reading
  // restrictions overwrites the command.
  NameOption PREDICT, RESID, HATDIAG, TRATIO, STDERR, COEFFICE, COVARIAN;
  NameOption COMMFILE, DEVICE, OUTPUT;  // of plots
  // Variables that the fit reads, 0 none.
  int INCOEFFI = 0, PCINFORM = 0, PCOMPONE = 0, MOMENTS = 0, INCOVARI = 0;
  // Plan.
  int NF = 0;          // columns: regressors, constant, dependent variable
  int KWT = 0;         // variable number of the weight, 0 none
  int KID = 0;         // variable number of IDVAR, 0 none
  bool skips = false;  // rows of MBEG..MEND are passed over
  Build build = Build::Plain;
  bool stepwise = false;   // regressors in parentheses are chosen by their F
  bool lag_terms = false;  // some lags lie on a polynomial
  int multiplicity = 1;    // real coefficients of one coefficient: 2 for complex data
  int blocks = 1;          // rows of the fit for each observation
  int second_columns = 0;  // parenthesised columns of a double-length regression
  int NDROP = 0;           // observations before MBEG that inverse lags reach
  double DLAGV = 0.0;      // variance of the first coefficient, for Durbin's h
  bool weighted = false;
};
inline constinit OlsCom OLSCOM{};

// The model list: regressors, the constant (MCON), the dependent variable at place NF, then what
// else has to be loaded (OLSCOM.NF tells them apart): the imaginary dependent variable, the columns
// of the second half, last the weight. Kept apart from SCNCOM, which the next command overwrites.
std::span<ListItem> model_list();

// A command that the results stage serves: what of the stage it takes.
struct ResultProfile {
  std::string_view word{};          // name in the header
  bool likelihood = true;           // the log-likelihood follows from SSE
  bool likelihood_line = true;      // ... and is printed
  bool anova = true;                // model selection and analysis of variance
  bool f_test = true;               // the tables have F and its p-value
  bool adjusted = true;             // there is an adjusted R-square
  bool residual_statistics = true;  // OLSRES
  std::string_view heading{};       // word over the coefficient table ("PSEUDO"), empty: none
  std::string_view residual = "RESIDUAL";  // heading of the last column of the listing
  bool autocorrelated = false;  // AUTO: XMAXL holds the log of the rows' Jacobian, the residuals are
                                // the errors behind the AR part and don't set $RHO
  bool first_order = false;     // ... of order 1, with FCOM.RHO: Durbin's h is the modified one
  bool forecast = false;  // FCAST: the residuals are forecast errors, $DW, $RHO and their block stay
  bool summary = true;    // the lines before the tables: R-square, variance, ...
  bool own_fit = false;  // FCOM holds the log-likelihood (XMAXL) and the R-square: not those of SSE
};
inline constexpr ResultProfile OLS_PROFILE{.word = "OLS"};

// A fit as the results stage takes it. K coefficients, the dependent variable is column K+1.
struct Estimate {
  const ResultProfile* profile = nullptr;
  std::span<const ListItem> list;    // K regressors (constant included), dependent variable last;
                                     // one without a variable has only a name
  std::span<double> coef;            // K
  std::span<double> cov;             // packed K: (X'X)^-1 on entry, the covariance afterwards
  std::span<const double> means;     // K+1 column means
  std::span<const double> squares;   // K+1 sums of squares about them
  std::span<const double> observed;  // one a kept row; empty when nobody asks for residuals
  std::span<const double> residual;
  int multiplicity = 1;  // real coefficients of one that DF counts: 2 for complex data
  int blocks = 1;        // rows for each observation; the first block comes first
  int mean_terms = 0;    // coefficients of the mean, those behind are of the variance; 0: no parts
  int K() const { return static_cast<int>(coef.size()); }
  const ListItem& dependent() const { return list.back(); }
};

// Kept rows of MBEG..MEND in order: while (rows.next()) uses rows.obs and rows.row. Fits with two
// rows an observation go through the observations twice.
class KeptRows {
 public:
  explicit KeptRows(Workspace ws, int blocks = 1);
  bool next();
  int obs = 0;    // observation number
  int row = -1;   // rank among the kept rows, from 0
  int block = 0;  // which time round

 private:
  std::span<const double> skip_;
  int blocks_;
};

void OLS(Workspace ws);  // OLS, IMLS
void OLSEST(Workspace ws, const ResultProfile& profile);
void OLSOUT(Workspace ws, Estimate& est);
void OLSRES(Workspace ws, const Estimate& est);

// Counts the rows of MBEG..MEND that are in use: NOB, NSKIP and OLSCOM.skips.
void count_rows(Workspace ws);
// One column without its skipped rows, NOB words to `to`. The range was checked by LOADX.
std::span<const double> LOADTT(Workspace ws, const ListItem& item, std::span<double> to);
// Sets a pointer to the first row of each listed column: in place where nothing is skipped, else
// copied into `copies` (NOB words a column). The constant has a null pointer. False after an error.
bool LOADX(Workspace ws, std::span<const ListItem> list, std::span<double> copies,
           std::span<const double*> column);
// The same without copies: skipped rows are left in.
bool LOADX_in_place(Workspace ws, std::span<const ListItem> list, std::span<const double*> column);
// Columns of the list that LOADX has to copy.
int LOADX_copies(std::span<const ListItem> list);

}  // namespace korvel
