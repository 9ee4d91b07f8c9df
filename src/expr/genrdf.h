// GENRDF: differentiates a code list with respect to one of its operands.
//
// Forward propagation over the quadruples: each source quadruple is copied, and where it depends on
// the variable the steps of its rule follow, which compute the derivative of its result. The list
// that comes out runs like any other over the same operand table; its last quadruple's result is
// the derivative. Only the operations + - * / ** = unary minus EXP ABS LOG have rules.
//
//     GENRDF            one derivative, as a list of its own
//     gradient_list     the value and several derivatives in one list, common parts once
//     run_point         runs such a list once, over the operand table as it stands
//
// The derivative of the variable itself is the constant 1 in slot operand_one() behind the operand
// table, which the caller's room must have (carve_formula gives it).
#pragma once

#include <cstdint>
#include <span>

#include "expr/genr.h"

namespace korvel {

// An operand, and the operand that holds its derivative.
struct DerivativePair {
  std::int32_t operand = 0, derivative = 0;
};

// Room for the list that comes out; for each variable a pair list and its length; a mark for each
// temporary.
struct DerivativeRoom {
  std::span<Quad> code;
  std::span<DerivativePair> pairs;
  std::span<std::int32_t> used;
  std::span<std::int32_t> live;
  int variables() const { return static_cast<int>(used.size()); }

  // Words for the derivatives of a list with respect to `variables` operands at a time.
  static std::int64_t words(int variables = 1);
  static DerivativeRoom carve(std::span<double> words, int variables = 1);
};

// Differentiates the quadruples of `source` up to its first END. Temporaries begin at KCON+1, and
// KCON becomes the highest one used; lists that run one after the other may use the same ones.
// Returns the quadruples written to room.code, without an END; 0 after a failure (reported, ODONT).
// `operands`, the table with its constants: X**1 then has the derivative of X at 0 too.
int GENRDF(std::span<const Quad> source, int variable, const DerivativeRoom& room,
           std::span<const double> operands = {});

// A list that computes a function and its derivatives.
struct GradientList {
  int count = 0;  // quadruples in room.code, 0 after a failure
  int value = 0;  // operand that holds the function
};
// `derivative` gets, for each variable, the operand that holds its derivative: a temporary, a
// constant, operand_one(), or 0 where the function does not depend on the variable.
GradientList gradient_list(std::span<const Quad> source, std::span<const std::int32_t> variables,
                           const DerivativeRoom& room, std::span<std::int32_t> derivative,
                           std::span<const double> operands = {});

// Runs a list of differentiable operations over the operand table; the result of the last quadruple
// before an END is the value. 0/x is 0 for any x, so the derivatives of X**2 and ABS(X) are good
// at 0. An illegal step counts as 0 and leaves its operation's code in `fault`.
struct PointValue {
  double value = 0.0;
  int fault = 0;
};
PointValue run_point(std::span<const Quad> code, std::span<double> operands);

}  // namespace korvel
