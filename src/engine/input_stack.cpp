// The stack of inputs that commands are read from.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "engine/bodies.h"
#include "engine/completion.h"
#include "engine/files.h"
#include "engine/host.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "engine/set.h"
#include "engine/units.h"
#include "platform/line_editor.h"

namespace korvel {
namespace {

constexpr int MAXSPVERR = 5;

// A file on the stack, with the units that come back when it ends.
struct InputFile {
  const TextInput* source = nullptr;
  dev_t device = 0;
  ino_t inode = 0;
  int L5 = 5, INDATA = 5;
};
struct Inputs {
  std::vector<std::unique_ptr<TextInput>> stack;
  std::vector<InputFile> files;
};
Inputs& inputs() {
  static Inputs i;
  return i;
}

// Files that have been left: the units of the first of them are in force again.
void forget_closed_inputs() {
  auto& files = inputs().files;
  const auto open = [](const InputFile& file) {
    return std::ranges::any_of(inputs().stack,
                               [&](const auto& s) { return s.get() == file.source; });
  };
  const auto closed = std::ranges::find_if_not(files, open);
  if (closed == files.end()) return;
  IOCOM.L5 = closed->L5;
  IOCOM.INDATA = closed->INDATA;
  files.erase(closed, files.end());
}

}  // namespace

bool read_physical(std::string_view& line) {
  auto& stack = inputs().stack;
  while (!stack.empty()) {
    TextInput& source = *stack.back();
    if (OSCOM.OTALK) {
      if (source.terminal() && !source.shows_prompt()) main_output().raw(command_prompt());
      main_output().flush();
    }
    if (!stop_requested() && source.line(line)) {
      ++INPCOM.LINES;
      return true;
    }
    if (stop_requested()) return false;
    if (source.error() != 0) {
      error_line<"(' ...ERROR..READ ERROR ON UNIT ', I0, ' IN LINE', I8)">(IOCOM.L5,
                                                                           INPCOM.LINES + 1);
      if (++INPCOM.SPVERR > MAXSPVERR) XXIT(0);
    }
    if (level_ended(workspace(), &source)) continue;
    if (stack.size() == 1) return false;
    stack.pop_back();
    forget_closed_inputs();
    if (on_host() && stack.size() == 1 && !OSCOM.OTALK) talk_again();
  }
  return false;
}

bool behind_first_input() { return inputs().stack.size() > 1; }

bool at_keyboard() { return OSCOM.OTALK && inputs().stack.front()->terminal(); }

std::unique_ptr<TextInput> keyboard_input() {
  LineEditor editor;
  editor.prompt = [] { return std::string(command_prompt()); };
  editor.complete = [](std::string_view line, std::size_t cursor) {
    // Behind "&" the line belongs to the command above it.
    const std::string whole = std::string(command_typed()) + std::string(line);
    const std::size_t before = whole.size() - line.size();
    Candidates found = complete_command(workspace(), whole, before + cursor);
    found.from = found.from < before ? cursor : found.from - before;
    return LineEditor::Completion{found.from, std::move(found.words)};
  };
  editor.keep = [](std::string_view line) {
    return !holds_pass_phrase(std::string(command_typed()) + std::string(line));
  };
  if (!RUNCOM.settings.safe) editor.history = home_name("~/.korvel_history");
  auto source = edited_text(std::move(editor));
  return source != nullptr ? std::move(source) : standard_text();
}

void open_command_input(std::unique_ptr<TextInput> source) {
  inputs().stack.push_back(std::move(source));
}

bool push_command_input(std::string_view typed, int unit) {
  const std::string path = resolve_read_name(unit > 0 ? unit_path(unit) : std::string(typed));
  struct stat st {};
  if (stat(path.c_str(), &st) == 0 && is_command_input(st.st_dev, st.st_ino)) {
    fail<"(' ...ERROR..FILE IS ALREADY BEING READ:', A)">(path);
    return false;
  }
  errno = 0;
  auto source = open_text(path);
  if (source == nullptr) {
    const int cause = errno;
    if (cause == ENOENT) {
      error_line<"(' ...WARNING..FILE DOES NOT EXIST:', A)">(typed.empty() ? std::string_view(path)
                                                                           : typed);
      mark_failed();
    } else {
      fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(
          unit > 0 ? unit : NAMED_UNIT, cause, path);
    }
    return false;
  }
  const bool follows = IOCOM.INDATA == IOCOM.L5;
  inputs().files.push_back({source.get(), st.st_dev, st.st_ino, IOCOM.L5, IOCOM.INDATA});
  if (unit > 0) IOCOM.L5 = unit;
  if (follows) IOCOM.INDATA = IOCOM.L5;
  inputs().stack.push_back(std::move(source));
  return true;
}

void return_to_first_input(Workspace ws) {
  drop_levels(ws);
  if (inputs().stack.size() > 1) inputs().stack.resize(1);
  forget_closed_inputs();
}

void return_to_main_input() {
  if (inputs().files.empty()) return;
  const TextInput* first = inputs().files.front().source;
  drop_levels(workspace());  // a level may hold inputs above the file
  close_command_inputs_from(first);
}

bool is_command_input(dev_t device, ino_t inode) {
  return std::ranges::any_of(inputs().files, [&](const InputFile& file) {
    return file.device == device && file.inode == inode;
  });
}

void close_command_inputs() {
  forget_given_back();
  inputs().stack.clear();
  inputs().files.clear();
}

void close_command_inputs_from(const TextInput* source) {
  auto& stack = inputs().stack;
  const auto at = std::ranges::find_if(stack, [&](const auto& s) { return s.get() == source; });
  stack.erase(at, stack.end());
  forget_closed_inputs();
}

std::string running_file() {
  const auto& stack = inputs().stack;
  return stack.size() > 1 ? stack.back()->name() : std::string();
}

TextInput& command_stream() { return *inputs().stack.back(); }

}  // namespace korvel
