// The console program: hands its arguments to the engine and ends with the run's status.
#include <unistd.h>

#include <string>
#include <vector>

#include "engine/console.h"
#include "platform/signals.h"

int main(int argc, char** argv) {
  const korvel::ConsoleCall call = korvel::KORVELD(std::vector<std::string>(argv + 1, argv + argc));
  if (call.status >= 0) {
    const ssize_t n = write(call.status == 0 ? 1 : 2, call.answer.data(), call.answer.size());
    return n < 0 ? 1 : call.status;
  }
  korvel::catch_signals();
  if (call.settings.safe) korvel::limit_resources();
  return korvel::run_korvel(call.settings);
}
