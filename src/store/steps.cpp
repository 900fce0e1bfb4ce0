// The steps to carry out when a guarded change goes back, and their order.
//
// A turn is a lock of one byte, at the step's offset, in a file that always
// exists and that nothing else locks: it ends with its process, however that
// ends.  Owns the descriptor of that file, for the life of the process.

#include "steps.h"

#include <fcntl.h>
#include <inttypes.h>
#include <string.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include "folder.h"

static const char LINE[] = "step=";
static const char NO_STEP[] = "-";
static const char ACT[] = "act ";
// A command may run as long as an action may; then the next one starts.
constexpr int TURN_SECONDS = 60;
constexpr long LOOK_NANOSECONDS = 50'000'000;
constexpr int LOOKS_A_SECOND = 20;
constexpr uint64_t PLACES = INT64_MAX / 2; // of a file, with no end beyond it

static int turns = -1;
static uint64_t own_place = UINT64_MAX; // of this process's turn; that: none

// --- lines -------------------------------------------------------------------

// FNV-1a: it distinguishes commands, and keeps their text out of a file that
// users can see.
static uint64_t add_text(uint64_t sum, const char *text)
{
  for (; *text != '\0'; text++) {
    sum = (sum ^ static_cast<unsigned char>(*text)) * 0x100000001b3U;
  }
  return sum;
}

void step_make_key(const char *form, const char *subitem, const char *command,
                   const char *act, char (&key)[STEP_KEY_SIZE])
{
  if (act != nullptr) {
    snprintf(key, sizeof key, "%s%s", ACT, act);
  } else if (command[0] == '\0') {
    snprintf(key, sizeof key, "%s", NO_STEP);
  } else {
    uint64_t sum = add_text(0xcbf29ce484222325U, form);
    sum = add_text(add_text(sum, "/"), subitem != nullptr ? subitem : "");
    snprintf(key, sizeof key, "%016" PRIx64, add_text(sum, command));
  }
}

const char *step_act(const guard_step *step)
{
  return strncmp(step->key, ACT, strlen(ACT)) == 0 ? step->key + strlen(ACT)
                                                   : nullptr;
}

// The widths are the sizes of the fields, each less its NUL byte; a line that
// does not fit is none of ours.
bool step_next(const char **info, guard_step *step)
{
  while (**info != '\0') {
    char word[8];
    const char *line = *info;
    const char *end = strchr(line, '\n');
    *info = end != nullptr ? end + 1 : line + strlen(line);
    if (strncmp(line, LINE, strlen(LINE)) == 0 &&
        sscanf(line + strlen(LINE), "%32s %20" SCNu64 " %7s %47[^\n]",
               step->token, &step->place, word, step->key) == 4) {
      step->used = strcmp(word, "used") == 0;
      return true;
    }
  }
  return false;
}

bool step_find(const char *info, const char *token, guard_step *step)
{
  while (step_next(&info, step)) {
    if (strcmp(step->token, token) == 0) {
      return true;
    }
  }
  return false;
}

static void write_step(FILE *out, const guard_step *step)
{
  fprintf(out, "%s%s %" PRIu64 " %s %s\n", LINE, step->token, step->place,
          step->used ? "used" : "wait", step->key);
}

// Its own step comes last, behind all that remain.
bool steps_write(FILE *out, const char *older, const guard_step *own)
{
  guard_step mine = *own;
  guard_step step;
  bool used = own->used;
  while (older != nullptr && step_next(&older, &step)) {
    if (step.place >= mine.place) {
      mine.place = step.place + 1;
    }
    if (strcmp(step.key, NO_STEP) != 0 && strcmp(step.key, own->key) != 0) {
      used = used && step.used;
      write_step(out, &step);
    }
  }
  write_step(out, &mine);
  return used;
}

bool steps_write_used(FILE *out, const char *info, const char *token)
{
  guard_step step;
  bool used = true;
  while (step_next(&info, &step)) {
    step.used = step.used || strcmp(step.token, token) == 0;
    used = used && step.used;
    write_step(out, &step);
  }
  return used;
}

// --- turns -------------------------------------------------------------------

// Locks of open file descriptions (F_OFD_SETLK), since POSIX's own are lost as
// soon as the process closes any descriptor of the file, as each commit does.
static bool open_turns()
{
  if (turns < 0) {
    turns = openat(store.fd, GENERATION_FILE,
                   O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  }
  return turns >= 0;
}

static struct flock range(uint64_t start, uint64_t length)
{
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(start & PLACES);
  lock.l_len = static_cast<off_t>(length & PLACES);
  return lock;
}

void turn_take(const guard_step *step)
{
  struct flock lock = range(step->place, 1);
  own_place = step->place;
  if (open_turns()) {
    fcntl(turns, F_OFD_SETLK, &lock);
  }
}

static bool is_taken(uint64_t start, uint64_t length)
{
  struct flock lock = range(start, length);
  // A range of length 0 would reach to the end of the file.
  return lock.l_len > 0 && open_turns() &&
         fcntl(turns, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// The kernel does not report a lock to the open file that holds it.
bool turn_is_taken(const guard_step *step)
{
  return step->place == own_place || is_taken(step->place, 1);
}

void turn_await(const guard_step *step)
{
  for (int looks = TURN_SECONDS * LOOKS_A_SECOND;
       looks > 0 && is_taken(0, step->place); looks--) {
    const struct timespec look = {0, LOOK_NANOSECONDS};
    nanosleep(&look, nullptr);
  }
}
