// The option table that READ, PRINT and WRITE share.
#pragma once

#include "engine/options.h"

namespace korvel {

inline constexpr auto READOPT = option_table(
    logical("LIST"), logical("BYVAR"), logical("BINARY"), logical("REWIND"), logical("ALL"),
    logical("SYMAT"), logical("TRIMAT"), logical("CHARSTR"), logical("CHARVAR"), logical("EOF"),
    logical("NAMES"), logical("WIDE"), logical("NEWPAGE"), logical("NEWSHEET"), logical("NEWLINE"),
    logical("BACKSPAC"), logical("SBINARY"), logical("DIF"), logical("CLOSE"), logical("TSP"),
    logical("KORVEL"), logical("DB"), logical("APPEND"), logical("CRYPT"), logical("ASCII"),
    integer("UNIT"), integer("BEG"), integer("END"), integer("OBS"), integer("COLS"),
    integer("COLB"), integer("COLE"), integer("ROWS"), integer("SKIPLINE"), integer("SKIPROWS"),
    integer("SKIPCOLS"), integer("CHARVARS"),  //
    variable("FORMAT"), variable("PLOTVAR"));

// Values of the running command by the place of a word in its section.
inline bool logical_option(int place) { return OPTCOM.LOPT[static_cast<std::size_t>(place)]; }
inline bool logical_given(int place) { return OPTCOM.lgiven[static_cast<std::size_t>(place)]; }
inline int integer_option(int place) { return OPTCOM.IOPT[static_cast<std::size_t>(place)]; }
inline bool integer_given(int place) { return OPTCOM.igiven[static_cast<std::size_t>(place)]; }

}  // namespace korvel
