// Formats and other texts that lie in the workspace.

#include <cstring>

#include "data/run_format.h"
#include "engine/output.h"

namespace korvel {

std::string stored_text(Workspace ws, int var) {
  if (var <= 0 || var > DATCOM.NVARS) return {};
  const Place place = INFO(ws, var);
  if (place.ITYPE != STRING5 && place.ITYPE != CHARVAR) return {};
  const auto words = elements(ws, var);
  std::string text(words.size() * sizeof(double), ' ');
  if (!words.empty()) std::memcpy(text.data(), words.data(), text.size());
  text.resize(static_cast<std::size_t>(LENTRM(text)));
  return text;
}

std::string stored_format(Workspace ws, std::string_view name) {
  return stored_text(ws, VARNUM(ws, name == "********" ? "FORMAT$" : name));
}

void bad_format(std::string_view text) {
  error_line(" ...ERROR..BAD FORMAT OR MAY PRINT MORE THAN 130 COLUMNS");
  say<"(1X, A120)">(text);
  mark_failed();
}

}  // namespace korvel
