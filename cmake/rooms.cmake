# A room is a folder below src/ and one static library, korvel_<room>. Rooms call one another, so
# they are linked as a group. Files named *_lanes.cpp hold loops that are built once for each vector
# width (baseline, AVX2, AVX-512); every build gives the same bytes, the run picks one at start.
set(KORVEL_ROOMS "")
set(KORVEL_OBJECTS "")  # the objects of all rooms, for the one static library
function(korvel_room room)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${room}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "_lanes\\.cpp$|/korvelx\\.cpp$")
  file(GLOB_RECURSE lanes CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/${room}/*_lanes.cpp)
  if(NOT sources)
    return()
  endif()
  add_library(korvel_${room} STATIC ${sources})
  target_link_libraries(korvel_${room} PRIVATE korvel_flags)
  if(lanes)
    set(widths baseline)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
      list(APPEND widths avx2 avx512)
    endif()
    foreach(width ${widths})
      add_library(korvel_${room}_${width} OBJECT ${lanes})
      target_link_libraries(korvel_${room}_${width} PRIVATE korvel_flags)
      target_compile_definitions(korvel_${room}_${width} PRIVATE KORVEL_LANES=${width})
      if(NOT CMAKE_BUILD_TYPE STREQUAL Debug)
        target_compile_options(korvel_${room}_${width} PRIVATE -O3)
      endif()
      if(width STREQUAL avx2)
        target_compile_options(korvel_${room}_${width} PRIVATE -mavx2 -mfma)
      elseif(width STREQUAL avx512)
        target_compile_options(korvel_${room}_${width} PRIVATE -mfma -mavx512f -mavx512dq -mavx512vl -mprefer-vector-width=512)
      endif()
      target_sources(korvel_${room} PRIVATE $<TARGET_OBJECTS:korvel_${room}_${width}>)
      list(APPEND KORVEL_OBJECTS $<TARGET_OBJECTS:korvel_${room}_${width}>)
    endforeach()
  endif()
  set(KORVEL_ROOMS ${KORVEL_ROOMS} korvel_${room} PARENT_SCOPE)
  set(KORVEL_OBJECTS ${KORVEL_OBJECTS} $<TARGET_OBJECTS:korvel_${room}> PARENT_SCOPE)
endfunction()

# Every room may call every other one: a cycle of static libraries, which CMake repeats as needed.
function(korvel_link_rooms)
  foreach(room ${KORVEL_ROOMS})
    set(others ${KORVEL_ROOMS})
    list(REMOVE_ITEM others ${room})
    target_link_libraries(${room} INTERFACE ${others})
    set_target_properties(${room} PROPERTIES LINK_INTERFACE_MULTIPLICITY 4)
  endforeach()
endfunction()

# Compressed data files, where the machine has the library for them.
function(korvel_find_zlib)
  find_package(ZLIB QUIET)
  if(NOT ZLIB_FOUND)
    message(STATUS "zlib (package zlib1g-dev) not found: READ will not unpack .gz files")
    return()
  endif()
  set_source_files_properties(${CMAKE_SOURCE_DIR}/src/platform/gzip.cpp PROPERTIES
                              COMPILE_DEFINITIONS KORVEL_ZLIB)
  target_link_libraries(korvel_platform PUBLIC ZLIB::ZLIB)
endfunction()

# Files by address: only the headers of libcurl count, the library is loaded when it is needed.
function(korvel_find_curl)
  target_link_libraries(korvel_platform PUBLIC ${CMAKE_DL_LIBS})
  find_package(CURL QUIET)
  if(NOT CURL_FOUND)
    message(STATUS "libcurl (package libcurl4-openssl-dev) not found: no http, https and ftp names")
    return()
  endif()
  set_source_files_properties(${CMAKE_SOURCE_DIR}/src/platform/fetch.cpp PROPERTIES
                              COMPILE_DEFINITIONS KORVEL_CURL
                              INCLUDE_DIRECTORIES "${CURL_INCLUDE_DIRS}")
endfunction()

# Line editing at a terminal: only the header of libedit counts, the library is loaded when a person
# sits at the keyboard.
function(korvel_find_libedit)
  find_path(KORVEL_HISTEDIT histedit.h)
  if(NOT KORVEL_HISTEDIT)
    message(STATUS "libedit (package libedit-dev) not found: plain lines at the keyboard")
    return()
  endif()
  set_source_files_properties(${CMAKE_SOURCE_DIR}/src/platform/line_editor.cpp PROPERTIES
                              COMPILE_DEFINITIONS KORVEL_LIBEDIT)
endfunction()
