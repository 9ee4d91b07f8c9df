// Large memory that costs nothing until it is touched.
#pragma once

#include <cstddef>

namespace korvel {

// Reserves n bytes of zeroed memory, null when the machine can't give them.
void* reserve_memory(std::size_t n);
void release_memory(void* p, std::size_t n);
// Bytes that a reservation may have at the most on this machine now.
std::size_t available_memory();

}  // namespace korvel
