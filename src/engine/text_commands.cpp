#include "engine/text_commands.h"

#include <algorithm>
#include <cstring>

#include "engine/commands.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr int FORMATLIMIT = 248;

struct TextCommand {
  int ikod;
  std::string_view name;
};
constexpr TextCommand TEXTCOMMANDS[] = {{K_TITLE, "TITLE"},
                                        {K_FORMAT, "FORMAT$"},
                                        {K_TIMEFMT, "TIMEFMT$"},
                                        {K_AXISFMT, "AXISFMT$"},
                                        {K_NAMEFMT, "NAMEFMT$"}};

int counted_length(std::string_view text) {
  char quote = '\0';
  int n = 0;
  for (const char c : text) {
    if (quote != '\0') {
      if (c == quote) quote = '\0';
    } else if (c == '\'' || c == '"') {
      quote = c;
    }
    if (c != ' ' || quote != '\0') ++n;
  }
  return n;
}

bool holds_integer_descriptor(std::string_view text) {
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    if ((text[i] == '(' || text[i] == ',') && upper(text[i + 1]) == 'I') return true;
  }
  return false;
}

}  // namespace

bool is_text_command(int ikod) {
  return std::ranges::any_of(TEXTCOMMANDS, [ikod](const TextCommand& t) { return t.ikod == ikod; });
}

void store_text(Workspace ws, std::string_view name, std::string_view text) {
  const std::size_t words = std::max<std::size_t>((text.size() + 7) / 8, 1);
  const int I = NEWVAR(ws, name, {.ITYPE = STRING5, .LEN = static_cast<std::int64_t>(words)});
  if (I == 0) return;
  auto* bytes = reinterpret_cast<char*>(elements(ws, I).data());
  std::memset(bytes, ' ', words * 8);
  if (!text.empty()) std::memcpy(bytes, text.data(), text.size());
}

void store_text_command(Workspace ws) {
  std::string_view text = command_typed().substr(static_cast<std::size_t>(SCNCOM.ISTART));
  if (!text.empty() && text[0] == ' ') text.remove_prefix(1);
  text = right_trimmed(text);
  if (INPCOM.IKOD == K_FORMAT) {
    if (holds_integer_descriptor(text)) {
      return fail(" ...ERROR..IN FORMAT..USE F,E,D,G FORMAT NOT I FORMAT");
    }
    if (counted_length(text) > FORMATLIMIT) return end_unless_talking(-3);
  }
  for (const TextCommand& t : TEXTCOMMANDS) {
    if (t.ikod == INPCOM.IKOD) store_text(ws, t.name, text);
  }
}

}  // namespace korvel
