// The files that READ holds open, under their unit numbers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/text_input.h"

namespace korvel {

inline constexpr int NAMED_UNIT = 88;  // shown in messages for a file that was given by name

// An open file and how far it has been read.
struct DataUnit {
  int unit = 0;
  std::string path;
  std::unique_ptr<TextInput> text;
  std::size_t passed = 0;  // characters read so far; counts in files that lie in memory as a whole

  std::string_view rest() const { return text->rest(); }
  void pass(std::size_t n, std::int64_t lines) {
    text->skip(n, lines);
    passed += n;
  }
  void backspace();  // one line back
};

// The file of a unit, or the named file under unit 0, at the place where the last read stopped; at
// its start when it is newly opened or `rewind` is on (it is then opened again, for it may have
// changed). Null after the failure has been reported.
DataUnit* open_data_unit(int unit, std::string_view typed, bool rewind);
void close_data_unit(DataUnit* unit);

// FILE n name: the file that READ(n) opens. An empty name releases the unit.
void assign_data_unit(int unit, std::string_view path);

}  // namespace korvel
