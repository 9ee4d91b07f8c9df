// MATRIX: inverse, determinant, eigenvalues, factors, rank and generalised inverse.

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>

#include "engine/output.h"
#include "expr/kernels/dense_cholesky.h"
#include "expr/kernels/gemm.h"
#include "expr/kernels/general_eigen.h"
#include "expr/kernels/lu.h"
#include "expr/kernels/svd.h"
#include "expr/kernels/symmetric_eigen.h"
#include "expr/matrix.h"

namespace korvel {
namespace {

constexpr Operand NONE{};
constexpr double EPS = 0x1p-52;
// Largest order: twice its square fits the data area, so products of orders stay far from 2^63.
constexpr std::int64_t MOST_ORDER = 46340;

bool singular() {
  fail(" ...ERROR..SINGULAR MATRIX");
  return false;
}
bool no_number() {
  fail(" ...ERROR..MATRIX HOLDS A VALUE THAT IS NO NUMBER");
  return false;
}

// Under SKIPMISS a missing code among the elements makes the whole result missing. True when `made`
// has been filled for that reason.
bool all_missing(const MatrixRun& run, bool met, const Result& made, Operand& to) {
  if (!met || !run.SKIPMISS) return false;
  std::fill_n(made.data, made.rows * made.columns, run.XMISS);
  to = made.operand();
  return true;
}

std::int64_t square_words(std::int64_t n) { return n > MOST_ORDER ? -1 : n * n; }

// Largest sum of a column's absolute values.
double column_norm(const double* a, std::int64_t n) {
  double norm = 0.0;
  for (std::int64_t j = 0; j < n; ++j) {
    double sum = 0.0;
    for (std::int64_t i = 0; i < n; ++i) sum += std::fabs(a[i + j * n]);
    norm = std::max(norm, sum);
  }
  return norm;
}

}  // namespace

bool inverse_step(MatrixRun& run, Operand x, Operand& to) {
  if (!x.square()) return invalid_shape(run, x, NONE);
  if (!expand(run, x)) return false;
  const bool met = note_missing(run, x);
  const Result made = run.result(x.rows, x.columns);
  if (!made) return false;
  if (all_missing(run, met, made, to)) return true;
  copy_elements(x, made.data);
  Scratch work(run.ws, LU_words(x.rows));
  if (!work) return false;
  const double norm = OSCOM.ODMMP ? column_norm(made.data, x.rows) : 0.0;
  ScaledProduct det;
  const int IFAULT = matrix_inverse(made.data, static_cast<int>(x.rows), det, work.words());
  if (IFAULT == STOPPED) return false;
  if (IFAULT != 0) return singular();
  if (OSCOM.ODMMP) {
    const auto [value, power] = det.decimal();
    if (power == 0) {
      say<"(' DET', G24.15)">(value);
    } else {
      say<"(' DET', G24.15, ' TIMES 10**', I0)">(value, power);
    }
    say<"(' COND NO', G15.7)">(norm * column_norm(made.data, x.rows));
  }
  to = made.operand();
  return true;
}

bool determinant_step(MatrixRun& run, Operand x, Operand& to) {
  if (!x.square()) return invalid_shape(run, x, NONE);
  if (!expand(run, x)) return false;
  const bool met = note_missing(run, x);
  const Result made = run.result(1, 1);
  if (!made) return false;
  if (all_missing(run, met, made, to)) return true;
  const std::int64_t n = x.rows;
  const std::int64_t words = square_words(n);
  Scratch work(run.ws, words < 0 ? words : words + LU_words(n));
  if (!work) return false;
  const auto copy = work.take(static_cast<std::size_t>(words));
  copy_elements(x, copy.data());
  ScaledProduct det;
  if (determinant(copy.data(), static_cast<int>(n), det, work.rest()) == STOPPED) return false;
  const auto [value, power] = det.decimal();
  if (power != 0) say<"(' DETERMINANT SHOULD BE MULTIPLIED BY 10**', I0)">(power);
  made.data[0] = value;
  to = made.operand();
  return true;
}

// ---- Eigenvalues
// ---------------------------------------------------------------------------------

namespace {

bool is_symmetric(const double* a, std::int64_t n) {
  for (std::int64_t j = 0; j < n; ++j) {
    for (std::int64_t i = j + 1; i < n; ++i) {
      if (a[i + j * n] != a[j + i * n]) return false;
    }
  }
  return true;
}

bool eigen_failure(int place) {
  fail<"(' ...ERROR..ERROR FOUND IN EIGENVALUE', I5)">(place);
  return false;
}

// The largest element of each vector becomes 1. A column with an imaginary part in the next one
// (im > 0) is divided as a complex vector; both columns get the real part.
void normalise(double* z, std::int64_t n, const double* im) {
  for (std::int64_t j = 0; j < n; ++j) {
    double* x = z + j * n;
    if (im == nullptr || im[j] == 0.0) {
      double largest = 0.0;
      for (std::int64_t i = 0; i < n; ++i) {
        if (std::fabs(x[i]) > std::fabs(largest)) largest = x[i];
      }
      for (std::int64_t i = 0; i < n && largest != 0.0; ++i) x[i] /= largest;
      continue;
    }
    double* y = x + n;
    std::complex<double> largest;
    for (std::int64_t i = 0; i < n; ++i) {
      if (std::hypot(x[i], y[i]) > std::abs(largest)) largest = {x[i], y[i]};
    }
    for (std::int64_t i = 0; i < n && largest != 0.0; ++i) {
      x[i] = y[i] = (std::complex<double>(x[i], y[i]) / largest).real();
    }
    ++j;
  }
}

// Values to re, with `vectors` the vectors to a.
bool symmetric_values(double* a, int n, bool vectors, std::span<double> re,
                      std::span<double> work) {
  if (OCOM.OPUT) say(" ...NOTE..MATRIX IS SYMMETRIC");
  const int IFAULT = symmetric_eigen(a, n, vectors, re, work);
  if (IFAULT < 0) return no_number();
  if (IFAULT == 0) return true;
  warn<"(' ...WARNING..EIGENVALUE ', I0, ' DID NOT CONVERGE.')">(IFAULT);
  return eigen_failure(IFAULT);
}

bool general_values(double* a, int n, std::span<double> re, std::span<double> im, double* z,
                    std::span<double> work) {
  const int IFAULT = general_eigen(a, n, re, im, z, work);
  if (IFAULT == -1) return no_number();
  if (IFAULT < 0) return false;
  if (IFAULT > 0) {
    warn<"(' ...WARNING..ONLY ', I0, ' EIGENVALUES HAVE BEEN FOUND')">(n - IFAULT);
    return eigen_failure(IFAULT);
  }
  const bool imaginary = std::ranges::any_of(im, [](double v) { return v != 0.0; });
  if (imaginary && OCOM.OPUT) say(" ...NOTE..IMAGINARY EIGENVALUES FOUND");
  return true;
}

}  // namespace

bool eigen_step(MatrixRun& run, Operand x, Operand& to) {
  if (!x.square()) return invalid_shape(run, x, NONE);
  if (!expand(run, x)) return false;
  const bool vectors = run.code == OP_EIGVEC;
  const bool met = note_missing(run, x);
  const std::int64_t n = x.rows;
  const int order = static_cast<int>(n);
  const auto words = static_cast<std::size_t>(n);
  const Result made = run.result(n, vectors ? n : 1);
  if (!made) return false;
  if (all_missing(run, met, made, to)) return true;
  // The matrix, and for a general one its values; what the kernel wants.
  const std::int64_t area = square_words(n);
  const std::int64_t kernel = std::max(symmetric_eigen_words(n), general_eigen_words(n));
  Scratch room(run.ws, area < 0 ? area : area + 2 * n + kernel);
  if (!room) return false;
  double* a = room.take(static_cast<std::size_t>(area)).data();
  const std::span<double> re = room.take(words);
  const std::span<double> im = room.take(words);
  copy_elements(x, a);
  bool good;
  if (is_symmetric(a, n)) {
    good = symmetric_values(a, order, vectors, re, room.rest());
    if (good && vectors) {
      std::copy_n(a, area, made.data);
      normalise(made.data, n, nullptr);
    }
  } else {
    good = general_values(a, order, re, im, vectors ? made.data : nullptr, room.rest());
    if (good && vectors) normalise(made.data, n, im.data());
  }
  if (!good) return false;
  if (OSCOM.ODMMP) {
    print_matrix(run, {.data = re.data(), .rows = n, .columns = 1}, " REAL PART OF EIGENVALUES");
    if (vectors) print_matrix(run, made.operand(), " REAL PART OF EIGENVECTORS");
  }
  if (!vectors) std::ranges::copy(re, made.data);
  to = made.operand();
  return true;
}

// ---- Factors, rank, generalised inverse
// ----------------------------------------------------------

// CHOL: L with A = L L'. FACT: the unit lower triangle of L D L' with D on its diagonal.
bool cholesky_step(MatrixRun& run, Operand x, Operand& to) {
  if (!x.square()) return invalid_shape(run, x, NONE);
  if (!expand(run, x)) return false;
  const bool met = note_missing(run, x);
  const Result made = run.result(x.rows, x.columns);
  if (!made) return false;
  if (all_missing(run, met, made, to)) return true;
  copy_elements(x, made.data);
  const std::int64_t n = x.rows;
  Scratch work(run.ws, dense_cholesky_words(n));
  if (!work) return false;
  const int IFAULT = dense_cholesky(made.data, static_cast<int>(n), work.words());
  if (IFAULT == CHOLESKY_STOPPED) return false;
  if (IFAULT != 0) return singular();
  if (run.code == OP_FACT) {
    for (std::int64_t j = 0; j < n; ++j) {
      double* column = made.data + j * n;
      const double root = column[j];
      column[j] = root * root;
      for (std::int64_t i = j + 1; i < n; ++i) column[i] /= root;
    }
  }
  to = made.operand();
  return true;
}

namespace {

// A singular value decomposition of x, or of its transpose when x is wide.
struct Decomposition {
  double* u;  // long x small
  double* v;  // small x small, or null
  std::span<double> values;
  std::int64_t tall, small;
  bool wide;
  double tolerance() const { return static_cast<double>(tall) * values[0] * EPS; }
};

std::int64_t decomposition_words(const Operand& x, bool vectors) {
  const std::int64_t small = std::min(x.rows, x.columns);
  const std::int64_t tall = std::max(x.rows, x.columns);
  return x.count() + small + (vectors ? small * small : 0) + SVD_words(tall, small);
}

// room: decomposition_words. False: reported.
bool decompose(Operand x, bool vectors, Scratch& room, Decomposition& d) {
  d.wide = x.columns > x.rows;
  if (d.wide) {
    std::swap(x.rows, x.columns);
    x.transposed = x.rows != 1 && x.columns != 1 && !x.transposed;
  }
  d.tall = x.rows;
  d.small = x.columns;
  d.u = room.take(static_cast<std::size_t>(x.count())).data();
  d.values = room.take(static_cast<std::size_t>(d.small));
  d.v = vectors ? room.take(static_cast<std::size_t>(d.small * d.small)).data() : nullptr;
  copy_elements(x, d.u);
  const int IFAULT =
      SVD(d.u, d.tall, static_cast<int>(d.small), d.tall, d.values, d.v, vectors, room.rest());
  if (IFAULT < 0) return no_number();
  if (IFAULT > 0) fail(" SINGULAR VALUES NOT FOUND IN 40 ITERATIONS");
  return IFAULT == 0;
}
static_assert(SVD_ITERATIONS == 40);

}  // namespace

bool rank_step(MatrixRun& run, Operand x, Operand& to) {
  if (!expand(run, x)) return false;
  const bool met = note_missing(run, x);
  const Result made = run.result(1, 1);
  if (!made) return false;
  if (all_missing(run, met, made, to)) return true;
  Scratch room(run.ws, decomposition_words(x, false));
  Decomposition d{};
  if (!room || !decompose(x, false, room, d)) return false;
  const double tolerance = d.tolerance();
  const auto rank = std::ranges::count_if(d.values, [&](double s) { return s > tolerance; });
  made.data[0] = static_cast<double>(rank);
  to = made.operand();
  return true;
}

// V S^-1 U' with the inverses of the singular values that count, 0 for the others.
bool generalised_inverse_step(MatrixRun& run, Operand x, Operand& to) {
  if (!expand(run, x)) return false;
  const bool met = note_missing(run, x);
  const Result made = run.result(x.columns, x.rows);
  if (!made) return false;
  if (all_missing(run, met, made, to)) return true;
  Scratch room(run.ws, decomposition_words(x, true));
  Decomposition d{};
  if (!room || !decompose(x, true, room, d)) return false;
  const double tolerance = d.tolerance();
  for (std::int64_t k = 0; k < d.small; ++k) {
    const double s = d.values[static_cast<std::size_t>(k)];
    for (std::int64_t i = 0; i < d.small; ++i) {
      double& v = d.v[i + k * d.small];
      v = s > tolerance ? v / s : 0.0;
    }
  }
  const GemmShape shape{
      .rows = made.rows, .columns = made.columns, .inner = d.small, .ld = made.rows};
  Scratch work(run.ws, DGMULT_words(shape.rows, shape.columns, shape.inner));
  if (!work) return false;
  const bool done = d.wide ? DGMULT(by_columns(d.u, d.tall), transpose_of(d.v, d.small), made.data,
                                    shape, work.words())
                           : DGMULT(by_columns(d.v, d.small), transpose_of(d.u, d.tall), made.data,
                                    shape, work.words());
  if (!done) return false;
  to = made.operand();
  return true;
}

}  // namespace korvel
