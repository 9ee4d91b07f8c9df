// FILE, INQUIRE and REWIND: units, folders and small jobs with files.
#pragma once

#include <string_view>

#include "engine/workspace.h"

namespace korvel {

void FILEX(Workspace ws);    // FILE word rest, FILE n name
void INQUIRX(Workspace ws);  // INQUIRE n
void REWINDX(Workspace ws);  // REWIND n

// The jobs behind the words of FILE; `name` is the rest of the line, a name without its quotes.
// Each reports its failures itself.
void list_file(std::string_view name);                // LIST, TYPE
void list_folder(std::string_view name);              // DIR
void change_folder(std::string_view name);            // CD
void print_folder();                                  // PWD
void transfer_file(std::string_view url, bool text);  // FTP, FTPB

}  // namespace korvel
