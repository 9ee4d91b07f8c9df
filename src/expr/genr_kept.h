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

// GENR, or the list of an earlier pass with all that GENR sets. False after a failure, and for a
// statement that is only looked over.
bool compile_statement(Workspace ws, const GenrJob& job, const Formula& formula);

}  // namespace korvel
