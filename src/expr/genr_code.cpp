// Passes 2 and 3 of the compiler: tokens to postfix by operator priorities, postfix to quadruples.

#include <algorithm>

#include "engine/commands.h"
#include "engine/output.h"
#include "expr/genr_work.h"

namespace korvel {
namespace {

int POSTFIX_COUNT = 0;  // of the running statement: pass 2 sets it, pass 3 reads it

int priority(int code) {
  if (code == OP_MINUS && OSCOM.OUMIN) return 6;
  return operator_row(code).priority;
}

// Functions and signs in front of an operand wait for it: they leave the stack as it is.
bool is_prefix(int code) { return operator_row(code).arity == 1; }

bool append_quad(const Formula& formula, const Quad& quad) {
  const auto n = static_cast<std::size_t>(GENCOM.MGE / 4);
  if (n >= formula.code.size()) return false;
  formula.code[n] = quad;
  GENCOM.MGE += 4;
  if (quad.code > OP_END) GENCOM.NR = 1;
  return true;
}

EndFlag end_flag(int ikod) {
  switch (ikod) {
    case K_SKIPIF:
      return END_SKIPIF;
    case K_IF:
      return END_IF;
    case K_TEST:
    case K_RESTRICT:
      return END_TEST;
    case K_ENDIF:
      return END_ENDIF;
    case K_EQ:
      return END_ASSIGN;
    default:
      return OCOM.OCALC ? END_PRINT : END_ASSIGN;
  }
}

}  // namespace

// tokens[0..count-1], the last one the end token.
int postfix_statement(int count) {
  const auto& in = GENRWORK.tokens;
  auto& out = GENRWORK.postfix;
  auto& stack = GENRWORK.stack;
  std::size_t top = 0, n = 0;
  for (std::size_t i = 2; i < static_cast<std::size_t>(count); ++i) {
    const int token = in[i];
    if (token >= 0) {
      out[n++] = token;
      continue;
    }
    const int code = -token;
    if (code == OP_CLOSE) {
      while (top > 0 && stack[top - 1] != OP_OPEN) out[n++] = -stack[--top];
      if (top == 0) return GENR_PARENTHESES;
      --top;
      continue;
    }
    if (code != OP_OPEN && !is_prefix(code)) {
      while (top > 0 && priority(stack[top - 1]) >= priority(code) && stack[top - 1] != OP_OPEN) {
        out[n++] = -stack[--top];
      }
    }
    if (code == OP_END) {
      out[n++] = token;
      break;
    }
    stack[top++] = code;
  }
  POSTFIX_COUNT = static_cast<int>(n);
  if (OSCOM.ODMMP) dump_tokens(" NOUT", out.data(), POSTFIX_COUNT);
  return top == 0 ? 0 : GENR_PARENTHESES;
}

int code_statement(const Formula& formula, int ikod) {
  const auto& in = GENRWORK.postfix;
  auto& stack = GENRWORK.stack;
  const auto count = static_cast<std::size_t>(POSTFIX_COUNT);
  const int first_quad = GENCOM.MGE;
  std::size_t depth = 0;
  for (std::size_t i = 0; i < count && in[i] != -OP_END; ++i) {
    if (in[i] >= 0) {
      stack[depth++] = in[i];
      continue;
    }
    const int code = -in[i];
    const auto arity = static_cast<std::size_t>(operator_row(code).arity);
    if (arity == 0 || depth < arity) return GENR_SYNTAX;
    if (GENCOM.KCON >= last_temporary()) return GENR_TABLE;
    const int left = arity == 2 ? stack[depth - 2] : 0;
    const int right = stack[depth - 1];
    if (!append_quad(formula, {code, left, right, ++GENCOM.KCON})) return GENR_TABLE;
    depth -= arity;
    stack[depth++] = GENCOM.KCON;
    if (code == OP_LAG && OCOM.OPUT && OSCOM.OWARN) {
      say(" ...NOTE..LAG VALUE IN UNDEFINED OBSERVATIONS SET TO ZERO");
    }
    if (OSCOM.ODMMP) {  // the array as it stands now: what is done, and what is to come
      dump_tokens(" NOUT", stack.data(), static_cast<int>(depth));
      dump_tokens({}, &in[i + 1], static_cast<int>(count - i - 1));
    }
  }
  if (depth != 1) return GENR_SYNTAX;
  if (GENCOM.MGE == first_quad) {  // a lone operand: a copy gives END its result
    if (GENCOM.KCON >= last_temporary()) return GENR_TABLE;
    if (!append_quad(formula, {OP_EQUAL, 0, stack[0], ++GENCOM.KCON})) return GENR_TABLE;
  }
  const int flag = end_flag(ikod);
  if (!append_quad(formula, {OP_END, 0, GENRWORK.tokens[0], flag})) return GENR_TABLE;
  return 0;
}

void dump_tokens(std::string_view heading, const std::int32_t* tokens, int n) {
  constexpr int ACROSS = 16;
  if (!heading.empty()) say(heading);
  for (int i = 0; i < n; i += ACROSS) {
    Line row;
    row.text(" ");
    for (int k = i; k < std::min(i + ACROSS, n); ++k) row.put<"(I8)">(tokens[k]);
    OUTLINE();
  }
}

void dump_formula(const Formula& formula) {
  say(" CODES");
  for (const Quad& q : formula.list_of_quads()) {
    say<"(1X, A4, 3I10)">(operator_row(q.code).dump, q.left, q.right, q.result);
  }
  say(" NEW");
  for (int k = first_constant(); k <= GENCOM.ICON; ++k) {
    say<"(1X, I10, 1X, G24.16)">(k, formula.operand(k));
  }
}

}  // namespace korvel
