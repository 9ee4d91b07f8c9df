// SET and DISPLAY: the switches and settings of the run.
#pragma once

#include <string>
#include <string_view>

#include "engine/workspace.h"

namespace korvel {

void SETDIS(Workspace ws);  // SET, DISPLAY

// The text of a word setting (FORMAT, READFILE, WRITEFIL, IDVAR, USER, BANKNAME, BANKTYPE,
// BANKFORM, COEFFICI, COVARIAN, IEEE, CRYPT, GIF), blank when it has not been set.
std::string& word_setting(std::string_view word);

// Word settings blank, units as at the start: RESET.
void reset_settings();

// Whether a command line gives a pass phrase (SET CRYPT=value, in any spelling that SET takes), and
// the line with stars in place of the value, for the echo and every other record of commands.
bool holds_pass_phrase(std::string_view line);
std::string hide_pass_phrase(std::string_view line);

}  // namespace korvel
