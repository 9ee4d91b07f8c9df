// The command table and the command loop.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <ctime>

#include "arima/arima.h"
#include "data/data.h"
#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/file_command.h"
#include "engine/files.h"
#include "engine/help.h"
#include "engine/host.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/run.h"
#include "engine/set.h"
#include "engine/text_commands.h"
#include "expr/expr.h"
#include "graphics/graphics.h"
#include "limdep/limdep.h"
#include "nonlinear/nonlinear.h"
#include "platform/signals.h"
#include "regress/auto.h"
#include "regress/fcast.h"
#include "regress/regress.h"
#include "regress/systems.h"
#include "regress/tests.h"
#include "stats/stats.h"

namespace korvel {
namespace {

constexpr CommandRow row(std::string_view word, Handler handler = nullptr, Tail tail = Tail::List) {
  return {word, handler, tail};
}
constexpr CommandRow loop(std::string_view word, Tail tail = Tail::Raw, bool in_scan = true) {
  return {word, nullptr, tail, in_scan, true};
}

}  // namespace

constexpr std::array<CommandRow, NCOMMANDS> TABLE = {{
    loop("MENU"),
    row("GENR", GENC, Tail::Raw),
    row("READ", READX),
    row("PRINT", PRINTX),
    row("WRITE", WRITEX),
    row("OLSQ", OLS),
    {"SET", SETDIS, Tail::Options, true},
    {"DISPLAY", SETDIS, Tail::Words, true},
    loop("STOP", Tail::Words),
    row("IF", GENC, Tail::Raw),
    row("SKIPIF", GENC, Tail::Raw),
    row("SAMPLE", SMPL, Tail::Words),
    {"DO", DO, Tail::Raw, true},
    loop("RESTRICT"),
    row("TEST", TEST, Tail::Raw),
    row("EXECUTE", EXECS, Tail::Raw),
    loop("END"),
    row("HELP", HELP, Tail::Raw),
    row("NAMES", DUMPIT),
    loop("LAMBDA"),
    loop("FORMAT"),
    row("DIMENSIO", DIMEN, Tail::Words),
    row("DUMP", DUMPIT),
    row("ENDO", DOEND, Tail::Raw),
    row("DELETE", DELETX),
    row("AUTO", AUTC),
    row("STATS", STATS),
    row("PLOTS", PLOTC),
    row("POOL"),
    row("GLS"),
    row("RENAME", RENAMX, Tail::Words),
    row("COMPRESS", SAVEX),
    loop("TITLE"),
    row("TIME", SMPL, Tail::Words),
    row("SORT", SORTD),
    row("REWIND", REWINDX, Tail::Words),
    row("GAMES", nullptr, Tail::Raw),
    row("CHECKOUT", nullptr, Tail::Raw),
    row("MATRIX", GENC, Tail::Raw),
    row("GEN1", GENC, Tail::Raw),
    row("DISTRIB", DISTR),
    row("COPY", COPYX),
    row("BOX"),
    row("2SLS", SYSCON),
    row("SAVE", SAVEX),
    row("RESTORE", SAVEX),
    row("SPREAD", nullptr, Tail::Raw),
    loop("PARM", Tail::Words, false),
    row("FCAST", FC),
    row("SYSTEM", SYSCON, Tail::Count),
    row("LIST", PRINTX),
    row("NLINEAR", NLIN, Tail::Raw),
    row("DLAGS"),
    row("INDEX", INDEXC),
    row("PROBIT", PROBC),
    row("LOGIT", PROBC),
    row("TOBIT", PROBC),
    row("MLE", NLIN),
    loop("EQ"),
    loop("COEFFICI"),
    loop("LAGS"),
    row("ENDIF", GENC, Tail::Raw),
    {"FILE", FILEX, Tail::Raw, true},
    loop("SIZE", Tail::Words, false),
    row("PCOMPONE", PCOMC),
    row("DEMONSTR", nullptr, Tail::Raw),
    loop("PAUSE"),
    row("USER", nullptr, Tail::Raw),
    row("DIAGNOSE", FC),
    row("INSTRUME", SYSCON),
    row("TABLES", nullptr, Tail::Raw),
    row("ARIMA", BJCON),
    row("GOTO", GOTOX, Tail::Words),
    row("BAYES"),
    row("CONFIDEN", CONFID),
    row("SMPL", SMPL, Tail::Words),
    row("ROBUST"),
    row("INQUIRE", INQUIRX, Tail::Raw),
    row("HETERO", NLIN),
    {"PROCEDUR", PROCDEF, Tail::Raw, true},
    row("PROCEND", DOEND, Tail::Raw),
    loop("ENDOGENO"),
    loop("EXOGENOU"),
    loop("LAGGED"),
    row("DERIVATI", GENC, Tail::Raw),
    row("INTEGRAT", GENC, Tail::Raw),
    loop("IDENTITY"),
    loop("KORVEDIT"),
    loop("QUIT", Tail::Words),
    loop("EXIT", Tail::Words),
    row("IMLS", OLS),
    row("COINTEGR", BJCON),
    row("CONVERT", UNFORMAT, Tail::Words),
    row("IF1", GENC, Tail::Raw),
    row("LP", nullptr, Tail::Raw),
    row("NONPAR"),
    row(""),
    row("GME", NLIN),
    row("FLS"),
    row(""),
    row("VAR"),
    row("FUZZY"),
    row("CALLOPTI"),
    row("PUTOPTIO"),
    row("PORTFOLI"),
    row("STOCKGRA"),
    loop("TIMEFMT"),
    loop("AXISFMT"),
    row("GRAPH", PLOTC),
    row("SMOOTH", INDEXC),
    {"RESET", RESET, Tail::Raw, true},
    row("korvel1", nullptr, Tail::Raw),
    row("korvel2", nullptr, Tail::Raw),
    row("korvel3", nullptr, Tail::Raw),
    row("korvel4", nullptr, Tail::Raw),
    loop("NAMEFMT"),
    row("QP", nullptr, Tail::Raw),
}};
constinit const std::array<CommandRow, NCOMMANDS> COMMANDS = TABLE;

static_assert(TABLE[K_OLSQ - 1].word == "OLSQ" && TABLE[K_DIMENSIO - 1].word == "DIMENSIO" &&
              TABLE[K_GEN1 - 1].word == "GEN1" && TABLE[K_FILE - 1].word == "FILE" &&
              TABLE[K_SMPL - 1].word == "SMPL" && TABLE[K_IMLS - 1].word == "IMLS" &&
              TABLE[K_IF1 - 1].word == "IF1" && TABLE[K_NAMEFMT - 1].word == "NAMEFMT");

namespace {

// The words of the table and of a command as numbers, so that a look-up compares no characters.
using WordKeys = std::array<std::uint64_t, NCOMMANDS>;
constexpr std::uint64_t word_key(std::string_view word) {
  std::uint64_t key = 0;
  for (std::size_t k = 0; k < KEYLEN; ++k) {
    const char c = k < word.size() ? word[k] : ' ';
    key |= static_cast<std::uint64_t>(static_cast<unsigned char>(c)) << (8 * k);
  }
  return key;
}
consteval WordKeys word_keys() {
  WordKeys keys{};
  for (std::size_t i = 0; i < keys.size(); ++i) {
    // An empty row is no command: no word has this key, nor an abbreviation.
    keys[i] = TABLE[i].word.empty() ? ~std::uint64_t{0} : word_key(TABLE[i].word);
  }
  return keys;
}
constexpr WordKeys KEYS = word_keys();

}  // namespace

int find_command(std::string_view word) {
  if (word.empty() || word.size() > KEYLEN) return 0;
  const bool whole = OSCOM.OLONG || word.size() == KEYLEN;
  const std::uint64_t mask = whole ? ~std::uint64_t{0} : ~(~std::uint64_t{0} << (8 * word.size()));
  const std::uint64_t key = word_key(word) & mask;
  for (std::size_t i = 0; i < KEYS.size(); ++i) {
    if ((KEYS[i] & mask) == key) return static_cast<int>(i) + 1;
  }
  return 0;
}

namespace {

// Order of the menu: alphabetical by the words as they are shown, then the later rows as they
// stand.
constexpr std::array<int, 77> MENUORDER = {
    72, 26, 74, 43, 38, 60, 32, 75, 42, 25, 66, 69, 22, 8,  41, 53, 13, 23, 17, 62,
    24, 59, 16, 49, 63, 21, 2,  40, 37, 30, 73, 18, 10, 54, 70, 61, 20, 51, 56, 47,
    39, 1,  58, 19, 52, 6,  48, 67, 65, 28, 29, 4,  55, 3,  31, 46, 14, 36, 77, 12,
    45, 7,  64, 11, 76, 35, 27, 9,  50, 71, 15, 34, 33, 57, 68, 5,  44};
constexpr int MENUCOLUMNS = 6;
constexpr double MOSTVARS = LIMVAR / 100.0;  // SIZE beyond it would only fill memory with names

// Commands that need data, in the sense of the menu's mark: all that work on variables or a sample.
bool usable_now(int ikod) {
  if (DATCOM.NVARS > 0) return true;
  const CommandRow& r = TABLE[static_cast<std::size_t>(ikod - 1)];
  switch (ikod) {
    case K_GENR:
    case K_IF:
    case K_SKIPIF:
    case K_ENDIF:
    case K_WRITE:
    case K_STATS:
    case K_FCAST:
    case K_DELETE:
    case K_RENAME:
    case K_COMPRESS:
    case K_NAMES:
      return false;
    default:
      return r.tail != Tail::List || ikod == K_READ || ikod == K_RESTORE;
  }
}

void ignored() { error_line(" ...ERROR..ABOVE COMMAND WILL BE IGNORED"); }

// The number of PAR n and SIZE n; PAR=n, as at the start of the program, means the same.
std::string_view size_word() {
  const bool equals = SCNCOM.NWORDS > 1 && TOKCOM.token[1].text == "=";
  return TOKCOM.token[equals ? 2 : 1].text;
}

// PAR n: a new data area of n kilobytes. Without a number: what is in force. True: leave the loop.
bool set_par(Workspace ws) {
  if (SCNCOM.NWORDS == 0) {
    say<"(' ...NOTE..PAR IS ', I0, ' MAXIMUM VARIABLES IS', I8)">(RUNCOM.par, DATCOM.MAXVAR);
    return false;
  }
  if (RUNCOM.settings.safe) {
    refuse_in_safe_run();
    return false;
  }
  const Scalar value = scalar_value(ws, size_word());
  if (!value.ok) return false;
  if (!(value.value >= 0 && value.value < 1e15)) {
    fail(" ...ERROR..SYNTAX ERROR");
    return false;
  }
  RUNCOM.settings.par = value.value < 1 ? RUNCOM.par : static_cast<std::int64_t>(value.value);
  return true;
}

// SIZE n: room for n variables, only as the first command of a run. True: leave the loop.
bool set_size(Workspace ws) {
  if (INPCOM.NCOMM > 0) {
    say(" ...NOTE..SIZE COMMAND SHOULD BE AT BEGINNING OF RUN");
    ignored();
    return false;
  }
  if (SCNCOM.NWORDS == 0) return false;
  if (RUNCOM.settings.safe) {
    refuse_in_safe_run();
    return false;
  }
  const Scalar value = scalar_value(ws, size_word());
  if (!value.ok) return false;
  if (!(value.value >= 0 && value.value <= MOSTVARS)) {
    fail(" ...ERROR..SYNTAX ERROR");
    return false;
  }
  if (value.value >= 1) RUNCOM.settings.maxvar = static_cast<int>(value.value);
  return true;
}

// Commands that the loop does itself. True: the loop is left (IKOD tells why).
bool run_in_loop(Workspace ws) {
  switch (INPCOM.IKOD) {
    case K_MENU:
      MENU();
      return false;
    case K_STOP:
      return !on_host() ||
             stop_on_host(ws, std::string(SCNCOM.NWORDS > 0 ? TOKCOM.token[1].text : ""));
    case K_PAUSE:
      if (on_host() && !OSCOM.OSCAN) break_on_host();
      return false;
    case K_PARM:
      return !OSCOM.OSCAN && set_par(ws);
    case K_SIZE:
      return !OSCOM.OSCAN && set_size(ws);
    case K_RESTRICT:
    case K_LAMBDA:
    case K_LAGS:
      // While scanning, the block that such a line belongs to was not opened.
      if (!OSCOM.OSCAN) ignored();
      return false;
    case K_KORVEDIT:
      if (INPCOM.LKOD == K_KORVEDIT) {
        INPCOM.LKOD = 1;
      } else {
        say(" ENTERING KORVEL EDITOR, TO EXIT TYPE: KORVEDIT");
        INPCOM.LKOD = K_KORVEDIT;
      }
      return false;
    default:
      // END closes blocks only; text commands were stored by the reader; the sub-commands of
      // equation systems have no meaning outside their block.
      return false;
  }
}

bool counts_for_size(int ikod) { return ikod != K_SET && ikod != K_PARM && ikod != K_SIZE; }

// A false IF without a statement drops the command behind it.
bool dropped_by_if(Workspace ws) {
  if (!OCOM.ONOTIF) return false;
  OCOM.ONOTIF = false;
  if (OCOM.OPUT) warn(" ...WARNING..ABOVE STATEMENT NOT EXECUTED - PREVIOUS IF IS FALSE");
  drop_block(ws);  // a block goes as a whole
  if (INPCOM.IKOD == K_EXECUTE) INPCOM.IKOD = 0;
  return true;
}

double seconds() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  constexpr double NANO = 1e-9;
  return static_cast<double>(t.tv_sec) + NANO * static_cast<double>(t.tv_nsec);
}

// After an error in a batch run no stored line is run any more: reading goes on behind the
// outermost caller.
void drop_levels_in_scan_mode(Workspace ws) {
  if (!OSCOM.OSCAN || levels().empty()) return;
  if (loop_running()) warn(" ...WARNING..EXECUTION OF DO LOOP TERMINATED");
  drop_levels(ws);
}

// Ctrl-C in a session: the line or command is given up, with the loop or file that it stands in;
// the session goes on.
bool interrupted_at_prompt(Workspace ws) {
  if ((!at_keyboard() && !on_host()) || signal_received() != SIGINT) return false;
  forget_signal();
  OCOM.OEOF = false;
  if (on_host()) {
    drop_levels(ws);
    take_stop(ws);
    return true;
  }
  main_output().raw("\n");
  tell_stopped_command();
  return_to_first_input(ws);
  return true;
}

// Runs the command that INPUT left. True: the loop is left.
bool run_command(Workspace ws) {
  if (INPCOM.IKOD == K_QUIT || INPCOM.IKOD == K_EXIT) {
    INPCOM.IKOD = K_STOP;
    std::memset(INPCOM.COMWRD, ' ', KEYLEN);
  }
  const CommandRow& command = TABLE[static_cast<std::size_t>(INPCOM.IKOD - 1)];
  if (command.handler == nullptr && !command.in_loop) {
    if (!OSCOM.OSCAN) error_line(" .. THIS COMMAND IS NOT AVAILABLE ON THIS SYSTEM");
    return false;
  }
  SCANIT(ws);
  if (OSCOM.OSCAN && INPCOM.IKOD == K_READ && !SCNCOM.file && SCNCOM.INPAR == 0)
    skip_stream_data(ws);
  if (OCOM.OERR || OCOM.ODONT) return false;
  if (command.in_loop) return run_in_loop(ws);
  if (OSCOM.OSCAN && !command.in_scan && command.tail == Tail::Raw) {
    if (RUNCOM.settings.check && command.handler == GENC) check_formula(ws);
    if (RUNCOM.settings.check && INPCOM.IKOD == K_NLINEAR) NLIN(ws);
    return false;
  }
  command.handler(ws);
  return false;
}

}  // namespace

