// Inside the compiler: the token arrays and what its passes hand to one another.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "engine/output.h"
#include "expr/genr.h"
#include "expr/operators.h"

namespace korvel {

// Error codes that a script finds in $ERR.
enum GenrError : int {
  GENR_PARENTHESES = 2001,
  GENR_UNDEFINED = 2002,
  GENR_SYNTAX = 2003,
  GENR_SPACE = 2004,
  GENR_TABLE = 2005,
  GENR_LENGTH = 2006,
  GENR_PARAMETERS = 2007,
  GENR_VARIABLES = 2008,
};

// Room for the tokens of the longest statement: one array for each pass. Never cleared; only what a
// statement writes is read again.
struct GenrWork {
  std::array<std::int32_t, LINMAX> tokens;   // in order of the text
  std::array<std::int32_t, LINMAX> postfix;  // operands before operators
  std::array<std::int32_t, LINMAX> stack;
};
extern GenrWork GENRWORK;

// Pass 1 over one statement after another.
class StatementScanner {
 public:
  StatementScanner(Workspace ws, const GenrJob& job, const Formula& formula)
      : ws_(ws), job_(job), formula_(formula), at_(job.ISTART) {}

  // Scans the statement at the cursor as a command IKOD; false after a reported failure.
  bool scan(int ikod);
  // Tokens of the statement, the end token included; [0] the target or -IKOD, [1] is -7.
  int count() const { return count_; }
  // True when text remains behind an IF's bracket.
  bool more();
  bool fail_at(int error, int position) const;

 private:
  enum class Head { None, Assignment, Failed };
  static constexpr int NO_OPERAND = 0;  // of what found no place, after a reported failure

  static bool is_digit(char c) { return c >= '0' && c <= '9'; }
  static bool is_letter(char c) { return NAMCHK(c) == 1; }
  static bool is_name_character(char c) { return NAMCHK(c) >= 0 || c == '_'; }

  char look(int p) const { return p < length() ? job_.text[static_cast<std::size_t>(p)] : '\0'; }
  int length() const { return static_cast<int>(job_.text.size()); }
  int skip(int p) const {
    while (p < length() && look(p) == ' ') ++p;
    return p;
  }
  int previous() const { return GENRWORK.tokens[static_cast<std::size_t>(count_) - 1]; }
  bool wants_operand() const;
  bool may_negate() const;
  bool push(int token);
  bool push_operator(int code) { return push(-code); }
  std::string_view word_at(int p) const;
  std::string_view name_of(std::string_view word) const;
  int name_key(std::string_view name) const;

  Head head();
  bool take_target(std::string_view name, bool temporary, int behind);
  bool element_target(int open, int close);
  bool expression();
  bool one_token();
  bool number();
  bool coefficient(std::string_view name, int end);
  bool character_constant();
  bool temporary_value();
  bool word();
  bool unknown_name(int end);
  bool plus_minus(char c);
  bool close_bracket();
  bool dotted();
  bool equals();
  bool matrix_operator(char c);
  bool binary(int code);
  bool finish();
  int add_constant(double value);
  int add_variable(int entry);

  Workspace ws_;
  const GenrJob& job_;
  const Formula& formula_;
  int at_;
  int ikod_ = 0;
  int count_ = 0;
  int parens_ = 0;
  bool transposed_ = false;  // the last operand is the dummy behind a transpose
  bool rewritten_ = false;   // TEST: the = has become -(
  bool ended_ = false;       // the bracket of an IF has closed
};

// Passes 2 and 3: tokens to postfix, postfix to quadruples appended to the code list. 0, or the
// error code.
int postfix_statement(int count);
int code_statement(const Formula& formula, int ikod);

// Listings of SET DUMP.
void dump_tokens(std::string_view heading, const std::int32_t* tokens, int n);
void dump_formula(const Formula& formula);

}  // namespace korvel
