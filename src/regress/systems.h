// Systems of equations: SYSTEM, and single equations with instruments, 2SLS and INST.
//
//   systems.cpp           SYSCON: options, the sample, the order of the command
//   systems_model.cpp     the lines of the block: equations, exogenous variables, data columns
//   systems_moments.cpp   SYSXOG and the moments, from the rows or from the file of IN=
//   systems_fit.h         the arithmetic, all of it on moments; systems_forms.cpp its reduced form
//   systems_sys3s.cpp     SYS3S: stages, rounds, restrictions
//   systems_out.cpp       what is printed of the system as a whole
//   systems_results.cpp   tables of the equations, stored variables, the estimate for TEST
//   systems_simulate.cpp  SIMULATE
#pragma once

#include <span>
#include <string_view>

#include "engine/options.h"
#include "regress/regress.h"
#include "regress/systems_fit.h"

namespace korvel {

// Options that only these commands have, under their names; the others stand in OLSCOM.
struct SysCom {
  bool FM = false, IR = false, DROP = false, AUTO = false, FULL = false, II = false, RM = false;
  bool SIMULATE = false, ADDLAG = false, CONEXOGS = true, PSIGMA = false;
  int ITER = 0, IN = 0, OUT = 0, PITER = 15;
  double CONV = 0.001, RHO = 0.0, RHOMIN = 0.0, RHOMAX = 0.0, RHOINC = 0.1;
  bool fixed_rho = false;  // RHO= was given
  bool grid = false;       // RHOMIN= or RHOMAX= was
  NameOption SIGMA, COEFMATR;
};
inline constinit SysCom SYSCOM{};

// The system of the running command.
SystemModel& system_model();

void SYSCON(Workspace ws);  // SYSTEM, 2SLS, INSTRUME
// Behind a SYSTEM whose options are wrong, in a batch run that goes on all the same (SET CONTINUE):
// its equations are no commands of their own. At the prompt there are none.
void pass_over_system(Workspace ws);

// ---- systems_model.cpp

// Number of equations in front of the list of SYSTEM; 0 after the error.
int equation_count(Workspace ws);
// A run that only looks: the equation lines behind SYSTEM, when their number is a plain number.
void check_system(Workspace ws);
// Reads the model: of 2SLS and INST the list, of SYSTEM the list and `count` equation lines.
// Returns the largest lag, -1 after an error.
int read_system(Workspace ws, int count);
// The different columns of the model. Called once, when the list of instruments is complete.
void collect_columns(SystemModel& model);

// ---- systems_moments.cpp

// Rows of the columns as the estimator reads them; a null pointer is the constant.
struct SystemData {
  std::span<const double*> column;  // P
  std::int64_t rows = 0;            // all of them, also where DROP leaves the first one out
  std::int64_t first_row = 0;       // of SIMULATE, from 0
};
std::int64_t system_moment_words(const SystemModel& model, std::int64_t rows);
// Sums the moments, or reads them (IN=), and writes them (OUT=). False after an error.
bool form_moments(Workspace ws, const SystemModel& model, const SystemData& data, bool drop_first,
                  std::span<double> work, SystemMoments& moments);
// Sum of products of two columns over the rows that equations have, about the means or about zero;
// the mean of one.
double column_product(const SystemModel& model, const SystemMoments& moments, int a, int b,
                      bool about_means);
double column_mean(const SystemModel& model, const SystemMoments& moments, int c);
// Gives the fit its projections on the exogenous variables. False after an error.
bool SYSXOG(Workspace ws, const SystemModel& model, SystemFit& fit);

// ---- systems_sys3s.cpp

// What the rounds have left beside the fit.
struct SystemOutcome {
  std::span<double> used;    // packed M: Sigma of the last solution
  std::span<double> tested;  // packed M: residual moments that it was made of, nothing forced to 0
  double log_likelihood = 0.0;
  double log_determinant = 0.0;  // of `used`
  int restrictions = 0;
};
// Estimates the system. False after a failure, which has been reported.
// `work` keeps the spans of the outcome.
bool SYS3S(Workspace ws, const SystemModel& model, const SystemMoments& moments,
           const Restrictions& restrictions, SystemFit& fit, std::span<double> work,
           SystemOutcome& outcome);
std::int64_t SYS3S_words(const SystemModel& model);

// ---- systems_out.cpp

void print_system_title(Workspace ws, const SystemModel& model);
void print_system_options(double rows);
void print_iteration(const SystemModel& model, const SystemFit& fit, int iteration);
// A packed matrix by rows under a title; `name` gives the name of row i, from 0.
void print_system_matrix(std::string_view title, std::span<const double> a, int order,
                         std::string_view (*name)(const SystemModel&, int), bool correlation);
std::string_view equation_name(const SystemModel& model, int i);
std::string_view coefficient_name(const SystemModel& model, int k);
std::string_view instrument_name(const SystemModel& model, int l);
// Likelihood, Sigma, the tests of its diagonal, R-square.
void print_system_statistics(Workspace ws, const SystemModel& model, const SystemMoments& moments,
                             SystemFit& fit, const SystemOutcome& outcome);

// ---- systems_results.cpp

std::int64_t system_result_words(const SystemModel& model, std::int64_t rows);
// Tables, stored variables and the saved estimate.
void give_results(Workspace ws, SystemModel& model, const SystemData& data,
                  const SystemMoments& moments, SystemFit& fit, const SystemOutcome& outcome);

// ---- systems_simulate.cpp

void simulate_system(Workspace ws, const SystemModel& model, const SystemData& data,
                     std::span<const double> coef);

}  // namespace korvel
