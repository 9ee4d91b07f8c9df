// What a run finds before its first command: KORVELWX.INI beside the program or the library, with
// sizes and folders, and CONFIG.KOR in the folder VPREF, with commands.
//
// Both are believed only when they belong to the user or to root and nobody else may write them: a
// stranger's file in a shared folder must not run commands.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/text_input.h"

namespace korvel {

// The settings, one a line of the file in this order; a blank line leaves a default.
struct Configuration {
  std::int64_t IPAR = 0;  // workspace in kilobytes, 0 the default
  int IMAX = 0;           // MAXVAR, 0 the default
  std::string VPREF;      // data files under bare names, and CONFIG.KOR
  std::string VTEMP;      // temporary files
  std::string VUSER;      // kept for hosts
  std::string VPROC;      // procedure files
};

// Folder of the program, or of the library in a host's process, with its "/".
std::string module_folder();

// Reads the file; `complaint` takes the text of a warning when it can't be followed.
Configuration read_configuration(std::string& complaint);
// Changes the settings named in KEY=value lines; 0, or errno (EINVAL for an unknown key or a value
// that is no number).
int store_configuration(std::string_view lines);

// CONFIG.KOR as an input, null when there is none; `complaint` as above.
std::unique_ptr<TextInput> open_start_file(const std::string& folder, std::string& complaint);

}  // namespace korvel
