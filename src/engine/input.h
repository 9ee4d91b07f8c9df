// The reader: physical lines to one command in COMBUF.
#pragma once

#include <memory>
#include <string_view>

#include "engine/workspace.h"
#include "platform/text_input.h"

namespace korvel {

// Reads the next command. Sets IKOD, LCOL, KLINE, COMWRD, SCNCOM.ISTART; OEOF at the end of input.
void INPUT(Workspace ws);

// The command as it is run (up-cased, brackets replaced) and the same positions as typed.
// Positions count from 0; text()[ISTART] is the first character behind the command word.
std::string_view command_text();
std::string_view command_typed();

// What stands behind the command word.
std::string_view command_tail();

// Inputs: the one named at start, then those that FILE INPUT pushes; an ended one is left.
void open_command_input(std::unique_ptr<TextInput> source);
void close_command_inputs();

// The stream from which the running command was read: READ takes its data lines there.
TextInput& command_stream();

}  // namespace korvel
