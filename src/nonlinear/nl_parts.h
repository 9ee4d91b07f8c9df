// Pieces of NLINEAR that lie in files of their own.
//
//   nlin1.cpp       NLIN1: the run from its block to its results
//   nl_block.cpp    the lines behind the command, up to END
//   nl_compile.cpp  equations to code lists, names of coefficients, start values
//   nl_data.cpp     the sample, columns, weights, instruments
//   nl_pass.cpp     one walk over the rows: residuals and derivatives by blocks
//   nl_function.cpp FUNCNL: what is minimised, and its gradient
//   nl_stages.cpp   the minimisers, least squares steps, the stages of instruments and GMM
//   nl_gmm.cpp      weight matrices of instruments and moments
//   nl_cov.cpp      the covariance of the coefficients
//   nl_tables.cpp   what is printed; nl_store.cpp what is stored
//   nl_forecast.cpp fitted values of the last run; nl_solve.cpp SOLVE
//
// u = left side - f(b) is the residual of a row, e the one that is summed up (u itself, or u less
// its autoregressive part). Derivatives are kept as D = -de/db, so that those of a plain equation
// are the derivatives of f.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "data/results.h"
#include "engine/options.h"
#include "engine/workspace.h"
#include "expr/genr.h"
#include "expr/gradient_blocks.h"
#include "nonlinear/minimise.h"
#include "nonlinear/nonlinear.h"

