// Reading of both containers: which variables, where they go, what is said.

#include "data/containers.h"

#include <algorithm>
#include <cstring>

#include "data/container_parts.h"
#include "data/data.h"
#include "data/read_options.h"
#include "data/sample.h"
#include "engine/output.h"
#include "platform/parallel.h"

namespace korvel {
namespace {

constexpr int HEADER = 4;
constexpr std::string_view TEXT_MAGIC = "KORVDATA";
constexpr std::string_view BINARY_MAGIC = "KORVBIN ";
constexpr std::string_view BINARY_FRAME("\10\0\0\0", 4);  // of the record that holds the magic
constexpr std::int64_t COPY_SECTION = std::int64_t{1} << 17;

bool wrong_shape() {
  fail(
      " ...ERROR..TOO MANY ROWS OR COLS REQUESTED OR VARIABLE NAME ALREADY EXISTS. CHECK NAME IS "
      "UNIQUE.");
  return false;
}

bool not_a_container(FileForm asked) {
  fail(asked == FileForm::korvbin ? " NOT A KORVBIN FILE" : " NOT A KORVDATA FILE");
  return false;
}

// Passes over what may stand between two variables: nothing behind a binary one, blank lines else.
void pass_blank_lines(LineCursor& cursor) {
  while (cursor.at < cursor.text.size()) {
    const char c = cursor.text[cursor.at];
    if (c != ' ' && c != '\r' && c != '\n' && c != '\t') return;
    cursor.line += c == '\n' ? 1 : 0;
    ++cursor.at;
  }
}

// The item that the variable of the file fills: -1 when it is passed over, -2 after a failure.
constexpr int PASSED = -1, FAILED = -2;
int item_for(ReadJob& job, const ContainerHead& head, Naming naming, std::size_t k, bool listed,
             bool binary) {
  if (listed && naming == Naming::order) return static_cast<int>(k);
  if (naming == Naming::equal) {
    if (same_name(head.name, job.items[0].name)) return 0;
    fail(" WRONG VARIABLE IN DATABANK");
    return FAILED;
  }
  for (std::size_t i = 0; i < job.items.size(); ++i) {
    if (same_name(head.name, job.items[i].name)) return static_cast<int>(i);
  }
  if (listed) return PASSED;
  if (!legal_name(head.name)) {
    container_error(job, binary, "THE VARIABLE HAS NO NAME THAT COMMANDS CAN SPELL");
    return FAILED;
  }
  if (same_name(head.name, SKIPNAME)) return PASSED;  // the skip vector is made by its commands
  if (naming == Naming::order && VARNUM(job.ws, head.name) > 0) {
    warn<"(' ...WARNING..VARIABLE:', A, ' CURRENTLY EXISTS')">(head.name);
  }
  ReadItem item;
  item.name = head.name;
  job.items.push_back(std::move(item));
  return static_cast<int>(job.items.size()) - 1;
}

struct Group {
  ContainerHead head;
  bool binary = false;
  std::string_view elements;  // of a binary one
};

// The header of the next variable, checked, and its data record when it is a binary one.
bool read_group_head(ReadJob& job, FileForm asked, bool first, Group& group) {
  const FileForm form = form_by_magic(job.cursor.text.substr(job.cursor.at));
  if (form == FileForm::text && first) return not_a_container(asked);
  group.binary = form == FileForm::korvbin;
  GroupFault fault{"NO CONTAINER BEGINS HERE"};
  if (group.binary) fault = korvbin_group(job.cursor, group.head, group.elements);
  if (form == FileForm::korvdata) fault = korvdata_head(job.cursor, group.head);
  if (fault.cause.empty()) return true;
  if (first && group.binary && job.cursor.at == 0) return not_a_container(FileForm::korvbin);
  container_error(job, group.binary, fault.cause);
  return false;
}

// Reads the elements of the group into the item, or passes over them.
bool read_group(ReadJob& job, const Group& group, ReadItem* item, Naming naming) {
  const ContainerHead& head = group.head;
  if (item == nullptr) {
    if (group.binary) return true;
    const Scratch room(job.ws, head.LENGTH());
    if (!room) return false;
    const GroupFault fault = korvdata_elements(job.cursor, head, room.words());
    if (!fault.cause.empty()) container_error(job, false, fault.cause);
    return fault.cause.empty();
  }
  Arrival what{.ITYPE = head.TYPE(), .LENGTH = head.LENGTH(), .N2 = head.COLUMNS()};
  what.taken = what.LENGTH;
  what.replace = naming == Naming::by_name;
  const bool ranged = job.beg > 1 || job.most != UNKNOWN;
  if (ranged && head.TYPE() != SERIES) {
    fail(" ...ERROR..INCOMPATIBLE OPTIONS  ");
    return false;
  }
  what.beg = job.beg;
  what.part = job.beg > 1;
  if (job.most != UNKNOWN) what.taken = std::min(what.taken, job.most);
  Landing landing(job.ws, *item, what, group.binary);
  if (!landing) return false;
  if (group.binary) {
    copy_reals(landing.words(), group.elements.data(), head.flag[H_SINGLE] && !head.text());
  } else {
    const GroupFault fault = korvdata_elements(job.cursor, head, landing.words());
    if (!fault.cause.empty()) {
      container_error(job, false, fault.cause);
      return false;
    }
  }
  if (!landing.keep()) return false;
  if (head.TYPE() == SERIES || head.TYPE() == CHARVAR) {
    if (job.beg == 1) take_calendar(head.word[H_TIME1], head.word[H_TIME2], head.word[H_TIME3]);
  }
  return true;
}

// BEG, END and OBS of READ: a container gives its own counts, and a range takes a part of a series.
bool take_range(ReadJob& job) {
  constexpr int BEG = READOPT.place("BEG"), END = READOPT.place("END"), OBS = READOPT.place("OBS");
  job.beg = integer_given(BEG) ? integer_option(BEG) : 1;
  job.most = UNKNOWN;
  if (integer_given(OBS)) {
    job.most = integer_option(OBS);
  } else if (integer_given(END)) {
    job.most = std::int64_t{integer_option(END)} - job.beg + 1;
  }
  if (job.beg >= 1 && (job.most == UNKNOWN || job.most >= 1)) return true;
  fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(
      job.beg, job.beg + std::max<std::int64_t>(job.most, 0) - 1);
  return false;
}

}  // namespace

FileForm form_by_magic(std::string_view bytes) {
  if (bytes.substr(0, MAGICLEN) == TEXT_MAGIC) return FileForm::korvdata;
  const std::string_view framed = bytes.substr(0, BINARY_FRAME.size()) == BINARY_FRAME
                                      ? bytes.substr(BINARY_FRAME.size())
                                      : bytes;
  if (framed.size() >= 4 &&
      framed.substr(0, MAGICLEN) == BINARY_MAGIC.substr(0, std::min(framed.size(), MAGICLEN))) {
    return FileForm::korvbin;
  }
  return FileForm::text;
}

void container_error(const ReadJob& job, bool binary, std::string_view cause) {
  fail(" ...ERROR..READ ERROR");
  if (binary) {
    say<"(' ...NOTE..FILE ', A, ' BYTE ', I0, ': ', A)">(job.shown, job.cursor.at + 1, cause);
  } else {
    say<"(' ...NOTE..FILE ', A, ' LINE ', I0, ': ', A)">(job.shown,
                                                         job.first_line + job.cursor.line, cause);
  }
}

bool legal_name(std::string_view name) {
  return !name.empty() && name.size() <= NAMELEN && NAMCHK(name[0]) == 1 &&
         std::ranges::all_of(name, [](char c) { return NAMCHK(c) >= 0 || c == '_' || c == '$'; });
}

bool same_name(std::string_view a, std::string_view b) {
  return std::ranges::equal(
      right_trimmed(a.substr(0, KEYLEN)), right_trimmed(b.substr(0, KEYLEN)),
      [](char x, char y) { return OSCOM.OLC ? upper(x) == upper(y) : x == y; });
}

std::string_view head_fault(const ContainerHead& head) {
  if (head.nine[0] != 1) return "THE CONTAINER HAS ANOTHER VERSION";
  if (head.nine[5] != 6 || head.nine[6] != 7 || head.nine[8] != 16) return "BAD COUNTS IN HEADER";
  if (head.TYPE() < SERIES || head.TYPE() > CHARVAR) return "BAD TYPE IN HEADER";
  if (head.LENGTH() < 1) return "BAD LENGTH IN HEADER";
  const std::int64_t n = head.COLUMNS();
  const bool shaped = head.packed()            ? n >= 1 && n * (n + 1) / 2 == head.LENGTH()
                      : head.TYPE() == MATRIX2 ? n >= 1 && head.LENGTH() % n == 0
                                               : n == 1;
  return shaped ? "" : "BAD COLUMNS IN HEADER";
}

void take_calendar(int year, int period, int periods) {
  constexpr int FARYEAR = 1000000;
  if (DATCOM.ITIME2 > 0 || period < 1 || periods < 1 || year < -FARYEAR || year > FARYEAR) return;
  DATCOM.ITIME1 = year;
  DATCOM.ITIME2 = period;
  DATCOM.ITIME3 = periods;
}

void define_sample(Workspace ws, std::int64_t last) {
  DATCOM.MAXOB = std::max(DATCOM.MAXOB, static_cast<int>(last));
  if (DATCOM.IEND >= 1 || last < 1) return;
  DATCOM.IEND = static_cast<int>(last);
  DATCOM.NOBS = DATCOM.IEND - DATCOM.IBEG + 1;
  set_sample_size(ws);
  if (OCOM.OPUT) {
    say<"(' ...NOTE..SAMPLE RANGE IS NOW SET TO:', 2I10)">(DATCOM.IBEG, DATCOM.IEND);
  }
}

void copy_reals(std::span<double> to, const char* from, bool single) {
  const auto copy = [&](int s) {
    const std::size_t at = static_cast<std::size_t>(s) * COPY_SECTION;
    const auto part = to.subspan(at, std::min<std::size_t>(COPY_SECTION, to.size() - at));
    if (!single) {
      std::memcpy(part.data(), from + at * sizeof(double), part.size_bytes());
      return;
    }
    for (std::size_t i = 0; i < part.size(); ++i) {
      float value = 0;
      std::memcpy(&value, from + (at + i) * sizeof value, sizeof value);
      part[i] = value;
    }
  };
  if (std::ssize(to) <= COPY_SECTION) return copy(0);
  parallel_sections(static_cast<int>((std::ssize(to) + COPY_SECTION - 1) / COPY_SECTION), copy);
}

// ---- What WRITE puts into a file
// -----------------------------------------------------------------

CalendarStart calendar_at(std::int64_t first) {
  if (DATCOM.ITIME2 < 1) return {};
  const std::int64_t periods = std::max(DATCOM.ITIME3, 1);
  const std::int64_t passed = DATCOM.ITIME2 - 1 + (first - 1);
  return {static_cast<int>(DATCOM.ITIME1 + passed / periods),
          static_cast<int>(passed % periods + 1)};
}

bool item_head(const PrintJob& job, const PrintItem& x, ContainerHead& head) {
  // 1. Type and shape of what is written.
  std::int64_t length = 0;
  item_runs(job, x, [&](std::span<const double> run) { length += std::ssize(run); });
  if (length < 1) {
    fail<"(' ...ERROR..THERE IS NO DATA ON VARIABLE ', A)">(x.name);
    return false;
  }
  if (x.triangle() && x.first > 1) {  // rows from the middle are no triangle
    fail(" ...ERROR..INCOMPATIBLE OPTIONS  ");
    return false;
  }
  head.word[H_TYPE] = x.type == 0 ? static_cast<int>(SERIES) : x.type;
  head.word[H_LENGTH] = static_cast<std::int32_t>(length);
  head.word[H_COLUMNS] = x.triangle()        ? static_cast<std::int32_t>(x.last)
                         : x.type == MATRIX2 ? x.last_column - x.first_column + 1
                                             : 1;
  // 2. The calendar, from the first observation written on; observations that are left out break
  //    it.
  const bool dated = head.TYPE() == SERIES || head.TYPE() == CHARVAR;
  const bool gaps = x.column() && length != x.last - x.first + 1;
  const bool calendar = dated && DATCOM.ITIME2 > 0 && !gaps;
  const CalendarStart start = calendar_at(x.column() ? x.first : 1);
  head.word[H_TIME1] = calendar ? start.year : 1;
  head.word[H_TIME2] = calendar ? start.period : 0;
  head.word[H_TIME3] = calendar ? DATCOM.ITIME3 : 1;
  // 3. Layout and name.
  head.flag[H_BYVAR] = job.byvar;
  head.name = x.name.substr(0, KEYLEN);
  return true;
}

// ---- Landing
// -------------------------------------------------------------------------------------

Landing::Landing(Workspace ws, ReadItem& item, const Arrival& what, bool sure)
    : ws_(ws), item_(item), what_(what) {
  const bool column = item.var > 2 * DATCOM.MAXVAR;
  if (!column) item.var = std::max(VARNUM(ws, item.key()), 0);
  const Place old = item.var > 0 ? INFO(ws, item.var) : Place{};
  if (OCOM.ODONT) return;  // a column that isn't there
  item.old_length = old.LEN;
  // 1. A name in use keeps its shape, unless all of it is to be replaced.
  const bool is_old = old.ITYPE != NOTYPE;
  const bool series = what.ITYPE == SERIES;
  if ((column || item.column > 0) && !series) {
    wrong_shape();
    return;
  }
  if (is_old && !column && item.column == 0 && !what.replace) {
    const bool same_matrix = old.LEN == what.LENGTH && old.N2 == what.N2;
    const bool texts = what.ITYPE >= STRING5;
    if (old.ITYPE != what.ITYPE || (!series && !texts && !same_matrix)) {
      wrong_shape();
      return;
    }
  }
  if (column && what.beg - 1 + what.taken > old.LEN) {
    wrong_shape();
    return;
  }
  // 2. A place for the words.
  if (sure || (item.var == 0 && what.taken == what.LENGTH)) {
    fresh_ = item.var == 0;
    ok_ = make();
    return;
  }
  beside_.emplace(ws, what.LENGTH);
  ok_ = static_cast<bool>(*beside_);
  words_ = beside_->words();
}

bool Landing::make() {
  clear_estimate();
  std::int64_t first = what_.beg - 1;
  if (item_.var <= 2 * DATCOM.MAXVAR) {
    NewVar request{.ITYPE = what_.ITYPE, .LEN = what_.LENGTH, .N2 = what_.N2};
    if (what_.ITYPE == SERIES) {
      request.LEN = first + what_.taken;
      if (what_.part) request.LEN = std::max(request.LEN, item_.old_length);
      request.column = item_.column;
    }
    const int var = NEWVAR(ws_, item_.name, request);
    if (var == 0) return false;
    item_.var = var;
    if (item_.name == SKIPNAME && DATCOM.LSKIP > 0) DATCOM.LSKIP = ws_.KADD(var) + 3;
  }
  const std::int64_t n = what_.ITYPE == SERIES ? what_.taken : what_.LENGTH;
  words_ = ws_.words(INFO(ws_, item_.var).IADD + HEADER + first, static_cast<std::size_t>(n));
  return true;
}

bool Landing::keep() {
  if (beside_) {
    const auto read = words_;
    if (!make()) return false;
    std::memcpy(words_.data(), read.data(), words_.size_bytes());
  }
  return item_.arrived = kept_ = true;
}

Landing::~Landing() {
  if (kept_ || !fresh_ || !ok_) return;
  free_variable(ws_, VARNUM(ws_, item_.key()));
  item_.var = 0;
}

// ---- The command
// ---------------------------------------------------------------------------------

void gather_all(ReadJob& job) {
  if (job.cursor.feed == nullptr) return;
  job.cursor.text = job.cursor.feed->rest();
  job.cursor.at = 0;
  job.cursor.feed = nullptr;
}

void describe_arrivals(ReadJob& job) {
  std::int64_t longest = 0, shortest = INT64_MAX;
  std::size_t series = 0;
  ReadJob in_rows;
  in_rows.ws = job.ws;
  for (const ReadItem& item : job.items) {
    const Place p = INFO(job.ws, item.var);
    if (p.ITYPE != SERIES && item.var <= 2 * DATCOM.MAXVAR) continue;
    ++series;
    longest = std::max<std::int64_t>(longest, p.LEN);
    shortest = std::min<std::int64_t>(shortest, p.LEN);
    in_rows.items.push_back(item);
  }
  const Place p = INFO(job.ws, job.items[0].var);
  if (series == 0 && job.items.size() == 1 && p.ITYPE < STRING5) {
    job.matrix = true;
    job.matrix_type = p.ITYPE;
    job.plan.layout = p.ITYPE == MATRIX2 ? Layout::ByObservation : Layout::Triangle;
    job.cols = job.plan.values = p.N2;
    job.beg = 1;
    job.count = p.ITYPE == MATRIX2 ? p.rows() : p.N2;
    return;
  }
  job.count = longest - (job.beg - 1);
  if (series == job.items.size()) return;
  job.reported = true;
  for (const ReadItem& item : job.items) {
    const Place q = INFO(job.ws, item.var);
    if (!OCOM.OPUT || q.ITYPE == SERIES) continue;
    if (q.ITYPE >= STRING5) {
      say<"(' ...NOTE..VARIABLE ', A, ' HAS', I8, ' CHARACTERS')">(item.key(),
                                                                   q.LEN * MACOM.NBYTES);
    } else {
      say<"(' ...NOTE..', I8, ' ROWS AND    ', I8, ' COLUMNS, BEGINNING AT ROW', I8)">(
          q.ITYPE == MATRIX2 ? q.rows() : q.N2, q.N2, 1);
    }
  }
  if (series == 0) return;
  in_rows.beg = job.beg;
  in_rows.count = job.count;
  report_success(in_rows);
}

bool read_containers(ReadJob& job, FileForm asked, Naming naming) {
  gather_all(job);
  const bool listed = !job.items.empty();
  const std::size_t wanted = job.items.size();
  std::vector<bool> found(wanted, false);
  std::size_t taken = 0;
  for (std::size_t k = 0; !listed || taken < wanted; ++k) {
    // 1. The next header.
    pass_blank_lines(job.cursor);
    if (job.cursor.at >= job.cursor.text.size() && k > 0) break;
    Group group;
    if (!read_group_head(job, asked, k == 0, group)) return false;
    // 2. The variable that it is for.
    const int i = item_for(job, group.head, naming, k, listed, group.binary);
    if (i == FAILED) return false;
    const auto place = static_cast<std::size_t>(i);
    // 3. Its elements.
    if (!read_group(job, group, i == PASSED ? nullptr : &job.items[place], naming)) {
      if (!listed && i != PASSED) job.items.pop_back();
      return false;
    }
    if (i != PASSED && listed && !found[place]) {
      found[place] = true;
      ++taken;
    }
    if (stop_requested()) {
      mark_failed();
      return false;
    }
  }
  // 4. Variables that the file has not.
  for (std::size_t i = 0; i < wanted; ++i) {
    if (found[i]) continue;
    fail(" ...ERROR..READ ERROR");
    if (naming == Naming::by_name) {
      say<"(' ...NOTE..FILE ', A, ' HAS NO VARIABLE ', A)">(job.shown, job.items[i].key());
    } else {
      say<"(' ...NOTE..FILE ', A, ' HAS ONLY ', I0, ' VARIABLES')">(job.shown, taken);
    }
    return false;
  }
  if (job.items.empty()) return not_a_container(asked);
  return true;
}

bool read_korvdata(ReadJob& job) {
  if (!take_range(job) || !read_containers(job, FileForm::korvdata, Naming::order)) return false;
  describe_arrivals(job);
  return true;
}

bool read_korvbin(ReadJob& job) {
  if (!take_range(job) || !read_containers(job, FileForm::korvbin, Naming::order)) return false;
  describe_arrivals(job);
  return true;
}

}  // namespace korvel
