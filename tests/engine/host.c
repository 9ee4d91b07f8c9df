/* A host in C drives the shared library through its one entry. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "korvel.h"

static int failures = 0;

static void expect(int good, const char* what) {
  if (!good) {
    printf("failed: %s\n", what);
    ++failures;
  }
}

static int32_t call(int32_t code, const char* text, int32_t* result) {
  KORVELX(&code, result, text);
  return code;
}

int main(int argc, char** argv) {
  int32_t result = 0;
  char script[] = "/tmp/korvel_host_XXXXXX";
  char text[128];
  FILE* listing;
  char line[256];
  int found = 0;
  int fd = mkstemp(script);
  (void)argc;
  (void)argv;
  expect(call(-1, "", &result) == -1 && result == 9557, "probe");
  result = 5;
  expect(call(999, "", &result) == -7 && result == 5, "unknown code above 306");
  expect(write(fd, "DIMENSION A 3\nNAMES\nFOO\n", 24) == 24, "script");
  close(fd);
  snprintf(text, sizeof text, "-q %s %s.out", script, script);
  /* Two runs in one process: each begins with an empty workspace. */
  expect(call(167, text, &result) == 16 && result == 1, "console run");
  expect(call(166, text, &result) == 16 && result == 1, "second run");
  snprintf(line, sizeof line, "%s.out", script);
  listing = fopen(line, "r");
  expect(listing != NULL, "listing");
  while (listing != NULL && fgets(line, sizeof line, listing) != NULL) {
    if (strcmp(line, " A          DATA                   3       1\n") == 0) ++found;
  }
  expect(found == 1, "one variable in the listing");
  if (listing != NULL) fclose(listing);
  snprintf(line, sizeof line, "%s.out", script);
  unlink(line);
  unlink(script);
  printf("%d failures\n", failures);
  return failures == 0 ? 0 : 1;
}
