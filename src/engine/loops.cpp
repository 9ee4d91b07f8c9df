// DO, ENDO and GOTO, and the blocks that a false IF drops.
#include <cmath>

#include "data/data.h"
#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/run.h"

namespace korvel {
namespace {

constexpr double LOWEST = -32000, HIGHEST = 999999999;
constexpr int OLD_LEVELS = 2;  // nested loops under SET OLDDO

bool syntax_error() {
  fail(" ...ERROR..SYNTAX ERROR IN DO STATEMENT");
  return false;
}

// i=from,to,step: the index and three values; a missing step is 1.
struct DoHead {
  std::string index;
  double from = 1, to = 1, step = 1;
};

bool parse_head(Workspace ws, std::string_view tail, DoHead& head) {
  const auto equals = tail.find('=');
  if (equals == std::string_view::npos) {
    fail(" ...ERROR..DO STATEMENT IS MISSING = SIGN");
    return false;
  }
  const std::string_view index = trimmed(tail.substr(0, equals));
  if (index.empty() || index.size() > KEYLEN || index.find(' ') != std::string_view::npos) {
    return syntax_error();
  }
  // More than one character is a name; a single one may be any mark that can't begin a number.
  if (index.size() > 1 && NAMCHK(index[0]) != 1) return syntax_error();
  if (NAMCHK(index[0]) == 0 || index[0] == '&' || index[0] == '[') return syntax_error();
  head.index.assign(index);
  for (char& c : head.index) c = upper(c);
  double* const value[] = {&head.from, &head.to, &head.step};
  std::string_view rest = tail.substr(equals + 1);
  std::size_t n = 0;
  for (;;) {
    const auto start = rest.find_first_not_of(" ,");
    if (start == std::string_view::npos) break;
    rest.remove_prefix(start);
    const std::string_view word = rest.substr(0, rest.find_first_of(" ,"));
    rest.remove_prefix(word.size());
    const Scalar number = scalar_value(ws, word, true);
    if (n == 3 || !number.ok) return syntax_error();
    *value[n++] = number.value;
  }
  return n >= 2 || syntax_error();
}

// Passes of the loop, 0 when the bounds are bad. The count is fixed at the start, with an allowance
// for steps such as 0.1 that doubles can't hold.
std::int64_t count_passes(const DoHead& h) {
  constexpr double ALLOWANCE = 1e-9, MOST = 1e15;
  const bool possible = h.step > 0 ? h.from <= h.to : h.step < 0 && h.from >= h.to;
  const auto inside = [](double x) { return x >= LOWEST && x <= HIGHEST; };
  if (!possible || !inside(h.from) || !inside(h.to)) return 0;
  const double steps = std::floor((h.to - h.from) / h.step + ALLOWANCE) + 1;
  return steps < MOST ? static_cast<std::int64_t>(steps) : 0;
}

// Lines behind a command that a false IF drops, and what they are to it.
enum class Dropped { Inside, Last, Outside };

// Passes over the lines of a dropped block; `kind` tells of a line's command what it is. A line
// outside of the block is left for the reader. False when the input ends first.
template <class Kind>
bool drop_lines(Kind kind) {
  TextInput& source = command_stream();
  const bool shown = OSCOM.ODECHO || levels().empty();
  bool continued = false;
  std::string text;
  for (std::string_view line; !stop_requested() && source.line(line);) {
    text.assign(right_trimmed(line));
    std::replace(text.begin(), text.end(), '\t', ' ');
    const std::string_view words = trimmed(text);
    const bool comment = !continued && words.starts_with('*');
    const bool own = continued || comment || words.empty();
    const Dropped place = own ? Dropped::Inside : kind(stored_command(text));
    if (place == Dropped::Outside) {
      source.unread();
      return true;
    }
    if (shown) echo_stored_line(text);
    if (place == Dropped::Last) return true;
    continued = !comment && words.ends_with('&');
  }
  return false;
}

bool ends_run(int command) { return command == K_STOP || command == K_QUIT || command == K_EXIT; }

// RESTRICT lines that belong to the dropped command, with their END.
void drop_restrictions() {
  bool inside = false;
  drop_lines([&](int command) {
    if (command == K_END && inside) return Dropped::Last;
    if (command != K_RESTRICT && !(inside && command == K_TEST)) return Dropped::Outside;
    inside = true;
    return Dropped::Inside;
  });
}

// The equations of a dropped SYSTEM.
void drop_equations(Workspace ws, std::string_view tail) {
  const Scalar count = scalar_value(ws, tail.substr(0, tail.find_first_of(" ,/(")), true);
  if (!count.ok) return;
  double left = count.value;
  if (left < 1) return;
  drop_lines([&](int command) {
    if (command != K_OLSQ) return Dropped::Outside;
    return --left < 1 ? Dropped::Last : Dropped::Inside;
  });
}

}  // namespace

void block_without_end() {
  // Who gives a block up at the prompt has made no mistake.
  if (stop_requested()) {
    OCOM.ODONT = true;
    return;
  }
  fail(" ...ERROR..NO ENDO COMMAND FOUND IN DO LOOP");
}

void drop_block(Workspace ws) {
  const int opening = INPCOM.IKOD;
  if (opening == K_DO || opening == K_PROCEDUR) {
    Block dropped;
    capture_block(opening, dropped);
    return;
  }
  // At the keyboard only the command goes: the person has seen it and knows what is typed next.
  if (command_stream().terminal()) return;
  const std::string tail(trimmed(command_tail()));
  if (opening == K_READ) {
    SCANIT(ws);
    if (!SCNCOM.file && SCNCOM.INPAR == 0) skip_stream_data(ws);
  } else if (opening == K_TEST && tail.empty()) {
    drop_lines([](int command) {
      if (command == K_END) return Dropped::Last;
      return command == K_TEST || command == K_RESTRICT ? Dropped::Inside : Dropped::Outside;
    });
  } else if (opening == K_NLINEAR && !tail.empty() && tail[0] != '/') {
    // Any statement may stand among the equations.
    const bool ended = drop_lines([](int command) {
      if (ends_run(command)) return Dropped::Outside;
      return command == K_END ? Dropped::Last : Dropped::Inside;
    });
    if (!ended && !stop_requested()) {
      fail(" ...ERROR..END OF INPUT BEFORE THE END COMMAND OF THE BLOCK");
    }
  } else {
    if (opening == K_SYSTEM) drop_equations(ws, tail);
    // The RESTRICT option stands behind a "/".
    if (tail.find('/') != std::string::npos) drop_restrictions();
  }
}

void DO(Workspace ws) {
  const Trace trace("DO");
  // 1. The head; its words may be used up by the capture.
  DoHead head;
  const bool scanning = OSCOM.OSCAN;
  const bool good = parse_head(ws, command_tail(), head);
  const bool print = OCOM.OPUT;
  int loops = 0;
  for (const Level& level : levels()) loops += level.procedure ? 0 : 1;
  // 2. The body, also of a loop that can't run: its lines are no commands. Who has mistyped the
  // head at the prompt has not begun a body yet.
  if (!good && OSCOM.OTALK && levels().empty()) return;
  Block block;
  if (!capture_block(K_DO, block)) return block_without_end();
  const bool check = RUNCOM.settings.check;  // one pass is looked over
  if (!good || (scanning && !check)) return;
  if (OSCOM.OLDDO && loops >= OLD_LEVELS) {
    return fail(" ...ERROR..MORE THAN 2 NESTED DO LOOPS NOT PERMITTED");
  }
  // 3. The bounds, and the first pass.
  Level level;
  level.passes = check ? 1 : count_passes(head);
  if (level.passes == 0) {
    error_line<"(' ...ERROR..BAD DO LOOP PARAMETERS', 2G15.7)">(head.from, head.to);
    return end_unless_talking(0);
  }
  level.tells = print;
  level.index = head.index;
  level.variable = VARNUM(ws, head.index) > 0;
  level.from = head.from;
  level.step = head.step;
  if (!start_level(ws, std::move(level), std::move(block.body), block.begin, block.end)) return;
  const Level& running = levels().back();
  if (print) {
    say<"(' EXECUTION BEGINNING FOR DO LOOP  ', A, '= ', A)">(running.index, running.shown);
  }
}

// ENDO closes a loop while its body is captured, and is no command of its own; so for PROCEND.
void DOEND(Workspace) {
  const Trace trace("DOEND");
  fail<"(' ...ERROR..UNDEFINED DO LOOP VARIABLE - ', A)">(right_trimmed({INPCOM.COMWRD, KEYLEN}));
}

// GOTO label: goes on at the line that carries it. In a body it is sought forward and then once
// from the start of the body, in a file forward only; lines in between are not run.
void GOTOX(Workspace) {
  const Trace trace("GOTO");
  if (OSCOM.OSCAN) return;
  if (SCNCOM.NWORDS < 1) return fail(" ...ERROR..SYNTAX ERROR");
  const std::string_view wanted = TOKCOM.token[1].text.substr(0, KEYLEN);
  const auto is_target = [&](std::string_view text) {
    const std::string_view label = stored_label(text).substr(0, KEYLEN);
    return std::ranges::equal(label, wanted, [](char a, char b) { return upper(a) == b; });
  };
  if (!levels().empty() && levels().back().text == &command_stream()) {
    BodyText& text = *levels().back().text;
    const std::int32_t n = text.end() - text.begin();
    for (std::int32_t k = 0; k < n; ++k) {
      std::int32_t at = text.at() + k;
      if (at >= text.end()) at -= n;
      if (!is_target(text.body()->lines[static_cast<std::size_t>(at)].text)) continue;
      return text.go_to(at);
    }
    return fail<"(' ...ERROR..LABEL ', A, ' NOT FOUND')">(wanted);
  }
  // The end of the file ends the run as it would without the GOTO.
  TextInput& source = command_stream();
  for (std::string_view line; source.line(line);) {
    if (is_target(line)) return source.unread();
    if (stop_requested()) return;
  }
}

}  // namespace korvel
