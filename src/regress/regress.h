// Linear regression: the OLS command, its core and the results stage that estimators share.
//
//   ols.cpp             OLS: options, model list, sample
//   olsest.cpp          OLSEST: data, fit, statistics, results
//   olsload.cpp         LOADTT, LOADX: columns in place or copied without skipped rows
//   olsweigh.cpp        WEIGHT=: weighted moments, roots of the weights
//   yhats.cpp           YHATS: residuals, robust covariance
//   olsinflu.cpp        influence of single observations
//   olsout.cpp          OLSOUT: temporaries, summary; olsout_anova.cpp its model selection and
//                       variance tables, olsout_table.cpp coefficients and their matrices
//   olsres.cpp          OLSRES: residual statistics; olsres_list.cpp the listing, olsres_normal.cpp
//                       the tests of normality
//   olsstore.cpp        variables that keep results
// The room owns OLSCOM (options and plan of one estimation) and sets FCOM. The kernels are in
// expr/kernels/gsreg.h and moments.h.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "engine/options.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"

namespace korvel {

// Options and plan of the running estimation. Set by OLS from its option table (same names), read
// by the core and by the results stage. A model list holds the regressors, the constant (MCON), the
// dependent variable at place NF and the weight behind it.
struct OlsCom {
  // Options.
  bool MAX = false, CONSTANT = true, DUMP = false, LIST = false, RSTAT = false;
  bool LOGLOG = false, LOGLIN = false, LINLOG = false, LININVER = false, LOGINVER = false;
  bool PCOV = false, PCOR = false, ANOVA = false, DN = false, DLAG = false, GF = false, LM = false;
  bool MULSIGSQ = true, HETCOV = false, NORMALIZ = true, REPLICAT = false, UT = false;
  bool INFLUENC = false, DFBETAS = false, AUXRSQR = false;
  int AUTCOV = 0;       // lags of the robust covariance
  int NPOP = 0;         // population size, 0 infinite
  double INSIG2 = 0.0;  // fixed error variance, 0 none
  // Names of variables for results; empty: not wanted.
  NameOption PREDICT, RESID, HATDIAG, TRATIO, STDERR, COEFFICE, COVARIAN;
  // Plan.
  int NF = 0;          // columns: regressors, constant, dependent variable
  int KWT = 0;         // variable number of the weight, 0 none
  int KID = 0;         // variable number of IDVAR, 0 none
  bool skips = false;  // rows of MBEG..MEND are passed over
  double DLAGV = 0.0;  // variance of the first coefficient, for Durbin's h
  bool weighted = false;
};
inline constinit OlsCom OLSCOM{};

// A command that the results stage serves: what of the stage it takes.
struct ResultProfile {
  std::string_view word{};          // name in the header
  bool likelihood = true;           // the log-likelihood follows from SSE
  bool likelihood_line = true;      // ... and is printed
  bool anova = true;                // model selection and analysis of variance
  bool f_test = true;               // the tables have F and its p-value
  bool residual_statistics = true;  // OLSRES
  std::string_view heading{};       // word over the coefficient table ("PSEUDO"), empty: none
  std::string_view residual = "RESIDUAL";  // heading of the last column of the listing
};
inline constexpr ResultProfile OLS_PROFILE{.word = "OLS"};

// A fit as the results stage takes it. K coefficients, the dependent variable is column K+1.
struct Estimate {
  const ResultProfile* profile = nullptr;
  std::span<const ListItem> list;    // K regressors (constant included), dependent variable last
  std::span<double> coef;            // K
  std::span<double> cov;             // packed K: (X'X)^-1 on entry, the covariance afterwards
  std::span<const double> means;     // K+1 column means
  std::span<const double> squares;   // K+1 sums of squares about them
  std::span<const double> observed;  // one a kept row; empty when nobody asks for residuals
  std::span<const double> residual;
  int K() const { return static_cast<int>(coef.size()); }
  const ListItem& dependent() const { return list.back(); }
};

// Kept rows of MBEG..MEND in order: while (rows.next()) uses rows.obs and rows.row.
class KeptRows {
 public:
  explicit KeptRows(Workspace ws);
  bool next();
  int obs = 0;   // observation number
  int row = -1;  // rank among the kept rows, from 0

 private:
  std::span<const double> skip_;
};

void OLS(Workspace ws);  // OLS, IMLS
void OLSEST(Workspace ws, const ResultProfile& profile);
void OLSOUT(Workspace ws, Estimate& est);
void OLSRES(Workspace ws, const Estimate& est);

// One column without its skipped rows, NOB words to `to`. The range was checked by LOADX.
std::span<const double> LOADTT(Workspace ws, const ListItem& item, std::span<double> to);
// Sets a pointer to the first row of each listed column: in place where nothing is skipped, else
// copied into `copies` (NOB words a column). The constant has a null pointer. False after an error.
bool LOADX(Workspace ws, std::span<const ListItem> list, std::span<double> copies,
           std::span<const double*> column);
// Columns of the list that LOADX has to copy.
int LOADX_copies(std::span<const ListItem> list);

}  // namespace korvel
