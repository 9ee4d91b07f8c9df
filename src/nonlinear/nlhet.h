// Pieces of the HETERO command that lie in files of their own.
//
//   nlhet.cpp          NLHET: the model list, the sample, the steps of the command
//   nlhet_value.cpp    the likelihood and its gradient
//   nlhet_rows.cpp     the same row by row, with the sums over squares of derivatives
//   nlhet_start.cpp    start values
//   nlhet_cov.cpp      the covariance of the coefficients
//   nlhet_tables.cpp   header, table, listing; what is stored
//
// The model: y = x'b + g q(h) + e, e normal with variance h. Coefficients stand in this order: b
// (regressors, constant), g (ARCH-M), then those of the variance equation: the constant and the
// variance variables, a (lagged squares), f (lagged variances).
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "nonlinear/minimise.h"
#include "nonlinear/nonlinear.h"
#include "regress/regress.h"

namespace korvel {

// MODEL=, in the order of its table.
enum class HetForm : std::uint8_t {
  ARCH,    // h = a0 + z'c + sum a_i e(t-i)^2 + sum f_j h(t-j)
  DEPVAR,  // h = a^2 (x'b)^2
  VARLIN,  // h = z'a
  STDLIN,  // h = (z'a)^2
  MULT,    // h = exp(z'a)
};

// The power ARCHM= that stands for no such term, and for the logarithm.
inline constexpr double NO_ARCHM = -999.0, ARCHM_LOG = 0.0;

// The data and the orders of a model, as the kernel reads them. Rows of X and Z are padded with
// zeros to a whole number of GROUPs, so that a row of derivatives is a few vectors.
struct HetRows {
  static constexpr int GROUP = 4;
  static constexpr int padded(int n) { return (n + GROUP - 1) / GROUP * GROUP; }

  HetForm form = HetForm::ARCH;
  int K = 0;  // coefficients of the mean equation without g
  int M = 0;  // columns of Z: of ARCH the variance variables behind a0, of the other forms all
  int p = 0, q = 0;         // ARCH= and GARCH=
  double power = NO_ARCHM;  // of h in the mean equation
  std::int64_t rows = 0;
  const double* const* column = nullptr;  // K of the mean, M of the variance; null: the constant
  const double* X = nullptr;              // rows x padded(K)
  const double* Z = nullptr;              // rows x padded(M)
  const double* y = nullptr;
  const double* weight = nullptr;  // null: 1
  double presample = 0.0;          // e^2 and h before the first row

  bool arch_m() const { return power != NO_ARCHM; }
  int mean_terms() const { return K + (arch_m() ? 1 : 0); }
  int variance_terms() const {
    if (form == HetForm::ARCH) return 1 + M + p + q;
    return form == HetForm::DEPVAR ? 1 : M;
  }
  int P() const { return mean_terms() + variance_terms(); }
};

enum class HetFault : std::uint8_t { none, variance, overflow };
struct HetValue {
  double L = 0.0;  // log-likelihood
  HetFault fault = HetFault::none;
  std::int64_t row = 0;  // of the fault: a variance not above 0, a residual out of range
};

// Log-likelihood at the coefficients b and, unless the span is empty, its gradient (P). e and h
// (rows) get residuals and variances.
std::int64_t het_value_words(const HetRows& rows);
HetValue het_value(const HetRows& rows, std::span<const double> b, std::span<double> e,
                   std::span<double> h, std::span<double> gradient, std::span<double> work);

// What a pass by rows gives. Spans may be empty: not wanted.
struct HetPass {
  std::span<double> gradient{};     // P: of L
  std::span<double> information{};  // packed P: sum of w [de de'/h + dh dh'/(2 h^2)]
  std::span<double> outer{};        // packed P: sum of w g g', g the gradient of a row
};
// One pass at the coefficients b, with the derivatives of each row's residual and variance. It ends
// at the first fault.
std::int64_t het_pass_words(const HetRows& rows);
HetValue het_pass(const HetRows& rows, std::span<const double> b, const HetPass& pass,
                  std::span<double> work);

// The running model. All spans lie in one scratch area.
struct HetModel {
  HetRows rows;
  std::vector<ListItem> list;         // of the coefficients, P; the dependent variable last
  std::vector<ListItem> loaded;       // columns: mean equation, variance variables, y, weight
  std::vector<const double*> column;  // of `loaded`
  std::span<double> b, gradient;      // P
  std::span<double> e, h;             // rows: at the point of the last pass
  std::span<double> cov;              // packed P
  std::span<double> scale;            // P: units of the last steps
  std::span<double> means, squares;   // P+1: of the regressors, 0 for the others; y last
  std::span<double> work;             // of the pass
  std::span<double> room;             // of minimisers, start values and covariance
  double N = 0.0;                     // sum of the weights
  double SSE0 = 0.0;                  // of the least squares start
  double LLF = 0.0;
  int regressors = 0;  // columns of the mean equation in `loaded`
  int K() const { return rows.K; }
  int P() const { return rows.P(); }
};
extern HetModel HETMODEL;

// FUNCHE: minus the log-likelihood and its gradient, as the minimisers see it.
class HetFunction final : public Objective {
 public:
  HetFunction(Workspace ws, HetModel& model);
  Value evaluate(std::span<const double> b, std::span<double> gradient) override;
  bool quiet = false;  // no warnings: trial points of differences

 private:
  Workspace ws_;
  HetModel& m_;
  bool told_variance_ = false, told_overflow_ = false;
};
// The same in units of `scale`: coefficient i is scale_i times parameter i.
class HetScaled final : public Objective {
 public:
  HetScaled(HetFunction& function, std::span<const double> scale, std::span<double> b)
      : function_(function), scale_(scale), b_(b) {
    analytic = function.analytic;
  }
  Value evaluate(std::span<const double> x, std::span<double> gradient) override;

 private:
  HetFunction& function_;
  std::span<const double> scale_;
  std::span<double> b_;
};
// FUNCHF: the second-order terms at m.b: information matrix, outer product; either may be empty.
bool FUNCHF(HetModel& m, std::span<double> information, std::span<double> outer);

// nlhet_start.cpp: least squares, sets means, squares, SSE0 and the pre-sample variance; then the
// whole start. False after an error.
std::int64_t het_start_words(const HetModel& m);
bool het_least_squares(Workspace ws, HetModel& m);
bool het_start(Workspace ws, HetModel& m);

// nlhet_cov.cpp
enum class HetCovariance : std::uint8_t { Numeric, Outer, Information, Start, Algorithm };
std::int64_t het_cov_words(int P);
// Sets m.scale from the information matrix: a thousand standard errors.
void set_scales(HetModel& m);
// True when a further Newton step from m.b with m.gradient would add next to nothing.
bool at_maximum(HetModel& m);
// Newton steps in those units while the function does not grow.
void het_polish(HetModel& m, HetFunction& f);
// Sets m.cov and returns what it is made from. A matrix that has no inverse is told; the factors of
// the minimiser take its place, or zeros when there are none (LD empty).
HetCovariance het_covariance(HetModel& m, HetFunction& f, bool at_start, bool annealed,
                             HessianFactors factors);

// nlhet_tables.cpp
void print_het_header(const HetModel& m);
void print_het_results(Workspace ws, HetModel& m, HetCovariance kind);  // and stores them

}  // namespace korvel
