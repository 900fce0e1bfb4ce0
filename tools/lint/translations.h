// The same device in another language.

#ifndef LINT_TRANSLATIONS_H
#define LINT_TRANSLATIONS_H

#include "device.h"

// Reports what the forms of `dev` lack that those of `other` have; nothing when
// the two are not the same device.  What is only different is reported once, in
// the tree that was named later: `first` is whether that is `other`.
void check_translation(const device &dev, const device &other, bool first,
                       findings *found);

#endif
