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

}  // namespace korvel