namespace korvel {

// ---- nlin.cpp

// Coefficients of the last run of NLINEAR or MLE (SAME); empty: there was none.
std::span<const double> last_coefficients();

// ---- nl_block.cpp

// A value that a COEF line gives.
struct NlStart {
  std::string name;
  double value = 0.0;
};
// What an NLINEAR command and the lines behind it say.
struct NlBlock {
  int neq = 0;                         // equations asked for; 0: no block is open
  std::vector<std::string> equations;  // texts behind EQ, up-cased
  std::vector<NlStart> starts;
};
extern NlBlock NLBLOCK;

// Reads the lines up to END. False after an error, with those lines passed over.
bool read_nl_block(Workspace ws);
void skip_nl_block(Workspace ws);
// The same for a run that only looks: every line is looked over, none is run.
void check_nl_block(Workspace ws);

// ---- The model

// An equation, compiled.
struct NlEquation {
  std::vector<Quad> code;  // the function and its derivatives in one list, or the function alone
  int value = 0;           // operand of the function
  std::vector<std::int32_t> coefficient;  // from 0: those that it depends on
  std::vector<std::int32_t> derivative;   // operands of their derivatives
  std::vector<double> operands;           // table of operands, the coefficients first
  std::vector<const double*> column;      // by operand: its first loaded row; null: a scalar
  std::vector<std::int32_t> places;       // by operand up to LHS: place in NlModel::list, -1 none
  std::vector<std::int32_t> entries;      // variables of the operands behind the coefficients
  int first_entry = 0;                    // operand of the first of them
  int dependent = -1;                     // place of the left side in NlModel::list, -1 none
  const double* y = nullptr;              // its first loaded row, null: none
  GradientBlocks blocks;                  // the plan
  std::span<double> value_rows;           // of the loaded rows: the function, then u
  std::span<double> derivatives;          // columns by `derivative`
};

// What is summed up over the rows.
enum class NlForm : std::uint8_t {
  Squares,     // one equation: e'e
  System,      // several: ln|E'E/N|
  Moments,     // instruments: m'C m, m = sum of z (x) e
  LogDensity,  // minus the sum of the function
  Density,     // minus the sum of its logarithm
  Minimum,     // the sum of the function
  Maximum,     // minus the sum
};

// How moments are weighted.
enum class NlWeights : std::uint8_t {
  Projection,  // S^-1 (x) (Z'Z)^-1 with S the identity
  Sigma,       // ... with S of the residuals, or the given one
  Moments,     // inverse of their covariance
  Given,       // a matrix of the user's
};
// The running model. Vectors grow to the largest model of the run and are used again; the spans lie
// in one scratch area.
struct NlModel {
  int neq = 0;    // residual equations, M
  int NCOEF = 0;  // coefficients of the equations
  int K = 0;      // ... and autoregressive ones
  int p = 0;      // autoregressive order, 0 none
  int q = 0;      // instruments, the constant included
  NlForm form = NlForm::Squares;
  NlWeights weights = NlWeights::Projection;  // of the moments, in the last stage
  std::vector<std::string> texts;             // equations with generated variables put in
  std::vector<std::string> names;             // K
  std::vector<NlEquation> eq;                 // M
  std::vector<ListItem> list;  // data variables; then the instruments, last the weight
  int variables = 0;           // data variables among them
  std::vector<ListItem> instruments;
  std::vector<char> instrument_names;
  std::vector<const double*> loaded;       // first row of each listed column
  std::vector<const double*> Z;            // q; null: the constant
  const double* weight = nullptr;          // of the loaded rows, scaled; null: 1
  std::int64_t rows = 0;                   // loaded: the p rows before the first one come with them
  double N = 0.0;                          // observations: rows - p, or the sum of the weights
  std::span<double> b, gradient;           // K
  std::span<double> start;                 // K: where the run began
  std::span<double> cov;                   // packed K
  std::vector<double*> e;                  // M: residuals of the rows in use, or values
  std::vector<double*> D;                  // M x K by rows: their derivatives -de/db; null: zero
  std::vector<std::int32_t> observations;  // numbers of the loaded rows
  std::span<double> S, Sinverse;  // packed M: E'E/N of the last evaluation, and its inverse
  std::span<double> C;            // packed qM: weights of the moments
  std::span<double> m;            // qM: moments at the last evaluation
  std::span<double> pass;         // work space of evaluations
  std::span<double> stream;       // ... of those by blocks
  std::span<double> filtered;     // of the autoregressive form: e and D
  std::span<double> weighted;     // M columns: residuals times weights; empty without
  std::span<double> mixed;        // M columns of the rows in use
  std::span<double> work;         // of the minimisers
  double SSE = 0.0;               // at the last evaluation
  std::int64_t used() const { return rows - p; }
  bool is_function() const { return form >= NlForm::LogDensity; }
  bool residuals() const { return !is_function(); }
};
extern NlModel NLMODEL;

// ---- nl_compile.cpp

// The equations with generated variables put into those behind them, M of them. False after an
// error.
bool expand_equations(Workspace ws, NlModel& m);
// Compiles them, collects names and variables, checks their numbers. False after an error.
bool compile_equations(Workspace ws, NlModel& m);
// Compiles one text whose coefficients are `names`, which grows up to `limit` of them.
bool compile_equation(Workspace ws, std::string_view text, int limit, bool derivatives,
                      std::vector<std::string>& names, NlEquation& eq);
// Start values: 0.1, SAME, START=, IN=, COEF, each over the one before. False after an error.
bool settle_start(Workspace ws, NlModel& m);

// ---- nl_data.cpp

// The instruments that stand in the command, before its lines are read.
void keep_instruments(Workspace ws, NlModel& m);
// Sample, columns, weights; sets rows, N. False after an error.
bool settle_sample(Workspace ws, NlModel& m);
std::int64_t data_words(const NlModel& m);  // of copies and weights
bool load_data(Workspace ws, NlModel& m, std::span<double> room);
// Parameters from or to a unit (IN=, OUT=). False after an error that names the command `word`.
bool read_parameters(int unit, std::string_view word, std::span<double> b);
bool write_parameters(int unit, std::span<const double> b);

// ---- nl_pass.cpp

// Words of plans and rows, and their carving. The plans stay while the command runs.
std::int64_t pass_words(const NlModel& m);
void carve_pass(NlModel& m, std::span<double> room);
std::int64_t evaluation_words(const NlModel& m);  // of NLPASS: m.pass, behind carve_pass
// Residuals (or values of the function) and, when asked for, derivatives of all rows at b: m.e and
// m.D. With `quiet` faults are not told. Returns the number of illegal operations.
int NLPASS(NlModel& m, std::span<const double> b, bool derivatives, bool quiet);
// One equation without autoregressive part: f - y to u and df/db to J (K columns, rows apart),
// empty: not wanted. Rows are multiplied by the roots of their weights. False after a fault, which
// is not told.
bool plain_residuals(NlModel& m, std::span<const double> b, std::span<double> u,
                     std::span<double> J);
// Tells the faults of an evaluation as NLPASS does.
FaultListener fault_listener(NlModel& m);
// Faults are told once a row and kind in a command.
void clear_faults();
void report_fault(NlModel& m, int kind, std::int64_t row);
inline constexpr int DENSITY_FAULT = 0;  // beside the codes of operations

// ---- nl_function.cpp

// The objective of the model, as the minimisers see it.
class NlFunction final : public Objective {
 public:
  explicit NlFunction(NlModel& model);
  Value evaluate(std::span<const double> b, std::span<double> gradient) override;
  double scale = 1.0;  // what is printed is scale times f
  std::string_view label;
  // The log-likelihood (or the value that is printed) at f.
  double printed(double f) const { return scale * f; }
  // f times this is minus the log-likelihood, whose second derivatives give the covariance.
  double likelihood_factor() const;

