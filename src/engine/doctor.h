// korvel --doctor: what the machine has for this program, and the line to type where something is
// missing.
#pragma once

#include <string>

namespace korvel {

std::string doctor();

}  // namespace korvel
