// SYSCMD: system lines.
#include "engine/syscmd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>
#include <vector>

#include "engine/files.h"
#include "engine/host.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "engine/units.h"
#include "platform/child.h"

namespace korvel {
namespace {

constexpr std::size_t MOST_TEXT = 100000;  // Linux passes on 128 KiB in one argument

std::string message(int error) { return std::generic_category().message(error); }

// Takes the next name off the front of text: quoted, or up to a blank.
std::string take_name(std::string_view& text) {
  text = trimmed(text);
  if (!text.empty() && (text[0] == '"' || text[0] == '\'')) {
    const auto close = text.find(text[0], 1);
    if (close != std::string_view::npos) {
      std::string name(text.substr(1, close - 1));
      text.remove_prefix(close + 1);
      return name;
    }
  }
  const auto end = text.find(' ');
  std::string name(text.substr(0, end));
  text.remove_prefix(end == std::string_view::npos ? text.size() : end);
  return name;
}

// RENAME old new. A file that has the new name already is kept, and so is the old one.
void rename_file(std::string_view names) {
  const std::string from = home_name(take_name(names));
  const std::string to = home_name(take_name(names));
  if (from.empty() || to.empty() || !trimmed(names).empty()) {
    return fail(" ...ERROR..SYNTAX ERROR");
  }
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return;
  int error = errno;
  struct stat st {};
  // Some file systems don't know the one step that never replaces.
  if (error == EINVAL && lstat(to.c_str(), &st) != 0 && errno == ENOENT) {
    if (std::rename(from.c_str(), to.c_str()) == 0) return;
    error = errno;
  }
  fail<"(' ...ERROR..FILE NOT RENAMED: ', A, ': ', A)">(from, message(error));
}

// GNUPLOT words: a program that draws in a window of its own while the run goes on.
void start_gnuplot(std::string_view tail) {
  const std::string program = RUNCOM.vgnu + "gnuplot";
  if (find_program(program).empty() || access(find_program(program).c_str(), X_OK) != 0) {
    return warn(" ...WARNING..GNUPLOT IS NOT INSTALLED, INSTALL THE PACKAGE gnuplot");
  }
  std::string line = "exec '";
  for (const char c : program) {
    if (c == '\'') {
      line += "'\\''";
    } else {
      line += c;
    }
  }
  line += "' ";
  line += tail;
  if (on_host()) line += " >/dev/null 2>&1";
  const std::array<std::string, 3> words = {"/bin/sh", "-c", line};
  if (start_child(words) < 0) {
    fail<"(' ...ERROR..GNUPLOT DID NOT START: ', A)">(message(errno));
  }
}

// The user's own text for the shell.
void run_shell(std::string_view text) {
  if (text.size() > MOST_TEXT) return fail(" ...ERROR..STATEMENT TOO LONG");
  const std::array<std::string, 3> words = {"/bin/sh", "-c", std::string(text)};
  ChildIo io;
  // The screen and the keyboard of a host are not those of its process.
  io.inherit_input = OSCOM.OTALK && !on_host() && isatty(0) == 1;
  if (!OSCOM.OSPV || on_host()) {
    const bool watched = main_output().terminal();
    io.line = [watched](std::string_view line) {
      raw_line(line);
      if (watched) main_output().flush();
      return !RUNCOM.ended;
    };
  }
  const ChildEnd end = run_child(words, io);
  if (end.error != 0 && end.error != EINTR) {
    fail<"(' ...ERROR..THE SHELL DID NOT START: ', A)">(message(end.error));
  }
}

}  // namespace

bool delete_file(std::string_view typed) {
  const std::string path = home_name(typed);
  if (file_of_run(path)) {
    fail<"(' ...ERROR..FILE IS THE INPUT OR OUTPUT OF THIS RUN:', A)">(path);
    return false;
  }
  if (unlink(path.c_str()) == 0) return true;
  if (errno == ENOENT) {
    error_line<"(' ...WARNING..FILE DOES NOT EXIST:', A)">(typed);
    mark_failed();
  } else {
    fail<"(' ...ERROR..FILE NOT DELETED: ', A, ': ', A)">(path, message(errno));
  }
  return false;
}

void SYSCMD(std::string_view text) {
  const Trace trace("SYSCMD");
  text = trimmed(text);
  if (text.empty()) return;
  if (RUNCOM.settings.safe) return refuse_in_safe_run();
  main_output().flush();
  flush_redirects();
  if (OSCOM.OSPV) return run_shell(text);
  // The first word, as typed and up-cased.
  std::string_view tail = text;
  const auto end = text.find(' ');
  const std::string word(text.substr(0, end));
  tail.remove_prefix(end == std::string_view::npos ? text.size() : end);
  std::string WORD = word;
  LCUC(WORD.data(), static_cast<int>(WORD.size()));
  const bool inside = word == WORD || find_program(word).empty();
  if (WORD == "DEL" && inside) {
    const std::string name = take_name(tail);
    if (name.empty() || !trimmed(tail).empty()) return fail(" ...ERROR..SYNTAX ERROR");
    delete_file(name);
  } else if (WORD == "RENAME" && inside) {
    rename_file(tail);
  } else if (WORD == "GNUPLOT" || WORD == "WGNUPLOT") {
    start_gnuplot(tail);
  } else if (word == WORD && trimmed(tail).empty() && (WORD == "DATE" || WORD == "TIME")) {
    run_shell(WORD == "DATE" ? "date" : "date +%T");  // shows it and asks for nothing
  } else {
    run_shell(text);
  }
}

}  // namespace korvel
