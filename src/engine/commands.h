// The command table: row = word, handler, what the reader and the dispatcher do with it. A row's
// rank, counted from 1, is its IKOD.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "engine/workspace.h"

namespace korvel {

using Handler = void (*)(Workspace);

// Ranks that code names.
enum Ikod : int {
  K_MENU = 1,
  K_GENR = 2,
  K_READ = 3,
  K_PRINT = 4,
  K_WRITE = 5,
  K_OLSQ = 6,
  K_SET = 7,
  K_DISPLAY = 8,
  K_STOP = 9,
  K_IF = 10,
  K_SKIPIF = 11,
  K_SAMPLE = 12,
  K_DO = 13,
  K_RESTRICT = 14,
  K_TEST = 15,
  K_EXECUTE = 16,
  K_END = 17,
  K_HELP = 18,
  K_NAMES = 19,
  K_LAMBDA = 20,
  K_FORMAT = 21,
  K_DIMENSIO = 22,
  K_DUMP = 23,
  K_ENDO = 24,
  K_DELETE = 25,
  K_AUTO = 26,
  K_STATS = 27,
  K_POOL = 29,
  K_RENAME = 31,
  K_COMPRESS = 32,
  K_TITLE = 33,
  K_TIME = 34,
  K_SORT = 35,
  K_REWIND = 36,
  K_MATRIX = 39,
  K_GEN1 = 40,
  K_COPY = 42,
  K_BOX = 43,
  K_2SLS = 44,
  K_SAVE = 45,
  K_RESTORE = 46,
  K_PARM = 48,
  K_FCAST = 49,
  K_SYSTEM = 50,
  K_LIST = 51,
  K_NLINEAR = 52,
  K_PROBIT = 55,
  K_LOGIT = 56,
  K_TOBIT = 57,
  K_MLE = 58,
  K_EQ = 59,
  K_COEFFICI = 60,
  K_LAGS = 61,
  K_ENDIF = 62,
  K_FILE = 63,
  K_SIZE = 64,
  K_PAUSE = 67,
  K_DIAGNOSE = 69,
  K_GOTO = 73,
  K_BAYES = 74,
  K_CONFIDEN = 75,
  K_SMPL = 76,
  K_HETERO = 79,
  K_PROCEDUR = 80,
  K_PROCEND = 81,
  K_ENDOGENO = 82,
  K_EXOGENOU = 83,
  K_LAGGED = 84,
  K_DERIVATI = 85,
  K_INTEGRAT = 86,
  K_IDENTITY = 87,
  K_KORVEDIT = 88,
  K_QUIT = 89,
  K_EXIT = 90,
  K_IMLS = 91,
  K_COINTEGR = 92,
  K_CONVERT = 93,
  K_IF1 = 94,
  K_GME = 98,
  K_TIMEFMT = 107,
  K_AXISFMT = 108,
  K_GRAPH = 109,
  K_SMOOTH = 110,
  K_RESET = 111,
  K_NAMEFMT = 116,
};

// How the command's tail is split before its handler runs.
enum class Tail : std::uint8_t {
  List,     // variables and options: SCANIT with look-up
  Count,    // a number (literal, $ temporary or scalar), then the same
  Words,    // words without look-up
  Options,  // the whole tail is an option list (SET, DISPLAY)
  Raw,      // not split: expressions, text, FILE
};

struct CommandRow {
  std::string_view word;  // up to 8 characters, empty: no command
  Handler handler;        // nullptr: not built on this system, or done by the loop itself
  Tail tail = Tail::List;
  bool in_scan = false;  // acts in scan mode too
  bool in_loop = false;  // the command loop does it itself; no handler needed
};

inline constexpr int NCOMMANDS = 117;
extern const std::array<CommandRow, NCOMMANDS> COMMANDS;

// First row that matches the word (up-cased; abbreviations unless SET LONG), 0 none.
int find_command(std::string_view word);

// Prints the menu: all words with the mark of those that lack their data.
void MENU();

// The command loop. Returns at the end of the run, or when SIZE or PAR want a new workspace.
void AAA(Workspace ws);
// A run that only looks: the command that INPUT left, inside the block of another one.
void look_over_command(Workspace ws);

// Lines of a block are commands of their own; behind it the command that opened it is the current
// one again, with its line and its own setting of the output.
class OpenBlock {
 public:
  OpenBlock() : ikod_(INPCOM.IKOD), line_(INPCOM.KLINE), output_(OCOM.OPUT) {
    std::memcpy(word_, INPCOM.COMWRD, sizeof word_);
  }
  OpenBlock(const OpenBlock&) = delete;
  OpenBlock& operator=(const OpenBlock&) = delete;
  ~OpenBlock() {
    INPCOM.IKOD = ikod_;
    INPCOM.KLINE = line_;
    std::memcpy(INPCOM.COMWRD, word_, sizeof word_);
    OCOM.OPUT = output_;
  }

 private:
  int ikod_;
  int line_;
  bool output_;
  char word_[sizeof INPCOM.COMWRD];
};

}  // namespace korvel