 private:
  NlModel& m_;
  int first_faults_ = -1;  // densities that were not positive at the start
};

// The determinant of m.S, up to its first pivot that is not positive. m.Sinverse is work space.
double sigma_determinant(NlModel& m);
// Sum of the penalty; adds its gradient when there is one.
double penalty(std::span<const double> b, std::span<double> gradient);
// 1 + ln(2 pi).
inline constexpr double LN_2PI_1 = 2.8378770664093453;

// ---- nl_stages.cpp

// How the run ended.
struct NlOutcome {
  Minimum minimum;
  double f = 0.0;
  bool polished = false;  // least squares steps have converged
  bool factors = false;   // the factors of NLQN stand for the Hessian
  bool stopped = false;
};
// The whole minimisation, all its stages. False after an error.
bool minimise_model(Workspace ws, NlModel& m, NlFunction& f, HessianFactors factors,
                    NlOutcome& outcome);
std::int64_t stage_words(const NlModel& m);

// ---- nl_gmm.cpp

// m.S := E'E/N of the residuals as they stand.
void residual_moments(NlModel& m);
// m.Sinverse := the inverse of m.S. False after an error.
bool invert_sigma(NlModel& m);
// Sets m.C at the coefficients b. False after an error.
bool weigh_moments(Workspace ws, NlModel& m, NlWeights weights, std::span<const double> b);
// GMM=: a word of a window, or a matrix. False: there is no such thing (reported).
bool settle_gmm(Workspace ws, NlModel& m);
bool gmm_given_matrix();                           // GMM= names a matrix
bool given_sigma(Workspace ws, const NlModel& m);  // SIGMA= names a matrix that replaces S

// ---- nl_cov.cpp

// Sets m.cov; `title` is what its printout is headed by.
struct NlCovariance {
  std::string_view title;
  double sigma2 = 0.0;
  double quadratic = 0.0;  // g' H^-1 g of the final gradient
  bool good = false;
};
NlCovariance coefficient_covariance(Workspace ws, NlModel& m, NlFunction& f,
                                    const NlOutcome& outcome, HessianFactors factors);
// The score form of LM: g'C g with C the inverse of the outer products of the gradients.
bool score_statistic(Workspace ws, NlModel& m, double& statistic);

// ---- nl_tables.cpp, nl_store.cpp, nl_solve.cpp, nl_forecast.cpp

void print_headline(Workspace ws, const NlModel& m);
// D on the diagonal and L below it, as the search has left them.
void print_factors(Workspace ws, const NlModel& m, HessianFactors factors);
void print_results(Workspace ws, NlModel& m, const NlFunction& f, const NlOutcome& outcome,
                   const NlCovariance& cov);
// A lower triangle under a title; names of the rows, or none.
void print_packed(std::string_view title, std::span<const double> a, int order,
                  std::span<const std::string> names);
// $ temporaries, SAVED, the variables of the name options.
void set_results(Workspace ws, NlModel& m, const NlFunction& f, const NlOutcome& outcome,
                 const NlCovariance& cov);
void store_nl_results(Workspace ws, NlModel& m);
double standard_error_of(const NlModel& m, int i);
// Newton steps for SOLVE.
void solve_equations(Workspace ws, NlModel& m);
// Keeps what nonlinear_forecast needs.
void keep_for_forecasts(const NlModel& m);

}  // namespace korvel
