// State of the connection to a host, for the files that make it up.
#pragma once

#include "korvel.h"

namespace korvel {

struct HostState {
  KORVELHOST* record = nullptr;  // the host's own, null when none is registered
  bool at_prompt = false;        // the next command is being asked for
  bool reset = false;            // the stop button was pressed: the workspace is to be emptied
};
extern HostState HOST;

}  // namespace korvel
