// What the engine needs of the machine: read this first. Nothing here knows a command.
//
//   text_input    text by lines or in bulk: mapped files, pipes, terminals, strings
//   file_output   a file of bytes, replaced as a whole or lengthened
//   child         programs started without a shell
//   private_folder  files of the run that nobody else may see
//   fetch         files fetched over the network
//   gzip          compressed files (zlib)
//   line_editor   lines typed at a terminal (libedit)
//   progress      how far a long job is, at a terminal
//   text_output   a text file or stream being written
//   memory        large areas that cost nothing until they are touched
//   parallel      fork and join over a fixed number of sections
//   cpu           the vector width that the processor can run
//   signals       signals that ask a run to stop
#pragma once

#include "platform/child.h"
#include "platform/cpu.h"
#include "platform/fetch.h"
#include "platform/file_output.h"
#include "platform/memory.h"
#include "platform/parallel.h"
#include "platform/private_folder.h"
#include "platform/signals.h"
#include "platform/text_input.h"
#include "platform/text_output.h"
