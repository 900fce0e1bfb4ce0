// A conversation with one script.
//
// Starting a program costs a script more than most of the program's work.  So a
// script that saves starts a single process, which holds the lock and serves
// it: it ends with the script, and ending it unlocks.
//
// Owns nothing: the page's values belong to the intake, an order to the save.

#include "serve.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "intake.h"
#include "orv.h"
#include "orv_guard.h"
#include "save.h"
#include "store_text.h"

// --- answers -----------------------------------------------------------------

// Writes an answer, which is taken, after its length; NULL stands for the
// present fault.  False when nobody reads it.  With its length a script reads
// an answer by one built-in, whatever it contains.
static bool say(char *text)
{
  const owned_text owned(text);
  char fault[300] = "";
  if (text == nullptr) {
    const char *what = store_fault_text();
    snprintf(fault, sizeof fault, "fault %.250s\n",
             what != nullptr ? what : "");
    store_forget_fault();
    text = fault;
  }
  printf("%zu\n%s", strlen(text), text);
  return fflush(stdout) == 0 && ferror(stdout) == 0;
}

// The output of `write`; owned by the caller, NULL with a fault.
static char *make_answer(bool (*write)(FILE *out, char *words), char *words)
{
  store_text answer;
  FILE *out = store_open_text(&answer);
  if (out == nullptr) {
    return nullptr;
  }
  const bool done = write(out, words);
  if (store_close_text(out, &answer) && done) {
    return answer.bytes;
  }
  free(answer.bytes);
  return nullptr;
}

// --- requests ----------------------------------------------------------------

static bool write_values(FILE *out, char *names)
{
  fputs("ok\n", out);
  return intake_write_wanted(out, names);
}

static bool write_saved(FILE *out, char *)
{
  save_answer(out);
  return true;
}

// Reads an order of that many bytes; owned by the caller, NULL with a fault.
static char *read_order(FILE *requests, const char *word)
{
  const size_t length = strtoul(word, nullptr, 10);
  if (length == 0 || length > SAVE_ORDER_MAX) {
    store_fault("Nothing was saved: the script's order is too long");
    return nullptr;
  }
  owned_text order(static_cast<char *>(must_malloc(length + 1)));
  if (order == nullptr) {
    store_fault("Out of memory");
    return nullptr;
  }
  if (fread(order.get(), 1, length, requests) < length) {
    store_fault("Nothing was saved: the script's order cannot be read");
    return nullptr;
  }
  order.get()[length] = '\0';
  return order.release();
}

static bool store_one(FILE *requests, const char *word, const char *form,
                      const char *subitem)
{
  char *order = read_order(requests, word);
  const bool saved = order != nullptr && save_order(order, form, subitem);
  const bool said = say(saved ? make_answer(write_saved, nullptr) : nullptr);
  save_forget();
  return said;
}

static bool write_ok(FILE *out, char *)
{
  return fputs("ok\n", out) >= 0;
}

static bool answer_lock(const char *form)
{
  const bool locked = store_lock_for(form);
  return say(locked ? make_answer(write_ok, nullptr) : nullptr);
}

static bool answer_unlock()
{
  store_unlock();
  return say(make_answer(write_ok, nullptr));
}

// Handles one request; false when there are no more.
static bool answer_next(FILE *requests, const char *form, const char *subitem)
{
  char *line = nullptr;
  size_t size = 0;
  const ssize_t length = getline(&line, &size, requests);
  const owned_text owned(line);
  if (length <= 0) {
    return false;
  }
  line[length - 1] = '\0';
  if (strncmp(line, "read ", strlen("read ")) == 0) {
    return say(make_answer(write_values, line + strlen("read ")));
  }
  if (strcmp(line, "lock") == 0) {
    return answer_lock(form);
  }
  if (strcmp(line, "unlock") == 0) {
    return answer_unlock();
  }
  return strncmp(line, "store ", strlen("store ")) == 0 &&
         store_one(requests, line + strlen("store "), form, subitem);
}

// Continues in a new process and prints where it takes requests.  The process
// is not a child of the script, or a `wait` there would wait for it.  False
// with a fault.  The script opens the pipe through /proc, so no file of ours
// has to be made and removed.  This process has its writing end, too: the pipe
// never ends, and only the script's end does.
static bool go_on(int *requests)
{
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return store_fault_errno("The settings cannot be locked");
  }
  const pid_t server = fork();
  if (server < 0) {
    return store_fault_errno("The settings cannot be locked");
  }
  if (server > 0) {
    _exit(EXIT_SUCCESS);
  }
  // A signal to the script's process group must not unlock.
  setpgid(0, 0);
  *requests = ends[0];
  char text[80];
  snprintf(text, sizeof text, "ok\n%d %d %d\n", static_cast<int>(getpid()),
           ends[1], stage_folder() == nullptr ? 1 : 0);
  return say(must_strdup(text));
}

// Watching the descriptor beside the stream is safe: a script sends its next
// request only after an answer, so none waits in the buffer.
bool serve(pid_t script, const char *form, const char *subitem)
{
  store_find(); // for the form; the folder is opened after the input is read
  int fd = -1;
  bool ready = intake_read(form) && intake_is_clear() && store_open(true);
  if (ready) {
    stage_join();
    ready = store_lock_for(form) && go_on(&fd);
  }
  if (!ready) {
    say(nullptr);
    return false;
  }
  const owned_stream requests(fdopen(fd, "re"));
  while (requests != nullptr && store_await(script, fd) &&
         answer_next(requests.get(), form, subitem)) {
  }
  _exit(EXIT_SUCCESS);
}
