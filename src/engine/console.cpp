#include "engine/console.h"

#include "engine/doctor.h"
#include "engine/options.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr const char* HELP =
    "Usage: korvel [options] [<in filename> [<out filename>]]\n"
    "\n"
    "Runs the commands of a file and prints the listing on standard output or into a file.\n"
    "Without a file the commands are read from the keyboard, or from a pipe as a batch run.\n"
    "\n"
    "  -c COMMANDS   run COMMANDS (lines parted by newlines or ;;) instead of a file\n"
    "  -             standard input, or standard output as second name\n"
    "  -q            no greeting\n"
    "  -W            mirror warnings on standard error too (errors always are in a batch run)\n"
    "  --results FILE  write the estimates and tests of the run to FILE as JSON\n"
    "  --check       run nothing, list the mistakes of the commands\n"
    "  --doctor      what this machine has and what is missing\n"
    "  SAFE          don't trust the commands: read only below this folder, keep the workspace's\n"
    "                size, ten minutes of processor time at the most\n"
    "  PAR=n         workspace of n kilobytes (20480)\n"
    "  SIZE=n        room for n variables (1000)\n"
    "  TEMP=path     folder for temporary files\n"
    "  --help        this text        --version   the version\n"
    "\n"
    "Exit status: 0 all commands ran, 1 a command failed, 2 wrong call or file, 3 ended early,\n"
    "4 no memory or disk full, 128+n ended by signal n.\n";

// PAR=, SIZE= ... at the start of an argument, in either case.
bool keyed(const std::string& argument, std::string_view key, std::string& value) {
  if (argument.size() < key.size()) return false;
  for (std::size_t i = 0; i < key.size(); ++i) {
    if (upper(argument[i]) != key[i]) return false;
  }
  value = argument.substr(key.size());
  return true;
}

bool whole_number(const std::string& text, std::int64_t most, std::int64_t& n) {
  if (text.empty() || text.size() > 10) return false;
  n = 0;
  for (const char c : text) {
    if (NAMCHK(c) != 0) return false;
    n = n * 10 + (c - '0');
  }
  return n <= most;
}

ConsoleCall refuse(const std::string& why) {
  ConsoleCall call;
  call.status = EXIT_CALL;
  call.answer = "korvel: " + why + "\n Usage: KORVELD [? | {<in filename> [<out filename>]}]\n";
  return call;
}

std::string with_line_ends(std::string text) {
  for (std::size_t at = 0; (at = text.find(";;", at)) != std::string::npos;)
    text.replace(at, 2, "\n");
  return text;
}

}  // namespace

ConsoleCall KORVELD(const std::vector<std::string>& arguments) {
  ConsoleCall call;
  int files = 0;
  bool options = true;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& a = arguments[i];
    std::string value;
    std::int64_t n = 0;
    if (options && a == "--") {
      options = false;
    } else if (options && (a == "--help" || a == "-h")) {
      call.answer = HELP;
      call.status = EXIT_GOOD;
      return call;
    } else if (options && a == "--version") {
      call.answer = "KORVEL 11.0\n";
      call.status = EXIT_GOOD;
      return call;
    } else if (options && a == "?") {
      call.answer = "KORVELD 11.0\n Usage: KORVELD [? | {<in filename> [<out filename>]}]\n";
      call.status = EXIT_GOOD;
      return call;
    } else if (options && a == "-q") {
      call.settings.quiet = true;
    } else if (options && a == "--check") {
      call.settings.check = true;
    } else if (options && a == "--doctor") {
      call.answer = doctor();
      call.status = EXIT_GOOD;
      return call;
    } else if (options && a == "-W") {
      call.settings.mirror_warnings = true;
    } else if (options && a == "-c") {
      if (i + 1 == arguments.size()) return refuse("-c needs commands");
      call.settings.commands = with_line_ends(arguments[++i]);
      call.settings.have_commands = true;
    } else if (options && a == "--results") {
      if (i + 1 == arguments.size() || arguments[i + 1].empty()) {
        return refuse("--results needs a file name");
      }
      call.settings.results = arguments[++i];
    } else if (options && a == "%") {
      call.settings.databank = true;
    } else if (options && (a == "SAFE" || a == "--safe")) {
      call.settings.safe = true;
    } else if (options && keyed(a, "PAR=", value)) {
      if (!whole_number(value, 9999999999, n)) return refuse("PAR= needs a whole number");
      if (n > 0) call.settings.par = n;
      call.settings.par_given = n > 0;
    } else if (options && keyed(a, "SIZE=", value)) {
      if (!whole_number(value, LIMVAR / 100, n)) return refuse("SIZE= needs a whole number");
      if (n > 0) call.settings.maxvar = static_cast<int>(n);
      call.settings.maxvar_given = n > 0;
    } else if (options && keyed(a, "TEMP=", value)) {
      call.settings.temp = value;
    } else if (options && keyed(a, "ENV=", value)) {
      continue;  // the host kind is fixed here
    } else if (options && a.size() > 1 && a[0] == '-') {
      return refuse("unknown option " + a);
    } else if (call.settings.have_commands && files == 0) {
      call.settings.output = a;
      files = 2;
    } else if (files == 0) {
      call.settings.input = a;
      files = 1;
    } else if (files == 1) {
      call.settings.output = a;
      files = 2;
    } else {
      return refuse("more than two file names");
    }
  }
  return call;
}

}  // namespace korvel
