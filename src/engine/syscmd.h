// System lines: "$" and what stands behind it.
#pragma once

#include <string_view>

namespace korvel {

// Runs a system line. DEL and RENAME are done here (typed in lower case only where the machine has
// no such command), GNUPLOT and WGNUPLOT are started without waiting, all else is text for
// /bin/sh. Its output comes into the listing line by line; its exit status counts for nothing.
void SYSCMD(std::string_view text);

// Removes exactly that file, never a folder. False after a reported failure.
bool delete_file(std::string_view typed);

}  // namespace korvel
