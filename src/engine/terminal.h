// What a person at a terminal gets beside the listing: colours, and a pause after a page.
#pragma once

#include <string>
#include <string_view>

namespace korvel {

// Whether the lines of a talking run are coloured: standard output is a terminal that knows
// colours, and NO_COLOR isn't set (no-color.org).
bool colours();
// The line with the colour of its level (errors, warnings, notes); `room` holds it.
std::string_view coloured(std::string_view line, std::string& room);

// Waits for Enter. False when the reader has had enough (q).
bool wait_for_enter();

}  // namespace korvel
