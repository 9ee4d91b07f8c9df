// Fork and join over a fixed number of sections.
//
// A bulk loop is cut into sections whose bounds depend on the data alone, never on the number of
// threads; sections write disjoint words and are combined in order, so results are the same for any
// number of threads.
#pragma once

#include <memory>
#include <type_traits>

namespace korvel {

// Threads that may work at once: KORVEL_THREADS, else the cores this process may use.
int workers();

// Calls body(context, s) for s = 0 .. sections-1; section s runs on worker s mod workers(). Returns
// when all have ended. The threads are made at the first call that needs them. Must not be nested.
void run_sections(int sections, void (*body)(void*, int), void* context);

template <class F>
void parallel_sections(int sections, F&& body) {
  using Body = std::remove_reference_t<F>;
  run_sections(
      sections, [](void* context, int s) { (*static_cast<Body*>(context))(s); },
      const_cast<void*>(static_cast<const void*>(std::addressof(body))));
}

}  // namespace korvel
