// Code lists that are kept from one pass of a loop to the next.
//
// A statement in a DO loop or procedure compiles to the same list each time, as long as its text,
// the table of variables and the switches that the compiler reads are the same. What it rests on is
// compared in full, so a kept list can't be a wrong one. Not kept: statements that make a variable
// (the next pass finds it), read a $ temporary (its value is a constant of the list) or say
// something while they are compiled, and long ones.
#pragma once

#include "expr/genr.h"

namespace korvel {

// Whether this statement's list may be kept and looked for.
bool can_keep(const GenrJob& job);
// Puts the list of an earlier pass into the formula, with all that GENR sets. False: there is none.
bool recall_list(const GenrJob& job, const Formula& formula);
// Keeps the list that GENR has just made.
void keep_list(const GenrJob& job, const Formula& formula);

}  // namespace korvel
