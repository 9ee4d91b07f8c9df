// The run: constants, input and output, the workspace, the command loop, the end.
#include "engine/run.h"

#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>

#include "data/data.h"
#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/files.h"
#include "engine/host.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/results_file.h"
#include "engine/set.h"
#include "engine/start_files.h"
#include "engine/terminal.h"
#include "engine/units.h"
#include "expr/expr.h"
#include "platform/child.h"
#include "platform/progress.h"
#include "platform/signals.h"
#include "platform/text_input.h"

namespace korvel {

RunCom RUNCOM;

namespace {

constexpr std::string_view VERSION = "KORVEL - Version 11.0";

void tell(const std::string& text) {
  if (on_host()) return send_line(" ...ERROR.." + text);
  const std::string line = "korvel: " + text + "\n";
  if (write(2, line.data(), line.size()) < 0) return;
}

// $PI, $DATE (year month day) and $TIME (hour minute second) are set at all times.
void set_clock_temporaries() {
  temporary(temporary_place("PI")) = 3.14159265358979323846;
  const std::time_t now = std::time(nullptr);
  std::tm t{};
  localtime_r(&now, &t);
  temporary(temporary_place("DATE")) =
      (t.tm_year + 1900) * 10000.0 + (t.tm_mon + 1) * 100.0 + t.tm_mday;
  temporary(temporary_place("TIME")) = t.tm_hour * 10000.0 + t.tm_min * 100.0 + t.tm_sec;
}

void print_banner() {
  const std::string_view stars = " ************************************************************";
  say(" Hello/Bonjour/Aloha/Howdy/G Day/Kia Ora/Konnichiwa/Buenos Dias/Nee Hau/Ciao ");
  say<"(' Welcome to ', A)">(VERSION);
  say(stars);
  say<"(' *  Welcome to ', A)">(VERSION);
  say<"(' *  FILE PATH=', A)">(RUNCOM.path);
  say<"(' *  FILE PROCPATH=', A)">(RUNCOM.vproc);
  if (OSCOM.OTALK && !on_host()) {
    say(" *  HELP lists the commands, HELP word explains one, STOP ends");
  }
  say(stars);
}

// The named input; a missing one is asked for once on standard input, or of the host. Without a
// name the keyboard, or the host's lines, which in any case wait below a named input.
std::unique_ptr<TextInput> open_input(RunSettings& settings, TextInput* host) {
  if (settings.have_commands) return memory_text(settings.commands, "-c");
  if (settings.input.empty()) return on_host() ? nullptr : keyboard_input();
  if (settings.input == "-") return standard_text();  // never on a host: see run_korvel
  std::string name = settings.input;
  for (int tries = 0; tries < 8; ++tries) {
    auto source = open_text(name);
    if (source != nullptr) {
      settings.input = name;
      return source;
    }
    const std::string question = name + " IS NOT FOUND, ENTER NEW INPUTFILE..";
    std::unique_ptr<TextInput> keyboard;
    if (host != nullptr) {
      send_line(question);
    } else {
      main_output().raw(question + "\n");
      main_output().flush();
      keyboard = standard_text();
    }
    std::string_view line;
    if (!(host != nullptr ? host : keyboard.get())->line(line) || trimmed(line).empty()) break;
    name = trimmed(line);
  }
  tell(settings.input + ": " + std::strerror(ENOENT));  // NOLINT(concurrency-mt-unsafe)
  return nullptr;
}

bool same_file(const std::string& a, const std::string& b) {
  char* pa = realpath(a.c_str(), nullptr);
  char* pb = realpath(b.c_str(), nullptr);
  const bool same = pa != nullptr && pb != nullptr && std::strcmp(pa, pb) == 0;
  std::free(pa);  // NOLINT(cppcoreguidelines-no-malloc)
  std::free(pb);  // NOLINT(cppcoreguidelines-no-malloc)
  return same;
}

bool open_output(const RunSettings& settings) {
  if (settings.check) return main_output().open("/dev/null");  // the mistakes alone are shown
  if (settings.output.empty() || settings.output == "-") {
    main_output().attach(screen_descriptor());
    return true;
  }
  if (main_output().open(settings.output)) {
    IOCOM.O6 = true;
    return true;
  }
  tell(settings.output + ": " + std::strerror(errno));  // NOLINT(concurrency-mt-unsafe)
  return false;
}

std::string script_name(const RunSettings& settings) {
  if (settings.have_commands) return "-c";
  return settings.input.empty() ? "-" : settings.input;
}

void too_little_memory(std::int64_t largest) {
  error_line<"(' ...ERROR..MEMORY ALLOCATION ERROR CODE=', I0, ' LARGEST PAR=', I0)">(ENOMEM,
                                                                                      largest);
}

// Sizes and folders of the file of settings, where the start did not give them.
void configure(std::string& complaint) {
  const Configuration c = read_configuration(complaint);
  RunSettings& settings = RUNCOM.settings;
  if (!settings.par_given && c.IPAR > 0) settings.par = c.IPAR;
  if (!settings.maxvar_given && c.IMAX > 0) settings.maxvar = c.IMAX;
  RUNCOM.path = c.VPREF;
  RUNCOM.vproc = c.VPROC;
  const char* folder = std::getenv("TEMP");               // NOLINT(concurrency-mt-unsafe)
  if (folder == nullptr) folder = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
  if (!c.VTEMP.empty()) folder = c.VTEMP.c_str();
  RUNCOM.vtemp = !settings.temp.empty() ? settings.temp : (folder != nullptr ? folder : "/tmp/");
  if (!RUNCOM.vtemp.ends_with('/')) RUNCOM.vtemp += '/';
}

// The file of initial commands is read before the run's own input. A run whose commands are not
// trusted has none: what it may do is settled by its start alone.
void read_start_file(std::string complaint) {
  std::unique_ptr<TextInput> source;
  if (!RUNCOM.settings.safe && !RUNCOM.settings.check) {
    source = open_start_file(RUNCOM.path, complaint);
  }
  if (!complaint.empty()) warn<"(' ...WARNING..', A)">(complaint);
  if (source == nullptr) return;
  say<"(' ...NOTE..USING INITIAL COMMANDS FROM FILE: ', A)">(source->name());
  open_command_input(std::move(source));
}

// Runs the loop until the run ends; SIZE and PAR come back for a new workspace.
int command_loop(const std::string& complaint) {
  std::int64_t largest = 0;
  if (!new_workspace(RUNCOM.settings.par, RUNCOM.settings.maxvar, &largest)) {
    too_little_memory(largest);
    return EXIT_NOROOM;
  }
  RUNCOM.par = RUNCOM.settings.par;
  Workspace ws = workspace();
  RESET(ws);
  OSCOM.ODB = RUNCOM.settings.databank;
  if (IOCOM.O6) begin_web_form(RUNCOM.settings.output);
  if (!RUNCOM.settings.quiet) print_banner();
  tell_start();
  read_start_file(complaint);
  for (;;) {
    AAA(ws);
    if (RUNCOM.ended || (INPCOM.IKOD != K_SIZE && INPCOM.IKOD != K_PARM)) break;
    const std::int64_t wanted = RUNCOM.settings.par;
    if (!new_workspace(wanted, RUNCOM.settings.maxvar, &largest)) {
      too_little_memory(largest);
      mark_failed();
      RUNCOM.settings.par = RUNCOM.par;
      continue;
    }
    RUNCOM.par = wanted;
    ws = workspace();
    tell_host(INPCOM.IKOD == K_PARM ? "SET_PAR=" : "SET_SIZE=",
              std::int64_t{INPCOM.IKOD == K_PARM ? ADDCOM.MAXADD : MACOM.MAXVAR});
    if (INPCOM.IKOD == K_PARM) say<"(' PAR IS NOW SET AT', I12)">(wanted);
    RESET(ws);
  }
  return EXIT_GOOD;
}

// The closing lines and the status of the whole.
int finish(int status) {
  if (!OSCOM.OTALK) wait_for_children();
  const int signal = signal_received();
  remove_private_files();
  flush_redirects();
  if (!RUNCOM.ended && status == EXIT_GOOD && signal == 0) {
    say(" ...NOTE..STOPPED");
    say(" ...COMPLETED");
  }
  close_data_files();
  release_units();
  close_redirects();
  if (on_host()) close_host(workspace());
  main_output().flush();
  const bool closed = main_output().close();
  const int error = main_output().error();
  if (error == EPIPE) return EXIT_SIGNAL + 13;
  if (!closed || error != 0) {
    if (!RUNCOM.output_failed) tell(main_output().name() + ": " + std::strerror(error));  // NOLINT
    return EXIT_NOROOM;
  }
  if (signal != 0) return EXIT_SIGNAL + signal;
  if (status != EXIT_GOOD) return status;
  if (RUNCOM.settings.check && RUNCOM.failures == 0) tell(RUNCOM.script + ": no mistakes found");
  if (RUNCOM.failures > 0 && !RUNCOM.script.empty() && RUNCOM.settings.mirror_errors) {
    tell(RUNCOM.script + ": " + std::to_string(RUNCOM.failures) +
         (RUNCOM.failures == 1 ? " error" : " errors"));
  }
  if (RUNCOM.ended) return EXIT_STOPPED;
  return RUNCOM.failures > 0 ? EXIT_FAILED : EXIT_GOOD;
}

}  // namespace

void RESET(Workspace ws) {
  const Trace trace("RESET");
  ask_before_reset();
  // 1. Loops and procedures end; the workspace is empty, its size stays.
  drop_levels(ws, true);
  const int maxvar = MACOM.MAXVAR;
  const std::int32_t maxadd = ADDCOM.MAXADD;
  ADDCOM = AddCom{};
  ADDCOM.MAXADD = ADDCOM.SCRTOP = maxadd;
  DATCOM = DatCom{};
  DATCOM.MAXVAR = maxvar;
  DATCOM.MXCOL = std::max(2 * maxvar, 1000);
  DATCOM.MCON = maxvar + 1;
  // 2. Switches and settings; the kind of run stays.
  const OsCom old = OSCOM;
  OSCOM = OsCom{};
  OSCOM.OTALK = old.OTALK;
  OSCOM.OECHO = old.OECHO;
  OSCOM.OBAT = old.OBAT;
  OSCOM.OTERM = old.OTERM;
  OSCOM.OCOLOR = OSCOM.OTALK && !on_host() && colours();
  MACOM.XMISS = MaCom{}.XMISS;
  GENCOM = GenCom{};
  FCOM = FCom{};
  VPLCOM = VplCom{};
  set_ranseed(0);
  set_ranlevel(4);
  OSCOM.ORANST = false;
  // 3. The reader's counters and the temporaries.
  INPCOM.LCOLEN = 255;
  INPCOM.LKOD = 0;
  INPCOM.SPVERR = INPCOM.NUNKNO = 0;
  OCOM.ONOTIF = false;
  TEMCOM.TEMVAL.fill(UNSET);
  set_clock_temporaries();
  // 4. Files that the run had opened.
  close_data_files();
  release_units();
  close_redirects();
  reset_settings();
  keep_log(false);
  tell_host("RESET");
}

int run_korvel(const RunSettings& settings) {
  RUNCOM = RunCom{};
  RUNCOM.settings = settings;
  MACOM = MaCom{};
  MACOM.MOS = settings.MOS;
  if (on_host() && settings.input == "-") RUNCOM.settings.input.clear();
  OUTBUF.ILINE = 0;
  close_command_inputs();
  show_progress(!on_host());
  OSCOM = OsCom{};
  INPCOM = InpCom{};
  OCOM = OCom{};
  IOCOM = IoCom{};
  forget_signal();
  int status = EXIT_GOOD;
  try {
    main_output().attach(screen_descriptor());
    auto source = on_host() ? host_input() : nullptr;
    auto named_source = open_input(RUNCOM.settings, source.get());
    const bool named = settings.have_commands || !RUNCOM.settings.input.empty();
    if (!on_host()) source = std::exchange(named_source, nullptr);
    if (source == nullptr || (on_host() && named && named_source == nullptr)) return EXIT_CALL;
    if (!settings.output.empty() && same_file(settings.input, settings.output)) {
      tell(settings.output + ": is the input of this run");
      return EXIT_CALL;
    }
    if (!open_output(RUNCOM.settings)) return EXIT_CALL;
    // A run talks when it has no named input and a person may sit at the keyboard.
    OSCOM.OTALK = !named && source->terminal();
    OSCOM.OECHO = !OSCOM.OTALK;
    if (!OSCOM.OTALK && !on_host()) RUNCOM.script = script_name(RUNCOM.settings);
    if (!settings.results.empty()) {
      if (same_file(settings.input, settings.results)) {
        tell(settings.results + ": is the input of this run");
        return EXIT_CALL;
      }
      if (const int error = open_results(settings.results); error != 0) {
        tell(settings.results + ": " + std::strerror(error));  // NOLINT(concurrency-mt-unsafe)
        return EXIT_CALL;
      }
    }
    IOCOM.O5 = named;
    open_command_input(std::move(source));
    if (named_source != nullptr) open_command_input(std::move(named_source));
    if (!keep_log(true)) {
      tell(settings.log + ": " + std::strerror(errno));  // NOLINT(concurrency-mt-unsafe)
      return EXIT_CALL;
    }
    std::string complaint;
    configure(complaint);
    status = command_loop(complaint);
  } catch (const std::bad_alloc&) {
    tell("no memory left");
    status = EXIT_NOROOM;
  } catch (const std::exception& e) {
    tell(std::string("internal error: ") + e.what());
    status = EXIT_INTERNAL;
  }
  drop_levels(workspace(), true);
  close_command_inputs();
  status = finish(status);
  if (const int error = close_results(status); error != 0) {
    tell(settings.results + ": " + std::strerror(error));  // NOLINT(concurrency-mt-unsafe)
    if (status == EXIT_GOOD || status == EXIT_FAILED) status = EXIT_NOROOM;
  }
  return status;
}

}  // namespace korvel
