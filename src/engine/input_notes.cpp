// What a person is told beside the error line: what an unknown word may have meant, which command
// of a body or file failed or was stopped.
#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/completion.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/set.h"

namespace korvel {
namespace {

// The command word of the stored line that is run, when an index replaced in it has made it an
// unknown one.
std::string stored_word() {
  if (!is_replayed()) return {};
  const BodyText& text = *levels().back().text;
  const std::string& line = text.body()->lines[static_cast<std::size_t>(text.at() - 1)].text;
  if (stored_command(line) == 0) return {};
  const std::string_view before =
      std::string_view(line).substr(0, line.size() - stored_tail(line).size());
  const auto start = before.find_last_of(" ?^=:");
  std::string word(before.substr(start == std::string_view::npos ? 0 : start + 1));
  LCUC(word.data(), static_cast<int>(word.size()));
  return word;
}

}  // namespace

void tell_meaning(std::string_view word, std::string_view tail) {
  if (const std::string stored = stored_word(); !stored.empty()) {
    say<"(' ...NOTE..THE INDEX OF THE LOOP STANDS IN THE WORD ', A, ', TAKE # OR % AS INDEX')">(
        stored);
  } else if (trimmed(tail).starts_with('=') && NAMCHK(word[0]) == 1) {
    say<"(' ...NOTE..A VARIABLE IS MADE BY: GENR ', A, A)">(word, trimmed(tail));
  } else if (const std::string near = near_command(word); OSCOM.OTALK && !near.empty()) {
    say<"(' ...NOTE..DID YOU MEAN ', A, '?')">(near);
  }
}

void tell_failed_command() {
  if (!OSCOM.OTALK || is_echoed() || !behind_first_input()) return;
  std::string place = running_file();
  if (!place.empty()) place = " (" + place + " LINE " + std::to_string(INPCOM.KLINE) + ")";
  const std::string text = hide_pass_phrase(trimmed(command_text()));
  say<"(' ...NOTE..THE COMMAND WAS ', A, A)">(text.substr(0, 80), place);
}

void tell_stopped_command() {
  if (!behind_first_input()) return;
  std::string place;
  for (const Level& level : levels()) {
    if (level.procedure) continue;
    place += (place.empty() ? "DO LOOP STOPPED AT " : ", ") + level.index + "= " + level.shown;
  }
  if (place.empty()) place = levels().empty() ? "FILE OF COMMANDS STOPPED" : "PROC STOPPED";
  if (const std::string file = running_file(); !file.empty())
    place += ", " + file + " LINE " + std::to_string(INPCOM.KLINE);
  // Between two commands there is none to be shown.
  const std::string text = hide_pass_phrase(trimmed(command_text()));
  say<"(' ...NOTE..', A, A, A)">(place, std::string_view(text.empty() ? "" : ": "), text);
}

}  // namespace korvel
