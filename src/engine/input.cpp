// INPUT: physical lines to the next command.
#include "engine/input.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/host.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "engine/set.h"
#include "engine/syscmd.h"
#include "engine/text_commands.h"

namespace korvel {
namespace {

constexpr int MAXPIECES = 4096;  // physical lines of one command whose echo is kept apart

// The command being built: as typed and as run, position by position. `piece` holds where each
// physical line begins, for the echo.
struct CommandBuffer {
  std::array<char, LINMAX> COMBUF;
  std::array<char, LINMAX> typed;
  std::array<int, MAXPIECES> piece;
  int pieces = 0;
  int length = 0;
};
constinit CommandBuffer BUFFER{};

// A command that was given back; its text is still in BUFFER.
struct GivenBack {
  bool waits = false, OPUT = true;
  int IKOD = 0, KLINE = 0, ISTART = 0;
  char COMWRD[sizeof INPCOM.COMWRD] = {};
};
constinit GivenBack GIVENBACK{};

bool take_given_back() {
  if (!GIVENBACK.waits) return false;
  GIVENBACK.waits = false;
  INPCOM.IKOD = GIVENBACK.IKOD;
  INPCOM.KLINE = GIVENBACK.KLINE;
  SCNCOM.ISTART = GIVENBACK.ISTART;
  OCOM.OPUT = GIVENBACK.OPUT;
  OCOM.OEOF = false;
  std::memcpy(INPCOM.COMWRD, GIVENBACK.COMWRD, sizeof GIVENBACK.COMWRD);
  return true;
}

constexpr int MAXUNKNOWN = 5;

// Whether the line that was read last stands in a body: a whole command, whatever its length.
bool in_body() { return !levels().empty() && levels().back().text == &command_stream(); }

// The text of a character variable by its name, without trailing blanks; false when there is none.
bool bracket_text(Workspace ws, std::string_view name, std::string_view& text) {
  if (name.empty() || name.size() > KEYLEN) return false;
  if (const std::string* formal = formal_text(name)) {
    text = *formal;
    return true;
  }
  const int I = VARNUM(ws, name);
  if (I <= 0) return false;
  const Place p = INFO(ws, I);
  if (p.ITYPE != STRING5 && p.ITYPE != CHARVAR) return false;
  const auto words = elements(ws, I);
  text = right_trimmed({reinterpret_cast<const char*>(words.data()), words.size_bytes()});
  return true;
}

// A line for the shell; these may have any length.
bool system_line(std::string_view line) {
  const auto at = line.find_first_not_of(" \t?^=");
  return BUFFER.length == 0 && at != std::string_view::npos && line[at] == '$';
}

// Characters of a physical line that count.
std::size_t length_limit() { return static_cast<std::size_t>(INPCOM.LCOLEN); }

// What counts of a line, without trailing blanks. A formula that lost its end could still be one,
// so that is told, unless the limit was set by the user: decks may hold anything behind it.
std::string_view counted_part(std::string_view line) {
  line = right_trimmed(line);
  const std::size_t limit = length_limit();
  if (line.size() <= limit) return line;
  if (INPCOM.LCOLEN == InpCom{}.LCOLEN && !trimmed(line).starts_with('*')) {
    warn<"(' ...WARNING..LINE IS CUT AT COMLEN=', I0, ' CHARACTERS, CONTINUE IT BEHIND AN &')">(
        INPCOM.LCOLEN);
  }
  return right_trimmed(line.substr(0, limit));
}

void warn_too_long() {
  warn<"(' ...WARNING..COMMAND MAY BE NEAR OR OVER THE ', I0, ' CHARACTER LIMIT')">(LINMAX);
}

// Appends a physical line, tabs blanked and [NAME] of character variables replaced. What was put in
// is not looked at again. False when the limit was met.
bool append(Workspace ws, std::string_view line) {
  line = in_body() || system_line(line) ? right_trimmed(line) : counted_part(line);
  if (BUFFER.pieces < MAXPIECES)
    BUFFER.piece[static_cast<std::size_t>(BUFFER.pieces++)] = BUFFER.length;
  char* out = BUFFER.typed.data();
  auto put = [&](std::string_view text) {
    const auto room = static_cast<std::size_t>(LINMAX - BUFFER.length);
    const bool fits = text.size() <= room;
    text = text.substr(0, room);
    if (!text.empty()) std::memcpy(out + BUFFER.length, text.data(), text.size());
    BUFFER.length += static_cast<int>(text.size());
    return fits;
  };
  bool fits = true;
  while (!line.empty()) {
    const auto open = line.find('[');
    fits = put(line.substr(0, open)) && fits;
    if (open == std::string_view::npos) break;
    line.remove_prefix(open);
    const auto close = line.find(']');
    std::string_view text;
    if (close != std::string_view::npos && bracket_text(ws, line.substr(1, close - 1), text)) {
      fits = put(text) && fits;
      line.remove_prefix(close + 1);
    } else {
      fits = put(line.substr(0, 1)) && fits;
      line.remove_prefix(1);
    }
  }
  if (!fits) warn_too_long();
  return fits;
}

void blank_tabs(int from) {
  for (int i = from; i < BUFFER.length; ++i) {
    char& c = BUFFER.typed[static_cast<std::size_t>(i)];
    if (c == '\t') c = ' ';
  }
}

int trim_buffer() {
  BUFFER.length = LENTRM({BUFFER.typed.data(), static_cast<std::size_t>(BUFFER.length)});
  return BUFFER.length;
}

char typed_at(int i) { return i < BUFFER.length ? BUFFER.typed[static_cast<std::size_t>(i)] : ' '; }

int first_nonblank(int from) {
  while (from < BUFFER.length && typed_at(from) == ' ') ++from;
  return from;
}

// Makes the running text from the typed one.
void raise_case() {
  std::memcpy(BUFFER.COMBUF.data(), BUFFER.typed.data(), static_cast<std::size_t>(BUFFER.length));
  if (OSCOM.OLC) LCUC(BUFFER.COMBUF.data(), BUFFER.length);
  INPCOM.LCOL = BUFFER.length;
}

// Prints the command, a physical line after the other: "|_" before the first, "| " before others.
void echo(const char* text) {
  std::string without_secret;
  if (holds_pass_phrase({text, static_cast<std::size_t>(BUFFER.length)})) {
    without_secret = hide_pass_phrase({text, static_cast<std::size_t>(BUFFER.length)});
    text = without_secret.data();
  }
  for (int k = 0; k < BUFFER.pieces; ++k) {
    // A continuation without text may begin behind the last character that was kept.
    const int from = std::min(BUFFER.piece[static_cast<std::size_t>(k)], BUFFER.length);
    const int next =
        k + 1 < BUFFER.pieces ? BUFFER.piece[static_cast<std::size_t>(k) + 1] : BUFFER.length;
    const int to = std::clamp(next, from, BUFFER.length);
    std::string_view part = right_trimmed({text + from, static_cast<std::size_t>(to - from)});
    bool first = true;
    do {
      Line row;
      // Under SET CC a new page begins at each title.
      if (first && k == 0 && OSCOM.OCC && INPCOM.IKOD == K_TITLE) row.text("1");
      if (first && !OSCOM.OHTM) row.text(k == 0 ? "|_" : "| ");
      const auto room = static_cast<std::size_t>(LINELEN - row.cursor());
      row.text(part.substr(0, room));
      part.remove_prefix(std::min(room, part.size()));
      first = false;
      OUTLINE();
    } while (!part.empty());
  }
}

// Lines that are replayed are echoed again under SET DOECHO.
bool echoes() { return (OSCOM.OECHO || OSCOM.OSCR) && OCOM.OPUT && (OSCOM.ODECHO || !in_body()); }

void maybe_echo(const char* text) {
  if (echoes()) {
    echo(text);
    INPCOM.IECHO = 2;
  }
}

// A physical line that is not continued whatever it ends with: comments and system lines.
bool never_continued(std::string_view line) {
  const auto at = line.find_first_not_of(" \t");
  return at == std::string_view::npos || line[at] == '*' || line[at] == '$';
}

// FILE KEYBOARD: the command as it was typed, a physical line after the other.
void copy_pieces() {
  if (!keyboard_copied() || behind_first_input()) return;
  const std::string shown = hide_pass_phrase(command_typed());
  for (int k = 0; k < BUFFER.pieces; ++k) {
    const auto from = static_cast<std::size_t>(
        std::min(BUFFER.piece[static_cast<std::size_t>(k)], BUFFER.length));
    const bool last = k + 1 == BUFFER.pieces;
    const auto to = static_cast<std::size_t>(
        last ? BUFFER.length
             : std::min(BUFFER.piece[static_cast<std::size_t>(k) + 1], BUFFER.length));
    std::string piece(right_trimmed(std::string_view(shown).substr(from, to - from)));
    if (!last) piece += " &";
    copy_command(piece);
  }
}

// Reads one whole command into the buffer; false at the end of the input.
bool read_command(Workspace ws) {
  std::string_view line;
  BUFFER.length = BUFFER.pieces = 0;
  do {
    if (!read_physical(line)) return false;
  } while (line.find_first_not_of(" \t\r") == std::string_view::npos);
  INPCOM.KLINE = static_cast<int>(command_stream().line_number());
  const bool single = never_continued(line) || in_body();
  bool room = append(ws, line);
  blank_tabs(0);
  trim_buffer();
  // Beyond the limit lines are read, since they belong to the command, and dropped; the "&" of the
  // line that met it may have been cut off.
  const auto continued = [&] {
    if (!room) return right_trimmed(line.substr(0, length_limit())).ends_with('&');
    return BUFFER.length > 0 && typed_at(BUFFER.length - 1) == '&';
  };
  while (!single && continued()) {
    if (first_nonblank(0) == BUFFER.length - 1 && BUFFER.pieces == 1) break;  // the toggle "&"
    char& last = BUFFER.typed[static_cast<std::size_t>(BUFFER.length) - 1];
    if (last == '&') last = ' ';
    if (!read_physical(line)) {
      trim_buffer();
      break;
    }
    const int from = BUFFER.length;
    if (room) room = append(ws, line);
    blank_tabs(from);
    if (BUFFER.length > from) trim_buffer();
  }
  trim_buffer();
  if (!in_body()) copy_pieces();
  return true;
}

}  // namespace

bool read_stored_line(BodyLine& out) {
  std::string_view line;
  do {
    if (!read_physical(line)) return false;
  } while (line.find_first_not_of(" \t\r") == std::string_view::npos);
  out.line = command_stream().line_number();
  const bool single = never_continued(line);
  out.text = counted_part(line);
  while (!single && out.text.ends_with('&')) {
    out.text.back() = ' ';
    if (!read_physical(line)) break;
    if (out.text.size() < static_cast<std::size_t>(LINMAX)) {
      out.text += counted_part(line);
    } else if (right_trimmed(line.substr(0, length_limit())).ends_with('&')) {
      out.text.back() = '&';  // beyond the limit lines are dropped
    }
  }
  std::replace(out.text.begin(), out.text.end(), '\t', ' ');
  return true;
}

void echo_stored_line(std::string_view text) {
  if ((!OSCOM.OECHO && !OSCOM.OSCR) || !OCOM.OPUT) return;
  const std::string_view first = trimmed(text);
  if (first.empty() || first[0] == '$' || first[0] == '?') return;
  std::string shown(text.substr(0, LINMAX));
  const bool typed = first[0] == '*' || is_text_command(stored_command(text));
  if (OSCOM.OLC && !typed) LCUC(shown.data(), static_cast<int>(shown.size()));
  BUFFER.pieces = 1;
  BUFFER.piece[0] = 0;
  BUFFER.length = static_cast<int>(shown.size());
  echo(shown.data());
}

namespace {

void unknown_command(std::string_view word, std::string_view tail = {}) {
  error_line<"(' ...ERROR..UNKNOWN COMMAND...', A)">(word);
  INPCOM.IKOD = 0;
  if (!word.empty() && !OSCOM.OSCAN) tell_meaning(word, tail);
  tell_failed_command();
  if (OSCOM.OTALK) return;
  warn(" ...WARNING..CHECK OUTPUT CAREFULLY");
  if (++INPCOM.NUNKNO >= MAXUNKNOWN && !RUNCOM.settings.check) {
    error_line(" ...ERROR..NO MORE COMMANDS WILL BE READ");
    XXIT(0);
  }
}

// What the characters in front of a command word ask for.
enum class Prefix { Command, Unknown, Done, Menu, System };

// Walks over the prefix characters from `at` on; leaves `at` at the command word.
Prefix take_prefixes(int& at) {
  for (;;) {
    at = first_nonblank(at);
    if (at >= BUFFER.length) return Prefix::Done;
    const char c = typed_at(at);
    if (NAMCHK(c) == 1) return Prefix::Command;
    switch (c) {
      case '*':
        if (OSCOM.OECHO && echoes()) echo(BUFFER.typed.data());
        return Prefix::Done;
      case ':':
        return Prefix::Menu;
      case '$':
        return Prefix::System;
      case '?':
        OCOM.OPUT = false;
        break;
      case '&':
        OSCOM.OKOD = !OSCOM.OKOD;
        say<"(' ..COMMAND NAME MODE = ', A, ' TYPE & TO CHANGE')">(
            std::string_view(OSCOM.OKOD ? "TRUE" : "FALSE"));
        break;
      case '^':
        if (on_host() && !OSCOM.OSCAN) break_on_host();
        break;
      case '=':
        break;
      case '/': {
        const std::string_view text{BUFFER.typed.data(), static_cast<std::size_t>(BUFFER.length)};
        say(text.substr(0, LINELEN));
        return Prefix::Done;
      }
      default:
        if (c == '2' && (typed_at(at + 1) == 'S' || typed_at(at + 1) == 's'))
          return Prefix::Command;
        if (c == '9') return Prefix::Command;
        if (NAMCHK(c) != 0) return Prefix::Unknown;
        break;
    }
    ++at;
  }
}

// The word at `at`: its length in the text; COMWRD gets its first 8 characters, up-cased.
int take_word(int at) {
  int n = 0;
  while (NAMCHK(typed_at(at + n)) >= 0 || typed_at(at + n) == '_') ++n;
  std::memset(INPCOM.COMWRD, ' ', KEYLEN);
  for (int i = 0; i < n && i < KEYLEN; ++i) INPCOM.COMWRD[i] = upper(typed_at(at + i));
  return n;
}

// In the editor state every line is dropped but the one that ends it.
bool dropped_by_editor() {
  if (INPCOM.LKOD != K_KORVEDIT) return false;
  const int at = first_nonblank(0);
  if (NAMCHK(typed_at(at)) != 1) return true;
  take_word(at);
  return find_command(right_trimmed({INPCOM.COMWRD, KEYLEN})) != K_KORVEDIT;
}

// "$": a line for the shell, which counts as the command that a false IF drops.
void run_system_line(std::string_view text) {
  if (OCOM.ONOTIF) {
    OCOM.ONOTIF = false;
    if (OCOM.OPUT) warn(" ...WARNING..ABOVE STATEMENT NOT EXECUTED - PREVIOUS IF IS FALSE");
    return;
  }
  if (!OSCOM.OSCAN) SYSCMD(text);
}

// A row of numbers: data of the command in front, which a run that only looks doesn't read.
bool row_of_numbers() {
  const std::string_view text{BUFFER.typed.data(), static_cast<std::size_t>(BUFFER.length)};
  return text.find_first_of("0123456789") != std::string_view::npos &&
         text.find_first_not_of("0123456789.+-eE, \t") == std::string_view::npos;
}

// Finds the command in the buffer. True when there is one to run.
bool find_in_buffer() {
  if (dropped_by_editor()) return false;
  if (RUNCOM.settings.check && row_of_numbers()) return false;
  int at = 0;
  for (;;) {
    const Prefix prefix = take_prefixes(at);
    if (prefix == Prefix::Done) return false;
    raise_case();
    if (prefix == Prefix::Menu) {
      INPCOM.IKOD = K_MENU;
      SCNCOM.ISTART = BUFFER.length;
      return true;
    }
    if (prefix == Prefix::System) {
      run_system_line(command_typed().substr(static_cast<std::size_t>(at) + 1));
      return false;
    }
    if (!OSCOM.OKOD) {  // the line belongs to the command before
      if (INPCOM.LASKOD == 0) {
        maybe_echo(BUFFER.COMBUF.data());
        unknown_command({});
        return false;
      }
      INPCOM.IKOD = INPCOM.LASKOD;
      SCNCOM.ISTART = at;
      maybe_echo(BUFFER.COMBUF.data());
      return true;
    }
    if (prefix == Prefix::Unknown) {
      maybe_echo(BUFFER.COMBUF.data());
      unknown_command({BUFFER.typed.data() + at, 1});
      return false;
    }
    const int n = take_word(at);
    if (typed_at(at + n) == ':') {  // a label; the command stands behind it
      at += n + 1;
      continue;
    }
    const std::string_view word = right_trimmed({INPCOM.COMWRD, KEYLEN});
    INPCOM.IKOD = find_command(word);
    SCNCOM.ISTART = at + n;
    const bool typed = INPCOM.IKOD == K_FILE || is_text_command(INPCOM.IKOD);
    maybe_echo(typed ? BUFFER.typed.data() : BUFFER.COMBUF.data());
    if (INPCOM.IKOD == 0) {
      const std::string_view typed_text = command_typed().substr(static_cast<std::size_t>(at));
      unknown_command(typed_text.substr(0, static_cast<std::size_t>(n)),
                      typed_text.substr(static_cast<std::size_t>(n)));
      return false;
    }
    return true;
  }
}

}  // namespace

void give_back_command() {
  GIVENBACK.waits = true;
  GIVENBACK.IKOD = INPCOM.IKOD;
  GIVENBACK.KLINE = INPCOM.KLINE;
  GIVENBACK.ISTART = SCNCOM.ISTART;
  GIVENBACK.OPUT = OCOM.OPUT;
  std::memcpy(GIVENBACK.COMWRD, INPCOM.COMWRD, sizeof GIVENBACK.COMWRD);
}

void INPUT(Workspace ws) {
  const Trace trace("INPUT");
  INPCOM.LASKOD = INPCOM.IKOD > 0 ? INPCOM.IKOD : INPCOM.LASKOD;
  if (take_given_back()) return;
  for (;;) {
    INPCOM.IKOD = 0;
    INPCOM.IECHO = 0;
    OCOM.OPUT = OSCOM.OOPUT;
    OCOM.OEOF = false;
    bool read = false;
    {
      const AtPrompt waiting;
      read = read_command(ws);
    }
    if (!read) {
      OCOM.OEOF = true;
      return;
    }
    if (BUFFER.length > 0 && find_in_buffer()) break;
    if (RUNCOM.ended) return;
  }
  if (OSCOM.OLCOM) store_text(ws, "C$", hide_pass_phrase(command_text()));
  if (is_text_command(INPCOM.IKOD) && !OCOM.ONOTIF) store_text_command(ws);
}

bool is_replayed() { return in_body(); }

bool is_echoed() { return echoes(); }

std::string_view command_prompt() { return BUFFER.length > 0 ? "| " : "|_"; }

void forget_given_back() { GIVENBACK.waits = false; }

std::string_view command_text() {
  return {BUFFER.COMBUF.data(), static_cast<std::size_t>(BUFFER.length)};
}

std::string_view command_typed() {
  return {BUFFER.typed.data(), static_cast<std::size_t>(BUFFER.length)};
}

std::string_view command_tail() {
  return command_text().substr(static_cast<std::size_t>(SCNCOM.ISTART));
}

}  // namespace korvel
