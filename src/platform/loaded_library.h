// Routines of libraries that are loaded when they are first needed, so that they cost other runs
// nothing and the program starts without them.
#pragma once

#include <dlfcn.h>

namespace korvel {

// The routine `name` of the library that dlopen gave; false when it has none.
template <class F>
bool look_up(void* library, const char* name, F& routine) {
  routine = reinterpret_cast<F>(dlsym(library, name));
  return routine != nullptr;
}

}  // namespace korvel
