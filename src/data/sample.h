// The marks of the skip vector SKIP$ and the loops over data that the sample checks are made of.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "engine/workspace.h"

namespace korvel {

// An element of SKIP$ is a sum of marks; anything above 0 means that the observation is not used.
inline constexpr std::string_view SKIPNAME = "SKIP$";
inline constexpr double SKIP_IF = 1.0;       // a true SKIPIF
inline constexpr double SKIP_GAP = 2.0;      // between two ranges of SAMPLE
inline constexpr double SKIP_MISSING = 9.0;  // SKIPMISS, for one command

// Makes SKIP$ n long, or lengthens it: old marks live on, new elements are 0. Sets LSKIP.
bool make_skip_vector(Workspace ws, int n);
// Its length when observation `last` needs a mark: up to the highest observation ever reached,
// unless a mistyped SAMPLE has reached for more than the workspace could hold.
int marks_wanted(int last);

// The gaps that the sample had when SAMPLE first changed it in a loop or procedure: they come back
// with the outermost level's end, or are forgotten.
void restore_gaps(Workspace ws);
void forget_gaps();

// How many elements of x equal value: memory speed, and the threads share long runs.
std::size_t count_equal(std::span<const double> x, double value);

}  // namespace korvel
