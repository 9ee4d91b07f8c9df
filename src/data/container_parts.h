// What the container forms share: the header of a variable, exact numbers in text, what WRITE puts
// into a file, and the way of a variable from a file into the workspace.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "data/containers.h"
#include "data/list_numbers.h"

namespace korvel {

// ---- The header
// ----------------------------------------------------------------------------------

inline constexpr std::size_t MAGICLEN = 8;
inline constexpr std::size_t HEADFORMAT = 120;  // characters of the stored format: 15 groups of 8

// Places of the six flags and of the seven integers.
enum HeadFlag : std::size_t { H_FREE, H_BINARY, H_SINGLE, H_BYROW, H_FORMAT, H_BYVAR };
enum HeadWord : std::size_t { H_TYPE, H_LENGTH, H_COLUMNS, H_TIME1, H_TIME2, H_TIME3, H_LAST };

struct ContainerHead {
  // Version, MACH, MOS, MCMP, 0, number of flags, number of integers, 0, number of text groups.
  std::array<std::int32_t, 9> nine{1, MACOM.MACH, MACOM.MOS, MACOM.MCMP, 0, 6, 7, 0, 16};
  std::array<bool, 6> flag{};
  std::array<std::int32_t, 7> word{};
  std::string name;    // the first 8 characters
  std::string format;  // empty without a stored format

  int TYPE() const { return word[H_TYPE]; }
  std::int64_t LENGTH() const { return word[H_LENGTH]; }
  int COLUMNS() const { return word[H_COLUMNS]; }
  bool text() const { return TYPE() >= STRING5; }
  bool packed() const { return TYPE() == SYMMETRIC || TYPE() == TRIANGLE; }
  std::int64_t rows() const { return packed() ? COLUMNS() : LENGTH() / COLUMNS(); }
};

// The cause why a header can't be believed, empty when it can: its counts, the kind of variable and
// its shape. Whether the file holds so many elements is for the reader of the form.
std::string_view head_fault(const ContainerHead& head);

// ---- What WRITE puts into a file
// -----------------------------------------------------------------

// The header of an item as the command asks for it. False after the failure has been reported: a
// variable without elements in the range, a part of a packed matrix that isn't one.
bool item_head(const PrintJob& job, const PrintItem& x, ContainerHead& head);

// The elements that item_head counted, in storage order, as runs of consecutive words.
template <class F>
void item_runs(const PrintJob& job, const PrintItem& x, F&& run) {
  const auto part = [&](std::int64_t at, std::int64_t n) {
    if (n > 0) run(x.data.subspan(static_cast<std::size_t>(at), static_cast<std::size_t>(n)));
  };
  if (x.type == 0) {
    run(std::span<const double>(TEMCOM.TEMVAL).subspan(static_cast<std::size_t>(-x.var - 1), 1));
  } else if (x.type == STRING5) {
    run(x.data);
  } else if (x.triangle()) {
    part(0, x.last * (x.last + 1) / 2);
  } else if (!x.column()) {
    for (std::int64_t j = x.first_column; j <= x.last_column; ++j) {
      part((j - 1) * x.rows + x.first - 1, x.last - x.first + 1);
    }
  } else if (job.skip.empty() || x.rows == 1) {
    part(x.first - 1, x.last - x.first + 1);
  } else {
    for (std::int64_t i = x.first; i <= x.last;) {
      std::int64_t end = i;
      while (end <= x.last && !job.skipped(end)) ++end;
      part(i - 1, end - i);
      i = end + 1;
    }
  }
}

// The start of the calendar moved on to observation `first`.
struct CalendarStart {
  int year = 1, period = 0;
};
CalendarStart calendar_at(std::int64_t first);

// ---- Exact numbers in text
// -----------------------------------------------------------------------

inline constexpr std::size_t EXACT_ROOM = 32;  // characters that a number may take

// Decimal digits that read back to the same double: 17 of them, or as few as will do. NaN and the
// infinities are NaN, Inf and -Inf; a NaN with other bits than the usual ones is NaN(16 hex
// digits). Returns the end.
char* put_exact(char* to, double value, bool shortest);
// Reads what put_exact wrote, and any number in free form. False: p has not moved.
bool scan_exact(const char*& p, const char* end, double& value);

// Reads `to.size()` such values parted by blanks, commas and line ends, from the cursor on, which
// goes to the line behind the last one. False with the cursor in the line of the fault. Under
// `missing` words such as NA are the missing code.
bool scan_values(LineCursor& cursor, std::span<double> to, bool missing = false);

// ---- From a file into the workspace
// --------------------------------------------------------------

// A variable as a file holds it, and the part of it that is wanted.
struct Arrival {
  int ITYPE = SERIES;
  std::int64_t LENGTH = 0;
  int N2 = 1;
  std::int64_t beg = 1;    // of a series: element of the variable where it begins
  std::int64_t taken = 0;  // of a series: elements that are wanted, from the first
  bool part = false;       // what an old series has elsewhere stays
  bool replace = false;    // a variable of another shape gives way
};

// Where a variable is read to: into its place when the name is new or nothing can go wrong any more
// (`sure`), else beside it, so that an old variable survives a failed read. Tests false after a
// failure that has been reported. What was not kept is taken away again.
class Landing {
 public:
  Landing(Workspace ws, ReadItem& item, const Arrival& what, bool sure);
  Landing(const Landing&) = delete;
  Landing& operator=(const Landing&) = delete;
  ~Landing();
  explicit operator bool() const { return ok_; }
  std::span<double> words() const { return words_; }
  // All words have been read: the variable is what they say. False after a reported failure.
  bool keep();

