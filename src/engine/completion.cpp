#include "engine/completion.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <span>

#include "engine/commands.h"
#include "engine/help.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/set.h"
#include "expr/operators.h"

namespace korvel {
namespace {

constexpr bool in_word(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '$';
}

std::string up_cased(std::string_view text) {
  std::string s(text);
  for (char& c : s) c = upper(c);
  return s;
}

// Collects the words that begin with what has been typed, in either case; the result is written in
// lower case when that was typed.
class Collector {
 public:
  explicit Collector(std::string_view typed) : typed_(typed) {
    lower_ = std::ranges::any_of(typed, [](char c) { return c >= 'a' && c <= 'z'; });
  }
  void add(std::string_view word) {
    if (word.size() < typed_.size()) return;
    for (std::size_t k = 0; k < typed_.size(); ++k) {
      if (upper(word[k]) != upper(typed_[k])) return;
    }
    std::string text(word);
    if (lower_) {
      for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
      }
    }
    words_.push_back(std::move(text));
  }
  std::vector<std::string> take() {
    std::ranges::sort(words_);
    words_.erase(std::unique(words_.begin(), words_.end()), words_.end());
    return std::move(words_);
  }

 private:
  std::string_view typed_;
  bool lower_ = false;
  std::vector<std::string> words_;
};

void add_commands(Collector& words) {
  for (int k = 1; k <= NCOMMANDS; ++k) {
    const CommandRow& row = COMMANDS[static_cast<std::size_t>(k - 1)];
    if (row.word.empty() || (row.handler == nullptr && !row.in_loop)) continue;
    words.add(k == K_OLSQ ? std::string_view("OLS") : row.word);
  }
}

void add_variables(Workspace ws, Collector& words) {
  for (int i = 1; i <= DATCOM.NVARS; ++i) {
    if (ws.VNAME(i)[0] != ' ') words.add(NAME(ws, i));
  }
}

void add_temporaries(Collector& words) {
  for (const std::string_view name : TEMPNAMES) words.add("$" + std::string(name));
}

void add_functions(Collector& words) {
  for (int code = OP_EXP; code <= NOPERATORS; ++code) {
    const std::string_view symbol = operator_row(code).symbol;
    if (symbol.size() > 1 && symbol[0] >= 'A' && symbol[0] <= 'Z') words.add(symbol);
  }
}

// Options as the page of the command explains them.
void add_options(const HelpPage* page, Collector& words) {
  if (page == nullptr) return;
  for (const HelpEntry& entry : page->entries) {
    if (entry.word[0] != '$' && NAMCHK(entry.word[0]) == 1) words.add(entry.word);
  }
}

void add_pages(Collector& words) {
  for (const HelpPage& page : help_pages()) words.add(page.name);
}

// Files whose path begins with the text; folders end with "/".
Candidates complete_file(std::string_view line, std::size_t from, std::size_t cursor) {
  Candidates found;
  found.from = from;
  const std::string typed(line.substr(from, cursor - from));
  const auto slash = typed.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : typed.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? typed : typed.substr(slash + 1);
  std::error_code error;
  const std::filesystem::path where = folder.empty() ? "." : folder;
  for (const auto& entry : std::filesystem::directory_iterator(where, error)) {
    const std::string file = entry.path().filename().string();
    if (file.substr(0, name.size()) != name || (name.empty() && file[0] == '.')) continue;
    std::error_code ignored;
    found.words.push_back(folder + file + (entry.is_directory(ignored) ? "/" : ""));
  }
  std::ranges::sort(found.words);
  return found;
}

bool takes_formula(int ikod) {
  return ikod == K_GENR || ikod == K_GEN1 || ikod == K_IF || ikod == K_IF1 || ikod == K_SKIPIF ||
         ikod == K_ENDIF || ikod == K_MATRIX || ikod == K_DERIVATI || ikod == K_INTEGRAT ||
         ikod == K_EQ || ikod == K_TEST;
}

}  // namespace

