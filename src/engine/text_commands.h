// Commands whose operand is text: TITLE, FORMAT, TIMEFMT, AXISFMT, NAMEFMT.
#pragma once

#include <string_view>

#include "engine/workspace.h"

namespace korvel {

bool is_text_command(int ikod);

// Keeps the rest of the line in the command's character variable. Done by the reader, in scan mode
// too. A FORMAT with an I descriptor is refused and leaves the old one; one above 248 characters
// (blanks outside quotes not counted) ends the run.
void store_text_command(Workspace ws);

// Stores text in a character variable, 8 characters a word.
void store_text(Workspace ws, std::string_view name, std::string_view text);

}  // namespace korvel
