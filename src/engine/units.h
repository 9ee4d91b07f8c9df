// Numbered units and files: which file a unit or a name stands for, and what READ holds open.
//
// A unit is a number that a file name is attached to (FILE n name); without one, unit n is the file
// fort.n of the working folder. Files that are read stay open with their place between commands, so
// that READ / NOREWIND goes on where the last one stopped. Files that are written are complete at
// the end of every command: nothing of them stays open.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/file_output.h"
#include "platform/text_input.h"
#include "platform/text_output.h"

namespace korvel {

inline constexpr int NAMED_UNIT = 88;  // shown in messages for a file that was given by name

// ---- Reading

// An open file and how far it has been read.
struct DataUnit {
  int unit = 0;
  std::string path;
  std::unique_ptr<TextInput> text;  // of a fetched file, whose path is then its address
  std::size_t passed = 0;  // characters read so far; counts in files that lie in memory as a whole

  std::string_view rest() const { return text->rest(); }
  void pass(std::size_t n, std::int64_t lines) {
    text->skip(n, lines);
    passed += n;
  }
  void backspace();  // one line back
};

// The file of a unit, or the named file under unit 0, at the place where the last read stopped; at
// its start when it is newly opened or `rewind` is on (it is then opened again, for it may have
// changed). Null after the failure has been reported.
DataUnit* open_data_unit(int unit, std::string_view typed, bool rewind);
void close_data_unit(DataUnit* unit);

// ---- Writing

// Opens the file that WRITE and its like write: the file of a unit, or the named one under unit 0.
// False after the failure has been reported: a SAFE run, a folder, a file that is the input or the
// output of this run, no permission. A place that a READ holds in the same file is given up.
bool open_output_file(FileOutput& file, int unit, std::string_view typed, WriteMode mode);
// Completes it; false after " ...ERROR..WRITE ERROR ON FILE <name>: <cause>", the old file stands.
bool commit_output_file(FileOutput& file);

// ---- Units

inline constexpr int USER_FIRST = 11, USER_LAST = 49;  // units that users attach files to; 7 too

// AFILE: attaches a name to a unit, after a note when it had one; an empty name releases the unit.
// An address is fetched when the unit is read. False after the failure has been reported.
bool AFILE(int unit, std::string_view typed);
// AFILO: opens a file that printed lines go to. False after the failure has been reported; what was
// open before then stays open. Places that a READ holds in the same file are given up.
struct FileAttributes {
  std::string_view position = "REWIND";  // or "APPEND"
  std::string_view status = "UNKNOWN";   // "SCRATCH": a file of the engine's own
  std::string_view carriage = "LIST";
  bool links = true;  // false: a link under that name is refused
};
bool AFILO(TextOutput& file, int unit, const std::string& path, const FileAttributes& attributes);
// Opens a scratch unit (L2, L3, L8, L10 of IOCOM) on its file KORV_n when its number is still
// negative, and makes it n. False after the failure has been reported.
bool open_scratch_unit(int& unit, int n);

// The file that a unit stands for: the one attached to it, else fort.n.
std::string unit_path(int unit);
bool unit_assigned(int unit);
// True, after the refusal, for the units that the engine keeps for itself (2, 3 and 8).
bool reserved_unit(int unit);
// True for the units that users attach files to; else the refusal is printed.
bool user_unit(int unit);

// The unit's state, as a note.
void inquire_unit(int unit);
void rewind_unit(int unit);     // the next READ of it starts at its beginning
void backspace_unit(int unit);  // one line back
// Closes the places that READ holds in it and the listing printed to it. False after a report.
bool close_unit(int unit);

// Before the working folder changes: names that depend on it are made whole.
void pin_names(const std::string& folder);

// Ends the places of READ; what is attached to units: RESET and the end of the run.
void close_data_files();
void release_units();

// ---- Files of the run

// Path of a file in the run's private folder (mode 0700, below VTEMP; made at first use, removed at
// every exit, also by signal). Empty after a reported failure.
std::string private_file(std::string_view name);
// Called at every end of a run.
void remove_private_files();

// Fetches http://, https:// and ftp:// names into the private folder and returns that path; empty
// after a reported failure. `is_url` tells such names. A name may hold a login in braces,
// ftp://{user password}host/file; `shown_url` is the name without it.
bool is_url(std::string_view name);
std::string shown_url(std::string_view url);
std::string fetch_url(std::string_view url);

// Deciphers a file into the private folder with the pass phrase of SET CRYPT, and returns that
// path; empty after a reported failure. From then on OCRY forbids printing.
std::string decipher_file(const std::string& path);
// Enciphers a file of the private folder to `path` (as open_output_file has allowed and resolved
// it), which is replaced only when gpg has succeeded. False after a reported failure. The plain
// file is removed in any case.
bool encipher_file(const std::string& plain, const std::string& path);

}  // namespace korvel
