// Data handling: the sample, reading and printing of data, formatted records.
//
//   format.h          edit-descriptor formats, parsed at build time or at run time, and their
//   editors list_numbers.h    numbers in free form smpl.cpp          SMPL (SAMPLE, SMPL, TIME),
//   CKSMPL, SKIPIT, SKIPKT readx*.cpp        READX (READ) printx*.cpp       PRINTX (PRINT, LIST)
// The room owns the sample words of DATCOM and the skip vector SKIP$.
#pragma once

#include <span>

#include "engine/options.h"
#include "engine/workspace.h"

namespace korvel {

// Handlers.
void SMPL(Workspace ws);    // SAMPLE, SMPL, TIME
void READX(Workspace ws);   // READ
void PRINTX(Workspace ws);  // PRINT, LIST
void WRITEX(Workspace ws);  // WRITE
void COPYX(Workspace ws);     // COPY
void SORTD(Workspace ws);     // SORT
void UNFORMAT(Workspace ws);  // CONVERT

// Checks the listed variables against the working range MBEG..MEND and carries out SKIPMISS.
// Sets MEND from the data when it is not above 0; sets ODONT when a variable is too short.
void CKSMPL(Workspace ws, std::span<const ListItem> list);

// True when any of SKIPIF, SAMPLE gaps and SKIPMISS is in force and there is a skip vector.
bool skipping();
// Counts the observations of MBEG..MEND that are not used: sets NSKIP and JBEG. NSKIP must hold the
// length of the skip vector. POOL gives the number of cross-sections, their length (0: equal shares
// of what is left) and the lags that reach into the previous one and are lost as well.
void SKIPIT(Workspace ws, int sections = 1, int section_length = 0, int lags = 0);
// Skip vector elements: skip[i-1] belongs to observation i; empty when there is none.
std::span<double> skip_vector(Workspace ws);
// Gap lengths for time-series estimators: gaps[k] observations are skipped right behind kept k.
// Mode as NSKIP says: -2 zeroes gaps and returns, -1 zeroes and counts, else gaps stay untouched.
void SKIPKT(Workspace ws, std::span<double> gaps);
// $N: the observations of the sample that are in use.
void set_sample_size(Workspace ws);

// A READ in scan mode: passes over its data lines in the command stream, reads and stores nothing.
void skip_stream_data(Workspace ws);

}  // namespace korvel
