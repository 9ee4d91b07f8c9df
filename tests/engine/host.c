/* A host in C drives the shared library through its one entry: console runs, and runs over the text
 * protocol whose messages are compared one by one. */
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "korvel.h"

static int failures = 0;
static FILE* report; /* where failures go: standard output itself is watched */

static void expect(int good, const char* what) {
  if (!good) {
    fprintf(report, "failed: %s\n", what);
    ++failures;
  }
}

static int32_t call(int32_t code, const void* text, int32_t* result) {
  KORVELX(&code, result, (const char*)text);
  return code;
}

/* ---- The host: answers from a list, everything else is written down, "number text" a line. */

static KORVELHOST host;
static const char* const* answers; /* up to a null: then there are no more lines */
static char heard[1 << 16];
static size_t heard_length;
static int signals_changed;

static void check_signals(void) {
  const int numbers[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
  size_t i;
  for (i = 0; i < sizeof numbers / sizeof numbers[0]; ++i) {
    struct sigaction now;
    sigaction(numbers[i], NULL, &now);
    if (now.sa_handler != SIG_DFL) signals_changed = 1;
  }
}

static void* stop_soon(void* unused) {
  (void)unused;
  usleep(200000);
  __atomic_store_n(&host.stop, KORVEL_STOP_COMMAND, __ATOMIC_RELAXED);
  return NULL;
}

/* Answers that begin with "!" make the host do something first; the rest is the answer. */
static const char* act(const char* answer) {
  pthread_t thread;
  if (answer[0] != '!') return answer;
  if (answer[1] == 's' && pthread_create(&thread, NULL, stop_soon, NULL) == 0)
    pthread_detach(thread);
  if (answer[1] == '1') host.stop = KORVEL_STOP_COMMAND;
  if (answer[1] == '2') host.stop = KORVEL_STOP_RUN;
  if (answer[1] == 'c') {
    int32_t result = 5;
    expect(call(307, "", &result) == -7 && result == 2, "a run within a run is refused");
    expect(call(-2, NULL, &result) == -2 && result == 0, "no registration within a run");
    expect(call(-1, NULL, &result) == -1 && result == 9557, "probe within a run");
  }
  return answer + 2;
}

static int32_t SendMsg(void* window, int32_t number, int32_t length, char* text) {
  expect(window == &host, "window");
  expect(text[length] == '\0', "NUL behind the text");
  check_signals();
  if (number == 1224) {
    const char* answer = *answers;
    if (answer == NULL) return -1;
    ++answers;
    answer = act(answer);
    expect(length == KORVEL_LINE_ROOM, "room for a line");
    memcpy(text, answer, strlen(answer));
    return (int32_t)strlen(answer);
  }
  if (heard_length + KORVEL_QUERY_ROOM > sizeof heard) return 0;
  heard_length += (size_t)snprintf(heard + heard_length, sizeof heard - heard_length, "%d %.*s\n",
                                   number, length, text);
  if (number == 1374) {
    memcpy(text, "Multiple", 8);
    return 8;
  }
  return 0;
}

static int32_t run_host(int32_t code, const char* text, const char* const* lines) {
  int32_t result = -1;
  answers = lines;
  heard_length = 0;
  heard[0] = '\0';
  expect(call(code, text, &result) == code / 10, "code of the host's kind");
  return result;
}

static void compare(const char* what, const char* expected) {
  if (strcmp(heard, expected) == 0) return;
  fprintf(report, "failed: %s\n--- expected\n%s--- heard\n%s", what, expected, heard);
  ++failures;
}

/* The part of what was heard from the first message that begins so. */
static void from(const char* start) {
  const char* at = strstr(heard, start);
  expect(at != NULL, start);
  if (at != NULL) memmove(heard, at, strlen(at) + 1);
}

#define LINES(...) \
  (const char* const[]) { __VA_ARGS__, NULL }
#define CLOSED "1124  ...NOTE..STOPPED\n1124  ...COMPLETED\n1384 RESET\n1384 FLUSH_BUFFER\n"
#define SIZES "1384 SET_VERSION=11.0\n1384 SET_PAR=384000\n1384 SET_SIZE=200\n"
#define START "1384 RESET\n" SIZES
#define TEXT "-q PAR=3000 SIZE=200"

/* ---- */

static void register_host(void) {
  int32_t result = 0;
  expect(call(307, "", &result) == -7 && result == 2, "no run without a host");
  host.version = 99;
  host.size = sizeof host;
  host.window = &host;
  host.SendMsg = SendMsg;
  expect(call(-2, &host, &result) == -2 && result == -1, "unknown version");
  host.version = KORVEL_HOST_VERSION;
  host.size = 8;
  expect(call(-2, &host, &result) == -2 && result == -1, "short record");
  host.size = sizeof host;
  expect(call(-2, &host, &result) == -2 && result == 9557, "registration");
}

static void protocol(const char* folder) {
  char written[128], told[2048];
  /* Greeting, sizes and the question of the second kind. */
  expect(run_host(337, "", LINES("stop stop")) == 0, "status");
  expect(strstr(heard, "1124  Hello/Bonjour/") != NULL, "greeting");
  from("1384 SET_VERSION");
  compare("start and end",
          "1384 SET_VERSION=11.0\n1384 SET_PAR=2621440\n1384 SET_SIZE=1000\n"
          "1124  ...NOTE..STOPPED\n1124  ...COMPLETED\n1374 GET_WINSTATE=\n1384 RESET\n"
          "1384 FLUSH_BUFFER\n");
  /* Lines: the backslash rule, an empty one, several in one answer, an error. */
  expect(run_host(307, TEXT, LINES("!c/a\\/b\\/\\", "", "/x\n/y", "FOO")) == 1, "status");
  compare("lines", START
          "1124 /a\\\\/b\\\\/\\\n1124 /x\n1124 /y\n1124  ...ERROR..UNKNOWN COMMAND...FOO\n" CLOSED);
  /* Sizes; each empties the workspace. STOP in its forms. */
  expect(run_host(307, TEXT,
                  LINES("SIZE 300", "PAR 4000", "PAR", "STOP HOLD", "STOP", "EXIT", "STOP NOW",
                        "QUIT STOP", "/never")) == 1,
         "status");
  compare("sizes", START
          "1384 SET_SIZE=300\n1384 RESET\n1384 SET_PAR=512000\n"
          "1124  PAR IS NOW SET AT        4000\n1384 RESET\n"
          "1124  ...NOTE..PAR IS 4000 MAXIMUM VARIABLES IS     300\n1384 HOLD\n"
          "1384 RESET\n1384 RESET\n1124  ...ERROR..SYNTAX ERROR\n" CLOSED);
  /* Breaks, flushes, the data prompt and its end word, a file that was written. */
  snprintf(written, sizeof written, "WRITE(%s/host.txt) X", folder);
  snprintf(
      told, sizeof told,
      START
      "1124  TYPE IN YOUR DATA FOR X\n"
      "1124    1  VARIABLES--ENTER $END ON NEW LINE WHEN DONE\n"
      "1384 FILE_WRITE=%s/host.txt\n1384 FLUSH_BUFFER\n1384 MSG_INFO=BREAKPOINT\n1474 \n1478 \n"
      "1124 /z\n1174 %131s\n1124 /z\n" CLOSED,
      folder, "");
  expect(run_host(307, TEXT,
                  LINES("?READ X / BYVAR", "1 2", "$END", written, "PAUSE", "SET FLUSH", "/z",
                        "SET NOFLUSH", "/z")) == 0,
         "status");
  compare("data and breaks", told);
  run_host(307, TEXT, LINES("SET DUMP", "^?DIMENSION A 1", "STOP STOP"));
  expect(strstr(heard,
                "1384 MSG_INFO=BREAKPOINT\n1124  BREAKPOINTREACHED:\n1474 \n"
                "1124  BREAKCONTINUE:\n1478 \n") != NULL,
         "break in a dump run");
  expect(strstr(heard, " STOP BUTTON:STOP STOP:END BUTTON") != NULL, "answers in a dump run");
}

static void stops(void) {
  /* A long loop is stopped from another thread; data and session stay. A stop that comes while
   * nothing runs is forgotten. */
  expect(run_host(307, TEXT,
                  LINES("!1DIMENSION A 3", "!sDO #=1,100000000", "GEN1 Y=#", "ENDO", "NAMES")) == 0,
         "status");
  expect(strstr(heard, "1124  ...NOTE..COMMAND STOPPED\n") != NULL, "loop stopped");
  expect(strstr(heard, "1124  A          DATA                   3       1\n") != NULL, "data kept");
  expect(host.stop == KORVEL_GO, "stop word set back");
  /* The stop button while READ waits for data: the workspace is emptied, the run goes on. */
  expect(run_host(307, TEXT, LINES("DIMENSION A 3", "?READ B", "1", "STOP RESET", "NAMES")) == 0,
         "status");
  from("1384 SET_SIZE");
  compare("stop button",
          "1384 SET_SIZE=200\n1124  TYPE IN YOUR DATA FOR B\n"
          "1124    1  VARIABLES--ENTER $END ON NEW LINE WHEN DONE\n1384 RESET\n"
          "1124  VARIABLE    TYPE            LENGTH  COLUMNS\n" CLOSED);
  /* A stop while READ waits gives up the READ alone. */
  run_host(307, TEXT, LINES("DIMENSION A 3", "?READ B", "!11", "NAMES"));
  expect(strstr(heard, "COMMAND STOPPED\n1124  VARIABLE") != NULL, "READ given up");
  expect(strstr(heard, "1124  A          DATA                   3       1\n") != NULL, "data kept");
  /* The end of the run. */
  expect(run_host(307, TEXT, LINES("!2/x", "/y")) == 143, "run stopped");
  compare("run stopped", START "1384 RESET\n1384 FLUSH_BUFFER\n");
}

/* A file as input is a batch run; behind its end the host's lines are taken. */
static void named_input(const char* folder) {
  char name[64], text[128];
  FILE* file;
  snprintf(name, sizeof name, "%s/in put.kor", folder);
  file = fopen(name, "w");
  expect(file != NULL && fputs("/file\nSET NOSUCH\n/not run\nDIMENSION A 1\n", file) >= 0,
         "script");
  if (file != NULL) fclose(file);
  snprintf(text, sizeof text, "-q PAR=3000 SIZE=200 \"%s\"", name);
  expect(run_host(307, text, LINES("DIMENSION B 1", "?$echo said; echo also >&2", "NAMES")) == 1,
         "status");
  from("1124 /file");
  expect(strstr(heard, "1124 said\n1124 also\n") != NULL, "a child speaks to the host");
  expect(strstr(heard, "1124  B ") != NULL && strstr(heard, "1124  A ") == NULL,
         "scan mode to the end of the file and no further");
  /* A file that is missing is asked for. */
  expect(run_host(307, "-q PAR=3000 SIZE=200 nosuch.kor", LINES("")) == 2, "missing input");
  compare("missing input",
          "1124 nosuch.kor IS NOT FOUND, ENTER NEW INPUTFILE..\n"
          "1124  ...ERROR..nosuch.kor: No such file or directory\n");
}

static void console_runs(const char* folder) {
  char text[128], line[256], name[300];
  int32_t result = 0;
  int found = 0, ends[2], out = dup(1);
  FILE* file;
  expect(call(-1, "", &result) == -1 && result == 9557, "probe");
  result = 5;
  expect(call(999, "", &result) == -7 && result == 5, "unknown code above 306");
  snprintf(name, sizeof name, "%s/a.kor", folder);
  file = fopen(name, "w");
  expect(file != NULL && fputs("DIMENSION A 3\nNAMES\nFILE CD /\nFOO\nMENU\n", file) >= 0,
         "script");
  if (file != NULL) fclose(file);
  snprintf(text, sizeof text, "-q %s/a.kor %s/a.out", folder, folder);
  /* Two runs in one process: each begins with an empty workspace, and the folder comes back. */
  expect(call(167, text, &result) == 16 && result == 1, "console run");
  expect(call(166, text, &result) == 16 && result == 1, "second run");
  expect(getcwd(line, sizeof line) != NULL && strcmp(line, folder) == 0, "working folder");
  snprintf(name, sizeof name, "%s/a.out", folder);
  file = fopen(name, "r");
  expect(file != NULL, "listing");
  while (file != NULL && fgets(line, sizeof line, file) != NULL) {
    if (strcmp(line, " A          DATA                   3       1\n") == 0) ++found;
  }
  expect(found == 1, "one variable in the listing");
  if (file != NULL) fclose(file);
  /* A closed pipe as standard output ends the run and not this process. */
  expect(pipe(ends) == 0, "pipe");
  close(ends[0]);
  dup2(ends[1], 1);
  close(ends[1]);
  snprintf(text, sizeof text, "-q %s/a.kor", folder);
  expect(call(167, text, &result) == 16 && result == 141, "closed pipe");
  /* The log of a talk run's screen. */
  dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), 1);
  expect(call(29, text, &result) == 16 && result == 1, "run with a log");
  dup2(out, 1);
  close(out);
  file = fopen("KORVEL.LOG", "r");
  found = 0;
  while (file != NULL && fgets(line, sizeof line, file) != NULL) {
    if (strcmp(line, " A          DATA                   3       1\n") == 0) ++found;
  }
  expect(found == 1, "log");
  if (file != NULL) fclose(file);
}

int main(void) {
  char folder[] = "/tmp/korvel_host_XXXXXX";
  char command[64];
  int32_t result = 0;
  int watched, kept_out = dup(1), kept_error = dup(2);
  struct stat st;
  report = fdopen(dup(1), "w");
  expect(mkdtemp(folder) != NULL && chdir(folder) == 0, "folder");
  register_host();
  /* Nothing of a host run may reach the standard streams. */
  watched = open("streams", O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  dup2(watched, 1);
  dup2(watched, 2);
  protocol(folder);
  stops();
  named_input(folder);
  expect(fstat(watched, &st) == 0 && st.st_size == 0, "standard output and error left alone");
  expect(!signals_changed, "signal handlers left alone");
  console_runs(folder);
  dup2(kept_out, 1);
  dup2(kept_error, 2);
  expect(call(-2, NULL, &result) == -2 && result == 9557, "taken back");
  snprintf(command, sizeof command, "rm -r %s", folder);
  expect(system(command) == 0, "clean");
  close(watched);
  close(kept_out);
  close(kept_error);
  fprintf(report, "%d failures\n", failures);
  fclose(report);
  return failures == 0 ? 0 : 1;
}
