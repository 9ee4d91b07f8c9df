// Pass 1 of the compiler: the characters of a statement to tokens.
//
// A token of 0 or more is an operand, a negative one the code of an operator. Blanks mean nothing
// outside quotes.

#include <cstring>

#include "engine/commands.h"
#include "engine/options.h"
#include "engine/output.h"
#include "expr/genr_work.h"

namespace korvel {

bool StatementScanner::push(int token) {
  if (count_ >= LINMAX - 2) return fail_at(GENR_LENGTH, at_);
  GENRWORK.tokens[static_cast<std::size_t>(count_++)] = token;
  transposed_ = false;
  return true;
}

bool StatementScanner::wants_operand() const { return previous() < 0 && previous() != -OP_CLOSE; }

// A minus may stand in front of an operand behind these.
bool StatementScanner::may_negate() const {
  switch (-previous()) {
    case OP_EQUAL:
    case OP_OPEN:
    case OP_COMMA:
    case OP_MULT:
    case OP_DIV:
    case OP_E:
    case OP_KRON:
    case OP_CONC:
    case OP_SEMI:
      return true;
    default:
      return -previous() >= OP_EQ && -previous() <= OP_NOT;
  }
}

// The letters, digits and "_" at p.
std::string_view StatementScanner::word_at(int p) const {
  int q = p;
  while (is_name_character(look(q))) ++q;
  return job_.text.substr(static_cast<std::size_t>(p), static_cast<std::size_t>(q - p));
}

// The characters of a name that count.
std::string_view StatementScanner::name_of(std::string_view word) const {
  if (word.size() <= KEYLEN) return word;
  const std::string_view name = word.substr(0, KEYLEN);
  warn<"(' ...WARNING..VAR LONGER THAN 8 CHARACTERS TRUNCATED TO:', A)">(name);
  return name;
}

// Number of the variable of that name, 0 none.
int StatementScanner::name_key(std::string_view name) const {
  if (!job_.integration.empty() && name == job_.integration) return DATCOM.MAXVAR;
  return VARNUM(ws_, name);
}

bool StatementScanner::more() { return skip(at_) < length(); }

bool StatementScanner::scan(int ikod) {
  ikod_ = ikod;
  count_ = parens_ = 0;
  rewritten_ = ended_ = false;
  bool assigns = false;
  switch (ikod) {
    case K_GENR:
    case K_DERIVATI:
    case K_INTEGRAT:
    case K_MATRIX:
    case K_EQ: {
      const Head h = head();
      if (h == Head::Failed) return false;
      assigns = h == Head::Assignment;
      if (!assigns && ikod != K_EQ) OCOM.OCALC = true;
      break;
    }
    default:
      break;
  }
  if (!assigns && !push(-ikod)) return false;
  if (!push_operator(OP_EQUAL)) return false;
  return expression();
}

// ---- The head: a target and its =
// ----------------------------------------------------------------

// Tries the text as NAME=, $NAME=, NAME(..)= or NAME:n=. Leaves the cursor behind the = when it is
// one and where it stood otherwise.
StatementScanner::Head StatementScanner::head() {
  const int start = skip(at_);
  const bool temporary = look(start) == '$';
  const int first = temporary ? start + 1 : start;
  if (!is_letter(look(first))) return Head::None;
  const std::string_view word = word_at(first);
  const int behind = skip(first + static_cast<int>(word.size()));
  int p = behind;
  if (look(p) == '(' && !temporary) {
    ++p;
    while (p < length() && look(p) != '(' && look(p) != ')' && look(p) != '"') ++p;
    if (look(p) != ')') return Head::None;
    p = skip(p + 1);
  } else if (look(p) == ':' && !temporary) {
    p = skip(p + 1);
    if (!is_digit(look(p))) return Head::None;
    while (is_digit(look(p))) ++p;
    p = skip(p);
  }
  if (look(p) != '=') return Head::None;
  at_ = p + 1;
  return take_target(name_of(word), temporary, behind) ? Head::Assignment : Head::Failed;
}

bool StatementScanner::take_target(std::string_view name, bool temporary, int behind) {
  if (temporary) {
    char field[1 + KEYLEN] = {'$'};
    std::memcpy(field + 1, name.data(), name.size());
    const int number = VARNUM(ws_, {field, name.size() + 1});
    if (number >= 0) return fail_at(GENR_SYNTAX, behind);
    GENCOM.NTRS = number;
    const int place = add_variable(number);
    return place != NO_OPERAND && push(place);
  }
  if (look(behind) == '(') {
    if (ikod_ != K_MATRIX) return fail_at(GENR_SYNTAX, behind);
    int close = behind;
    while (look(close) != ')') ++close;
    if (!element_target(behind, close)) return false;
  } else if (look(behind) == ':') {
    const std::string_view digits = word_at(skip(behind + 1));
    const Number n = FSUMS(digits);
    if (n.used != static_cast<int>(digits.size()) || n.value < 1 || n.value > DATCOM.MXCOL) {
      return fail_at(GENR_SYNTAX, behind);
    }
    GENCOM.LHSCOL = static_cast<int>(n.value);
  }
  int number = name_key(name);
  if (number == DATCOM.MAXVAR && !job_.integration.empty()) return fail_at(GENR_SYNTAX, behind);
  if (number == 0) {
    if (DATCOM.NVARS >= DATCOM.MAXVAR) return fail_at(GENR_VARIABLES, at_);
    number = DATCOM.NVARS + 1;
    char* field = ws_.name_field(number);
    std::memset(field, ' ', NAMELEN);
    std::memcpy(field, name.data(), name.size());
    ws_.KADD(number) = 0;
    OCOM.ONEWV = true;
  }
  GENCOM.NTRS = number;
  if (ikod_ == K_MATRIX) return push(number);
  const int place = add_variable(number);
  return place != NO_OPERAND && push(place);
}

// (row,column) goes through the number scanner with the comma as its decimal point, so the column
// is the digits behind it as a whole number.
bool StatementScanner::element_target(int open, int close) {
  char digits[24];
  std::size_t n = 0;
  for (int p = open + 1; p < close; ++p) {
    const char c = look(p);
    if (c == ' ') continue;
    if (!(is_digit(c) || c == ',') || n == sizeof digits) return fail_at(GENR_SYNTAX, p);
    digits[n++] = c == ',' ? '.' : c;
  }
  const Number number = FSUMS({digits, n});
  if (number.used != static_cast<int>(n) || number.whole < 1 || number.whole > 2147483647 ||
      number.fraction > DATCOM.MXCOL) {
    return fail_at(GENR_SYNTAX, close);
  }
  GENCOM.LHSROW = static_cast<int>(number.whole);
  GENCOM.LHSCOL = static_cast<int>(number.fraction);
  return true;
}

// ---- The expression
// ------------------------------------------------------------------------------

bool StatementScanner::expression() {
  if (ikod_ == K_IF && look(at_ = skip(at_)) != '(') return fail_at(GENR_SYNTAX, at_);
  while (!ended_) {
    at_ = skip(at_);
    if (at_ >= length()) break;
    if (!one_token()) return false;
  }
  return finish();
}

bool StatementScanner::one_token() {
  const char c = look(at_);
  if (is_digit(c)) return number();
  if (is_letter(c)) return word();
  switch (c) {
    case '+':
    case '-':
      return plus_minus(c);
    case '*':
      if (previous() == -OP_MULT) {
        GENRWORK.tokens[static_cast<std::size_t>(count_) - 1] = -OP_POWER;
        ++at_;
        return true;
      }
      return binary(OP_MULT);
    case '/':
      return binary(OP_DIV);
    case ',':
      if (parens_ == 0) return fail_at(GENR_SYNTAX, at_);
      return binary(OP_COMMA);
    case '(':
      if (!wants_operand()) {
        if (previous() != -OP_CLOSE && !transposed_) return fail_at(GENR_SYNTAX, at_);
        if (!push_operator(OP_MULT)) return false;
      }
      ++parens_;
      ++at_;
      return push_operator(OP_OPEN);
    case ')':
      return close_bracket();
    case '.':
      return is_digit(look(at_ + 1)) ? number() : dotted();
    case '"':
      return character_constant();
    case '$':
      return temporary_value();
    case '=':
      return equals();
    default:
      return matrix_operator(c);
  }
}

bool StatementScanner::binary(int code) {
  if (wants_operand()) return fail_at(GENR_SYNTAX, at_);
  ++at_;
  return push_operator(code);
}

bool StatementScanner::plus_minus(char c) {
  if (!wants_operand()) return binary(c == '+' ? OP_ADD : OP_SUB);
  if (c == '+') {  // a sign that means nothing
    if (previous() != -OP_EQUAL && previous() != -OP_OPEN) return fail_at(GENR_SYNTAX, at_);
    ++at_;
    return true;
  }
  if (!may_negate()) return fail_at(GENR_SYNTAX, at_);
  ++at_;
  return push_operator(OP_MINUS);
}

bool StatementScanner::close_bracket() {
  if (parens_ == 0) return fail_at(GENR_PARENTHESES, at_);
  if (wants_operand()) return fail_at(GENR_SYNTAX, at_);
  --parens_;
  ++at_;
  ended_ = ikod_ == K_IF && parens_ == 0;
  return push_operator(OP_CLOSE);
}

// .EQ. and the like.
bool StatementScanner::dotted() {
  const int first = skip(at_ + 1);
  const std::string_view word = word_at(first);
  const int behind = skip(first + static_cast<int>(word.size()));
  const int code = find_dotted(word);
  if (code == 0 || look(behind) != '.') return fail_at(GENR_SYNTAX, behind);
  if (code == OP_NOT ? !wants_operand() : wants_operand()) return fail_at(GENR_SYNTAX, at_);
  at_ = behind + 1;
  return push_operator(code);
}

// TEST and RESTRICT: a=b is a-(b).
bool StatementScanner::equals() {
  const bool test = ikod_ == K_TEST || ikod_ == K_RESTRICT;
  if (!test || rewritten_ || parens_ != 0 || wants_operand()) return fail_at(GENR_SYNTAX, at_);
  rewritten_ = true;
  ++at_;
  return push_operator(OP_SUB) && push_operator(OP_OPEN);
}

bool StatementScanner::matrix_operator(char c) {
  if (ikod_ == K_MATRIX) {
    switch (c) {
      case '@':
        return binary(OP_KRON);
      case '|':
        return binary(OP_CONC);
      case ';':
        return binary(OP_SEMI);
      case '\'':
        if (!binary(OP_TRAN) || !push(1)) return false;
        transposed_ = true;
        return true;
      default:
        break;
    }
  }
  return fail_at(GENR_SYNTAX, at_);
}

// ---- The end
// -------------------------------------------------------------------------------------

bool StatementScanner::finish() {
  if (wants_operand() && OSCOM.OTALK) warn(" ...WARNING..CONTINUATION EXPECTED ON NEXT LINE");
  if (parens_ != 0) return fail_at(GENR_PARENTHESES, at_);
  if (wants_operand()) return fail_at(GENR_SYNTAX, at_);
  if (rewritten_ && !push_operator(OP_CLOSE)) return false;
  return push_operator(OP_END);
}

}  // namespace korvel
