// Formats as users give them: the first line is a format, the rest are records that are read under
// it. Whatever the format, what widest_record foretells is what write_values does.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "data/run_format.h"

namespace {

using namespace korvel;

constexpr int COUNT = 50;

void check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto next_line = [&] {
    const auto end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
  };
  RunFormat format;
  if (format.parse(next_line()) != FormatFault::none) return 0;
  // 1. The records are read.
  std::vector<double> values(COUNT, 0.0);
  std::size_t used = 0;
  const RecordEnd read = read_values(
      format.view(), values,
      [&](std::string_view& record) {
        if (text.empty()) return false;
        record = next_line();
        return true;
      },
      used);
  check(used <= values.size() && (read != RecordEnd::done || used == values.size()));
  // 2. The values are written. Every record has its place, nothing stands behind it.
  std::array<char, RECORD_COLUMNS + 1> line{};
  line.back() = '!';
  std::size_t records = 0;
  const RecordEnd end = write_values(format.view(), values, line.data(), RECORD_COLUMNS,
                                     [&](std::string_view record) {
                                       check(record.size() <= RECORD_COLUMNS);
                                       return ++records < 10000;
                                     });
  check(line.back() == '!');
  const int widest = widest_record(format.view(), COUNT, RECORD_COLUMNS);
  if (end == RecordEnd::done) check(widest >= 0 && widest <= RECORD_COLUMNS);
  if (widest > RECORD_COLUMNS) check(end == RecordEnd::columns || end == RecordEnd::stopped);
  return 0;
}
