#include "data/run_format.h"

namespace korvel {

FormatFault RunFormat::parse(std::string_view text) {
  summary_ = {};
  length_ = 0;
  char quote = '\0';
  for (const char c : text) {
    if (quote == '\0' && c == ' ') continue;
    if (length_ == FORMAT_LENGTH) return summary_.fault = FormatFault::too_long;
    text_[length_++] = c;
    if (quote != '\0') {
      if (c == quote) quote = '\0';  // a doubled quote closes and opens again
    } else if (c == '\'' || c == '"') {
      quote = c;
    }
  }
  summary_ = FormatParser({text_.data(), length_}, false, items_, literals_).parse();
  if (summary_.fault == FormatFault::none && summary_.data == 0) {
    summary_.fault = FormatFault::no_data;
  }
  return summary_.fault;
}

}  // namespace korvel
