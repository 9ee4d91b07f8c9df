#include "engine/workspace.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "data/data.h"
#include "engine/options.h"
#include "engine/output.h"
#include "platform/memory.h"
#include "platform/parallel.h"

namespace korvel {
namespace {

// The storage behind DATA, KADD and VNAME; sized once, by new_workspace.
struct Store {
  double* data = nullptr;
  std::size_t bytes = 0;
  std::vector<std::int32_t> kadd;
  std::vector<std::array<char, NAMELEN>> vname;
  std::vector<ListItem> list;
};
Store& store() {
  static Store s;
  return s;
}

constexpr int SPARE = 11;                  // entries of KADD and VNAME above MAXVAR
constexpr std::int64_t LEASTWORDS = 1250;  // smallest data area
constexpr int HEADER = 4;

// The first eight characters of a name as one word, for comparing.
std::uint64_t key8(const char* name) {
  std::uint64_t k = 0;
  std::memcpy(&k, name, sizeof k);
  return k;
}

// Entries of the table by the hash of a name (Fibonacci hashing, Knuth 1973, volume 3): a guess
// that is checked against the table at each use, so nothing has to keep it up to date.
constexpr int FOUNDBITS = 12;
constexpr std::uint64_t HASH = 0x9E3779B97F4A7C15U;
constinit std::array<std::int32_t, std::size_t{1} << FOUNDBITS> FOUND{};

// Words that entry I may hold in all: up to the next entry, or to the scratch space for the last.
std::int64_t capacity(Workspace ws, int I) {
  const std::int64_t end = I < DATCOM.NVARS ? ws.KADD(I + 1) : ADDCOM.SCRTOP + std::int64_t{1};
  return end - ws.KADD(I);
}

void write_header(Workspace ws, int A, int ITYPE, std::int64_t LEN, int N2) {
  ws.DATA(A) = 1.0;
  ws.DATA(A + 1) = ITYPE;
  ws.DATA(A + 2) = static_cast<double>(LEN);
  ws.DATA(A + 3) = N2;
}

void write_name(Workspace ws, int I, std::string_view name) {
  char* field = ws.name_field(I);
  std::memset(field, ' ', NAMELEN);
  const std::size_t n = std::min<std::size_t>(name.size(), NAMELEN);
  std::memcpy(field, name.data(), n);
  if (OSCOM.OLC) LCUC(field, static_cast<int>(n));
}

// Large variables are filled by all threads: the time goes into the first touch of the pages.
void fill_elements(Workspace ws, int A, std::int64_t from, std::int64_t to, double value) {
  if (to <= from) return;
  constexpr std::size_t SECTION = std::size_t{1} << 17;
  const auto run = ws.words(A + HEADER + from, static_cast<std::size_t>(to - from));
  const auto fill = [&](int s) {
    const std::size_t at = static_cast<std::size_t>(s) * SECTION;
    const auto part = run.subspan(at, std::min(SECTION, run.size() - at));
    std::fill(part.begin(), part.end(), value);
  };
  if (run.size() <= SECTION) return fill(0);
  parallel_sections(static_cast<int>((run.size() + SECTION - 1) / SECTION), fill);
}

// Drops blank entries at the end of the table, with their words.
void trim_table(Workspace ws) {
  while (DATCOM.NVARS > 0 && ws.VNAME(DATCOM.NVARS)[0] == ' ') {
    ADDCOM.LASADD = ws.KADD(DATCOM.NVARS) - 1;
    --DATCOM.NVARS;
    --DATCOM.NDL;
  }
  if (DATCOM.NVARS == 0) ADDCOM.LASADD = 0;
}

// A deleted entry that can take `words` words in all, 0 none.
int reusable_entry(Workspace ws, std::int64_t words) {
  if (DATCOM.NDL <= 0) return 0;
  for (int i = 1; i < DATCOM.NVARS; ++i) {
    if (ws.VNAME(i)[0] == ' ' && capacity(ws, i) >= words) return i;
  }
  return 0;
}

int report_full_table() {
  fail<"(' ...ERROR..MAXIMUM NUMBER OF VARIABLES IS ', I0, ' USE SIZE COMMAND')">(DATCOM.MAXVAR);
  return 0;
}

}  // namespace

bool new_workspace(std::int64_t par, int maxvar, std::int64_t* largest) {
  Store& s = store();
  constexpr std::int64_t most = (std::int64_t{1} << 31) - 1;
  const auto room = static_cast<std::int64_t>(available_memory() / 1024);
  *largest = std::min(most / 128, room);
  if (par > *largest) return false;
  const std::int64_t words = std::max(par * 128, LEASTWORDS);
  // The new area comes first: when it is not to be had, the old one and its data stay.
  const std::size_t bytes = static_cast<std::size_t>(words) * sizeof(double);
  auto* const data = static_cast<double*>(reserve_memory(bytes));
  if (data == nullptr) return false;
  release_memory(s.data, s.bytes);
  s.data = data;
  s.bytes = bytes;
  const auto entries = static_cast<std::size_t>(maxvar + SPARE);
  s.kadd.assign(entries, 0);
  std::array<char, NAMELEN> blank{};
  blank.fill(' ');
  s.vname.assign(entries, blank);
  s.list.assign(entries, ListItem{});
  SCNCOM.INLIST = s.list;
  ADDCOM.MAXADD = static_cast<std::int32_t>(words);
  ADDCOM.SCRTOP = ADDCOM.MAXADD;
  MACOM.MAXVAR = maxvar;
  return true;
}

Workspace workspace() {
  Store& s = store();
  return {s.data, s.kadd.data(), reinterpret_cast<char(*)[NAMELEN]>(s.vname.data())};
}

int VARNUM(Workspace ws, std::string_view name) {
  name = right_trimmed(name);
  if (name.empty()) return 0;
  char field[KEYLEN];
  std::memset(field, ' ', KEYLEN);
  const std::size_t n = std::min<std::size_t>(name.size(), KEYLEN);
  std::memcpy(field, name.data(), n);
  if (OSCOM.OLC || name.find('$') != std::string_view::npos) LCUC(field, KEYLEN);
  const std::uint64_t key = key8(field);
  // Where the name was found last; names are unique, so an entry that still has it is the one.
  std::int32_t& place = FOUND[(key * HASH) >> (64 - FOUNDBITS)];
  if (place >= 1 && place <= DATCOM.NVARS && key8(ws.VNAME(place).data()) == key) return place;
  for (int i = 1; i <= DATCOM.NVARS; ++i) {
    if (key8(ws.VNAME(i).data()) == key) return place = i;
  }
  if (field[0] != '$') return 0;
  char four[4] = {' ', ' ', ' ', ' '};
  std::memcpy(four, field + 1, 4);
  if (name.size() > 5) return 0;
  const std::string_view wanted = right_trimmed({four, 4});
  for (int p = 0; p < NTEMPS; ++p) {
    if (TEMPNAMES[static_cast<std::size_t>(p)] == wanted) return -(p + 1);
  }
  return 0;
}

Place INFO(Workspace ws, int I) {
  Place place;
  if (I < -9000) I = -9000 - I;
  if (I < 0) {
    place.ITYPE = place.LEN = place.N2 = 1;
    return place;
  }
  if (I == 0 || I == DATCOM.MCON) return place;
  const int J = owner_of(I).column;
  I = owner_of(I).var;
  const int A = ws.KADD(I);
  place.IADD = A;
  if (A <= 0 || ws.VNAME(I)[0] == ' ') return place;
  const int inc = static_cast<int>(ws.DATA(A));
  if (inc == 0) {
    place.INC = 0;
    return place;
  }
  place.INC = inc;
  const int d = inc < 0 ? 1 : inc;
  place.ITYPE = static_cast<int>(ws.DATA(A + d));
  place.LEN = static_cast<int>(ws.DATA(A + 2 * d));
  place.N2 = static_cast<int>(ws.DATA(A + 3 * d));
  if (place.ITYPE == 0 || place.N2 == 0 || J == 0) return place;
  const int most = place.N2 == 1 ? place.LEN : place.N2;
  if (J > most) {
    fail<"(' ...ERROR..ROW OR COLUMN', I6, ' EXCEEDS VARIABLE SIZE')">(J);
    return place;
  }
  if (place.N2 == 1) {  // element J of a series
    place.IADD = A + (J - 1) * inc;
    place.N2 = place.LEN;
    place.LEN = 1;
  } else {
    const int rows = place.LEN / place.N2;
    place.LEN = rows;
    place.IADD = A + (J - 1) * rows;
    if (inc < 0) place.INC -= J - 1;
    place.N2 = 1;
  }
  return place;
}

std::span<double> elements(Workspace ws, int I) {
  const Place p = INFO(ws, I);
  if (p.IADD <= 0 || p.ITYPE == 0 || p.LEN <= 0) return {};
  return ws.words(p.IADD + HEADER, static_cast<std::size_t>(p.LEN));
}

std::string_view NAME(Workspace ws, int I) {
  if (I == DATCOM.MCON) return "CONSTANT";
  if (I < -9000) I = -9000 - I;
  if (I < 0 && I >= -NTEMPS) return TEMPNAMES[static_cast<std::size_t>(-I - 1)];
  I = owner_of(I).var;
  if (I < 1 || I > DATCOM.NVARS) return {};
  return right_trimmed(ws.VNAME(I));
}

namespace {

bool is_skip_vector(Workspace ws, int I) { return key8(ws.VNAME(I).data()) == key8("SKIP$   "); }

// The marks of the sample lie where SKIP$ lies now; a text holds none.
void follow_skip_vector(Workspace ws, int I, int ITYPE) {
  if (DATCOM.LSKIP == 0 || !is_skip_vector(ws, I)) return;
  if (ITYPE > MATRIX2) return forget_skip_vector(ws);
  DATCOM.LSKIP = ws.KADD(I) + HEADER - 1;
}

}  // namespace

void forget_skip_vector(Workspace ws) {
  const bool had = DATCOM.LSKIP != 0;
  DATCOM.LSKIP = 0;
  OSCOM.OSKIP = false;
  OSCOM.OSMPL = false;
  if (had && DATCOM.IEND >= 1) set_sample_size(ws);
}

int NEWVAR(Workspace ws, std::string_view name, const NewVar& request) {
  int ITYPE = request.ITYPE;
  int N2 = std::max(request.N2, 1);
  std::int64_t LEN = request.LEN;
  const int column = request.column;
  if (column > DATCOM.MXCOL) {
    error_line<"(' ...ERROR..MAXCOLON=', I0, ' SO ', I0, ' IS INVALID')">(DATCOM.MXCOL, column);
    say("   USE SET MAXCOLON=XXXX TO INCREASE RANGE");
    mark_failed();
    return 0;
  }
  int I = VARNUM(ws, name);
  if (I < 0) I = 0;
  const Place old = I > 0 ? INFO(ws, I) : Place{};
  // A column of a matrix: the other columns keep their place.
  if (column > 0 && ITYPE <= MATRIX2) {
    if (LEN < 2) {
      LEN = column;
    } else {
      const bool columns = old.ITYPE == MATRIX2 && old.N2 > 0 && old.LEN / old.N2 == LEN;
      N2 = std::max({column, N2, columns ? old.N2 : 0});
      ITYPE = MATRIX2;
      LEN *= N2;
    }
  }
  const auto number = [&](int entry) {
    return column > 0 && ITYPE == MATRIX2 ? entry * DATCOM.MXCOL + column : entry;
  };
  if (!fits32(LEN + HEADER)) {
    ADDCOM.NEED = LEN + HEADER + ADDCOM.LASADD;
    NOCORE();
    return 0;
  }
  // The old place serves when the kinds agree and the hole is large enough.
  if (I > 0 && request.in_place && old.INC >= 1) {
    const bool kinds = (old.ITYPE <= MATRIX2 && ITYPE <= MATRIX2) || old.ITYPE == ITYPE;
    if (kinds && LEN + HEADER <= capacity(ws, I)) {
      const int A = ws.KADD(I);
      if (I == DATCOM.NVARS) ADDCOM.LASADD = static_cast<std::int32_t>(A - 1 + LEN + HEADER);
      write_header(ws, A, ITYPE, LEN, N2);
      fill_elements(ws, A, old.LEN, LEN, request.fill);
      follow_skip_vector(ws, I, ITYPE);
      return number(I);
    }
  }
  // A new place: checked before the old one is given up, so that a shortage loses nothing.
  const std::int64_t words = LEN + HEADER;
  int entry = request.in_place ? reusable_entry(ws, words) : 0;
  const bool old_is_last = I > 0 && I == DATCOM.NVARS;
  if (entry == 0) {
    const std::int64_t behind = old_is_last ? ws.KADD(I) - 1 : ADDCOM.LASADD;
    if (behind + words > ADDCOM.SCRTOP) {
      ADDCOM.NEED = behind + words + (ADDCOM.MAXADD - ADDCOM.SCRTOP);
      NOCORE();
      return 0;
    }
    if (!old_is_last && DATCOM.NVARS >= DATCOM.MAXVAR) return report_full_table();
  }
  const int old_address = I > 0 ? ws.KADD(I) : 0;
  if (I > 0) {
    if (old_is_last && entry == 0) {
      --DATCOM.NVARS;
      ADDCOM.LASADD = old_address - 1;
    } else {
      std::memset(ws.name_field(I), ' ', NAMELEN);
      ++DATCOM.NDL;
    }
  }
  if (entry > 0) {
    --DATCOM.NDL;
  } else {
    entry = ++DATCOM.NVARS;
    ws.KADD(entry) = ADDCOM.LASADD + 1;
    ADDCOM.LASADD += static_cast<std::int32_t>(words);
  }
  const int A = ws.KADD(entry);
  std::int64_t kept = 0;
  if (I > 0 && old.ITYPE <= MATRIX2 && ITYPE <= MATRIX2) {
    kept = std::min<std::int64_t>(old.LEN, LEN);
    std::memmove(&ws.DATA(A + HEADER), &ws.DATA(old_address + HEADER),
                 static_cast<std::size_t>(kept) * sizeof(double));
  }
  write_name(ws, entry, name);
  write_header(ws, A, ITYPE, LEN, N2);
  fill_elements(ws, A, kept, LEN, request.fill);
  follow_skip_vector(ws, entry, ITYPE);
  trim_table(ws);
  return number(entry);
}

std::int64_t free_variable(Workspace ws, int I) {
  const Place p = INFO(ws, I);
  const std::int64_t words = std::int64_t{p.LEN} + HEADER;
  const bool skip = is_skip_vector(ws, I);
  std::memset(ws.name_field(I), ' ', NAMELEN);
  ++DATCOM.NDL;
  trim_table(ws);
  if (skip || DATCOM.NVARS == 0) forget_skip_vector(ws);
  clear_estimate();
  return words;
}

void NOCORE() {
  const std::int64_t more = std::max<std::int64_t>(ADDCOM.NEED - ADDCOM.MAXADD, 1);
  error_line<"(' ...ERROR..INSUFFICIENT MEMORY. AT LEAST ', I0, ' MORE WORDS NEEDED')">(more);
  say<"(' THIS REQUIRES AT LEAST PAR=', I0)">(ADDCOM.NEED * 8 / 1024 + 1);
  if (DATCOM.NDL > 0) say(" ...NOTE..TRY COMPRESS COMMAND TO RECOVER UNUSED SPACE");
  mark_failed();
}

Scratch::Scratch(Workspace ws, std::int64_t n) : old_top_(ADDCOM.SCRTOP) {
  if (n < 0 || n > std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD) {
    ADDCOM.NEED =
        n < 0 ? std::int64_t{1} << 31 : n + ADDCOM.LASADD + (ADDCOM.MAXADD - ADDCOM.SCRTOP);
    NOCORE();
    return;
  }
  ADDCOM.SCRTOP -= static_cast<std::int32_t>(n);
  words_ = ws.words(ADDCOM.SCRTOP + std::int64_t{1}, static_cast<std::size_t>(n));
  ok_ = true;
}

Scratch::~Scratch() { ADDCOM.SCRTOP = old_top_; }

std::span<double> Scratch::take(std::size_t n) {
  const std::span<double> part = words_.subspan(taken_, n);
  taken_ += n;
  return part;
}

bool fits32(std::int64_t value) { return value >= 0 && value <= 2147483647; }

bool checked_product(std::int64_t a, std::int64_t b, std::int64_t& result) {
  return !__builtin_mul_overflow(a, b, &result) && fits32(result);
}

}  // namespace korvel
