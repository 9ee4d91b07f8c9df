// Operands of a statement: numbers, characters, names, temporaries, coefficients.

#include <bit>
#include <cstring>

#include "engine/commands.h"
#include "engine/options.h"
#include "engine/output.h"
#include "expr/genr_work.h"

namespace korvel {
namespace {

constexpr int MAXFAST = 15;  // digits that a double holds exactly

}  // namespace

// Slot of a constant; equal bits share one.
int StatementScanner::add_constant(double value) {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  for (int k = first_constant(); k <= GENCOM.ICON; ++k) {
    std::uint64_t stored;
    std::memcpy(&stored, &formula_.operand(k), sizeof stored);
    if (stored == bits) return k;
  }
  if (GENCOM.ICON >= operand_limit()) {
    fail_at(GENR_SPACE, at_);
    return NO_OPERAND;
  }
  std::memcpy(&formula_.operand(++GENCOM.ICON), &bits, sizeof bits);
  return GENCOM.ICON;
}

// Place of an entry in the variable list; estimators mark theirs as -9000-number.
int StatementScanner::add_variable(int entry) {
  for (int k = 1; k <= GENCOM.LHS; ++k) {
    const int listed = formula_.entry(k);
    if (listed == entry || (entry > 0 && listed == -9000 - entry)) return k;
  }
  if (static_cast<std::size_t>(GENCOM.LHS) >= formula_.list.size()) {
    fail_at(GENR_SPACE, at_);
    return NO_OPERAND;
  }
  formula_.list[static_cast<std::size_t>(GENCOM.LHS)] = entry;
  return ++GENCOM.LHS;
}

bool StatementScanner::number() {
  if (!wants_operand()) return fail_at(GENR_SYNTAX, at_);
  int p = at_;
  double value = 0;
  while (is_digit(look(p))) value = value * 10 + (look(p++) - '0');
  bool exact = p - at_ <= MAXFAST;
  if (look(p) == '.') {
    // The point leaves the number when it opens .EQ. and the like.
    const int first = skip(p + 1);
    const std::string_view word = word_at(first);
    const bool opens =
        find_dotted(word) != 0 && look(skip(first + static_cast<int>(word.size()))) == '.';
    if (!opens) {
      ++p;
      while (is_digit(look(p))) ++p;
      exact = false;
    }
  }
  // An exponent: E or D, perhaps a minus, digits.
  int q = skip(p);
  if (look(q) == 'E' || look(q) == 'D') {
    int e = skip(q + 1);
    if (look(e) == '-') e = skip(e + 1);
    if (is_digit(look(e))) {
      while (is_digit(look(e))) ++e;
      if (is_name_character(look(e))) return fail_at(GENR_SYNTAX, e);
      p = e;
      exact = false;
    }
  }
  if (!exact) {
    char digits[512];
    std::size_t n = 0;
    for (int i = at_; i < p; ++i) {
      if (look(i) == ' ') continue;
      if (n == sizeof digits) return fail_at(GENR_SYNTAX, i);
      digits[n++] = look(i);
    }
    const Number scanned = FSUMS({digits, n});
    if (scanned.used != static_cast<int>(n)) return fail_at(GENR_SYNTAX, p);
    value = scanned.value;
  }
  at_ = p;
  const int slot = add_constant(value);
  if (slot == NO_OPERAND || !push(slot)) return false;
  // E behind a constant multiplies by the power of ten that follows.
  q = skip(p);
  if (look(q) == 'E') {
    const int behind = skip(q + 1);
    const char c = look(behind);
    if (!(c == '(' || c == '-' || is_letter(c) || c == '$')) return fail_at(GENR_SYNTAX, behind);
    at_ = q + 1;
    return push_operator(OP_E);
  }
  return true;
}

// "TEXT": eight characters kept as they are in a constant slot.
bool StatementScanner::character_constant() {
  if (!wants_operand()) return fail_at(GENR_SYNTAX, at_);
  const auto first = static_cast<std::size_t>(at_) + 1;
  const std::size_t close = job_.text.find('"', first);
  if (close == std::string_view::npos) return fail_at(GENR_SYNTAX, length());
  char field[KEYLEN];
  std::memset(field, ' ', KEYLEN);
  const std::string_view text = job_.text.substr(first, close - first);
  std::memcpy(field, text.data(), std::min<std::size_t>(text.size(), KEYLEN));
  double value;
  std::memcpy(&value, field, sizeof value);
  at_ = static_cast<int>(close) + 1;
  const int slot = add_constant(value);
  return slot != NO_OPERAND && push(slot);
}

// $NAME: the value that the temporary has now.
bool StatementScanner::temporary_value() {
  if (!wants_operand()) return fail_at(GENR_SYNTAX, at_);
  const std::string_view word = word_at(at_ + 1);
  const int behind = at_ + 1 + static_cast<int>(word.size());
  if (word.empty() || word.size() > KEYLEN) return fail_at(GENR_SYNTAX, behind);
  const std::string_view with_sign =
      job_.text.substr(static_cast<std::size_t>(at_), word.size() + 1);
  const int number = VARNUM(ws_, with_sign);
  if (number >= 0) return fail_at(GENR_SYNTAX, behind);
  const double value = job_.any_name ? 1.0 : temporary(-number - 1);
  if (value == UNSET) {
    error_line<"(' ...ERROR..$', A, ' IS NOT CURRENTLY DEFINED')">(word);
    return fail_at(GENR_UNDEFINED, behind);
  }
  if (OCOM.OPUT && OSCOM.OWARN && !job_.any_name) {
    say<"(' ...NOTE..CURRENT VALUE OF $', A, '=', G15.7)">(word, value);
  }
  at_ = behind;
  const int slot = add_constant(value);
  return slot != NO_OPERAND && push(slot);
}

// A name that stands for a number of which nothing is known: NAME, NAME:n or NAME(...).
bool StatementScanner::unknown_name(int end) {
  at_ = end;
  const int behind = skip(end);
  if (look(behind) == '(') {
    if (ikod_ == K_EQ) return fail_at(GENR_SYNTAX, behind);
    ++parens_;
    at_ = behind + 1;
    return push_operator(OP_ABS) && push_operator(OP_OPEN);
  }
  if (look(behind) == ':') {
    const int first = skip(behind + 1);
    const std::string_view digits = word_at(first);
    at_ = first + static_cast<int>(digits.size());
    if (digits.empty()) return fail_at(GENR_SYNTAX, at_);
  }
  const int slot = add_constant(1.0);
  return slot != NO_OPERAND && push(slot);
}

// A name: a function when it is one and a bracket follows, else a variable.
bool StatementScanner::word() {
  if (!wants_operand()) {
    if (!transposed_) return fail_at(GENR_SYNTAX, at_);
    if (!push_operator(OP_MULT)) return false;
  }
  const std::string_view text = word_at(at_);
  const int end = at_ + static_cast<int>(text.size());
  const int behind = skip(end);
  if (look(behind) == '(') {
    const int code = find_function(text, ikod_ == K_MATRIX);
    if (code != 0 && code != OP_END) {
      if (code == OP_LAG) ++GENCOM.NLAG;
      if (code == OP_SUM) ++GENCOM.NSUM;
      ++parens_;
      at_ = behind + 1;
      return push_operator(code) && push_operator(OP_OPEN);
    }
  }
  const std::string_view name = name_of(text);
  if (job_.coefficient != nullptr) return coefficient(name, end);
  int number = name_key(name);
  int operand = NO_OPERAND;
  if (number == 0 && job_.any_name) return unknown_name(end);
  if (number == 0) {
    if (ikod_ != K_EQ || job_.parameter == nullptr) return fail_at(GENR_SYNTAX, end);
    operand = job_.parameter(job_.context, name);
    if (operand == NO_OPERAND) return fail_at(GENR_PARAMETERS, end);
    at_ = end;
    return push(operand);
  }
  at_ = end;
  if (look(behind) == ':') {  // a column
    const int first = skip(behind + 1);
    const std::string_view digits = word_at(first);
    const Number n = FSUMS(digits);
    at_ = first + static_cast<int>(digits.size());
    if (digits.empty() || n.used != static_cast<int>(digits.size()) || n.value < 1 ||
        n.value > DATCOM.MXCOL || number == DATCOM.MAXVAR) {
      return fail_at(GENR_SYNTAX, at_);
    }
    const std::int64_t entry = std::int64_t{number} * DATCOM.MXCOL + static_cast<int>(n.value);
    if (!fits32(entry)) return fail_at(GENR_SPACE, at_);
    number = static_cast<int>(entry);
  }
  operand = ikod_ == K_MATRIX ? number : add_variable(number);
  if (operand == NO_OPERAND) return false;
  const int bracket = skip(at_);
  if (look(bracket) != '(') return push(operand);
  // X(-n) is LAG(X,n), X(+n) is LAG(X,-n), X(expression) an element.
  if (ikod_ == K_EQ) return fail_at(GENR_SYNTAX, bracket);
  const int sign = skip(bracket + 1);
  ++parens_;
  if (look(sign) == '-' || look(sign) == '+') {
    ++GENCOM.NLAG;
    at_ = sign + 1;
    if (!(push_operator(OP_LAG) && push_operator(OP_OPEN) && push(operand) &&
          push_operator(OP_COMMA))) {
      return false;
    }
    return look(sign) == '-' || push_operator(OP_MINUS);
  }
  at_ = bracket + 1;
  return push(operand) && push_operator(OP_EQUAL) && push_operator(OP_OPEN);
}

// TEST and RESTRICT: a name, or NAME:n, is a coefficient of the last estimate.
bool StatementScanner::coefficient(std::string_view name, int end) {
  int n = 0;
  at_ = end;
  if (const int behind = skip(end); look(behind) == ':') {
    const int first = skip(behind + 1);
    const std::string_view digits = word_at(first);
    const Number number = FSUMS(digits);
    at_ = first + static_cast<int>(digits.size());
    if (digits.empty() || number.used != static_cast<int>(digits.size()) || number.value < 1 ||
        number.value > DATCOM.MXCOL || number.value != number.whole) {
      return fail_at(GENR_SYNTAX, at_);
    }
    n = static_cast<int>(number.value);
  }
  const int operand = job_.coefficient(job_.context, name, n);
  if (operand == NO_OPERAND) return false;
  if (look(skip(at_)) == '(') return fail_at(GENR_SYNTAX, skip(at_));
  return push(operand);
}

}  // namespace korvel
