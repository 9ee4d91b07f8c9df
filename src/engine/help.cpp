#include "engine/help.h"

#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "engine/commands.h"
#include "engine/host.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/start_files.h"
#include "engine/terminal.h"
#include "platform/line_editor.h"

namespace korvel {
namespace {

// Prints a text of several lines.
void print_text(std::string_view text) {
  const int rows = OSCOM.OTALK && !on_host() ? terminal_rows() : 0;
  int shown = 0;
  while (!text.empty() && !stop_requested()) {
    if (rows > 3 && ++shown % (rows - 1) == 0 && !wait_for_enter()) return;
    const auto end = text.find('\n');
    Line row;
    row.text(" ");
    row.text(text.substr(0, end));
    OUTLINE();
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

// A line of the index, broken at blanks.
void print_entry(std::string_view head, std::string_view text) {
  constexpr std::size_t WIDTH = 100;
  std::string line(head);
  while (!text.empty()) {
    const auto end = std::min(text.find(' '), text.size());
    if (line.size() + end + 1 > WIDTH) {
      print_text(line);
      line.assign(head.size(), ' ');
    }
    line += ' ';
    line += text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  print_text(line);
}

// Words of an option or function match in full, or as their beginning when they are cut.
bool matches(std::string_view entry, std::string_view word) {
  if (entry == word) return true;
  // An option that is switched off by NO in front is found by its own word too.
  return entry.size() > 2 && entry.substr(0, 2) == "NO" && entry.substr(2) == word;
}

// Lines of a page's index about a word; their number.
int print_entries(const HelpPage& page, std::string_view word, bool name_page) {
  int found = 0;
  for (const HelpEntry& entry : page.entries) {
    if (!matches(entry.word, word)) continue;
    std::string head;
    if (name_page) {
      head.assign(page.name);
      constexpr std::size_t NAME = 9;
      if (head.size() < NAME) head.append(NAME - head.size(), ' ');
    }
    print_entry(head, entry.text);
    ++found;
  }
  return found;
}

// All pages: the commands in the order of the table, then the topics.
void list_pages() {
  say(" HELP word shows the page of a command; HELP command word one of its options. Pages:");
  WordRows rows(8);
  for (int ikod = 1; ikod <= NCOMMANDS; ++ikod) {
    if (const HelpPage* page = help_page(ikod)) rows.add(page->name);
  }
  for (const HelpPage& page : help_pages()) {
    const bool command = page.name.size() <= KEYLEN && find_command(page.name) > 0 &&
                         help_page(find_command(page.name)) == &page;
    if (!command && page.name != "README") rows.add(page.name);
  }
  rows.end();
}

// The address of a file for a browser.
std::string file_address(std::string_view path) {
  constexpr std::string_view HEX = "0123456789ABCDEF";
  std::string address = "file://";
  for (const char c : path) {
    if (NAMCHK(c) >= 0 || std::string_view("/-._~").find(c) != std::string_view::npos) {
      address += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    address += '%';
    address += HEX[byte / 16U];
    address += HEX[byte % 16U];
  }
  return address;
}

// The introduction: in the host's browser where the pages of the manual lie as files, else as text.
void open_introduction() {
  const std::string folder = module_folder();
  for (const std::string_view place :
       {"manual/", "../share/doc/korvel/manual/", "../../share/doc/korvel/manual/"}) {
    const std::string file = folder + std::string(place) + "README.html";
    if (on_host() && access(file.c_str(), R_OK) == 0) {
      return tell_host("MSG_GOHTTPEXT=", file_address(file));
    }
  }
  if (const HelpPage* page = help_page("README")) print_text(page->text);
}

}  // namespace

const HelpPage* help_page(std::string_view name) {
  const auto pages = help_pages();
  const auto at = std::ranges::find(pages, name, &HelpPage::name);
  return at == pages.end() ? nullptr : &*at;
}

const HelpPage* help_page(int ikod) {
  if (ikod < 1 || ikod > NCOMMANDS) return nullptr;
  const std::string_view word = COMMANDS[static_cast<std::size_t>(ikod - 1)].word;
  return help_page(ikod == K_OLSQ ? std::string_view("OLS") : word);
}

void HELP(Workspace) {
  const Trace trace("HELP");
  if (OSCOM.OSCAN) return;
  // 1. Up to two words.
  std::vector<std::string_view> words;
  std::string_view tail = command_tail();
  while (!(tail = trimmed(tail)).empty()) {
    words.push_back(tail.substr(0, tail.find(' ')));
    tail.remove_prefix(words.back().size());
  }
  if (words.empty()) return list_pages();
  if (words[0] == "INTRO") return open_introduction();
  // 2. A page by its name, or the page of a command by its word.
  const HelpPage* page = help_page(words[0]);
  if (page == nullptr) page = help_page(find_command(words[0].substr(0, KEYLEN)));
  if (words.size() > 1 && page != nullptr) {
    if (print_entries(*page, words[1], false) > 0) return;
    return error_line<"(' ...ERROR..THE PAGE ', A, ' SAYS NOTHING ABOUT ', A)">(page->name,
                                                                                words[1]);
  }
  // 3. An option, a function or a code of any page. A whole word goes before an abbreviated
  // command.
  const bool whole =
      page != nullptr && (page->name == words[0] || words[0].size() >= KEYLEN || words[0] == "OLS");
  int found = 0;
  if (!whole) {
    for (const HelpPage& other : help_pages()) found += print_entries(other, words[0], true);
  }
  if (found > 0) return;
  if (page == nullptr) {
    return error_line<"(' ...ERROR..NO HELP ON ', A, ', TYPE HELP FOR THE LIST OF PAGES')">(
        words[0]);
  }
  print_text(page->text);
}

}  // namespace korvel
