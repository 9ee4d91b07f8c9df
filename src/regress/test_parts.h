// Pieces of TEST, RESTRICT and CONFID that lie in files of their own.
#pragma once

#include <span>
#include <string_view>

#include "expr/genr.h"
#include "regress/tests.h"

namespace korvel {

// Codes that a script finds in $ERR.
inline constexpr int ERR_TEST = 15017;
inline constexpr int ERR_RESTRICTIONS = 15018;

// ---- testh.cpp

// The covariance G C G' of q linear forms, scaled to a unit diagonal and factored, and A = G C.
// All views lie in the caller's scratch: words(q, K) of them.
struct FormCovariance {
  std::span<double> A;      // q x K by rows
  std::span<double> V;      // packed q: G C G' on request, the factor after factor()
  std::span<double> scale;  // q: reciprocal roots of the diagonal
  std::span<double> basis;  // q x K: orthonormal rows, to find dependent forms
  std::span<double> size;   // K: roots of the diagonal of C
  int q = 0, K = 0;

  static std::int64_t words(int q, int K);
  FormCovariance(Scratch& scratch, int forms, int coefficients);
  // Fills A, V and size.
  void form(std::span<const double> G, std::span<const double> C) const;
  // What rounding may leave of the variance of form i (from 1): a variance below it is none, as
  // that of a hypothesis which is among the restrictions of the estimate.
  double rounding(std::span<const double> G, int i) const;
  // Scales and factors V. IFAULT: the row whose form is without variance or depends on those above.
  int factor(std::span<const double> G, std::span<const double> C) const;
  // x := (G C G')^-1 x, after factor().
  void solve(std::span<double> x) const;
  // x := L^-1 S x for the scaled factor L: x'(G C G')^-1 x is then the sum of squares.
  void half_solve(std::span<double> x, std::size_t stride) const;
};

// Tests q hypotheses with values v and gradients G (q x K by rows) on the saved estimate: sets the
// temporaries and prints the result. Two hypotheses also fill $VAL1, $VAL2, $CT11, $CT12, $CT22.
void TESTH(Workspace ws, std::span<const double> v, std::span<const double> G);
// Tells that a test has no result, and sets $ERR.
void test_not_done();

// ---- test_results.cpp: records of the file of results

// The saved estimate, of the command `word` (empty: that of the running one).
void record_estimate(std::string_view word);
// A test of the values v with packed covariance V; its temporaries are set when it was done.
void record_test(std::span<const double> v, std::span<const double> V, bool done);

// ---- test.cpp

// One compiled hypothesis or restriction on K coefficients.
struct Hypothesis {
  double value = 0.0;          // at the coefficients given
  std::span<double> gradient;  // K
  bool linear = true;          // the gradient does not depend on the coefficients
  int fault = 0;               // code of an operation that is illegal at these coefficients
};

// What names and numbers a hypothesis is compiled against.
struct CoefficientNames {
  std::span<const ListItem> list;  // regressors, one a coefficient
  std::span<const double> coef;    // values at which it is taken
  std::span<const SavedEquation> equations{};  // of a system; empty: one equation
};

// Compiles the expression behind the command word of the command in the buffer and evaluates it
// with its gradient. False after an error, which has been reported.
bool compile_hypothesis(Workspace ws, int IKOD, const CoefficientNames& names,
                        Hypothesis& hypothesis);

// Place (from 1) of the coefficient NAME, or NAME:n for n > 0, among the regressors; 0 none. In a
// system NAME:n is that of equation n, and NAME that of the first equation which has it.
int find_coefficient(Workspace ws, std::span<const ListItem> list, std::string_view name, int n,
                     std::span<const SavedEquation> equations = {});

void report_no_coefficient(Workspace ws, std::string_view name, int n);

// Reads the next line of a block: true at a TEST or RESTRICT line, false at END, at the end of the
// input and after an error (ODONT), with the lines up to END passed over.
bool next_block_line(Workspace ws);
// Passes over the lines of a block up to END; the command counts as failed.
void skip_block(Workspace ws);

// Reads a whole block: gradients to R, values to r. False after an error.
bool read_hypotheses(Workspace ws, int IKOD, const CoefficientNames& names, Restrictions& out);

}  // namespace korvel
