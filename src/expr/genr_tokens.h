// The first pass of the compiler: characters to tokens.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "expr/genr.h"

namespace korvel {

// A token is an operand (>= 0) or the negated code of an operator.
struct TokenList {
  std::span<std::int32_t> token;
  int count = 0;
};

// The scanner of one command's text. It fills the variable list and the constants of `code` as
// names and numbers are met.
class TokenScanner {
 public:
  TokenScanner(Workspace ws, CodeList& code, TokenList& tokens, std::string_view text, int start,
               int ikod, std::string_view special)
      : ws_(ws),
        code_(code),
        tokens_(tokens),
        text_(text),
        at_(static_cast<std::size_t>(start)),
        ikod_(ikod),
        special_(special) {}

  // Tokens of the next statement, -14 at the end. False after a reported failure.
  bool statement();
  // True while text is left behind an IF condition; the rest is then an ordinary statement.
  bool more_text();
  void now_assignment();  // the rest compiles as GENR
  bool calculator() const { return calculator_; }
  bool fault(int number);  // reports $ERR 2001 to 2006 at the present place; always false

 private:
  enum class Last { Start, Operand, Operator, Minus, Power, Open, Comma, Not };

  char peek(std::size_t ahead = 0) const {
    return at_ + ahead < text_.size() ? text_[at_ + ahead] : '\0';
  }
  void skip_blanks() {
    while (peek() == ' ') ++at_;
  }
  bool put(std::int32_t token);
  bool put_operator(std::int32_t code);
  bool head();
  bool assignment_head(std::size_t& equals);
  bool expression();
  bool one_token();
  bool number();
  bool text_constant();
  bool dollar();
  bool dotted();
  bool name();
  bool variable(std::string_view word);
  bool subscript();
  bool minus();
  int constant(double value);
  int list_entry(int number);
  std::string_view word();
  bool dotted_ahead(std::size_t at) const;

  Workspace ws_;
  CodeList& code_;
  TokenList& tokens_;
  std::string_view text_;
  std::size_t at_;
  int ikod_;
  std::string_view special_;
  Last last_ = Last::Start;
  int depth_ = 0;
  bool calculator_ = false;
  bool condition_ = false;     // an IF whose condition ends with its bracket
  bool after_number_ = false;  // E may follow
};

}  // namespace korvel
