// MATRIX: runs a code list with whole matrices as operands.
//
//   matrix.cpp            MATRIX: the loop over the code list, operands, shape errors
//   matrix_elements.cpp   what is done element by element
//   matrix_shapes.cpp     products, joins, and functions that only move elements
//   matrix_functions.cpp  inverse, determinant, eigenvalues, factors, rank, generalised inverse
//   matrix_target.cpp     the end of a statement: stores or prints its result
//
// An operand is a view: variables are used where they lie, a transpose is the same words read the
// other way. Only packed matrices are expanded. Results lie in words at the top of the data area
// that are given back at the end of the statement; the last result of a statement whose target is
// new is made where the target will be. Until the whole statement has been computed, nothing that
// the user has is touched.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "engine/workspace.h"
#include "expr/genr.h"
#include "expr/operators.h"

namespace korvel {

// Compiles and runs one statement of MATRIX. False after a failure, which has been reported.
bool run_matrix(Workspace ws, const GenrJob& job);

// ---- Inside MATRIX
// -------------------------------------------------------------------------------

// A matrix by columns: element (i, j), from 0, at data[i + j*rows], of a transposed one at
// data[j + i*columns]. A packed one holds the lower triangle by rows.
struct Operand {
  const double* data = nullptr;
  std::int64_t rows = 0, columns = 0;
  int kind = MATRIX2;  // or SYMMETRIC, TRIANGLE: packed
  bool transposed = false;
  bool own = false;   // words of the statement, which the next step may overwrite
  bool pair = false;  // two arguments parted by a comma: see MatrixRun::args

  bool scalar() const { return rows == 1 && columns == 1; }
  bool square() const { return rows == columns; }
  bool packed() const { return kind != MATRIX2; }
  bool same_shape(const Operand& other) const {
    return rows == other.rows && columns == other.columns;
  }
  std::int64_t count() const { return rows * columns; }
  std::int64_t words() const { return packed() ? rows * (rows + 1) / 2 : count(); }
};

// A matrix that a step is making.
struct Result {
  double* data = nullptr;  // null: no room, which has been reported
  std::int64_t rows = 0, columns = 0;
  explicit operator bool() const { return data != nullptr; }
  Operand operand(int kind = MATRIX2) const {
    return {.data = data, .rows = rows, .columns = columns, .kind = kind, .own = true};
  }
};

// The state of one statement. Its words are given back when it ends.
struct MatrixRun {
  Workspace ws;
  const Formula& formula;
  bool SKIPMISS;  // OSMISS and XMISS at the start
  double XMISS;
  std::span<Operand> temporaries{};
  Operand args[2] = {};  // of the last comma
  int code = 0;          // of the running step
  bool missing = false;  // a missing code was met
  bool last = false;     // the running step gives the result of the statement
  int illegal = 0;       // IllegalStep bits of the running step

  MatrixRun(Workspace area, const Formula& list);
  MatrixRun(const MatrixRun&) = delete;
  MatrixRun& operator=(const MatrixRun&) = delete;
  ~MatrixRun();

  // n words at the top of the data area. Null, after NOCORE has spoken, when there is no room.
  double* take(std::int64_t n) const;
  // The words of the step's result: once a step.
  Result result(std::int64_t rows, std::int64_t columns);
  Result packed_result(std::int64_t order);
  // True when the result lies where a new target will lie; the target takes it over.
  bool lies_at_target(const double* data) const { return at_target_ == data && data != nullptr; }
  void keep_target() { at_target_ = nullptr; }
  void drop_target();

 private:
  double* result_words(std::int64_t n);
  std::int32_t old_top_, old_last_;
  double* at_target_ = nullptr;
};

enum IllegalStep : int { ILLEGAL_STEP = 1, ILLEGAL_DIVISION = 2 };

// Product of two counts; more than there is ever room for when it is too large for 64 bits.
std::int64_t product_of(std::int64_t a, std::int64_t b);

// Reports shapes that do not fit the running step. Returns false.
bool invalid_shape(const MatrixRun& run, const Operand& left, const Operand& right);
bool not_available();
// A whole number from..to in a scalar operand.
bool whole_argument(const Operand& x, double from, double to, std::int64_t& value);

// The operand by columns: packed ones are expanded; and without a transpose. False: no room.
bool expand(MatrixRun& run, Operand& x);
bool straighten(MatrixRun& run, Operand& x);
// Writes the elements by columns to `to` (rows*columns words). Not for packed ones.
void copy_elements(const Operand& x, double* to);
// Notes missing codes among the elements; true when there are any.
bool note_missing(MatrixRun& run, const Operand& x);

// The steps: `to` gets the result. False after a failure.
bool element_step(MatrixRun& run, Operand left, Operand right, Operand& to);
bool draw_step(MatrixRun& run, const Operand& x, Operand& to);
bool is_elementwise(int code);

bool multiply_step(MatrixRun& run, Operand left, Operand right, Operand& to);
bool transpose_step(MatrixRun& run, Operand x, Operand& to);
bool kronecker_step(MatrixRun& run, Operand left, Operand right, Operand& to);
bool join_step(MatrixRun& run, Operand left, Operand right, Operand& to);
bool stack_step(MatrixRun& run, const Operand& left, const Operand& right, Operand& to);
bool subscript_step(MatrixRun& run, const Operand& x, const Operand& index, Operand& to);
bool identity_step(MatrixRun& run, const Operand& x, Operand& to);
bool diagonal_step(MatrixRun& run, Operand x, Operand& to);
bool trace_step(MatrixRun& run, Operand x, Operand& to);
bool vec_step(MatrixRun& run, Operand x, Operand& to);
bool pack_step(MatrixRun& run, Operand x, Operand& to);

bool inverse_step(MatrixRun& run, Operand x, Operand& to);
bool determinant_step(MatrixRun& run, Operand x, Operand& to);
bool eigen_step(MatrixRun& run, Operand x, Operand& to);
bool cholesky_step(MatrixRun& run, Operand x, Operand& to);
bool rank_step(MatrixRun& run, Operand x, Operand& to);
bool generalised_inverse_step(MatrixRun& run, Operand x, Operand& to);

// The end of the statement.
bool end_matrix(MatrixRun& run, Operand value);
void print_matrix(MatrixRun& run, const Operand& x, std::string_view name);

}  // namespace korvel
