// Rows of READ under an edit-descriptor format.

#include <algorithm>

#include "data/format.h"
#include "data/read_job.h"
#include "engine/output.h"

namespace korvel {

RowsRead read_formatted(LineCursor& cursor, const ReadJob& job, const RowPlan& plan,
                        const RowTarget* target, std::int64_t from) {
  RowsRead read;
  read.groups = from;
  std::vector<double> row;
  bool terminator = false;
  // The next record. Only the first one of a group may end the block, and any one when the group
  // reaches to the end.
  bool first = true;
  bool to_end = false;
  const auto next_record = [&](std::string_view& record) {
    read.bad_text = {};
    while (cursor.next(record)) {
      const LineKind kind = first || to_end ? line_kind(record, plan) : LineKind::data;
      if (kind == LineKind::blank && first && plan.ends_at_command) continue;
      if (kind == LineKind::command || kind == LineKind::end_word) {
        if (kind == LineKind::command) cursor.back();
        terminator = true;
        return false;
      }
      first = false;
      read.bad_text = record;  // the place of a bad field
      return true;
    }
    return false;
  };
  for (std::int64_t g = from; plan.groups == UNKNOWN || g < plan.groups; ++g) {
    if (stop_requested()) {
      read.end = RowEnd::stopped;
      return read;
    }
    if (plan.width(g) == UNKNOWN) {  // a series of unknown length: its values are counted
      to_end = true;
      const auto fields = static_cast<std::int64_t>(count_fields(job.format.view(), next_record));
      read.partial = std::max<std::int64_t>(fields - plan.skip_columns, 0);
      read.end = terminator ? RowEnd::terminator : RowEnd::end_of_text;
      return read;
    }
    row.assign(static_cast<std::size_t>(plan.width(g) + plan.skip_columns), 0.0);
    std::size_t used = 0;
    first = true;
    const RecordEnd end = read_values(job.format.view(), row, next_record, used);
    const auto kept = static_cast<std::int64_t>(used) - plan.skip_columns;
    if (target != nullptr) {
      const std::int64_t n = end == RecordEnd::done ? plan.width(g) : kept;
      for (std::int64_t k = 0; k < n; ++k) {
        target->place(plan.layout, g, k) = row[static_cast<std::size_t>(k + plan.skip_columns)];
      }
    }
    if (end != RecordEnd::done) {
      read.partial = std::max<std::int64_t>(kept, 0);
      read.bad_value = read.partial;
      read.line = cursor.line;
      read.end = end == RecordEnd::eof ? (terminator ? RowEnd::terminator : RowEnd::end_of_text)
                                       : RowEnd::bad_value;
      return read;
    }
    ++read.groups;
  }
  return read;
}

}  // namespace korvel
