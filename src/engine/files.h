// Names of files as users type them, and the open output.
#pragma once

#include <string>
#include <string_view>

#include "platform/text_output.h"

namespace korvel {

// The path under which a file to be read is found: the name as typed (a leading "~" is HOME), then
// in upper and in lower case, then the same three beside the script that is being run. The name as
// typed when there is none.
std::string resolve_read_name(std::string_view typed);

// The path under which a file is written: the name as typed, a leading "~" replaced by HOME, and
// the folder of FILE PATH put before a bare name. Files to be read are looked for there first.
std::string resolve_write_name(std::string_view typed);
// Only the first part of that.
std::string home_name(std::string_view typed);

// Whether the run may open a file: always, but for a SAFE run, whose command text is not trusted.
// Such a run reads only below its working folder (links are followed first), keeps the workspace it
// was started with, and is held to limits of time and file size.
bool file_allowed(const std::string& path);
// The same for a file to be written, which need not be there yet.
bool output_allowed(const std::string& path);

// True for a file that the run reads its commands from or prints to; links don't deceive it.
bool file_of_run(const std::string& path);

// The line that a SAFE run gives to a command which it must not carry out.
void refuse_in_safe_run();

// Where printed lines go.
TextOutput& main_output();

}  // namespace korvel
