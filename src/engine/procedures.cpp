// Procedures: PROCEDUR stores a body under a name, EXECUTE runs it, FILE PROC loads files of them.
//
// A stored procedure is a character variable of the workspace, so that SAVE, DELETE and NAMES treat
// it like any other: its first line is the PROCEDUR line with the names of the arguments, and its
// lines are parted by "&". The exact lines are kept beside it, for a line may hold an "&" of its
// own; they count as long as the variable holds the text that was made of them.
#include <algorithm>
#include <map>

#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/files.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/run.h"
#include "engine/text_commands.h"

namespace korvel {
namespace {

constexpr int MAXSPVERR = 5;

struct Stored {
  std::string text;  // as the variable holds it
  std::shared_ptr<Body> body;
};
std::map<std::string, Stored, std::less<>>& stored() {
  static std::map<std::string, Stored, std::less<>> s;
  return s;
}

std::string up_cased(std::string_view word) {
  std::string s(word.substr(0, KEYLEN));
  for (char& c : s) c = upper(c);
  return s;
}

// Words parted by blanks and commas.
std::vector<std::string_view> words_of(std::string_view text) {
  std::vector<std::string_view> words;
  for (;;) {
    const auto start = text.find_first_not_of(" ,");
    if (start == std::string_view::npos) return words;
    text.remove_prefix(start);
    words.push_back(text.substr(0, text.find_first_of(" ,")));
    text.remove_prefix(words.back().size());
  }
}

std::string joined(const Body& body) {
  std::string text;
  for (const BodyLine& line : body.lines) {
    if (!text.empty()) text += '&';
    text += line.text;
  }
  return text;
}

// False, with an error, when data have the name of a procedure.
bool name_free(Workspace ws, std::string_view name) {
  const int I = VARNUM(ws, name);
  if (I <= 0 || INFO(ws, I).ITYPE >= STRING5) return true;
  fail<"(' ...ERROR..VARIABLE ', A, ' ALREADY EXISTS')">(name);
  return false;
}

// Keeps a body, whose first line is its PROCEDUR line, under its name. False after an error.
bool store_procedure(Workspace ws, std::shared_ptr<Body> body) {
  const std::string& name = body->name;
  if (!name_free(ws, name)) return false;
  std::string text = joined(*body);
  store_text(ws, name, text);
  if (OCOM.ODONT) return false;
  stored()[name] = {std::move(text), std::move(body)};
  return true;
}

// The body of the character variable I.
std::shared_ptr<Body> stored_body(Workspace ws, int I) {
  const auto words = elements(ws, I);
  const std::string_view text =
      right_trimmed({reinterpret_cast<const char*>(words.data()), words.size_bytes()});
  const std::string name(NAME(ws, I));
  const auto known = stored().find(name);
  if (known != stored().end() && right_trimmed(known->second.text) == text) {
    return known->second.body;
  }
  auto body = std::make_shared<Body>();
  body->name = name;
  for (std::string_view rest = text;;) {
    const auto end = rest.find('&');
    body->lines.push_back({std::string(rest.substr(0, end)), INPCOM.KLINE});
    if (end == std::string_view::npos) break;
    rest.remove_prefix(end + 1);
  }
  stored()[name] = {std::string(text), body};
  return body;
}

// Arguments of a level: the words of the call under the names of the PROCEDUR line.
void bind_arguments(const Body& body, std::span<const std::string> actual, Level& level) {
  if (body.lines.empty() || stored_command(body.lines[0].text) != K_PROCEDUR) return;
  const auto names = words_of(stored_tail(body.lines[0].text));
  for (std::size_t k = 1; k < names.size(); ++k) {
    level.formals.emplace_back(up_cased(names[k]), k - 1 < actual.size() ? actual[k - 1] : "");
  }
  if (actual.size() + 1 > std::max<std::size_t>(names.size(), 1)) {
    warn<"(' ...WARNING..PROC ', A, ' TAKES ', I0, ' ARGUMENTS, THE OTHERS ARE NOT USED')">(
        body.name, static_cast<int>(names.size()) - 1);
  }
}

// The procedure file of a name: in PROCPATH, as typed, in upper and lower case, with .PRC or .prc
// behind it, or bare when its first word is PROCEDUR. Empty when there is none.
std::string procedure_file(std::string_view typed) {
  std::string high(typed), low(typed);
  for (char& c : high) c = upper(c);
  for (char& c : low) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  for (const std::string& name : {std::string(typed), high, low}) {
    for (const char* extension : {".PRC", ".prc", ""}) {
      std::string path = resolve_read_name(RUNCOM.vproc + name + extension);
      const auto file = open_text(path);
      if (file == nullptr) continue;
      if (*extension != '\0') return path;
      for (std::string_view line; file->line(line);) {
        if (trimmed(line).empty() || trimmed(line)[0] == '*') continue;
        if (stored_command(line) == K_PROCEDUR) return path;
        break;
      }
    }
  }
  return {};
}

// The next whole command of a procedure file.
bool next_command(TextInput& file, BodyLine& out) {
  out.text.clear();
  for (std::string_view line; file.line(line);) {
    line = right_trimmed(line);
    if (out.text.empty()) {
      if (trimmed(line).empty()) continue;
      out.line = file.line_number();
    }
    const char first = out.text.empty() ? trimmed(line)[0] : ' ';
    out.text += line;
    std::replace(out.text.begin(), out.text.end(), '\t', ' ');
    if (first == '*' || first == '$' || !out.text.ends_with('&')) return true;
    out.text.back() = ' ';
  }
  return !out.text.empty();
}

bool load_file(Workspace ws, const std::string& path) {
  if (!file_allowed(path)) {
    refuse_in_safe_run();
    return false;
  }
  const auto file = open_text(path);
  if (file == nullptr) return false;
  std::shared_ptr<Body> body;
  int loaded = 0;
  for (BodyLine line; next_command(*file, line);) {
    const int command = stored_command(line.text);
    if (body == nullptr) {
      if (command != K_PROCEDUR) continue;  // whatever else a file holds isn't run
      const auto words = words_of(stored_tail(line.text));
      if (words.empty() || NAMCHK(words[0][0]) != 1) continue;
      body = std::make_shared<Body>();
      body->name = up_cased(words[0]);
      body->file = path;
    } else if (command == K_PROCEND) {
      if (!store_procedure(ws, std::move(body))) return false;
      body = nullptr;
      ++loaded;
      continue;
    } else if (command == K_PROCEDUR) {
      fail(" ...ERROR..SYNTAX ERROR");
      return false;
    }
    body->lines.push_back(line);
  }
  if (body != nullptr) {
    fail(" ...ERROR..NO ENDO COMMAND FOUND IN DO LOOP");
    return false;
  }
  return loaded > 0;
}

void invalid_procedure(std::string_view name) {
  error_line<"(' ...ERROR.. ', A, ' IS INVALID VARIABLE FOR EXEC ')">(name);
  OCOM.ODONT = true;
  INPCOM.IKOD = 0;
  if (OSCOM.OTALK) return;  // typing errors must not cost anybody the workspace
  if (++INPCOM.SPVERR > MAXSPVERR) XXIT(0);
}

// A body is looked over once, each argument standing for itself.
void look_over(Workspace ws, std::span<const std::string_view> words, Block block) {
  Level level;
  level.procedure = true;
  for (const std::string_view word : words.subspan(1)) {
    level.formals.emplace_back(up_cased(word), std::string(word));
  }
  start_level(ws, std::move(level), std::move(block.body), block.begin, block.end);
}

}  // namespace

void PROCDEF(Workspace ws) {
  const Trace trace("PROCDEF");
  // 1. Name and arguments, before the capture uses the command's text up.
  const std::string head(trimmed(command_typed()));
  const auto words = words_of(stored_tail(head));
  const bool good = !words.empty() && NAMCHK(words[0][0]) == 1;
  // 2. The body, also when it can't be kept: its lines are no commands. Who has mistyped the name
  // at the prompt has not begun a body yet.
  if (OSCOM.OTALK && levels().empty()) {
    if (!good) return fail(" ...ERROR..SYNTAX ERROR");
    if (!name_free(ws, up_cased(words[0]))) return;
  }
  Block block;
  if (!capture_block(K_PROCEDUR, block)) return block_without_end();
  if (!good) return fail(" ...ERROR..SYNTAX ERROR");
  if (OSCOM.OSCAN) {
    if (RUNCOM.settings.check) look_over(ws, words, std::move(block));
    return;
  }
  auto body = std::make_shared<Body>();
  body->name = up_cased(words[0]);
  body->file = block.body->file;
  body->lines.push_back({head, INPCOM.KLINE});
  for (std::int32_t k = block.begin; k < block.end; ++k) {
    const BodyLine& line = block.body->lines[static_cast<std::size_t>(k)];
    if (stored_command(line.text) == K_PROCEDUR) return fail(" ...ERROR..SYNTAX ERROR");
    body->lines.push_back(line);
  }
  store_procedure(ws, std::move(body));
}

void EXECS(Workspace ws) {
  const Trace trace("EXEC");
  if (OSCOM.OSCAN) return;
  std::vector<std::string> words;
  for (const std::string_view word : words_of(stored_tail(command_typed())))
    words.emplace_back(word);
  if (words.empty()) {
    INPCOM.IKOD = 0;
    return;
  }
  const std::string name = up_cased(words[0]);
  // 1. The stored text; a procedure that isn't there is loaded from its file, but only from the
  //    top: inside a level a missing procedure is a mistake of the script.
  int I = VARNUM(ws, name);
  if ((I <= 0 || INFO(ws, I).ITYPE < STRING5) && NAMCHK(name[0]) == 1) {
    const std::string path = procedure_file(words[0]);
    if (!path.empty() && !levels().empty()) {
      error_line<"(' ...ERROR..YOU NEED TO PRELOAD THE ', A, ' PROC WITH THE COMMAND: ')">(name);
      say<"('    FILE PROC ', A)">(name);
      return end_unless_talking(0);
    }
    if (!path.empty()) {
      load_file(ws, path);
      if (OCOM.ODONT) return;
      I = VARNUM(ws, name);
    }
  }
  if (I <= 0 || INFO(ws, I).ITYPE < STRING5) return invalid_procedure(name);
  // 2. Its level. The first line names the arguments and is not run.
  std::shared_ptr<Body> body = stored_body(ws, I);
  Level level;
  level.procedure = true;
  bind_arguments(*body, std::span(words).subspan(1), level);
  const bool head = !body->lines.empty() && stored_command(body->lines[0].text) == K_PROCEDUR;
  const auto end = static_cast<std::int32_t>(body->lines.size());
  start_level(ws, std::move(level), std::move(body), head ? 1 : 0, end);
}

bool load_procedures(Workspace ws, std::string_view typed) {
  const std::string path = procedure_file(typed);
  if (path.empty()) {
    error_line<"(' ...WARNING..FILE DOES NOT EXIST:', A)">(typed);
    mark_failed();
    return false;
  }
  if (load_file(ws, path)) return true;
  if (!OCOM.ODONT) fail<"(' ...ERROR..', A, ' HOLDS NO PROCEDURE')">(path);
  return false;
}

}  // namespace korvel
