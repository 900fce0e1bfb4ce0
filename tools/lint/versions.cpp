// Versions of the settings as shipped, and the programs that bring what is
// stored from one to the next.

#include <sys/stat.h>
#include <unistd.h>

#include "rules.h"
#include "text.h"

static const char MARK[] = "#version";

// A file that nobody may execute counts as none, as on the device.
static bool is_program(const std::string &path)
{
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

// The folder of a tree in another language shares the settings of the first.
// Its versions are reported there, once.
static bool is_link(const std::string &path)
{
  struct stat info;
  return lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

static bool is_number(const std::string &text)
{
  return !text.empty() &&
         text.find_first_not_of("0123456789") == std::string::npos;
}

// "" when nothing is wrong with the line with the version.
// Nothing is older than version 1, which settings without a number have. One
// program migrates the files of all sub-items: migrate/port that of port@lan1.
static std::string fault_of(const device &dev, const std::string &file,
                            const std::string &line, int number)
{
  const std::vector<std::string> words = split_words(line);
  const std::string program =
      dev.dir + "/migrate/" + file.substr(0, file.find('@'));
  if (number > 1) {
    return "the version must be in the first line";
  }
  if (words.size() != 2 || words[0] != MARK || !is_number(words[1])) {
    return "the version must be a number: " + in_quotes("#version 2");
  }
  return words[1] == "1" || is_program(program)
             ? ""
             : "settings of an older version are not used until the program " +
                   in_quotes("migrate/" + file.substr(0, file.find('@'))) +
                   " has migrated them, and there is no such program";
}

void check_versions(const device &dev, findings *found)
{
  if (is_link(dev.dir + "/defaults")) {
    return;
  }
  for (const auto &entry : dev.defaults) {
    int number = 0;
    for (const std::string &line : entry.second->lines) {
      number++;
      const std::string fault = starts_with(line, MARK)
                                    ? fault_of(dev, entry.first, line, number)
                                    : "";
      if (!fault.empty()) {
        report(found, *entry.second, number, 1, "default-version", fault);
        // One finding for each file: a second line of that kind is wrong
        // because of its place alone.
        break;
      }
    }
  }
}
