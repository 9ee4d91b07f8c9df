// Formats that come from the user at run time: the FORMAT command and FORMAT= of READ, PRINT,
// WRITE.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "data/format.h"
#include "engine/workspace.h"

namespace korvel {

inline constexpr std::size_t FORMAT_LENGTH = 248;  // characters, blanks outside quotes removed

// A parsed run-time format with its text. Values go through F, E, D, G and A.
class RunFormat {
 public:
  // too_long leaves the end of the run to the caller; every other fault is a bad format.
  FormatFault parse(std::string_view text);
  FormatView view() const {
    return {items_.data(), literals_.data(), summary_.revert, summary_.revert_data};
  }
  const FormatSummary& summary() const { return summary_; }
  // The format without blanks outside quotes, as it is shown.
  std::string_view text() const { return {text_.data(), length_}; }

 private:
  std::array<char, FORMAT_LENGTH> text_{};
  std::size_t length_ = 0;
  std::array<FormatItem, FORMAT_LENGTH + 2> items_{};
  std::array<char, FORMAT_LENGTH> literals_{};
  FormatSummary summary_;
};

// Text of a character variable, trailing blanks removed; empty when var is none.
std::string stored_text(Workspace ws, int var);

// Text of the format that the name option stands for: "********" and FORMAT$ are the last FORMAT
// command, another name is a variable of TYPE 5. Empty when there is no such format.
std::string stored_format(Workspace ws, std::string_view name);

// The lines of a format that can't be used; marks the command as failed.
void bad_format(std::string_view text);

}  // namespace korvel
