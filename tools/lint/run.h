// --run: the scripts that run, and what they say.

#ifndef LINT_RUN_H
#define LINT_RUN_H

#include <map>

#include "device.h"

struct outcome {
  std::string output;
  std::string errors;
  int status = 0;        // as a shell has it
  bool held = false;     // something else keeps the output open
  bool stopped = false;  // it took too long
  bool too_long = false; // its output was cut
  long ms = 0;
};

struct device_run {
  const device &dev;
  findings *found;
  std::string dir;                             // of the copy
  std::map<std::string, std::string> subitems; // by form, the first one known
};

// The values of a page by name, in small letters.
typedef std::map<std::string, std::string> named_values;

// Runs the line in the folder and takes in what it says.
outcome run(const std::string &line, const std::string &dir);
// The script line as the executable runs it, "" when a value in it cannot be
// quoted; a rule of its own reports that.
std::string command_of(const script_line &line, const form &f,
                       const std::string &subitem, const std::string &dir);
// Where findings about a script go, NULL when it is none of the folder's.
const source_file *script_file(const device_run &r, const script_line &line);
std::vector<note> in_form(const form &f, const script_line &line);
// The values that the script has reported.
named_values read_values(const device_run &r, const form &f,
                         const script_line &line, const std::string &output);
// Compares what a read script has reported with what its form draws.
void check_values(const device_run &r, const form &f, const named_values &all);

#endif
