// A run from its start to its end: settings of the start, the end's bookkeeping.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/workspace.h"

namespace korvel {

// Exit statuses of the console program.
enum ExitStatus : int {
  EXIT_GOOD = 0,     // every command ran
  EXIT_FAILED = 1,   // at least one command failed
  EXIT_CALL = 2,     // wrong call, input not readable, output not writable
  EXIT_STOPPED = 3,  // ended early through XXIT
  EXIT_NOROOM = 4,   // no memory for the workspace, output device full
  EXIT_INTERNAL = 70,
  EXIT_SIGNAL = 128,  // plus the signal's number
};

// What the start of a run was given. Set by the console program, a host or a test.
struct RunSettings {
  std::int64_t par = 20480;  // workspace in kilobytes
  int maxvar = 1000;
  bool par_given = false, maxvar_given = false;  // else the file of settings may say them
  int MOS = 16;          // kind of host: 30 and 33 are driven through host.h
  std::string input;     // file of commands, "-" standard input, empty: keyboard
  std::string output;    // output file, empty or "-": standard output
  std::string commands;  // -c: commands instead of an input
  bool have_commands = false;
  bool quiet = false;         // no greeting
  bool databank = false;      // SET DB from the start
  bool safe = false;          // the command text is not trusted: see files.h
  bool check = false;         // nothing is run: the commands are looked over for mistakes
  bool mirror_errors = true;  // on standard error, in a batch run
  bool mirror_warnings = false;
  std::string temp;     // VTEMP
  std::string results;  // file of results as JSON, empty: none
  std::string log;      // copy of the screen for the whole run, empty: none
};

struct RunCom {
  RunSettings settings;
  std::string script;  // name of the input for messages, empty on a keyboard
  int failures = 0;    // lines mirrored as errors
  bool ended = false;  // XXIT has spoken: leave every loop
  int xxit_code = 0;
  bool output_failed = false;
  std::int64_t par = 20480;  // workspace in force, kilobytes
  // Folders, each with "/" at its end, or empty.
  std::string vtemp = "/tmp/";  // temporary files (FILE TEMP)
  std::string path;             // data files under bare names (FILE PATH)
  std::string vgnu;             // the plotting program (FILE PLOTPATH)
  std::string vftpath;          // fetched files (FILE FTPPATH)
  std::string vproc;  // VPROC: folder of procedure files (FILE PROCPATH), with its "/", or empty
};
extern RunCom RUNCOM;

// The whole run; returns the exit status.
int run_korvel(const RunSettings& settings);

// State of a fresh start: the workspace empty, switches and settings at their defaults. Input,
// output, OTALK, OECHO, OBAT and OTERM stay.
void RESET(Workspace ws);

}  // namespace korvel
