#include "platform/line_editor.h"

#include <sys/ioctl.h>
#include <unistd.h>

int korvel::terminal_rows() {
  winsize size{};
  if (isatty(1) != 1 || ioctl(1, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_row;
}

#ifdef KORVEL_LIBEDIT
#include <dlfcn.h>
#include <fcntl.h>
#include <histedit.h>
#include <langinfo.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>

#include "platform/loaded_library.h"
#include "platform/signals.h"

namespace korvel {
namespace {

constexpr int KEPT_LINES = 2000;

// The few routines used, by their addresses in the loaded library.
struct Library {
  void* handle = nullptr;
  decltype(&el_init) init = nullptr;
  decltype(&el_end) end = nullptr;
  decltype(&el_set) set = nullptr;
  decltype(&el_gets) gets = nullptr;
  decltype(&el_line) line = nullptr;
  decltype(&el_insertstr) insert = nullptr;
  decltype(&el_deletestr) remove = nullptr;
  decltype(&history_init) history_start = nullptr;
  decltype(&history_end) history_stop = nullptr;
  decltype(&::history) history_do = nullptr;
};

const Library& library() {
  static const Library loaded = [] {
    Library l;
    l.handle = dlopen("libedit.so.2", RTLD_NOW | RTLD_LOCAL);
    if (l.handle == nullptr) return l;
    void* h = l.handle;
    const bool whole =
        look_up(h, "el_init", l.init) && look_up(h, "el_end", l.end) &&
        look_up(h, "el_set", l.set) && look_up(h, "el_gets", l.gets) &&
        look_up(h, "el_line", l.line) && look_up(h, "el_insertstr", l.insert) &&
        look_up(h, "el_deletestr", l.remove) && look_up(h, "history_init", l.history_start) &&
        look_up(h, "history_end", l.history_stop) && look_up(h, "history", l.history_do);
    if (!whole) l.handle = nullptr;
    return l;
  }();
  return loaded;
}

// The editor takes bytes for characters by the locale, and leaves out what is none in it: while it
// is at work the characters are those of the terminal, UTF-8 unless the environment names others.
class TerminalCharacters {
 public:
  TerminalCharacters() : old_(uselocale(characters())) {}
  TerminalCharacters(const TerminalCharacters&) = delete;
  TerminalCharacters& operator=(const TerminalCharacters&) = delete;
  ~TerminalCharacters() { uselocale(old_); }

 private:
  static locale_t characters() {
    static const locale_t set = [] {
      const locale_t own = newlocale(LC_CTYPE_MASK, "", nullptr);
      const bool ascii =
          own == nullptr || std::string_view(nl_langinfo_l(CODESET, own)).starts_with("ANSI_");
      return ascii ? newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr) : own;
    }();
    return set;
  }
  locale_t old_;
};

// Characters of a text of the editor.
int characters_in(std::string_view text) {
  constexpr unsigned TOP_BITS = 0xC0, FOLLOWS = 0x80;
  return static_cast<int>(std::ranges::count_if(
      text, [](char c) { return (static_cast<unsigned char>(c) & TOP_BITS) != FOLLOWS; }));
}

// What all candidates begin with, letters of either case alike.
std::string common_start(const std::vector<std::string>& words) {
  std::string start = words.front();
  for (const std::string& word : words) {
    const auto differ = std::mismatch(start.begin(), start.end(), word.begin(), word.end());
    start.erase(differ.first, start.end());
  }
  return start;
}

class EditedText final : public TextInput {
 public:
  explicit EditedText(LineEditor editor) : editor_(std::move(editor)) {
    name_ = "-";
    const TerminalCharacters characters;
    const Library& l = library();
    edit_ = l.init("korvel", stdin, stdout, stderr);
    history_ = l.history_start();
    if (edit_ == nullptr || history_ == nullptr) return;
    running_ = this;
    HistEvent event{};
    l.history_do(history_, &event, H_SETSIZE, KEPT_LINES);
    l.history_do(history_, &event, H_SETUNIQUE, 1);
    load_history();
    l.set(edit_, EL_PROMPT, &show_prompt);
    l.set(edit_, EL_EDITOR, "emacs");
    l.set(edit_, EL_HIST, l.history_do, history_);
    l.set(edit_, EL_SIGNAL, 0);
    l.set(edit_, EL_ADDFN, "korvel-complete", "complete the word", &complete_word);
    l.set(edit_, EL_BIND, "^I", "korvel-complete", nullptr);
    l.set(edit_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    // The keys that terminals send for Home, End and Delete.
    l.set(edit_, EL_BIND, "\\e[H", "ed-move-to-beg", nullptr);
    l.set(edit_, EL_BIND, "\\e[F", "ed-move-to-end", nullptr);
    l.set(edit_, EL_BIND, "\\e[3~", "ed-delete-next-char", nullptr);
  }
  EditedText(const EditedText&) = delete;
  EditedText& operator=(const EditedText&) = delete;
  ~EditedText() override {
    if (history_ != nullptr) library().history_stop(history_);
    if (edit_ != nullptr) library().end(edit_);
    running_ = nullptr;
  }

  bool line(std::string_view& out) override {
    if (again_) {
      again_ = false;
      ++number_;
      out = last_;
      return true;
    }
    const TerminalCharacters characters;
    int length = 0;
    std::fflush(stdout);
    // All functions are there, or there is no editor.
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage)
    const char* text = library().gets(edit_, &length);
    if (text == nullptr || length <= 0) {
      if (signal_received() == 0 && std::fputc('\n', stdout) != EOF) std::fflush(stdout);
      return false;
    }
    last_.assign(text, static_cast<std::size_t>(length));
    while (!last_.empty() && (last_.back() == '\n' || last_.back() == '\r')) last_.pop_back();
    remember(last_);
    ++number_;
    out = last_;
    return true;
  }
  void unread() override {
    again_ = true;
    --number_;
  }
  std::string_view rest() override {
    hold_.clear();
    for (std::string_view text; line(text);) {
      hold_ += text;
      hold_ += '\n';
    }
    return hold_;
  }
  void skip(std::size_t, std::int64_t lines) override { number_ += lines; }
  bool rewind() override { return false; }
  std::int64_t line_number() const override { return number_; }
  bool terminal() const override { return true; }
  bool shows_prompt() const override { return true; }
  bool good() const { return edit_ != nullptr && history_ != nullptr; }

 private:
  static char* show_prompt(EditLine*) {
    running_->prompt_ = running_->editor_.prompt();
    return running_->prompt_.data();
  }

  // Puts in what is certain; shows the candidates when there are several.
  static unsigned char complete_word(EditLine* edit, int) {
    const Library& l = library();
    const LineInfo* info = l.line(edit);  // NOLINT(clang-analyzer-core.CallAndMessage): as above
    const auto length = static_cast<std::size_t>(info->lastchar - info->buffer);
    const auto cursor = static_cast<std::size_t>(info->cursor - info->buffer);
    const std::string text(info->buffer, length);
    const LineEditor::Completion found = running_->editor_.complete(text, cursor);
    if (found.words.empty()) return CC_REFRESH_BEEP;
    const bool one = found.words.size() == 1;
    const std::string start = one ? found.words[0] : common_start(found.words);
    const std::size_t typed = cursor - found.from;
    if (start.size() > typed || (one && start.size() == typed)) {
      l.remove(edit, characters_in(std::string_view(text).substr(found.from, typed)));
      const bool open = !start.empty() && (start.back() == '/' || start.back() == '=');
      l.insert(edit, (one && !open ? start + " " : start).c_str());
      return CC_REFRESH;
    }
    running_->show_words(found.words);
    return CC_REDISPLAY;
  }

  void show_words(const std::vector<std::string>& words) const {
    constexpr std::size_t MOST = 120, LINE = 78;
    std::size_t width = 0;
    for (const std::string& word : words) width = std::max(width, word.size() + 2);
    const std::size_t per_line = std::max<std::size_t>(LINE / width, 1);
    std::string out = "\r\n";
    for (std::size_t k = 0; k < words.size() && k < MOST; ++k) {
      out += words[k];
      const bool last = (k + 1) % per_line == 0 || k + 1 == words.size();
      out += last ? std::string("\r\n") : std::string(width - words[k].size(), ' ');
    }
    if (words.size() > MOST) out += "...\r\n";
    std::fputs(out.c_str(), stdout);
    std::fflush(stdout);
  }

  void load_history() {
    if (editor_.history.empty()) return;
    HistEvent event{};
    library().history_do(history_, &event, H_LOAD, editor_.history.c_str());
  }

  // Kept in memory and, for a file, written at once: a later crash loses nothing. The file belongs
  // to its owner alone.
  void remember(const std::string& text) {
    if (text.find_first_not_of(' ') == std::string::npos || !editor_.keep(text)) return;
    HistEvent event{};
    const std::string with_end = text + "\n";
    library().history_do(history_, &event, H_ENTER, with_end.c_str());
    if (editor_.history.empty()) return;
    const mode_t old = umask(077);
    library().history_do(history_, &event, H_SAVE, editor_.history.c_str());
    umask(old);
  }

  static EditedText* running_;
  LineEditor editor_;
  EditLine* edit_ = nullptr;
  History* history_ = nullptr;
  std::string prompt_, last_, hold_;
  std::int64_t number_ = 0;
  bool again_ = false;
};
EditedText* EditedText::running_ = nullptr;

}  // namespace

std::unique_ptr<TextInput> edited_text(LineEditor editor) {
  if (isatty(0) != 1 || isatty(1) != 1 || library().handle == nullptr) return nullptr;
  auto text = std::make_unique<EditedText>(std::move(editor));
  if (!text->good()) return nullptr;
  return text;
}

}  // namespace korvel
#else
namespace korvel {
std::unique_ptr<TextInput> edited_text(LineEditor) { return nullptr; }
}  // namespace korvel
#endif
