// The command tail of a console run.
#pragma once

#include <string>
#include <vector>

#include "engine/run.h"

namespace korvel {

// What an argument list asks for.
struct ConsoleCall {
  RunSettings settings;
  int status = -1;     // 0 or above: end at once with this status
  std::string answer;  // text for standard output, or for standard error when status is not 0
};

// Reads arguments: PAR=, SIZE=, TEMP=, ENV= and % anywhere, the first two others are the input and
// the output file. SAFE. Options: --help, --version, -c COMMANDS, -q, -W, - for standard input or
// output.
ConsoleCall KORVELD(const std::vector<std::string>& arguments);

}  // namespace korvel
