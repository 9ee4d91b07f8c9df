// The graphical host: what the engine sends to it, what it asks it for.
//
// A host registers a SendMsg routine through KORVELX (include/korvel.h). While MOS is 30 or 33 the
// printed lines go there instead of standard output, and commands come from there instead of the
// keyboard. Every message goes through MACDEP, which turns the engine's code into a message number.
// docs/host-protocol.md tells it from the host's side.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "korvel.h"
#include "platform/text_input.h"

namespace korvel {

// True while a graphical host drives the run.
inline bool on_host() { return MACOM.MOS == 30 || MACOM.MOS == 33; }
// Descriptor of the screen: standard output, none on a host.
inline int screen_descriptor() { return on_host() ? -1 : 1; }

// Codes of MACDEP that reach a host.
enum MacdepCode : int {
  M_FLUSH = 14,     // show what was sent: the flush of OUTLINE
  M_LINE = 15,      // the next command line
  M_TEXT = 23,      // a message, KEY=value
  M_QUERY = 24,     // a question, KEY=; the answer replaces it
  M_BREAK = 36,     // a breakpoint is reached; the host may wait in it
  M_CONTINUE = 37,  // the run goes on behind it
  M_LAST = 37,
};

// Sends a message by its code. `buffer` holds `length` characters of text, and for codes that ask
// it takes the answer, blanks behind it; the answer's length is returned (0 from a code that does
// not ask, below 0 when the host has no more lines). Codes that are services of the platform do
// nothing here: they have routines of their own in KORVEL. A code above 37 ends the run.
int MACDEP(int code, std::span<char> buffer, int length);

// A printed line: "\/" gets one more backslash in front.
void send_line(std::string_view line);
// A message; nothing without a host.
void tell_host(std::string_view key, std::string_view value = {});
void tell_host(std::string_view key, std::int64_t value);
// The host is told to show what it has got (SET FLUSH, after every block of lines).
void flush_host();
// A break: PAUSE, "^" and the end of a page under SET PAUSE. The host may wait in it.
void break_on_host();

// ---- Commands from the host

// The host's lines. An answer of several lines counts as so many commands. The stop button "STOP
// RESET" ends what is being read and leaves its reset to take_stop.
std::unique_ptr<TextInput> host_input();
// While one lives the next command is being asked for: a stop then finds nothing to stop.
class AtPrompt {
 public:
  AtPrompt();
  AtPrompt(const AtPrompt&) = delete;
  AtPrompt& operator=(const AtPrompt&) = delete;
  ~AtPrompt();
};
// Behind the last line of a file of commands the host talks again.
void talk_again();
// STOP on a host. True: the run ends.
bool stop_on_host(Workspace ws, std::string word);
// The running command was stopped: input comes from the host again, after the stop button with an
// empty workspace.
void take_stop(Workspace ws);

// ---- Start and end

// Keeps the record for runs to come; null takes it back. False: not a record of this engine.
bool register_host(KORVELHOST* record);
bool host_registered();
// Version and sizes at the start.
void tell_start();
// What RESET asks when a window closes (COMWRD is then "CLOSE"), and that RESET itself, the last
// thing of a run.
void ask_before_reset();
void close_host(Workspace ws);

}  // namespace korvel
