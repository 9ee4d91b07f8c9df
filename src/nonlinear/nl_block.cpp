// The lines behind an NLINEAR command, up to END: equations, start values, ordinary statements.

#include <algorithm>
#include <cstring>

#include "engine/commands.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/run.h"
#include "expr/genr.h"
#include "nonlinear/nl_parts.h"

namespace korvel {

NlBlock NLBLOCK;

namespace {

constexpr std::string_view NO_END = " ...ERROR..END OF INPUT BEFORE THE END COMMAND OF THE BLOCK";
constexpr std::string_view NOT_OF_BLOCK =
    " ...ERROR..COMMAND IS NOT AN EQ, COEF, GENR, OR END COMMAND";

// Statements that run when they are read.
bool is_statement(int ikod) {
  switch (ikod) {
    case K_GENR:
    case K_GEN1:
    case K_IF:
    case K_IF1:
    case K_ENDIF:
    case K_MATRIX:
    case K_DERIVATI:
    case K_INTEGRAT:
    case K_EXECUTE:
    case K_DO:
    case K_ENDO:
    case K_PROCEND:
    case K_SET:
    case K_PRINT:
    case K_DELETE:
      return true;
    default:
      return false;
  }
}

// Words that the reader has dealt with, and those that mean nothing here.
bool is_passed_over(int ikod) {
  switch (ikod) {
    case 0:
    case K_TITLE:
    case K_FORMAT:
    case K_TIMEFMT:
    case K_AXISFMT:
    case K_NAMEFMT:
    case K_PAUSE:
    case K_MENU:
      return true;
    default:
      return false;
  }
}

// Any name is taken as that of a coefficient; only the syntax of the line counts.
int any_coefficient(void*, std::string_view) { return 1; }

// Looks an equation over where it stands, so that a mistake is shown under its line.
bool check_equation(Workspace ws) {
  Scratch room(ws, formula_words());
  if (!room) return false;
  const Formula formula = carve_formula(room.words());
  formula.list[0] = 0;
  GenrJob job;
  job.text = command_text();
  job.ISTART = SCNCOM.ISTART;
  job.IKOD = K_EQ;
  job.parameter = any_coefficient;
  job.any_name = RUNCOM.settings.check;
  job.listed = 1;
  OCOM.OGENR = true;
  const bool good = GENR(ws, job, formula);
  OCOM.OGENR = false;
  return good;
}

bool take_equation(Workspace ws) {
  if (!check_equation(ws)) {
    mark_failed();
    return false;
  }
  NLBLOCK.equations.emplace_back(command_tail());
  return true;
}

// COEF name value name value ...
bool take_start_values(Workspace ws) {
  const std::string_view tail = command_tail();
  const auto separates = [](char c) { return c == ' ' || c == ',' || c == '='; };
  const auto next = [&](std::size_t& at) {
    while (at < tail.size() && separates(tail[at])) ++at;
    const std::size_t from = at;
    while (at < tail.size() && !separates(tail[at])) ++at;
    return tail.substr(from, at - from);
  };
  for (std::size_t at = 0;;) {
    const std::string_view name = next(at);
    if (name.empty()) return true;
    const std::string_view value = next(at);
    if (NAMCHK(name[0]) != 1 || value.empty()) {
      fail(" ...ERROR..SYNTAX ERROR");
      return false;
    }
    const Scalar start = scalar_value(ws, value);
    if (!start.ok) return false;
    NLBLOCK.starts.push_back({std::string(name.substr(0, KEYLEN)), start.value});
  }
}

// One line of the block. False when the block is given up; `ended` at its END.
bool take_line(Workspace ws, bool& ended) {
  const int failures = RUNCOM.failures;
  INPUT(ws);
  if (RUNCOM.ended || stop_requested()) {
    OCOM.ODONT = true;
    ended = true;  // there is nothing left to pass over
    return false;
  }
  if (OCOM.OEOF) {
    fail(NO_END);
    ended = true;
    return false;
  }
  const int ikod = INPCOM.IKOD;
  ended = ikod == K_END;
  if (RUNCOM.failures != failures) {  // the reader has told what is wrong, and gone on to this line
    mark_failed();
    return false;
  }
  if (ended || is_passed_over(ikod)) return true;
  if (OCOM.ONOTIF) {
    OCOM.ONOTIF = false;
    if (OCOM.OPUT) warn(" ...WARNING..ABOVE STATEMENT NOT EXECUTED - PREVIOUS IF IS FALSE");
    return true;
  }
  if (ikod == K_EQ) return take_equation(ws);
  if (ikod == K_COEFFICI) return take_start_values(ws);
  if (!is_statement(ikod)) {
    fail(NOT_OF_BLOCK);
    if (ikod == K_STOP || ikod == K_QUIT || ikod == K_EXIT) XXIT(0);
    return false;
  }
  SCANIT(ws);
  if (OCOM.OERR || OCOM.ODONT) return false;
  COMMANDS[static_cast<std::size_t>(ikod) - 1].handler(ws);
  return !OCOM.ODONT;
}

void skip_lines(Workspace ws) {
  do {
    INPUT(ws);
    if (INPCOM.IKOD == K_STOP || INPCOM.IKOD == K_QUIT || INPCOM.IKOD == K_EXIT) XXIT(0);
  } while (!RUNCOM.ended && !OCOM.OEOF && !stop_requested() && INPCOM.IKOD != K_END);
  OCOM.ODONT = true;
}

}  // namespace

void skip_nl_block(Workspace ws) {
  const OpenBlock block;
  skip_lines(ws);
}

void check_nl_block(Workspace ws) {
  NLBLOCK.equations.clear();
  NLBLOCK.starts.clear();
  const int line = INPCOM.KLINE;
  const OpenBlock block;
  for (;;) {
    OCOM.ODONT = OCOM.OERR = OCOM.ONEWV = OCOM.OMAT = false;
    INPUT(ws);
    if (RUNCOM.ended || stop_requested()) return;
    if (OCOM.OEOF) {
      INPCOM.KLINE = line;  // of the command whose END is missing
      return fail(NO_END);
    }
    const int ikod = INPCOM.IKOD;
    if (ikod == K_END) return;
    if (ikod == K_EQ) {
      take_equation(ws);
    } else if (ikod == K_COEFFICI) {
      take_start_values(ws);
    } else if (is_statement(ikod)) {
      look_over_command(ws);
    } else if (!is_passed_over(ikod)) {
      // Most likely the END is missing: what follows is looked over as what it is.
      give_back_command();
      return fail(NOT_OF_BLOCK);
    }
  }
}

bool read_nl_block(Workspace ws) {
  NLBLOCK.equations.clear();
  NLBLOCK.starts.clear();
  const OpenBlock block;
  if (OSCOM.OTALK) say(" ENTER EQ AND COEF COMMANDS, THEN TYPE END");
  bool ended = false;
  while (!ended) {
    if (take_line(ws, ended)) continue;
    if (!ended) skip_lines(ws);
    return false;
  }
  // The statements of the block have had a working range of their own.
  OCOM.OMAT = OCOM.ONEWV = OCOM.OCALC = false;
  return true;
}

}  // namespace korvel
