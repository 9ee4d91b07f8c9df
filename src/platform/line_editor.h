// Lines typed at a terminal: editing, history, completion, by libedit. The library is loaded when a
// person sits at the keyboard and is optional at build time; without it lines are read plainly.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/text_input.h"

namespace korvel {

struct LineEditor {
  std::function<std::string()> prompt;
  // What may stand at the cursor: the words that begin with the piece of text before it, and where
  // that piece begins.
  struct Completion {
    std::size_t from = 0;
    std::vector<std::string> words;
  };
  std::function<Completion(std::string_view line, std::size_t cursor)> complete;
  // False keeps a line out of the history.
  std::function<bool(std::string_view line)> keep;
  std::string history;  // file, empty: none is kept
};

// Standard input through the editor; null when standard input or output is no terminal, or the
// library is not there.
std::unique_ptr<TextInput> edited_text(LineEditor editor);

// Rows of the terminal, 0 when there is none.
int terminal_rows();

}  // namespace korvel