 private:
  bool make();
  Workspace ws_;
  ReadItem& item_;
  Arrival what_;
  std::optional<Scratch> beside_;
  std::span<double> words_;
  bool ok_ = false, kept_ = false, fresh_ = false;
};

// Copies little-endian doubles as a file has them, or 4-byte reals; the threads share long runs.
void copy_reals(std::span<double> to, const char* from, bool single);

// A name that a variable may have: a letter, then letters, digits, "_" and "$"; at most 24.
bool legal_name(std::string_view name);
// Whether two names mean the same variable.
bool same_name(std::string_view a, std::string_view b);

// How the names in a file and the names asked for are held against each other.
enum class Naming : std::uint8_t {
  order,    // the variables of the file in turn, whatever they are called there
  by_name,  // those that are listed, wherever they stand
  equal,    // the one that is listed must be the first one
};

// Reads variables of either container from job.cursor on: those of job.items, or without any all
// that there are. Fills job.items.
bool read_containers(ReadJob& job, FileForm asked, Naming naming);

// One variable behind its magic word.
struct GroupFault {
  std::string_view cause;  // empty: none
};
GroupFault korvdata_head(LineCursor& cursor, ContainerHead& head);
GroupFault korvdata_elements(LineCursor& cursor, const ContainerHead& head, std::span<double> to);
// The head record; `elements` is then the content of the data record behind its count, and the
// cursor stands behind that record.
GroupFault korvbin_group(LineCursor& cursor, ContainerHead& head, std::string_view& elements);

// " ...ERROR..READ ERROR" with the place and the cause.
void container_error(const ReadJob& job, bool binary, std::string_view cause);

// Leaves in the job what the note of READ tells when it is about series or one matrix; other
// mixtures are told here, kind by kind, and the job is marked as reported.
void describe_arrivals(ReadJob& job);
// The whole text of the source, also of one that comes through a pipe.
void gather_all(ReadJob& job);

// Takes the calendar of a file over when none is in force here.
void take_calendar(int year, int period, int periods);
// The sample becomes IBEG..last when none is defined yet, with the note on it.
void define_sample(Workspace ws, std::int64_t last);

}  // namespace korvel
