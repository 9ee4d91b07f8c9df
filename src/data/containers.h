// The file forms that carry variables whole: the containers KORVDATA and KORVBIN, DIF, and the
// databank files of one variable.
//
// Readers take the text of a job from job.cursor, fill the variables, and leave in the job what the
// note of READ tells (items, beg, count, cols, matrix). Writers take the items of a job and write
// to an open file. All of them report their own failures and return false then; nothing enters the
// workspace before the whole variable has been read.
#pragma once

#include <string>
#include <string_view>

#include "data/print_job.h"
#include "data/read_job.h"
#include "platform/file_output.h"

namespace korvel {

// What a file or its name says it is.
enum class FileForm : std::uint8_t { text, korvdata, korvbin, dif, databank };
// By the first eight bytes of a file: a container, else text.
FileForm form_by_magic(std::string_view bytes);

// READ. The options of the command stand in OPTCOM; the list, when there is one, in job.items.
bool read_korvdata(ReadJob& job);
bool read_korvbin(ReadJob& job);
bool read_dif(ReadJob& job);
// READ / DB and TSP: each listed variable from its own file, or the one file named.
bool read_databank(ReadJob& job);

// WRITE.
bool write_korvdata(const PrintJob& job, FileOutput& file);
bool write_korvbin(const PrintJob& job, FileOutput& file, bool single);
bool write_dif(const PrintJob& job, FileOutput& file);
// WRITE / DB and TSP: opens and completes one file for each variable by itself.
bool write_databank(const PrintJob& job, std::string_view typed_file);

// Loads a variable from its databank file at first use (SET DB): its number, 0 when there is no
// file of that name, -1 after a failure that has been reported.
int load_from_databank(Workspace ws, std::string_view name);
// The same for the names of a formula that are not in the workspace, its target excepted.
void load_formula_names(Workspace ws, std::string_view formula);

// The snapshot of a run: the results of the last estimate, the switches and the temporaries, on a
// private file. Only the same build reads it back; false when it can't, and nothing is changed
// then.
bool write_snapshot(const std::string& path);
bool read_snapshot(const std::string& path);

}  // namespace korvel
