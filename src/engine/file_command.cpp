// FILEX: the words of FILE.
#include "engine/file_command.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <string>

#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/files.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "engine/set.h"
#include "engine/syscmd.h"
#include "engine/units.h"

namespace korvel {
namespace {

using FileJob = void (*)(Workspace, std::string_view);

void not_available(Workspace, std::string_view) {
  error_line(" .. THIS COMMAND IS NOT AVAILABLE ON THIS SYSTEM");
}

bool whole_number(std::string_view text, int& n) {
  if (text.empty() || text.size() > 6) return false;
  n = 0;
  for (const char c : text) {
    if (NAMCHK(c) != 0) return false;
    n = n * 10 + (c - '0');
  }
  return true;
}

// The unit that a word acts on; false after the refusal.
bool unit_argument(std::string_view text, int& unit) {
  if (whole_number(text, unit)) return user_unit(unit);
  fail(" ...ERROR..SYNTAX ERROR");
  return false;
}

bool name_given(std::string_view name) {
  if (!name.empty()) return true;
  fail(" ...ERROR..FILE NAME IS MISSING");
  return false;
}

void backspace_job(Workspace, std::string_view rest) {
  int unit = 0;
  if (unit_argument(rest, unit)) backspace_unit(unit);
}
void close_job(Workspace, std::string_view rest) {
  int unit = 0;
  if (unit_argument(rest, unit) && close_unit(unit) && OCOM.OPUT) {
    say<"(' UNIT ', I0, ' IS CLOSED')">(unit);
  }
}
void rewind_job(Workspace, std::string_view rest) {
  int unit = 0;
  if (unit_argument(rest, unit)) rewind_unit(unit);
}
void inquire_job(Workspace, std::string_view rest) {
  int unit = 0;
  if (unit_argument(rest, unit)) inquire_unit(unit);
}
void cd_job(Workspace, std::string_view name) { change_folder(name); }
void pwd_job(Workspace, std::string_view) { print_folder(); }
void dir_job(Workspace, std::string_view name) { list_folder(name); }
void list_job(Workspace, std::string_view name) {
  if (name_given(name)) list_file(name);
}
void delete_job(Workspace, std::string_view name) {
  if (name_given(name)) delete_file(name);
}
void input_job(Workspace, std::string_view name) {
  if (name_given(name)) push_command_input(name, 0);
}
void output_job(Workspace, std::string_view name) { change_output(name); }
void screen_job(Workspace, std::string_view name) {
  if (name_given(name)) mirror_screen(name);
}
void keyboard_job(Workspace, std::string_view name) { mirror_keyboard(name); }
void print_job(Workspace, std::string_view name) {
  if (name_given(name)) say<"(' ..PRINTING ', A)">(name);
}
void proc_job(Workspace ws, std::string_view name) {
  if (name_given(name)) load_procedures(ws, name);
}
void databank_job(Workspace, std::string_view name) {
  if (name_given(name)) word_setting("BANKNAME") = name;
}
void ftp_job(Workspace, std::string_view name) {
  if (name_given(name)) transfer_file(name, true);
}
void ftpb_job(Workspace, std::string_view name) {
  if (name_given(name)) transfer_file(name, false);
}

// A setter of a folder, which must be there; without a name the present one is shown.
void folder_job(std::string& folder, std::string_view name) {
  if (name.empty()) return say<"(1X, A)">(folder);
  std::string path = home_name(name);
  struct stat st {};
  if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    fail(" ...ERROR..DIRECTORY BELOW DOES NOT EXIST:");
    return say<"(' PATH:', A)">(path);
  }
  if (!path.ends_with('/')) path += '/';
  folder = path;
}
void path_job(Workspace, std::string_view name) { folder_job(RUNCOM.path, name); }
void temp_job(Workspace, std::string_view name) { folder_job(RUNCOM.vtemp, name); }
void procpath_job(Workspace, std::string_view name) { folder_job(RUNCOM.vproc, name); }
void plotpath_job(Workspace, std::string_view name) { folder_job(RUNCOM.vgnu, name); }
void ftppath_job(Workspace, std::string_view name) { folder_job(RUNCOM.vftpath, name); }

// The words in the order in which abbreviations find them.
struct FileWord {
  std::string_view word;  // 8 characters count
  FileJob job;
};
constexpr std::array<FileWord, 29> FILEWORDS = {{
    {"BACKSPAC", backspace_job},
    {"CD", cd_job},
    {"CLOSE", close_job},
    {"DATABANK", databank_job},
    {"DELETE", delete_job},
    {"DIR", dir_job},
    {"FTP", ftp_job},
    {"FTPB", ftpb_job},
    {"FTPPATH", ftppath_job},
    {"HELPDEMO", not_available},
    {"INPUT", input_job},
    {"INQUIRE", inquire_job},
    {"KEYBOARD", keyboard_job},
    {"LIST", list_job},
    {"OUTPUT", output_job},
    {"PATH", path_job},
    {"PLOTPATH", plotpath_job},
    {"PRINT", print_job},
    {"PROC", proc_job},
    {"PROCPATH", procpath_job},
    {"PWD", pwd_job},
    {"REWIND", rewind_job},
    {"SCREEN", screen_job},
    {"TEMP", temp_job},
    {"TYPE", list_job},
    {"CRYPT", not_available},
    {"PRIME", not_available},
    {"FACTORS", not_available},
    {"TESTME", not_available},
}};
constexpr int WORDSALINE = 6;

// The word in full first, then the first entry that begins with it.
const FileWord* find_word(std::string_view typed) {
  std::string word(typed.substr(0, KEYLEN));
  LCUC(word.data(), static_cast<int>(word.size()));
  for (const FileWord& w : FILEWORDS) {
    if (w.word == word) return &w;
  }
  for (const FileWord& w : FILEWORDS) {
    if (w.word.starts_with(word)) return &w;
  }
  return nullptr;
}

void list_words() {
  say(" AVAILABLE OPTIONS ARE:");
  WordRows rows(WORDSALINE);
  for (const FileWord& w : FILEWORDS) rows.add(w.word);
  rows.end();
}

// FILE n name; 5 and 6 are the input and the output of the run.
void attach(Workspace ws, int unit, std::string_view name) {
  if (unit == 5 && !name.empty()) return input_job(ws, name);
  if (unit == 6) return output_job(ws, name);
  AFILE(unit, name);
}

// The tail as typed: its first word, and the rest as one name without its quotes.
struct FileTail {
  std::string_view word, name;
};
FileTail split_tail() {
  const std::string_view tail =
      trimmed(command_typed().substr(static_cast<std::size_t>(SCNCOM.ISTART)));
  const auto end = tail.find(' ');
  FileTail t{tail.substr(0, end), {}};
  if (end != std::string_view::npos) t.name = trimmed(tail.substr(end));
  const std::size_t n = t.name.size();
  if (n >= 2 && (t.name[0] == '"' || t.name[0] == '\'') && t.name[n - 1] == t.name[0]) {
    t.name = t.name.substr(1, n - 2);
  }
  return t;
}

}  // namespace

