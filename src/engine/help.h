// HELP: the pages of the manual inside the program. The pages are docs/manual/*.md; a build step
// (tools/make_help.cpp) makes plain text of them and an index of the words that their tables and
// lists explain, which completion uses too.
#pragma once

#include <span>
#include <string_view>

#include "engine/workspace.h"

namespace korvel {

// A word that a page explains (an option, a function, a setting, a code) and its line.
struct HelpEntry {
  std::string_view word;
  std::string_view text;
};
struct HelpPage {
  std::string_view name;  // file name of the page: the command word, or a topic such as LANGUAGE
  std::string_view text;  // lines of up to 78 columns
  std::span<const HelpEntry> entries;
};
std::span<const HelpPage> help_pages();

// The page of a command by its rank, or of a topic by its name; null when there is none.
const HelpPage* help_page(int ikod);
const HelpPage* help_page(std::string_view name);

void HELP(Workspace ws);  // HELP, HELP word, HELP command word

}  // namespace korvel
