// SET and DISPLAY: the switches and settings of the run.
#pragma once

#include "engine/workspace.h"

namespace korvel {

void SETDIS(Workspace ws);  // SET, DISPLAY

}  // namespace korvel
