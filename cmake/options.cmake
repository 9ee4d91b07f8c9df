# Flags of every target: strict IEEE arithmetic, warnings as errors, hardening, sanitizers on demand.
option(KORVEL_SANITIZE "address and undefined-behaviour sanitizers" OFF)
add_library(korvel_flags INTERFACE)
target_include_directories(korvel_flags INTERFACE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/include)
target_compile_options(korvel_flags INTERFACE
  -ffp-contract=off -fno-fast-math
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Werror
  -fstack-protector-strong
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)  # GCC 12 sees overlaps in std::string that are not there
if(KORVEL_SANITIZE)
  target_compile_definitions(korvel_flags INTERFACE KORVEL_SANITIZED)
  target_compile_options(korvel_flags INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
                         -fno-omit-frame-pointer)
  target_link_options(korvel_flags INTERFACE -fsanitize=address,undefined)
  if(KORVEL_FUZZ)
    target_compile_options(korvel_flags INTERFACE -fsanitize=fuzzer-no-link)
  endif()
else()
  target_compile_options(korvel_flags INTERFACE $<$<CONFIG:Release>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
target_link_options(korvel_flags INTERFACE LINKER:-z,relro,-z,now)
find_package(Threads REQUIRED)
target_link_libraries(korvel_flags INTERFACE Threads::Threads)
