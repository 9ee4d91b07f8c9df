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

// Where printed lines go.
TextOutput& main_output();

}  // namespace korvel
