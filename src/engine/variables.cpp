// The commands that manage variables: DELETE, RENAME, DIMENSION, COMPRESS, NAMES and DUMP.
#include <cstring>

#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/workspace.h"

namespace korvel {
namespace {

constexpr auto DELETEOPT = option_table(logical("ALL"), logical("ALL_"), logical("ALLDATA"));
constexpr auto NAMESOPT = option_table(logical("LIST"));

constexpr std::string_view TYPEWORDS[] = {"",
                                          "DATA",
                                          "MATRIX",
                                          "SYMMETRIC MATRIX",
                                          "TRIANGLE MATRIX",
                                          "CHARACTER STRING",
                                          "CHARACTER VAR."};

std::string_view type_word(int ITYPE) {
  return ITYPE >= SERIES && ITYPE <= CHARVAR ? TYPEWORDS[ITYPE] : TYPEWORDS[0];
}

// Takes one variable away and tells what that released.
void delete_one(Workspace ws, int I) {
  char kept[NAMELEN];
  std::memcpy(kept, ws.VNAME(I).data(), NAMELEN);
  const std::int64_t words = free_variable(ws, I);
  if (OCOM.OPUT && OSCOM.OWARN) {
    say<"(' ...NOTE..VARIABLE ', A, ' IS DELETED ', I0, ' WORDS RELEASED')">(
        right_trimmed({kept, NAMELEN}), words);
  }
}

}  // namespace

// DELETE list, or DELETE / ALL, ALL_, ALLDATA.
void DELETX(Workspace ws) {
  const Trace trace("DELETX");
  // 1. What to delete; an empty command is an error.
  OPTION(ws, DELETEOPT);
  if (OCOM.ODONT) return;
  const bool all = OPTCOM.LOPT[DELETEOPT.place("ALL")];
  const bool all_ = OPTCOM.LOPT[DELETEOPT.place("ALL_")];
  const bool alldata = OPTCOM.LOPT[DELETEOPT.place("ALLDATA")];
  const bool any = all || all_ || alldata;
  if (!any && SCNCOM.NF == 0) return fail(" ...ERROR..IN DELETE COMMAND");
  if (OSCOM.OSCAN) return;
  // 2. From the last variable to the first, so that the end of the area comes back at once.
  for (int I = DATCOM.NVARS; I >= 1; --I) {
    if (I > DATCOM.NVARS || ws.VNAME(I)[0] == ' ') continue;
    const std::string_view name = NAME(ws, I);
    bool wanted = false;
    for (const ListItem& item : SCNCOM.list()) wanted = wanted || item.var == I;
    const bool kept = name.find('_') != std::string_view::npos || name == "FORMAT$";
    wanted = wanted || all_ || (all && !kept) || (alldata && INFO(ws, I).ITYPE < STRING5);
    if (wanted) delete_one(ws, I);
  }
  clear_estimate();
}

// RENAME old new ...: pairs, from left to right; a failure stops there.
void RENAMX(Workspace ws) {
  const Trace trace("RENAMX");
  if (OSCOM.OSCAN) return;
  if (SCNCOM.NWORDS == 0 || SCNCOM.NWORDS % 2 != 0) return fail(" ...ERROR..SYNTAX ERROR");
  for (int k = 1; k < SCNCOM.NWORDS; k += 2) {
    const std::string_view from = TOKCOM.token[static_cast<std::size_t>(k)].text.substr(0, KEYLEN);
    const std::string_view to =
        TOKCOM.token[static_cast<std::size_t>(k) + 1].text.substr(0, KEYLEN);
    const int I = VARNUM(ws, from);
    if (I <= 0) return fail<"(' ...ERROR..VARIABLE ', A, ' DOES NOT EXIST')">(from);
    if (NAMCHK(to[0]) != 1) return fail<"(' ...ERROR..ILLEGAL VARIABLE NAME:', A)">(to);
    if (VARNUM(ws, to) != 0) return fail<"(' ...ERROR..VARIABLE ', A, ' ALREADY EXISTS')">(to);
    if (NAME(ws, I) == "SKIP$") forget_skip_vector(ws);  // by another name the marks are data
    char* field = ws.name_field(I);
    std::memset(field, ' ', NAMELEN);
    std::memcpy(field, to.data(), to.size());
    if (OSCOM.OLC) LCUC(field, KEYLEN);
    if (OCOM.OPUT) say<"(' VARIABLE ', A, ' IS NOW RENAMED TO ', A)">(from, to);
  }
}

// DIMENSION name rows [cols] ...: a series or a matrix of zeros.
void DIMEN(Workspace ws) {
  const Trace trace("DIMEN");
  if (OSCOM.OSCAN) return;
  int k = 1;
  const auto word = [](int i) { return TOKCOM.token[static_cast<std::size_t>(i)].text; };
  while (k <= SCNCOM.NWORDS) {
    const std::string_view name = word(k).substr(0, KEYLEN);
    if (NAMCHK(name[0]) != 1) return fail<"(' ...ERROR..ILLEGAL VARIABLE NAME:', A)">(name);
    if (VARNUM(ws, name) != 0) return fail<"(' ...ERROR..VARIABLE ALREADY EXISTS ', A)">(name);
    // A second size follows when the next word can be one.
    Scalar size[2];
    int sizes = 0;
    while (sizes < 2 && k + 1 + sizes <= SCNCOM.NWORDS) {
      size[sizes] = scalar_value(ws, word(k + 1 + sizes), true);
      if (!size[sizes].ok) break;
      ++sizes;
    }
    const double rows = size[0].value;
    const double cols = sizes == 2 ? size[1].value : 1.0;
    std::int64_t length = 0;
    const bool possible =
        sizes > 0 && rows >= 1 && cols >= 1 && rows < 2147483647.0 && cols < 2147483647.0;
    if (!possible) return fail<"(' ...ERROR..SIZE OF ARRAY ', A, ' NOT GIVEN ')">(name);
    if (!checked_product(static_cast<std::int64_t>(rows), static_cast<std::int64_t>(cols),
                         length)) {
      ADDCOM.NEED = std::int64_t{1} << 31;
      return NOCORE();
    }
    NewVar request{.ITYPE = sizes == 2 ? MATRIX2 : SERIES, .LEN = length};
    request.N2 = static_cast<int>(cols);
    request.fill = -0.0;
    if (NEWVAR(ws, name, request) == 0) return;
    clear_estimate();
    k += 1 + sizes;
  }
}

// COMPRESS: moves the live variables together.
void compress_variables(Workspace ws) {
  if (OSCOM.OSCAN) return;
  if (!levels().empty()) {
    return fail(" ...ERROR..COMPRESS NOT ALLOWED IN DO-LOOPS OR PROCS");
  }
  if (DATCOM.NDL == 0) return say(" ...NOTE..ALL VARIABLES ARE CURRENTLY COMPRESSED");
  const int before = ADDCOM.LASADD;
  const int variables = DATCOM.NVARS;
  int target = 1;
  int live = 0;
  DATCOM.LSKIP = 0;
  for (int I = 1; I <= variables; ++I) {
    if (ws.VNAME(I)[0] == ' ') continue;
    const Place p = INFO(ws, I);
    const int words = p.LEN + 4;
    std::memmove(&ws.DATA(target), &ws.DATA(p.IADD),
                 static_cast<std::size_t>(words) * sizeof(double));
    ++live;
    ws.KADD(live) = target;
    if (live != I) std::memmove(ws.name_field(live), ws.name_field(I), NAMELEN);
    if (NAME(ws, live) == "SKIP$") DATCOM.LSKIP = target + 3;
    target += words;
  }
  DATCOM.NVARS = live;
  DATCOM.NDL = 0;
  ADDCOM.LASADD = target - 1;
  clear_estimate();
  say<"(' ...NOTE..COMPRESS RECOVERED', I6, ' VARIABLES WITH', I12, ' BYTES')">(
      variables - live, static_cast<std::int64_t>(before - ADDCOM.LASADD) * MACOM.NBYTES);
}

// NAMES [list] [/ LIST]: the table of variables, short or long. DUMP without words is the long
// form.
void DUMPIT(Workspace ws) {
  const Trace trace("DUMPIT");
  OPTION(ws, NAMESOPT);
  if (OCOM.ODONT || OSCOM.OSCAN || !OCOM.OPUT) return;
  const bool all = SCNCOM.NF == 0;
  const bool full = OPTCOM.LOPT[NAMESOPT.place("LIST")] || INPCOM.IKOD == K_DUMP;
  if (full) {
    say("  NUM   NAME     ADDRESS     INC     TYPE   LENGTH    N2   FIRST    LAST");
  } else {
    say(" VARIABLE    TYPE            LENGTH  COLUMNS");
  }
  for (int I = 1; I <= DATCOM.NVARS; ++I) {
    if (ws.VNAME(I)[0] == ' ') continue;
    bool wanted = all;
    for (const ListItem& item : SCNCOM.list()) wanted = wanted || item.var == I;
    if (!wanted) continue;
    const Place p = INFO(ws, I);
    Line row;
    if (full) {
      row.put<"(1X, I4, 3X, A8, I8, I8, I9, I9, I6)">(I, NAME(ws, I), p.IADD, p.INC, p.ITYPE, p.LEN,
                                                      p.N2);
      const auto values = elements(ws, I);
      if (p.ITYPE < STRING5 && !values.empty()) {
        row.put<"(2X, 2G13.5)">(values.front(), values.back());
      }
    } else {
      row.put<"(1X, A8, 3X, A16, I8, I8)">(NAME(ws, I), type_word(p.ITYPE), p.LEN, p.N2);
    }
    OUTLINE();
  }
}

}  // namespace korvel
