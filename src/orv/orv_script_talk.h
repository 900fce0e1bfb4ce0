// Exchanging text with the script that runs, one at a time.  For the script
// runner alone.

#ifndef ORV_SCRIPT_TALK_H
#define ORV_SCRIPT_TALK_H

#include <stddef.h>
#include <stdio.h>
#include <sys/types.h>

// The script has printed more than ORV_SCRIPT_OUTPUT_MAX; reset by the caller.
extern bool talk_output_cut;

// Opens a stream of the script's output, owned by the caller (fclose); NULL
// when memory ran out.  Nothing can be read before talk_start.
FILE *talk_open(void);

// Puts as much of the input into the pipe as it holds, before there is a
// script;
// `*done` counts the bytes.  False when the pipe cannot be written to.
bool talk_fill_pipe(int fd, const char *input, size_t length, size_t *done);

// The script `pid` has started; `fd`, which is taken, is its output.
void talk_start(pid_t pid, int fd);

// What has become of the input.
enum talk_input {
  TALK_TAKEN,
  TALK_LEFT,  // the script has closed its input before the end
  TALK_STUCK, // it could not be written; the script may still wait for it
};

// Writes the rest of the input, from the byte `done` on, while reading what the
// script prints meanwhile.  A script that has closed its input took what it
// wanted.
talk_input talk_write_rest(int fd, const char *input, size_t length,
                           size_t done);

// Whether the script has ended.
bool talk_has_ended(void);

#endif
