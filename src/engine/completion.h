// What may stand at a place of a command line: completion at the keyboard, and near words for
// notes on typing errors.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engine/workspace.h"

namespace korvel {

// The candidates for the word at the cursor, by its position: commands at the start; behind "/" the
// options of the command, behind "=" values; SET words, pages of HELP, files in brackets and behind
// FILE, functions in formulas, variables and $ names elsewhere. `from`: where the word begins.
struct Candidates {
  std::size_t from = 0;
  std::vector<std::string> words;  // sorted, without doubles
};
Candidates complete_command(Workspace ws, std::string_view line, std::size_t cursor);

// The command that an unknown word was meant for, or the variable: the nearest one by editing
// distance (Damerau 1964), when it is near enough; empty else.
std::string near_command(std::string_view word);
std::string near_variable(Workspace ws, std::string_view name);
// In a talking run: a note that names the variable which an unknown name was meant for.
void note_near_variable(Workspace ws, std::string_view name);

}  // namespace korvel
