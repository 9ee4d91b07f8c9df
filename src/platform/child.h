// Programs started as children, without a shell in between.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace korvel {

struct ChildIo {
  std::string_view input;      // what the child reads; /dev/null when empty and `inherit` is off
  bool inherit_input = false;  // the child reads the terminal of this program
  std::string output;          // file that takes the child's standard output, created mode 0600
  // Otherwise called with each line of standard output and standard error, in order, without its
  // end (beside `output` with those of standard error); false kills the child. Without it the child
  // writes where this program does.
  std::function<bool(std::string_view)> line;
  int seconds = 0;  // a child with `line` that runs longer is ended; 0: no limit
};

struct ChildEnd {
  int error = 0;      // errno when the program could not be started (ENOENT: not installed), else 0
  int status = -1;    // exit status when it ended by itself
  int signal = 0;     // signal that ended it, 0 none
  bool late = false;  // it was ended at the limit of its time
  bool good() const { return error == 0 && status == 0; }
};

// The file of a program: `word` itself when it holds "/", else looked for in the folders of PATH
// that are named from the root. Empty when it is not installed.
std::string find_program(const std::string& word);

// Starts words[0] (by find_program) with its arguments and waits. All descriptors but the three
// standard ones are closed in the child. A signal that asks this run to stop ends the child and
// what it has started; only a Ctrl-C is left to a child that shares the terminal. A program that
// the child leaves running in the background is not waited for.
ChildEnd run_child(std::span<const std::string> words, const ChildIo& io);

// Starts a program and does not wait; its number, or -1 with errno set. wait_for_children waits for
// all of these at the end of a batch run.
int start_child(std::span<const std::string> words);
void wait_for_children();

}  // namespace korvel
