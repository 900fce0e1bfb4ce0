// Shared by the store's entries: a settings folder and a defaults folder, in
// memory, and a check that faults are one line.

#ifndef FUZZ_STORE_H
#define FUZZ_STORE_H

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "fault.h"
#include "folder.h"
#include "fuzz.h"
#include "settings.h"

static const char FUZZ_FILE[] = "file"; // of the settings, and of the defaults

inline void fuzz_write(const std::string &path, std::string_view content)
{
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  assert(fd >= 0 &&
         write(fd, content.data(), content.size()) == ssize_t(content.size()));
  close(fd);
}

// The folder, made once per process and removed with it.
inline const std::string &fuzz_folder()
{
  static struct folder {
    std::string path = "/dev/shm/orv_fuzz_XXXXXX";
    folder()
    {
      assert(mkdtemp(path.data()) != nullptr);
      for (const char *name : {"/state", "/defaults"}) {
        assert(mkdir((path + name).c_str(), 0700) == 0);
      }
      fuzz_environment("ORV_STATE", path + "/state");
      fuzz_environment("ORV_DEFAULTS", path + "/defaults");
      fuzz_environment("ORV_TEMPLATES", path);
      assert(store_open(false));
    }
    ~folder()
    {
      assert(system(("rm -r " + path).c_str()) == 0);
    }
  } folder;
  return folder.path;
}

// Whether the last call has left a fault, which is then cleared.
inline bool fuzz_fault()
{
  const char *text = store_fault_text();
  for (const char *c = text; c != nullptr && *c != '\0'; c++) {
    assert(static_cast<unsigned char>(*c) >= ' ' && *c != 0x7f);
  }
  store_forget_fault();
  return text != nullptr;
}

#endif
