// The operators of the formula language: one row a code.
//
// A token or quadruple names an operation by its code, the row's rank. `symbol` is what the user
// writes (functions by their word), `dump` what code listings print (some rows carry another name
// there, which is kept), `meaning` is the row as an assignment.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace korvel {

enum Op : int {
  OP_CLOSE = 1,
  OP_ADD = 2,
  OP_SUB = 3,
  OP_MULT = 4,
  OP_DIV = 5,
  OP_POWER = 6,
  OP_EQUAL = 7,
  OP_MINUS = 8,
  OP_OPEN = 9,
  OP_COMMA = 10,
  OP_EXP = 11,
  OP_ABS = 12,
  OP_LOG = 13,
  OP_END = 14,
  OP_INT = 15,
  OP_SQRT = 16,
  OP_DUM = 17,
  OP_LAG = 18,
  OP_UNI = 19,
  OP_NOR = 20,
  OP_SUM = 21,
  OP_SEAS = 22,
  OP_SIN = 23,
  OP_TIME = 24,
  OP_MIN = 25,
  OP_MAX = 26,
  OP_DATA = 27,
  OP_SAMP = 28,
  OP_NCDF = 29,
  OP_LGAM = 30,
  OP_MOD = 31,
  OP_MISS = 32,
  OP_RECODE = 33,
  OP_USER = 34,
  OP_E = 35,
  OP_EQ = 36,
  OP_NE = 37,
  OP_LT = 38,
  OP_LE = 39,
  OP_GT = 40,
  OP_GE = 41,
  OP_OR = 42,
  OP_AND = 43,
  OP_NOT = 44,
  OP_TRAN = 51,
  OP_KRON = 52,
  OP_CONC = 53,
  OP_SEMI = 54,
  OP_INV = 56,
  OP_IDEN = 57,
  OP_EIGVAL = 58,
  OP_EIGVEC = 59,
  OP_DET = 60,
  OP_DIAG = 61,
  OP_TRACE = 62,
  OP_RANK = 63,
  OP_CHOL = 64,
  OP_GINV = 65,
  OP_FACT = 66,
  OP_VEC = 67,
  OP_SYM = 68,
  OP_TRI = 69,
};
inline constexpr int NOPERATORS = 69;

struct OperatorRow {
  std::string_view symbol;
  std::string_view dump;
  int priority;
  int arity;  // operands of the quadruple; 0: no quadruple
  std::string_view meaning;
};

