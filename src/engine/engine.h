// The engine frame and the command language: read this first.
//
//   run          the run from start to end, RESET, exit status          (run.h)
//   console      the command tail of the console program: KORVELD       (console.h)
//   korvelx      the exported entry KORVELX                              (include/korvel.h)
//   input        INPUT: physical lines to the next command               (input.h)
//   text_commands  TITLE, FORMAT and the other commands that keep text   (text_commands.h)
//   aaa          AAA: the command table, the command loop, MENU          (commands.h)
//   scanit       SCANIT: a command's text into list and option tokens    (options.h)
//   option       OPTION: tokens against a handler's table, FSUMS         (options.h)
//   workspace    DATA, VARNUM, INFO, NEWVAR, NOCORE, Scratch             (workspace.h)
//   variables    DELETE, RENAME, DIMENSION, COMPRESS, NAMES, DUMP        (workspace.h)
//   set          SETDIS: SET and DISPLAY                                  (set.h)
//   output       LINEBUF, OUTLINE, Line, say, warn, fail, XXIT           (output.h)
//   units        AFILE, AFILO: units, places in files, private files     (units.h)
//   file_command FILEX: FILE, INQUIRE, REWIND                             (file_command.h)
//   syscmd       SYSCMD: system lines                                     (syscmd.h)
//   redirect     SET OUTUNIT, FILE OUTPUT, SCREEN, KEYBOARD               (redirect.h)
//   files        names of files to be read, the open output              (files.h)
//
// The room owns all areas of shared_areas.h that no other room names as its own, the token and list
// areas SCNCOM and TOKCOM, the option area OPTCOM, the line block OUTBUF and the run record RUNCOM.
#pragma once

#include "engine/commands.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/run.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"
