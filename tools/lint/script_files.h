// What a file with a script is: its commands, words and names.

#ifndef LINT_SCRIPT_FILES_H
#define LINT_SCRIPT_FILES_H

#include "device.h"

// Reads the text as a script of that name.
void fill_script(const source_file &file, const std::string &name,
                 script *into);
// Enters the words of its code alone.
void collect_words(script *into);
// Whether the file is a text for bash.  What it begins with counts for more
// than its name.
bool is_script(const std::string &path, const std::string &name);

#endif
