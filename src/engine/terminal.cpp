#include "engine/terminal.h"

#include <unistd.h>

#include <cstdlib>

#include "engine/files.h"
#include "engine/host.h"
#include "engine/output.h"

namespace korvel {

bool colours() {
  static const bool on = [] {
    const char* none = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe)
    const char* terminal = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe)
    const bool dumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    return (none == nullptr || *none == '\0') && !dumb && isatty(1) == 1;
  }();
  return on;
}

std::string_view coloured(std::string_view line, std::string& room) {
  struct Level {
    std::string_view start, colour;
  };
  constexpr Level LEVELS[] = {{" ...ERROR", "\x1B[31m"},
                              {" .. THIS COMMAND IS NOT", "\x1B[31m"},
                              {" ...WARNING", "\x1B[33m"},
                              {" ...NOTE", "\x1B[36m"}};
  for (const Level& level : LEVELS) {
    if (!line.starts_with(level.start)) continue;
    room.assign(level.colour);
    room += line;
    room += "\x1B[0m";
    return room;
  }
  return line;
}

bool wait_for_enter() {
  if (on_host()) {
    break_on_host();
    return !stop_requested();
  }
  main_output().raw(" MORE: ENTER, OR Q TO LEAVE ");
  main_output().flush();
  char answer = '\n';
  char c = '\n';
  // A signal (Ctrl-C) ends the wait as q does.
  ssize_t n = read(0, &c, 1);
  if (n == 1) answer = c;
  while (n == 1 && c != '\n') n = read(0, &c, 1);
  return n == 1 && upper(answer) != 'Q';
}

}  // namespace korvel
