// Where PRINT and WRITE send their values, and in which kind of file.
#pragma once

#include <string>
#include <string_view>

#include "data/containers.h"
#include "data/print_job.h"

namespace korvel {

struct WriteTarget {
  bool channel = false;     // the output channel, else a file
  int unit = 0;             // 0: the file is named
  std::string typed;        // name as typed, empty for a unit
  std::string name;         // the one that tells the form: as typed, or what the unit stands for
  bool by_default = false;  // neither a unit nor a file was named in the command
  FileForm form = FileForm::text;
  bool single = false;  // KORVBIN in single precision
  bool crypt = false;
  WriteMode mode = WriteMode::replace;
};

// Finds the target of the running command from its unit or file, its options and the settings.
// False after the refusal has been printed.
bool find_target(WriteTarget& target, bool write);

// Name of a file that holds cells: their separator, else '\0'.
char separator_of(std::string_view name);

// Writes the job to the file of the target, which is complete afterwards, or as it was before when
// the failure has been reported.
void write_file(PrintJob& job, const WriteTarget& target);

}  // namespace korvel
