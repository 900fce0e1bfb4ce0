// A transaction of one save, as in a program that stores many forms.
// `take_part STORE` begins it, passes its standard input to `STORE store`, and
// commits if that succeeded.

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include "commit.h"
#include "fault.h"
#include "folder.h"
#include "orv_error.h"

static bool save(char *program, const char *token)
{
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    setenv("ORV_TRANSACTION", token, 1);
    execl(program, program, "store", "-", "form", nullptr);
    _exit(EXIT_FAILURE);
  }
  int status = -1;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

int main(int, char **argv)
{
  store_stage stage;
  orv_fatal_no_exit = 1;
  char token[STORE_TOKEN_SIZE];
  bool done = store_open(false) && store_lock("a test", 0) && store_finish() &&
              transaction_begin(&stage, token);
  if (done && save(argv[1], token)) {
    done = transaction_commit(&stage);
  } else if (done) {
    transaction_drop(&stage);
    done = store_fault("The save failed");
  }
  if (!done) {
    printf("fault %s\n", store_fault_text());
  }
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