void FILEX(Workspace ws) {
  const Trace trace("FILEX");
  const FileTail tail = split_tail();
  int unit = 0;
  const bool number = whole_number(tail.word, unit);
  const FileWord* word = number ? nullptr : find_word(tail.word);
  // A scan follows the input, and does no more.
  const bool input = number ? unit == 5 : word != nullptr && word->job == &input_job;
  if (OSCOM.OSCAN && !input) return;
  if (RUNCOM.settings.safe) return refuse_in_safe_run();
  if (number) return attach(ws, unit, tail.name);
  if (tail.word.empty()) return list_words();
  if (word == nullptr) {
    fail<"(' ...ERROR..INVALID OPTION..', A)">(tail.word.substr(0, 64));
    return list_words();
  }
  word->job(ws, tail.name);
}

void INQUIRX(Workspace) {
  const Trace trace("INQUIRE");
  int unit = 0;
  if (unit_argument(trimmed(command_tail()), unit)) inquire_unit(unit);
}

void REWINDX(Workspace) {
  const Trace trace("REWIND");
  if (OSCOM.OSCAN) return;
  if (SCNCOM.NWORDS == 0) return fail(" ...ERROR..SYNTAX ERROR");
  for (int i = 1; i <= SCNCOM.NWORDS; ++i) {
    int unit = 0;
    if (!unit_argument(TOKCOM.token[static_cast<std::size_t>(i)].text, unit)) return;
    rewind_unit(unit);
  }
}

}  // namespace korvel
