// Guards: what a function has built so far, released on every way out unless
// it is handed on with release().

#ifndef ORV_GUARD_H
#define ORV_GUARD_H

#include <memory>
#include <stdio.h>
#include <stdlib.h>

template <auto Release> struct orv_releaser {
  template <typename T> void operator()(T *owned) const
  {
    Release(owned);
  }
};

using owned_text = std::unique_ptr<char, orv_releaser<free>>;
using owned_stream = std::unique_ptr<FILE, orv_releaser<fclose>>;

#endif
