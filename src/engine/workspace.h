// The data area and the table of variables.
//
// All user data live in one array of doubles, DATA, counted from 1. Variable I has its header at
// word KADD(I): INC, TYPE, LENGTH, N2 (columns), then LENGTH elements, so element i of a series is
// DATA(KADD(I)+3+i). Every variable that the engine makes has INC 1. A blank name marks a deleted
// entry; addresses rise with the entry's number.
//
// A variable number is 1 to NVARS for a variable, negative for a temporary (-(place+1)), and
// I*MXCOL+J (above 2*MAXVAR) for column J of variable I. MCON stands for the constant of a model.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "engine/shared_areas.h"

namespace korvel {

enum VarType : int {
  NOTYPE = 0,
  SERIES = 1,
  MATRIX2 = 2,
  SYMMETRIC = 3,
  TRIANGLE = 4,
  STRING5 = 5,
  CHARVAR = 6,
};

// Grows whenever a name of the table of variables may have changed.
inline constinit std::uint64_t NAMES_CHANGED = 0;

// What a command handler gets first: DATA, KADD, VNAME. A plain view, passed by value.
class Workspace {
 public:
  Workspace() = default;
  Workspace(double* data, std::int32_t* kadd, char (*vname)[NAMELEN])
      : data_(data), kadd_(kadd), vname_(vname) {}

  double& DATA(std::int64_t a) const { return data_[a - 1]; }
  std::int32_t& KADD(int i) const { return kadd_[i - 1]; }
  std::string_view VNAME(int i) const { return {vname_[i - 1], NAMELEN}; }
  // The name of entry i, to be written: counts as a change of the names.
  char* name_field(int i) const {
    ++NAMES_CHANGED;
    return vname_[i - 1];
  }
  double* base() const { return data_; }

  // n words beginning at DATA(a).
  std::span<double> words(std::int64_t a, std::size_t n) const { return {data_ + (a - 1), n}; }

 private:
  double* data_ = nullptr;
  std::int32_t* kadd_ = nullptr;
  char (*vname_)[NAMELEN] = nullptr;
};

// Place of a variable or of one column. IADD is a header address: element i stands at IADD+3+i.
struct Place {
  int IADD = 0;
  int INC = 1;
  int ITYPE = 0;
  int LEN = 0;  // elements (of the column)
  int N2 = 0;   // columns; of an element of a series its length
  // A single element is one row of one column.
  int columns() const { return LEN < N2 ? 1 : N2; }
  int rows() const { return columns() > 0 ? LEN / columns() : LEN; }
};

// The old area, if any, is given up only when the new one is there.
// Makes the data area (par kilobytes) and the table (maxvar entries) and empties them.
// False with the largest par that would work in *largest when the machine cannot give so much.
bool new_workspace(std::int64_t par, int maxvar, std::int64_t* largest);
Workspace workspace();

// Number of a variable or temporary by name (blanks at the end and letter case by SET LCUC do not
// count), 0 when there is none. `$NAME` finds a temporary: -(place+1).
int VARNUM(Workspace ws, std::string_view name);

// The variable to which a number or compound index belongs, and its column; column 0: the whole.
struct Owner {
  int var = 0;
  int column = 0;
};
inline Owner owner_of(int I) {
  if (I <= 2 * DATCOM.MAXVAR) return {I, 0};
  const int column = (I - 1) % DATCOM.MXCOL + 1;
  return {(I - column) / DATCOM.MXCOL, column};
}

// Where variable or column I lies. A column beyond the variable prints the size error.
Place INFO(Workspace ws, int I);

// The elements of variable or column I; empty for deleted entries and temporaries.
std::span<double> elements(Workspace ws, int I);

// Trimmed name of variable I for tables: "CONSTANT" for MCON, the variable of a column, "$R2" ...
std::string_view NAME(Workspace ws, int I);

// Makes or remakes a variable: `name` becomes ITYPE with LEN elements and N2 columns; `column` 0 or
// the column to be filled of a matrix. Returns its number (or compound index), 0 after a failure
// that has been reported and marked. New elements hold `fill` (the missing code by default). With
// `in_place` false nothing is reused: the variable goes behind the last one.
struct NewVar {
  int ITYPE = SERIES;
  std::int64_t LEN = 0;
  int N2 = 1;
  int column = 0;
  double fill = MACOM.XMISS;
  bool in_place = true;
};
int NEWVAR(Workspace ws, std::string_view name, const NewVar& request);

// Blanks an entry; the last entry gives its words back at once. Returns the words it held.
std::int64_t free_variable(Workspace ws, int I);
// No observation is skipped any more: SKIP$ is gone, or is something else now.
void forget_skip_vector(Workspace ws);

// Reports a shortage of memory from ADDCOM.NEED (the word count wanted in all).
void NOCORE();

// Forgets the saved estimate: anything that moves or adds storage calls it.
inline void clear_estimate() { ADDCOM.KTEST = 0; }

// Work space at the top of the data area, given back at the end of the scope. Tests false, after
// NOCORE has spoken, when there is no room. Nothing is cleared. Scopes nest.
class Scratch {
 public:
  Scratch(Workspace ws, std::int64_t n);
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch();
  explicit operator bool() const { return ok_; }
  std::span<double> words() const { return words_; }
  // Takes n more words off the front of what is left of this scratch.
  std::span<double> take(std::size_t n);
  // What has not been taken.
  std::span<double> rest() const { return words_.subspan(taken_); }

 private:
  std::span<double> words_;
  std::size_t taken_ = 0;
  std::int32_t old_top_;
  bool ok_ = false;
};

// Products and sums of user counts, in 64 bits; false when the result leaves 0..2**31-1.
bool fits32(std::int64_t value);
bool checked_product(std::int64_t a, std::int64_t b, std::int64_t& result);

// COMPRESS: moves the live variables together.
void compress_variables(Workspace ws);

// Handlers of the commands that manage variables.
void DELETX(Workspace ws);  // DELETE
void RENAMX(Workspace ws);  // RENAME
void DIMEN(Workspace ws);   // DIMENSION
void SAVEX(Workspace ws);   // SAVE, RESTORE, COMPRESS
void DUMPIT(Workspace ws);  // NAMES, DUMP

}  // namespace korvel
