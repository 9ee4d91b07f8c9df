// The reader: physical lines to one command in COMBUF.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>

#include "engine/workspace.h"
#include "platform/text_input.h"

namespace korvel {

// Reads the next command. Sets IKOD, LCOL, KLINE, COMWRD, SCNCOM.ISTART; OEOF at the end of input.
void INPUT(Workspace ws);

// The command that INPUT has just read is read once more by the next INPUT: a block ends at the
// first line that isn't its own. To be called before anything else is done with that command.
void give_back_command();

// The command as it is run (up-cased, brackets replaced) and the same positions as typed.
// Positions count from 0; text()[ISTART] is the first character behind the command word.
std::string_view command_text();
std::string_view command_typed();

// What stands behind the command word.
std::string_view command_tail();

// What stands in front of a typed line: "|_", or "| " where a command goes on.
std::string_view command_prompt();
// The command that was given back isn't wanted any more.
void forget_given_back();

// Inputs: the one named at start, then those that FILE INPUT pushes; an ended one is left.
void open_command_input(std::unique_ptr<TextInput> source);
void close_command_inputs();
// The next physical line, or stored command of a running body. An input that has ended is left; a
// loop goes back to its first line instead. False at the end of the first input.
bool read_physical(std::string_view& line);
// FILE INPUT and SET INUNIT: commands come from a file until it ends; L5 and INDATA are then as
// before. False after a reported failure, the input unchanged. `unit` is 0 for FILE INPUT.
bool push_command_input(std::string_view typed, int unit);
// Whether a person types the commands of this run, now or when the open files end.
bool at_keyboard();
// Of the running command: it stands in a file or body, is a line of a body, was echoed.
bool behind_first_input();
bool is_replayed();
bool is_echoed();
// What may have been meant by an unknown command word and the text behind it.
void tell_meaning(std::string_view word, std::string_view tail);
// Behind the message of a failed command that came out of a body or file, and so wasn't seen: the
// command, for a session that echoes nothing.
void tell_failed_command();
// Ctrl-C: where the loop, procedure or file was.
void tell_stopped_command();
// All inputs above the first one are left, with the levels in them.
void return_to_first_input(Workspace ws);
// SET INUNIT=5: files that were pushed are left, with all that runs in them.
void return_to_main_input();
// Whether commands are being read from that file, at any depth.
bool is_command_input(dev_t device, ino_t inode);

// Leaves the given input and all that were opened from it.
void close_command_inputs_from(const TextInput* source);
// The file that commands are read from, empty for the input of the run.
std::string running_file();

// Standard input as a person types it: with editing, history and completion where that is possible.
std::unique_ptr<TextInput> keyboard_input();

// The next whole command, continued lines joined, for a body that is stored and not run: as typed,
// nothing replaced. False at the end of the input.
struct BodyLine;
bool read_stored_line(BodyLine& out);
// Echo of a line that is stored.
void echo_stored_line(std::string_view text);

// The stream from which the running command was read: READ takes its data lines there.
TextInput& command_stream();

}  // namespace korvel
