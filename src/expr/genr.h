// GENR: compiles one statement to a code list.
//
// A code list is a row of quadruples of four integers: operation, left operand, right operand,
// result. Operands are numbers into one operand table of 2*MAXVAR reals, counted from 1:
//
//     1 .. LHS                            the statement's variables, by their place in the list
//     MCON+1 .. last_temporary()          temporaries, one a quadruple, never used again
//     first_constant() .. ICON            constants, each value once
//     ICON+1 .. ICON+NLAG+NSUM            state of the LAG and SUM functions
//
// A statement ends with a quadruple (END, 0, first token, flag). It takes the result of the
// quadruple before it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "engine/workspace.h"

namespace korvel {

enum EndFlag : int {
  END_ASSIGN = 0,  // word 3: place of the target in the list; the others: minus the command
  END_SKIPIF = 1,
  END_IF = 2,
  END_TEST = 3,
  END_ENDIF = 5,
  END_PRINT = 6,  // calculator statement
};

struct Quad {
  std::int32_t code = 0, left = 0, right = 0, result = 0;
};
static_assert(sizeof(Quad) == 16);

inline constexpr int ENDIF_TRUE = -12345;  // NTRS after a true ENDIF

// Bounds of the operand table.
inline int last_temporary() {
  return static_cast<int>(std::int64_t{DATCOM.MAXVAR} * 6 / 10) + DATCOM.MAXVAR + 1;
}
inline int first_constant() { return last_temporary() + 1; }
inline int operand_limit() { return 2 * DATCOM.MAXVAR; }
// The slot behind the table, in which every formula has the constant 1: the derivative of the
// variable of differentiation.
inline int operand_one() { return operand_limit() + 1; }

// The room of a compiled statement: views into words above the variables. How much of it is in use
// stands in GENCOM: MGE words of code, LHS entries of the list, ICON.
struct Formula {
  std::span<Quad> code;
  std::span<double> operands;
  std::span<std::int32_t> list;

  double& operand(int k) const { return operands[static_cast<std::size_t>(k) - 1]; }
  int quads() const { return GENCOM.MGE / 4; }
  std::span<Quad> list_of_quads() const {
    return code.first(static_cast<std::size_t>(GENCOM.MGE / 4));
  }
  // Entry of the variable list for operand k.
  int entry(int k) const { return list[static_cast<std::size_t>(k) - 1]; }
  bool is_variable(int k) const { return k >= 1 && k <= GENCOM.LHS; }
};

// Words that a formula takes above the variables, and the carving of them. Nothing is cleared; the
// slot operand_one() is set.
std::int64_t formula_words();
Formula carve_formula(std::span<double> words);

// What is to be compiled. `text` is the whole command, ISTART the place (from 0) behind its word.
struct GenrJob {
  std::string_view text;
  int ISTART = 0;
  int IKOD = 0;
  std::string_view integration;  // name that INTEGRATE puts at table place MAXVAR, blank none
  // EQ: the operand of an unknown name, 0 when there is no room for another parameter.
  int (*parameter)(void* context, std::string_view name) = nullptr;
  // TEST, RESTRICT: the operand of NAME, or of NAME:n for n > 0; 0 after a failure that it has
  // reported. When it is set no other variables may stand in the statement.
  int (*coefficient)(void* context, std::string_view name, int n) = nullptr;
  void* context = nullptr;
  bool any_name = false;  // names that don't exist yet stand for numbers: only the syntax counts
  int listed = 0;         // entries that the caller has put into the list
};

// Compiles. Sets in GENCOM MGE, ICON, KCON, LHS, NLAG, NSUM, NTRS, NR, LHSROW, LHSCOL, in OCOM
// ONEWV and OCALC. A new target gets the table entry NVARS+1 with address 0; NVARS stays. False
// after a failure: message, $ERR, ODONT, OSTOP and, but for EQ, TEST and RESTRICT in a run that
// does not talk, OSCAN. A name that `coefficient` has refused ends it without further words.
bool GENR(Workspace ws, const GenrJob& job, const Formula& formula);

// Sets the temporary $ERR.
void set_error_code(int code);

}  // namespace korvel
