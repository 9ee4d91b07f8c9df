// MATRIX: the end of a statement. The result goes into its target, or is printed.

#include <cstring>

#include "data/print_job.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "expr/matrix.h"

namespace korvel {
namespace {

constexpr int HEADER = 4;

void set_shape_temporaries(Workspace ws, int number) {
  const Place p = INFO(ws, number);
  const bool packed = p.ITYPE == SYMMETRIC || p.ITYPE == TRIANGLE;
  temporary(temporary_place("ROWS")) = packed ? p.N2 : p.rows();
  temporary(temporary_place("COLS")) = p.N2;
}

// True when the value lies among the words of the target, which are about to change.
bool reads_target(Workspace ws, int target, const Operand& value) {
  if (OCOM.ONEWV) return false;
  const Place p = INFO(ws, target);
  const double* first = &ws.DATA(p.IADD);
  return value.data >= first && value.data < first + HEADER + p.LEN;
}

// The value in words of its own, by columns.
bool detach(MatrixRun& run, Operand& value) {
  double* copy = run.take(value.words());
  if (copy == nullptr) return false;
  copy_elements(value, copy);
  value.data = copy;
  value.transposed = false;
  return true;
}

// TYPE of a variable that takes the value: a scalar is a series, a column stays one.
int type_of(Workspace ws, int target, const Operand& value) {
  if (value.scalar()) return SERIES;
  if (value.packed()) return value.kind;
  if (value.columns == 1 && !OCOM.ONEWV) {
    const Place p = INFO(ws, target);
    if (p.ITYPE == SERIES && p.LEN == value.rows) return SERIES;
  }
  return MATRIX2;
}

// A new target whose words have been made in its place.
void take_over(MatrixRun& run, int target, const Operand& value, int type) {
  const Workspace ws = run.ws;
  const auto A = static_cast<int>(value.data - &ws.DATA(1)) + 1 - HEADER;
  ws.KADD(target) = A;
  ws.DATA(A) = 1.0;
  ws.DATA(A + 1) = type;
  ws.DATA(A + 2) = static_cast<double>(value.words());
  ws.DATA(A + 3) = static_cast<double>(value.columns);
  DATCOM.NVARS = target;
  run.keep_target();
}

bool replace_target(MatrixRun& run, int target, Operand value) {
  const Workspace ws = run.ws;
  const int type = type_of(ws, target, value);
  if (run.lies_at_target(value.data)) {
    take_over(run, target, value, type);
    set_shape_temporaries(ws, target);
    return true;
  }
  run.drop_target();
  if (reads_target(ws, target, value) && !detach(run, value)) return false;
  if (!OCOM.ONEWV && INFO(ws, target).ITYPE > TRIANGLE) {  // text is not overwritten by numbers
    fail<"(' ...ERROR..', A, ' IS NOT A SERIES OR MATRIX')">(NAME(ws, target));
    return false;
  }
  char name[NAMELEN];
  std::memcpy(name, ws.VNAME(target).data(), NAMELEN);
  const int number =
      NEWVAR(ws, right_trimmed({name, NAMELEN}),
             {.ITYPE = type, .LEN = value.words(), .N2 = static_cast<int>(value.columns)});
  if (number == 0) return false;
  copy_elements(value, elements(ws, number).data());
  set_shape_temporaries(ws, number);
  return true;
}

// NAME(i,j)= and NAME(i)= put the value's upper left corner there, NAME:j= fills a column.
bool store_block(MatrixRun& run, int target, Operand value) {
  const Workspace ws = run.ws;
  if (OCOM.ONEWV) return invalid_shape(run, value, {});
  const Place p = INFO(ws, target);
  if (p.ITYPE < SERIES || p.ITYPE > TRIANGLE) {
    fail<"(' ...ERROR..', A, ' IS NOT A SERIES OR MATRIX')">(NAME(ws, target));
    return false;
  }
  const bool packed_target = p.ITYPE > MATRIX2;
  const std::int64_t rows = packed_target ? p.N2 : p.rows();
  const std::int64_t columns = p.N2;
  const Operand shape{.rows = rows, .columns = columns};
  if (!expand(run, value)) return false;
  double* data = &ws.DATA(p.IADD + std::int64_t{HEADER});
  std::int64_t i = GENCOM.LHSROW;
  std::int64_t j = GENCOM.LHSCOL;
  const bool whole_column = i == 0;
  if (whole_column) {
    i = 1;
    if (!value.scalar() && value.rows != rows) return invalid_shape(run, value, shape);
  } else if (j == 0) {  // counted column by column
    j = (i - 1) / rows + 1;
    i = (i - 1) % rows + 1;
  }
  const bool fill = whole_column && value.scalar();
  const std::int64_t high = fill ? rows : value.rows;
  if (i + high - 1 > rows || j + value.columns - 1 > columns) {
    return invalid_shape(run, value, shape);
  }
  if (packed_target) {  // one element; above the diagonal of a triangle there is none
    if (whole_column || !value.scalar() || (p.ITYPE == TRIANGLE && j > i)) {
      return invalid_shape(run, value, shape);
    }
    data[packed(static_cast<int>(i), static_cast<int>(j))] = value.data[0];
    set_shape_temporaries(ws, target);
    return true;
  }
  if (fill) {
    const double v = value.data[0];
    std::fill_n(data + (j - 1) * rows, rows, v);
  } else {
    if (value.transposed || reads_target(ws, target, value)) {
      if (!detach(run, value)) return false;
    }
    for (std::int64_t q = 0; q < value.columns; ++q) {
      std::memcpy(data + (i - 1) + (j - 1 + q) * rows, value.data + q * value.rows,
                  static_cast<std::size_t>(value.rows) * sizeof(double));
    }
  }
  set_shape_temporaries(ws, target);
  return true;
}

void warn_missing(const MatrixRun& run) {
  if (run.SKIPMISS) {
    warn<"(' ...WARNING..MISSING OBSERVATION SET TO ', F7.0)">(run.XMISS);
  } else {
    warn<"(' ...WARNING..MISSING VALUE CODE=', F7.0, ' WAS FOUND AND USED IN THIS CALCULATION')">(
        run.XMISS);
  }
}

}  // namespace

void print_matrix(MatrixRun& run, const Operand& x, std::string_view name) {
  const auto to_output = [](std::string_view record) {
    Line row;
    row.text(record);
    OUTLINE();
    return !stop_requested();
  };
  if (!name.empty()) say(name);
  PrintJob job{.ws = run.ws, .names = false, .out = to_output};
  job.items.push_back({.type = x.kind,
                       .rows = x.rows,
                       .columns = static_cast<int>(x.columns),
                       .last = x.rows,
                       .last_column = static_cast<int>(x.columns),
                       .name = {},
                       .data = {x.data, static_cast<std::size_t>(x.words())}});
  print_data(job);
}

bool end_matrix(MatrixRun& run, Operand value) {
  const int target = GENCOM.NTRS;
  bool good = true;
  if (OCOM.OCALC) {
    const bool silent = !OCOM.OPUT && OSCOM.OOPUT;
    if (!silent && value.scalar()) {
      say<"(1X, G15.8)">(value.data[0]);
    } else if (!silent) {
      good = value.packed() || straighten(run, value);
      if (good) print_matrix(run, value, {});
    }
  } else if (target < 0) {
    if (!value.scalar()) return invalid_shape(run, value, {.rows = 1, .columns = 1});
    temporary(-target - 1) = value.data[0];
  } else if (GENCOM.LHSROW > 0 || GENCOM.LHSCOL > 0) {
    good = store_block(run, target, value);
  } else {
    good = replace_target(run, target, value);
  }
  if (good && run.missing) warn_missing(run);
  return good;
}

}  // namespace korvel