Candidates complete_command(Workspace ws, std::string_view line, std::size_t cursor) {
  cursor = std::min(cursor, line.size());
  const std::string_view before = line.substr(0, cursor);
  Candidates found;
  found.from = cursor;
  while (found.from > 0 && in_word(before[found.from - 1])) --found.from;
  Collector words(before.substr(found.from));
  // 1. The command word, behind prefix characters and labels.
  std::size_t start = before.find_first_not_of(" ?^=");
  if (start == std::string_view::npos) start = before.size();
  std::size_t end = start;
  while (end < before.size() && in_word(before[end])) ++end;
  if (end < before.size() && before[end] == ':') {
    start = before.find_first_not_of(' ', end + 1);
    if (start == std::string_view::npos) start = before.size();
    end = start;
    while (end < before.size() && in_word(before[end])) ++end;
  }
  if (found.from == start) {
    add_commands(words);
    found.words = words.take();
    return found;
  }
  const std::string word = up_cased(before.substr(start, end - start)).substr(0, KEYLEN);
  const int ikod = find_command(word);
  // 2. Files: in the brackets of READ, WRITE and PRINT, and behind FILE and its words.
  const auto open = before.rfind('(');
  const bool bracket =
      open != std::string_view::npos && before.find(')', open) == std::string_view::npos;
  if (bracket && (ikod == K_READ || ikod == K_WRITE || ikod == K_PRINT)) {
    return complete_file(line, open + 1, cursor);
  }
  if (ikod == K_FILE) {
    const auto job = before.find_first_not_of(' ', end);
    if (job != std::string_view::npos && job < found.from) {
      const auto blank = before.find(' ', job);
      const auto name = before.find_first_not_of(' ', std::min(blank, before.size()));
      return complete_file(line, std::min(name, cursor), cursor);
    }
  }
  // 3. By the command and the place behind it.
  const std::string_view behind = before.substr(end, found.from - end);
  const bool options = behind.find('/') != std::string_view::npos && !takes_formula(ikod);
  const bool value = !behind.empty() && behind.back() == '=';
  if (ikod == K_HELP) {
    add_pages(words);
  } else if (ikod == K_SET || ikod == K_DISPLAY || ikod == K_FILE) {
    add_options(help_page(ikod), words);
    if (ikod == K_DISPLAY) add_temporaries(words);
  } else if (options && !value) {
    add_options(help_page(ikod), words);
  } else {
    add_variables(ws, words);
    if (found.from < cursor && before[found.from] == '$') add_temporaries(words);
    if (takes_formula(ikod)) add_functions(words);
  }
  found.words = words.take();
  return found;
}

namespace {

// Editing distance with exchanged neighbours, of words of up to 24 characters.
int distance(std::string_view a, std::string_view b) {
  constexpr std::size_t MOST = NAMELEN + 1;
  std::array<std::array<int, MOST>, MOST> d{};
  const std::size_t n = std::min<std::size_t>(a.size(), NAMELEN);
  const std::size_t m = std::min<std::size_t>(b.size(), NAMELEN);
  for (std::size_t i = 0; i <= n; ++i) d[i][0] = static_cast<int>(i);
  for (std::size_t j = 0; j <= m; ++j) d[0][j] = static_cast<int>(j);
  for (std::size_t i = 1; i <= n; ++i) {
    for (std::size_t j = 1; j <= m; ++j) {
      const int change = a[i - 1] == b[j - 1] ? 0 : 1;
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + change});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[n][m];
}

// Keeps the nearest of the words offered to it; a third of the letters may differ.
class Nearest {
 public:
  explicit Nearest(std::string_view wanted)
      : wanted_(up_cased(wanted)), best_(1 + static_cast<int>(wanted_.size()) / 3) {}
  void offer(std::string_view word) { offer(word, word); }
  void offer(std::string_view word, std::string_view meant) {
    const int d = distance(wanted_, word);
    if (d >= best_ || d >= static_cast<int>(word.size())) return;
    best_ = d;
    word_ = meant;
  }
  std::string take() { return std::move(word_); }

 private:
  std::string wanted_, word_;
  int best_;
};

}  // namespace

// Words that people try for a command of another name.
struct Synonym {
  std::string_view word, command;
};
constexpr Synonym SYNONYMS[] = {
    {"OLS", "OLS"},     {"REG", "OLS"},        {"REGRESS", "OLS"},    {"GENERATE", "GENR"},
    {"LET", "GENR"},    {"STATISTI", "STATS"}, {"SUMMARIZ", "STATS"}, {"DESCRIBE", "STATS"},
    {"MEAN", "STATS"},  {"LOAD", "READ"},      {"IMPORT", "READ"},    {"INPUT", "READ"},
    {"SHOW", "PRINT"},  {"DROP", "DELETE"},    {"RUN", "EXECUTE"},    {"LS", "OLS"},
    {"NLS", "NLINEAR"}, {"ARMA", "ARIMA"},     {"FORECAST", "FCAST"}};

std::string near_command(std::string_view word) {
  Nearest nearest(word.substr(0, KEYLEN));
  for (const Synonym& synonym : SYNONYMS) nearest.offer(synonym.word, synonym.command);
  for (int k = 1; k <= NCOMMANDS; ++k) {
    const CommandRow& row = COMMANDS[static_cast<std::size_t>(k - 1)];
    if (!row.word.empty() && (row.handler != nullptr || row.in_loop)) nearest.offer(row.word);
  }
  return nearest.take();
}

std::string near_variable(Workspace ws, std::string_view name) {
  Nearest nearest(name.substr(0, KEYLEN));
  for (int i = 1; i <= DATCOM.NVARS; ++i) {
    if (ws.VNAME(i)[0] != ' ') nearest.offer(NAME(ws, i));
  }
  return nearest.take();
}

void note_near_variable(Workspace ws, std::string_view name) {
  if (!OSCOM.OTALK) return;
  const std::string near = near_variable(ws, name);
  if (!near.empty()) say<"(' ...NOTE..DID YOU MEAN ', A, '?')">(near);
}

}  // namespace korvel
