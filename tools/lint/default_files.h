// Files of defaults/ that nothing loads, and which were mostly meant.

#ifndef LINT_DEFAULT_FILES_H
#define LINT_DEFAULT_FILES_H

#include "device.h"

// Reports a file that no script loads, but nearly.
void check_unused_file(const device &dev, const source_file &file,
                       const std::string &name, findings *found);

#endif