void look_over_command(Workspace ws) { run_command(ws); }

void MENU() {
  WordRows rows(MENUCOLUMNS);
  for (int i = 0; i < NCOMMANDS; ++i) {
    const int ikod =
        i < static_cast<int>(MENUORDER.size()) ? MENUORDER[static_cast<std::size_t>(i)] : i + 1;
    const std::string_view word = TABLE[static_cast<std::size_t>(ikod - 1)].word;
    if (word.empty() || NAMCHK(word[0]) != 1 ? word != "2SLS" : word[0] >= 'a') continue;
    rows.add(word, usable_now(ikod) ? " " : "*");
  }
  rows.end();
  say(" * INDICATES COMMAND CANNOT BE USED AT THIS STEP");
}

void AAA(Workspace ws) {
  const Trace trace("AAA");
  INPCOM.IKOD = -1;
  for (;;) {
    // 1. The next command; the end of the input is a STOP.
    if (RUNCOM.settings.check) {
      OSCOM.OSCAN = true;
    } else {
      drop_levels_in_scan_mode(ws);
    }
    INPUT(ws);
    OCOM.ODONT = OCOM.OERR = false;
    OCOM.IFAULT = 0;
    if (RUNCOM.ended) return;
    if (signal_received() != 0) {
      if (!interrupted_at_prompt(ws)) return;
      continue;
    }
    if (OCOM.OEOF) {
      INPCOM.IKOD = K_STOP;
      return;
    }
    // 2. Dropped, or run.
    if (dropped_by_if(ws)) continue;
    OCOM.ONEWV = OCOM.OMAT = false;
    const int ikod = INPCOM.IKOD;
    const double start = OSCOM.OTIM ? seconds() : 0.0;
    const int failures = RUNCOM.failures;
    if (run_command(ws)) return;
    if (RUNCOM.failures != failures) tell_failed_command();
    if (OSCOM.OTIM && start > 0.0 && !OSCOM.OSCAN) {
      say<"(' ...NOTE..TIME OF THE COMMAND', F12.6, ' SECONDS')">(seconds() - start);
    }
    if (counts_for_size(ikod)) ++INPCOM.NCOMM;
    if (RUNCOM.ended) return;
    // 3. A stop from the keyboard ends the command, not the session.
    if (signal_received() != 0 && !interrupted_at_prompt(ws)) return;
  }
}

}  // namespace korvel
