// MATRIX: products, joins, subscripts, and the functions that only move elements.

#include <algorithm>
#include <cstring>

#include "engine/output.h"
#include "expr/kernels/gemm.h"
#include "expr/kernels/packed.h"
#include "expr/matrix.h"

namespace korvel {
namespace {

constexpr double MOST_ORDER = 2147483647.0;
constexpr Operand NONE{};

Strided strided(const Operand& x) {
  return x.transposed ? transpose_of(x.data, x.columns) : by_columns(x.data, x.rows);
}

double element(const Operand& x, std::int64_t i, std::int64_t j) {
  return x.data[x.transposed ? j + i * x.columns : i + j * x.rows];
}

// Under SKIPMISS: every element of the product that has a missing code in its row of L or its
// column of R is missing.
void spread_missing(const MatrixRun& run, const Operand& left, const Operand& right, double* c) {
  const std::int64_t rows = left.rows;
  for (std::int64_t i = 0; i < rows; ++i) {
    bool gone = false;
    for (std::int64_t k = 0; k < left.columns; ++k) gone |= element(left, i, k) == run.XMISS;
    for (std::int64_t j = 0; j < right.columns && gone; ++j) c[i + j * rows] = run.XMISS;
  }
  for (std::int64_t j = 0; j < right.columns; ++j) {
    bool gone = false;
    for (std::int64_t k = 0; k < right.rows; ++k) gone |= element(right, k, j) == run.XMISS;
    if (gone) std::fill_n(c + j * rows, rows, run.XMISS);
  }
}

bool product(MatrixRun& run, const Operand& left, const Operand& right, Operand& to) {
  const bool missing_left = note_missing(run, left);
  const bool missing_right = note_missing(run, right);
  const Result made = run.result(left.rows, right.columns);
  if (!made) return false;
  const GemmShape shape{
      .rows = made.rows,
      .columns = made.columns,
      .inner = left.columns,
      .ld = made.rows,
      .symmetric = left.data == right.data && left.transposed != right.transposed};
  Scratch work(run.ws, DGMULT_words(shape.rows, shape.columns, shape.inner));
  if (!work || !DGMULT(strided(left), strided(right), made.data, shape, work.words())) return false;
  if (run.SKIPMISS && (missing_left || missing_right)) {
    spread_missing(run, left, right, made.data);
  }
  to = made.operand();
  return true;
}

// Row i of a matrix times element i of a column.
bool scale_rows(MatrixRun& run, const Operand& column, Operand right, Operand& to) {
  if (!straighten(run, right)) return false;
  const bool missing_left = note_missing(run, column);
  const bool missing_right = note_missing(run, right);
  const bool spread = run.SKIPMISS && (missing_left || missing_right);
  const Result made = run.result(right.rows, right.columns);
  if (!made) return false;
  for (std::int64_t j = 0; j < right.columns; ++j) {
    const double* x = right.data + j * right.rows;
    double* r = made.data + j * right.rows;
    for (std::int64_t i = 0; i < right.rows; ++i) {
      const bool gone = spread && (column.data[i] == run.XMISS || x[i] == run.XMISS);
      r[i] = gone ? run.XMISS : column.data[i] * x[i];
    }
  }
  to = made.operand();
  return true;
}

}  // namespace

bool multiply_step(MatrixRun& run, Operand left, Operand right, Operand& to) {
  if (left.scalar() || right.scalar()) return element_step(run, left, right, to);
  const bool conforming = left.columns == right.rows;
  if (!conforming && !(left.columns == 1 && left.rows == right.rows)) {
    return invalid_shape(run, left, right);
  }
  if (!expand(run, left) || !expand(run, right)) return false;
  return conforming ? product(run, left, right, to) : scale_rows(run, left, right, to);
}

bool transpose_step(MatrixRun& run, Operand x, Operand& to) {
  if (!expand(run, x)) return false;
  to = x;
  std::swap(to.rows, to.columns);
  // The words of a row and of a column are the same.
  to.transposed = x.rows != 1 && x.columns != 1 && !x.transposed;
  return true;
}

bool kronecker_step(MatrixRun& run, Operand left, Operand right, Operand& to) {
  if (!straighten(run, left) || !straighten(run, right)) return false;
  const bool missing_left = note_missing(run, left);
  const bool missing_right = note_missing(run, right);
  const bool spread = run.SKIPMISS && (missing_left || missing_right);
  const Result made =
      run.result(product_of(left.rows, right.rows), product_of(left.columns, right.columns));
  if (!made) return false;
  double* r = made.data;
  for (std::int64_t j = 0; j < left.columns; ++j) {
    for (std::int64_t q = 0; q < right.columns; ++q) {
      for (std::int64_t i = 0; i < left.rows; ++i) {
        const double v = left.data[i + j * left.rows];
        const double* x = right.data + q * right.rows;
        for (std::int64_t p = 0; p < right.rows; ++p) {
          const bool gone = spread && (v == run.XMISS || x[p] == run.XMISS);
          *r++ = gone ? run.XMISS : v * x[p];
        }
      }
    }
  }
  to = made.operand();
  return true;
}

bool join_step(MatrixRun& run, Operand left, Operand right, Operand& to) {
  if (left.rows != right.rows) return invalid_shape(run, left, right);
  if (!expand(run, left) || !expand(run, right)) return false;
  const Result made = run.result(left.rows, left.columns + right.columns);
  if (!made) return false;
  copy_elements(left, made.data);
  copy_elements(right, made.data + left.count());
  to = made.operand();
  return true;
}

bool stack_step(MatrixRun& run, const Operand& left, const Operand& right, Operand& to) {
  if (!left.scalar() || !right.scalar()) return invalid_shape(run, left, right);
  const Result made = run.result(2, 1);
  if (!made) return false;
  made.data[0] = left.data[0];
  made.data[1] = right.data[0];
  to = made.operand();
  return true;
}

// A(i), counted column by column, or A(i,j).
bool subscript_step(MatrixRun& run, const Operand& x, const Operand& index, Operand& to) {
  std::int64_t i = 0;
  std::int64_t j = 0;
  if (index.pair) {
    if (!whole_argument(run.args[0], 1, static_cast<double>(x.rows), i) ||
        !whole_argument(run.args[1], 1, static_cast<double>(x.columns), j)) {
      return invalid_shape(run, x, index);
    }
  } else {
    if (!whole_argument(index, 1, static_cast<double>(x.count()), i)) {
      return invalid_shape(run, x, index);
    }
    j = (i - 1) / x.rows + 1;
    i = (i - 1) % x.rows + 1;
  }
  const Result made = run.result(1, 1);
  if (!made) return false;
  if (x.packed()) {
    const bool above = x.kind == TRIANGLE && i < j;
    made.data[0] = above ? 0.0 : x.data[packed(static_cast<int>(i), static_cast<int>(j))];
  } else {
    made.data[0] = element(x, i - 1, j - 1);
  }
  to = made.operand();
  return true;
}

bool identity_step(MatrixRun& run, const Operand& x, Operand& to) {
  const Operand& size = x.pair ? run.args[0] : x;
  const Operand& filling = x.pair ? run.args[1] : NONE;
  std::int64_t n = 0;
  if (!whole_argument(size, 1, MOST_ORDER, n) || (x.pair && !filling.scalar())) {
    return invalid_shape(run, size, filling);
  }
  const double k = x.pair ? filling.data[0] : 1.0;
  const Result made = run.result(n, n);
  if (!made) return false;
  std::fill_n(made.data, n * n, 0.0);
  for (std::int64_t i = 0; i < n; ++i) made.data[i * (n + 1)] = k;
  to = made.operand();
  return true;
}

// Of a square matrix its diagonal, of a column a matrix with it on the diagonal; k rows below.
bool diagonal_step(MatrixRun& run, Operand x, Operand& to) {
  const Operand second = x.pair ? run.args[1] : NONE;
  if (x.pair) x = run.args[0];
  std::int64_t k = 0;
  const bool square = x.square();
  // A matrix can't be left by the shift; a matrix that is to be made may grow by it.
  const double most = square ? static_cast<double>(x.rows - 1) : MOST_ORDER;
  if ((second.data != nullptr && !whole_argument(second, -most, most, k)) ||
      (!square && x.columns != 1)) {
    return invalid_shape(run, x, second);
  }
  const std::int64_t below = std::max<std::int64_t>(k, 0);
  const std::int64_t right = std::max<std::int64_t>(-k, 0);
  if (square) {
    if (!expand(run, x)) return false;
    const std::int64_t n = x.rows - below - right;
    const Result made = run.result(n, 1);
    if (!made) return false;
    for (std::int64_t i = 0; i < n; ++i) made.data[i] = element(x, i + below, i + right);
    to = made.operand();
    return true;
  }
  const std::int64_t n = x.rows + below + right;
  const Result made = run.result(n, n);
  if (!made) return false;
  std::fill_n(made.data, n * n, 0.0);
  for (std::int64_t i = 0; i < x.rows; ++i) {
    made.data[(i + below) + (i + right) * n] = x.data[i];
  }
  to = made.operand();
  return true;
}

bool trace_step(MatrixRun& run, Operand x, Operand& to) {
  if (!x.square()) return invalid_shape(run, x, NONE);
  if (!expand(run, x)) return false;
  const Result made = run.result(1, 1);
  if (!made) return false;
  double sum = 0.0;
  for (std::int64_t i = 0; i < x.rows; ++i) {
    const double v = x.data[i * (x.rows + 1)];
    if (v != run.XMISS) sum += v;
  }
  made.data[0] = sum;
  to = made.operand();
  return true;
}

// The columns one under the other, or the elements in columns of m rows.
bool vec_step(MatrixRun& run, Operand x, Operand& to) {
  const Operand second = x.pair ? run.args[1] : NONE;
  if (x.pair) x = run.args[0];
  std::int64_t m = x.count();
  if (second.data != nullptr &&
      (!whole_argument(second, 1, static_cast<double>(x.count()), m) || x.count() % m != 0)) {
    return invalid_shape(run, x, second);
  }
  if (!straighten(run, x)) return false;
  to = x;  // the same words
  to.rows = m;
  to.columns = x.count() / m;
  return true;
}

// SYM and TRI: the lower triangle by rows.
bool pack_step(MatrixRun& run, Operand x, Operand& to) {
  if (!x.square()) return invalid_shape(run, x, NONE);
  const int kind = run.code == OP_SYM ? SYMMETRIC : TRIANGLE;
  if (!x.packed()) {
    const Result made = run.packed_result(x.rows);
    if (!made) return false;
    double* r = made.data;
    for (std::int64_t i = 0; i < x.rows; ++i) {
      for (std::int64_t j = 0; j <= i; ++j) *r++ = element(x, i, j);
    }
    to = made.operand(kind);
    return true;
  }
  to = x;  // the words are those of the other kind, too
  to.kind = kind;
  return true;
}

}  // namespace korvel
