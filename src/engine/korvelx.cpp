// The exported entry of the library.
#include <cstring>
#include <string>
#include <vector>

#include "engine/console.h"
#include "engine/files.h"
#include "korvel.h"

namespace {

constexpr std::int32_t PROBE = 9557;
constexpr std::size_t TEXTLENGTH = 128;

void write_line(std::string_view text) {
  korvel::main_output().attach(1);
  korvel::main_output().line(text);
  korvel::main_output().flush();
}

// The host's text as an argument list: parted at blanks.
std::vector<std::string> arguments_of(std::string_view text) {
  std::vector<std::string> list;
  while (!text.empty()) {
    const auto start = text.find_first_not_of(' ');
    if (start == std::string_view::npos) break;
    text.remove_prefix(start);
    const auto end = text.find(' ');
    list.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end);
  }
  return list;
}

}  // namespace

void KORVELX(std::int32_t* code, std::int32_t* result, const char* text) {
  const std::int32_t asked = *code;
  if (asked == -1) {
    *result = PROBE;
    return;
  }
  if (asked != 166 && asked != 167 && asked != 327) {
    if (asked > 306) {
      *code = -7;
    } else {
      write_line("Improper KORVEL Ver 11 Installation, Reinstall");
    }
    return;
  }
  std::string_view tail =
      text == nullptr ? std::string_view{} : std::string_view(text, strnlen(text, TEXTLENGTH));
  if (asked == 167 && !tail.empty() && tail[0] == '"' &&
      tail.find('"', 1) == std::string_view::npos) {
    write_line("NO CLOSING \"");
  }
  const korvel::ConsoleCall call = korvel::KORVELD(arguments_of(tail));
  if (call.status >= 0) {
    write_line(call.answer);
    *result = call.status;
  } else {
    *result = korvel::run_korvel(call.settings);
  }
  *code = 16;
}
