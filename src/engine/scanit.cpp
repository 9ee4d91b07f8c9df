// SCANIT: the text of a command into its variable list and its option tokens.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "data/containers.h"
#include "engine/commands.h"
#include "engine/completion.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/run.h"

namespace korvel {

constinit ScnCom SCNCOM{};
constinit TokCom TOKCOM{};

namespace {

bool name_char(char c) { return NAMCHK(c) >= 0 || c == '_' || c == '$'; }

// The text being scanned, with a position counted from 0.
struct Cursor {
  std::string_view text, typed;
  std::size_t at;
  bool more() const { return at < text.size(); }
  char peek(std::size_t ahead = 0) const {
    return at + ahead < text.size() ? text[at + ahead] : '\0';
  }
  void skip_blanks() {
    while (more() && text[at] == ' ') ++at;
  }
  std::string_view take(std::size_t n) {
    const std::string_view part = text.substr(at, n);
    at += n;
    return part;
  }
};

void syntax_error() { fail(" ...ERROR..SYNTAX ERROR"); }

// Commands in whose list a name may be new.
bool accepts_new() {
  return INPCOM.IKOD == K_READ || INPCOM.IKOD == K_COPY || INPCOM.IKOD == K_RESTORE ||
         INPCOM.IKOD == K_CONFIDEN;  // looks its names up among the coefficients: CONSTANT
}
bool names_a_file() {
  switch (INPCOM.IKOD) {
    case K_READ:
    case K_PRINT:
    case K_WRITE:
    case K_SAVE:
    case K_RESTORE:
      return true;
    default:
      return false;
  }
}

// The place of a list entry that must not exist: reported, but while scanning it counts nowhere,
// since the command that would have made the name was not run.
void report_missing(std::string_view name) {
  if (OSCOM.OSCAN) {
    say<"(' ...ERROR..VARIABLE ', A, ' DOES NOT EXIST.')">(name);
    OCOM.ODONT = true;
    return;
  }
  fail<"(' ...ERROR..VARIABLE ', A, ' DOES NOT EXIST.')">(name);
  note_near_variable(workspace(), name);
}

bool add_item(const ListItem& item) {
  if (SCNCOM.NF >= static_cast<int>(SCNCOM.INLIST.size())) {
    fail(" ...ERROR..STATEMENT TOO LONG");
    return false;
  }
  SCNCOM.INLIST[static_cast<std::size_t>(SCNCOM.NF++)] = item;
  return true;
}

// An integer with its sign inside a lag bracket.
bool scan_integer(Cursor& c, int& value) {
  c.skip_blanks();
  bool negative = false;
  if (c.peek() == '-' || c.peek() == '+') negative = c.take(1)[0] == '-';
  if (NAMCHK(c.peek()) != 0) return false;
  std::int64_t v = 0;
  while (NAMCHK(c.peek()) == 0)
    v = std::min<std::int64_t>(v * 10 + (c.take(1)[0] - '0'), 1000000000);
  value = static_cast<int>(negative ? -v : v);
  c.skip_blanks();
  return true;
}

struct LagForm {
  int from = 0, to = 0, order = 0, endcon = 0;
  bool range = false;
};

// (first[.last][,order[,endcon]]) behind a name; the digits behind the point are an integer.
bool scan_lags(Cursor& c, LagForm& lag) {
  c.at += 1;
  if (!scan_integer(c, lag.from)) return false;
  lag.to = lag.from;
  if (c.peek() == '.') {
    c.at += 1;
    lag.range = true;
    if (!scan_integer(c, lag.to) || lag.to < lag.from) return false;
  }
  if (c.peek() == ',') {
    c.at += 1;
    if (!scan_integer(c, lag.order)) return false;
    if (c.peek() == ',') {
      c.at += 1;
      if (!scan_integer(c, lag.endcon)) return false;
    }
  }
  return c.take(1) == ")";
}

// Looks a name up and adds it, once for each lag.
bool add_name(Workspace ws, std::string_view name, int column, const LagForm& lag, bool group) {
  ListItem item{.var = VARNUM(ws, name), .group = group, .name = name};
  if (item.var == 0 && OSCOM.ODB && !OSCOM.OSCAN && !accepts_new()) {  // a databank may have it
    item.var = load_from_databank(ws, name);
    if (item.var < 0) return false;
  }
  if (item.var == 0 && RUNCOM.settings.check && !accepts_new()) item.var = stand_in(name);
  if (item.var == 0) {
    if (!accepts_new()) {
      report_missing(name);
      return false;
    }
    item.column = column;
    ++SCNCOM.NEWV;
  } else if (column > 0) {
    item.var = item.var * DATCOM.MXCOL + column;
  }
  if (INPCOM.IKOD == K_READ) {
    for (const ListItem& other : SCNCOM.list()) {
      if (other.name == name && other.var == item.var && other.column == item.column) {
        fail<"(' ...ERROR.. ', A, ' IS IN READ COMMAND MORE THAN ONCE')">(name);
        return false;
      }
    }
  }
  if (lag.range && OCOM.OPUT) {
    say<"(' LAG FOR ', A, ' RANGE = ', I0, 1X, I0, ' ORDER= ', I0, ' ENDCON=', I0)">(
        name, lag.from, lag.to, lag.order, lag.endcon);
  }
  item.order = lag.order;
  item.endcon = lag.endcon;
  for (int n = lag.from; n <= lag.to; ++n) {
    item.lag = n;
    if (!add_item(item)) return false;
  }
  return true;
}

// A word of the list, cut to the 8 characters that count.
std::string_view scan_name(Cursor& c) {
  std::size_t n = 0;
  while (name_char(c.peek(n))) ++n;
  const std::string_view word = c.take(n);
  if (n > KEYLEN && OCOM.OPUT && word[0] != '$') {
    warn<"(' ...WARNING..', A, ' IS TRUNCATED TO ', I0)">(word.substr(0, 64), KEYLEN);
  }
  return word.substr(0, KEYLEN);
}

// Texts of the names that ranges of the running command stand for.
struct RangeNames {
  std::array<char, 40000> text{};
  std::size_t used = 0;
};
constinit RangeNames RANGENAMES{};

// X1-X12: the names between two ends of the same stem.
bool add_range(Workspace ws, std::string_view first, std::string_view last, bool group) {
  struct Stem {
    std::string_view stem;
    int number = -1;
  };
  const auto split = [](std::string_view name) {
    std::size_t n = name.size();
    while (n > 0 && NAMCHK(name[n - 1]) == 0) --n;
    Stem s{name.substr(0, n), -1};
    if (n < name.size()) s.number = static_cast<int>(FSUMS(name.substr(n)).value);
    return s;
  };
  const Stem a = split(first), b = split(last);
  if (a.number < 0 || b.number < 0 || a.stem != b.stem || a.number >= b.number ||
      b.number >= 10000) {
    syntax_error();
    return false;
  }
  // The first end stands in the list already under its text; a leading zero is dropped there too.
  --SCNCOM.NF;
  for (int k = a.number; k <= b.number; ++k) {
    if (RANGENAMES.used + KEYLEN + 8 > RANGENAMES.text.size()) {
      fail(" ...ERROR..STATEMENT TOO LONG");
      return false;
    }
    char* out = RANGENAMES.text.data() + RANGENAMES.used;
    char digits[8];
    int n = 0;
    for (int rest = k; n == 0 || rest > 0; rest /= 10)
      digits[n++] = static_cast<char>('0' + rest % 10);
    const char* name = out;
    for (const char ch : a.stem) *out++ = ch;
    while (n > 0) *out++ = digits[--n];
    const auto length = std::min<std::size_t>(static_cast<std::size_t>(out - name), KEYLEN);
    RANGENAMES.used += length;
    if (!add_name(ws, {name, length}, 0, {}, group)) return false;
    if (group) ++SCNCOM.NFPAR;
  }
  return true;
}

// The word in front of the list.
void scan_count(Cursor& c) {
  c.skip_blanks();
  std::size_t n = 0;
  while (name_char(c.peek(n)) || c.peek(n) == '.' || (n == 0 && c.peek() == '-')) ++n;
  SCNCOM.count = c.take(n);
}

// The unit or file in brackets behind READ, PRINT or WRITE.
bool scan_file(Cursor& c) {
  const auto close = c.text.find(')', c.at);
  if (close == std::string_view::npos) {
    fail(" ...ERROR..SYNTAX ERROR IN SPECIFYING READ UNIT OR PARENTHESES");
    return false;
  }
  const std::string_view name = trimmed(c.typed.substr(c.at + 1, close - c.at - 1));
  c.at = close + 1;
  if (name.empty()) {
    fail(" ...ERROR..SYNTAX ERROR IN SPECIFYING READ UNIT OR PARENTHESES");
    return false;
  }
  const bool digits = std::ranges::all_of(name, [](char ch) { return NAMCHK(ch) == 0; });
  if (digits && name.size() < 9) {
    SCNCOM.INPAR = static_cast<int>(FSUMS(name).value);
  } else {
    SCNCOM.file = true;
    SCNCOM.file_name = name;
  }
  ++SCNCOM.NFPAR;
  return true;
}

bool add_token(std::string_view text, std::string_view typed, bool value, std::size_t position,
               int& count, int limit) {
  if (count >= limit) {
    fail(" ...ERROR..STATEMENT TOO LONG");
    return false;
  }
  TOKCOM.token[static_cast<std::size_t>(++count)] = {text, typed, value,
                                                     static_cast<int>(position)};
  return true;
}

// Splits the rest of the command into words, "=" and values. Options also part at brackets.
bool split_words(Cursor& c, bool options, int& count) {
  const int limit = options ? MAXOPS : MAXWORDS;
  bool value = false;
  while (c.more()) {
    const char ch = c.peek();
    if (ch == ' ' || ch == ',' || (options && (ch == '(' || ch == ')'))) {
      ++c.at;
      continue;
    }
    const std::size_t start = c.at;
    if (ch == '=') {
      ++c.at;
      if (!add_token("=", "=", false, start, count, limit)) return false;
      value = true;
      continue;
    }
    std::size_t n = 0;
    if (value && (ch == '"' || ch == '\'')) {  // a quoted value may hold blanks
      const auto close = c.text.find(ch, start + 1);
      if (close != std::string_view::npos) {
        c.at = close + 1;
        if (!add_token(c.text.substr(start + 1, close - start - 1),
                       c.typed.substr(start + 1, close - start - 1), true, start, count, limit)) {
          return false;
        }
        value = false;
        continue;
      }
    }
    while (start + n < c.text.size() &&
           std::string_view(" ,=").find(c.text[start + n]) == std::string_view::npos &&
           !(options && (c.text[start + n] == '(' || c.text[start + n] == ')'))) {
      ++n;
    }
    c.at += n;
    if (!add_token(c.text.substr(start, n), c.typed.substr(start, n), value, start, count, limit)) {
      return false;
    }
    value = false;
  }
  return true;
}

// The variable list up to "/", "\" or the end.
void scan_list(Workspace ws, Cursor& c) {
  bool group = false;
  bool fresh = true;      // nothing has been met yet: a bracket is a file
  std::string_view last;  // the name a "-" would extend, empty when it can't
  bool last_plain = false;
  while (c.more()) {
    const char ch = c.peek();
    if (ch == ' ' || ch == ',') {
      ++c.at;
      continue;
    }
    if (ch == '/') {
      ++c.at;
      split_words(c, true, SCNCOM.NOPS);
      return;
    }
    if (ch == '\\') return;
    if (ch == '(') {
      if (fresh && names_a_file()) {
        if (!scan_file(c)) return;
      } else if (!group) {
        group = true;
        ++c.at;
      } else {
        return syntax_error();
      }
      fresh = false;
      last = {};
      continue;
    }
    fresh = false;
    if (ch == ')') {
      if (!group) return syntax_error();
      group = false;
      ++c.at;
      continue;
    }
    if (ch == '-') {
      ++c.at;
      c.skip_blanks();
      if (last.empty() || !last_plain || NAMCHK(c.peek()) != 1) return syntax_error();
      const std::string_view end = scan_name(c);
      if (!add_range(ws, last, end, group)) return;
      last = {};
      continue;
    }
    if (NAMCHK(ch) != 1 && ch != '$') return syntax_error();
    const std::string_view name = scan_name(c);
    if (std::count(name.begin(), name.end(), '$') > 1) return syntax_error();
    int column = 0;
    LagForm lag;
    if (c.peek() == ':') {
      ++c.at;
      if (!scan_integer(c, column) || column < 1) return syntax_error();
      if (column > DATCOM.MXCOL) {
        return fail<"(' ...ERROR.. ', I0, ' EXCEEDS MAXCOL=', I0, ' USE SET MAXCOL=')">(
            column, DATCOM.MXCOL);
      }
    }
    if (c.peek() == '(') {
      if (!scan_lags(c, lag)) return syntax_error();
      if (lag.order < 0 || lag.order > 999 || lag.endcon < 0 || lag.endcon > 9)
        return syntax_error();
    }
    // A range is known by the "-" behind the name, so that its first end isn't looked up alone.
    Cursor ahead = c;
    ahead.skip_blanks();
    last = name;
    last_plain = column == 0 && !lag.range && lag.from == 0;
    if (ahead.peek() == '-' && last_plain) {
      if (!add_item({.name = name})) return;
      continue;
    }
    if (!add_name(ws, name, column, lag, group)) return;
    if (group) ++SCNCOM.NFPAR;
  }
  if (group) syntax_error();
}

}  // namespace

int stand_in(std::string_view name) {
  static std::vector<std::string> names;
  auto at = std::ranges::find(names, name);
  if (at == names.end()) at = names.insert(names.end(), std::string(name));
  const int number = DATCOM.MAXVAR - static_cast<int>(at - names.begin());
  return number > DATCOM.NVARS + 1 ? number : 0;
}

static void clear_scan() {
  SCNCOM.NF = SCNCOM.NWORDS = SCNCOM.NOPS = SCNCOM.NFPAR = SCNCOM.INPAR = SCNCOM.NEWV = 0;
  SCNCOM.file = false;
  SCNCOM.file_name = {};
  SCNCOM.count = {};
  RANGENAMES.used = 0;
  TOKCOM.token[0] = {{INPCOM.COMWRD, KEYLEN}, {INPCOM.COMWRD, KEYLEN}, false, 0};
}

void scan_tail(Workspace ws, int position) {
  const Trace trace("SCANIT");
  clear_scan();
  Cursor c{command_text(), command_typed(), static_cast<std::size_t>(position)};
  scan_list(ws, c);
  SCNCOM.NWORDS = SCNCOM.NF;
}

void SCANIT(Workspace ws) {
  const Trace trace("SCANIT");
  clear_scan();
  Cursor c{command_text(), command_typed(), static_cast<std::size_t>(SCNCOM.ISTART)};
  switch (COMMANDS[static_cast<std::size_t>(INPCOM.IKOD - 1)].tail) {
    case Tail::Count:
      scan_count(c);
      [[fallthrough]];
    case Tail::List:
      scan_list(ws, c);
      SCNCOM.NWORDS = SCNCOM.NF;
      break;
    case Tail::Words:
      split_words(c, false, SCNCOM.NWORDS);
      break;
    case Tail::Options:
      split_words(c, true, SCNCOM.NOPS);
      break;
    case Tail::Raw:
      break;
  }
}

}  // namespace korvel