inline constexpr std::array<OperatorRow, NOPERATORS + 1> OPERATORS = {{
    {"", "", 0, 0, ""},
    {")", "USER", 0, 0, "closes a bracket"},
    {"+", "ADD", 5, 2, "r = a + b"},
    {"-", "SUB", 5, 2, "r = a - b"},
    {"*", "MULT", 6, 2, "r = a * b"},
    {"/", "DIV", 6, 2, "r = a / b"},
    {"**", "**", 7, 2, "r = a to the power b"},
    {"=", "=", 9, 2, "r = b, or element b of the series a"},
    {"-", "-", 8, 1, "r = -b"},
    {"(", ")", 0, 0, "opens a bracket"},
    {",", "COMA", 1, 2, "ARG1 = a, ARG2 = b, r = a"},
    {"EXP", "EXP", 10, 1, "r = exp(b)"},
    {"ABS", "ABS", 10, 1, "r = |b|"},
    {"LOG", "LOG", 10, 1, "r = log(b)"},
    {"$", "END", 0, 0, "ends a statement: stores or tests the last result"},
    {"INT", "CHI", 10, 1, "r = b without its fraction"},
    {"SQRT", "SQRT", 10, 1, "r = square root of b"},
    {"DUM", "DUM", 10, 1, "r = 1 if b > 0, else 0"},
    {"LAG", "LAGS", 10, 1, "r = b ARG2 observations before"},
    {"UNI", "UNI", 10, 1, "r = uniform draw times b, or from ARG1 to ARG2"},
    {"NOR", "NOR", 10, 1, "r = normal draw times b, or times ARG2 plus ARG1"},
    {"SUM", "SUM", 10, 1, "r = running sum of b, or block sum"},
    {"SEAS", "SEAS", 10, 1, "r = 1 if the observation is 1 modulo b, else 0"},
    {"SIN", "SIN", 10, 1, "r = sin(b), or arcsin(ARG1)"},
    {"TIME", "TIME", 10, 1, "r = number of the observation plus b"},
    {"MIN", "MIN", 10, 1, "r = smaller of ARG1 and ARG2"},
    {"MAX", "MAX", 10, 1, "r = larger of ARG1 and ARG2"},
    {"DATA", "DATA", 10, 1, "r = element ARG2 of ARG1, or empirical distribution value"},
    {"SAMP", "SAMP", 10, 1, "r = an element of b drawn at random, or sampling counts"},
    {"NCDF", "NCDF", 10, 1, "r = standard normal distribution function of b"},
    {"LGAM", "LGAM", 10, 1, "r = log gamma(b)"},
    {"MOD", "MOD", 10, 1, "r = remainder of ARG1 by ARG2"},
    {"MISS", "32", 10, 1, "r = 0"},
    {"RECODE", "33", 0, 1, "r = b recoded by the table ARG2, or rounded"},
    {"USER", "34", 10, 1, "r = 0"},
    {"E", "E", 9, 2, "r = a times 10 to the power b"},
    {"EQ", "EQ", 4, 2, "r = 1 if a = b, else 0"},
    {"NE", "NE", 4, 2, "r = 1 if a and b differ, else 0"},
    {"LT", "LT", 4, 2, "r = 1 if a < b, else 0"},
    {"LE", "LE", 4, 2, "r = 1 if a <= b, else 0"},
    {"GT", "GT", 4, 2, "r = 1 if a > b, else 0"},
    {"GE", "GE", 4, 2, "r = 1 if a >= b, else 0"},
    {"OR", "OR", 1, 2, "r = 1 if a > 0 or b > 0, else 0"},
    {"AND", "AND", 2, 2, "r = 1 if a > 0 and b > 0, else 0"},
    {"NOT", "NOT", 3, 1, "r = 1 if b <= 0, else 0"},
    {"", "45", 0, 2, ""},
    {"", "46", 0, 2, ""},
    {"", "47", 0, 2, ""},
    {"", "48", 0, 2, ""},
    {"", "49", 0, 2, ""},
    {"", "50", 0, 2, ""},
    {"'", "TRAN", 7, 2, "r = a transposed"},
    {"@", "KRON", 6, 2, "r = Kronecker product of a and b"},
    {"|", "CONC", 6, 2, "r = a and b side by side"},
    {";", "SEMI", 2, 2, "r = a over b"},
    {"", "55", 0, 2, ""},
    {"INV", "INV", 10, 1, "r = inverse of b"},
    {"IDEN", "IDEN", 10, 1, "r = identity of size b"},
    {"EIGVAL", "EIG", 10, 1, "r = eigenvalues of b"},
    {"EIGVEC", "EIG", 10, 1, "r = eigenvectors of b"},
    {"DET", "DET", 10, 1, "r = determinant of b"},
    {"DIAG", "DIAG", 10, 1, "r = diagonal of b, or b on a diagonal"},
    {"TRACE", "TRAC", 10, 1, "r = trace of b"},
    {"RANK", "RANK", 10, 1, "r = rank of b"},
    {"CHOL", "CHOL", 10, 1, "r = lower Cholesky factor of b"},
    {"SVD", "GINV", 10, 1, "r = generalised inverse of b"},
    {"FACT", "FACT", 10, 1, "r = L and D of b"},
    {"VEC", "VEC", 10, 1, "r = the columns of b stacked"},
    {"SYM", "SYM", 10, 1, "r = b packed as symmetric"},
    {"TRI", "TRI", 10, 1, "r = b packed as triangular"},
}};
static_assert(OPERATORS[OP_RECODE].symbol == "RECODE" && OPERATORS[OP_NOT].symbol == "NOT" &&
              OPERATORS[OP_TRI].symbol == "TRI" && OPERATORS[OP_SEMI].symbol == ";");

constexpr const OperatorRow& operator_row(int code) {
  return OPERATORS[static_cast<std::size_t>(code)];
}

// Code of the row among from..to that has this word, 0 none.
constexpr int find_operator(std::string_view word, int from, int to) {
  for (int code = from; code <= to; ++code) {
    if (operator_row(code).symbol == word) return code;
  }
  return 0;
}
// Code of a function, those of matrices included if `matrix`; 0 when the word is no function.
constexpr int find_function(std::string_view word, bool matrix) {
  const int code = find_operator(word, OP_EXP, OP_USER);
  if (code != 0 || !matrix) return code;
  return find_operator(word, OP_INV, OP_TRI);
}
// Code of the word between the points of .EQ. and the like, 0 none.
constexpr int find_dotted(std::string_view word) { return find_operator(word, OP_EQ, OP_NOT); }

}  // namespace korvel
