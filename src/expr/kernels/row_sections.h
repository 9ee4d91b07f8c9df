// How a pass over the rows of a data matrix is cut for threads: by the number of rows alone, so
// that sums joined in order are the same for any number of threads.
#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/parallel.h"

namespace korvel {

struct RowSections {
  std::int64_t rows;
  std::int64_t section;  // rows of a section
  int count;

  explicit RowSections(std::int64_t rows_in) : rows(rows_in) {
    constexpr std::int64_t shortest = 16384;
    constexpr std::int64_t most = 64;
    const std::int64_t wanted = std::clamp<std::int64_t>(rows / shortest, 1, most);
    section = ((rows + wanted - 1) / wanted + 255) / 256 * 256;
    count = static_cast<int>(std::max<std::int64_t>(1, (rows + section - 1) / section));
  }
  std::int64_t begin(int s) const { return s * section; }
  std::int64_t end(int s) const { return std::min(rows, (s + 1) * section); }

  // body(s) for every section, on threads when there are several.
  template <class F>
  void run(F&& body) const {
    if (count == 1)
      body(0);
    else
      parallel_sections(count, body);
  }
};

}  // namespace korvel
