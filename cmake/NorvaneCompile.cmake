# Compiler settings shared by the library, its tests, benchmarks and tools.

add_library(norvane_warnings INTERFACE)
target_compile_options(norvane_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
  -Wcast-align -Woverloaded-virtual -Wnull-dereference -Wimplicit-fallthrough
  $<$<BOOL:${NORVANE_WARNINGS_AS_ERRORS}>:-Werror>)

if(NORVANE_SANITIZE)
  # Applied globally so that tests, tools and the library agree on the runtime.
  add_compile_options(-fsanitize=${NORVANE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${NORVANE_SANITIZE})
  # GCC's flow analysis reports false uninitialised uses inside the standard
  # library (<regex>, <functional>) once sanitizers instrument it.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(norvane_warnings INTERFACE -Wno-maybe-uninitialized)
  endif()
endif()

if(NORVANE_COVERAGE)
  # Applied globally so that the tests and the programs they run link the gcov
  # runtime the instrumented library needs. -O0 keeps one counted line and one
  # counted branch per line and branch of the source; inlining would fold them.
  # Atomic counters: threaded tests update them together, and plain increments
  # lose counts and even leave negative ones that gcovr cannot parse.
  add_compile_options(--coverage -O0 -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

# The library's families, in the order their folders are added.
set(NORVANE_FAMILIES core log util io settings yaml system)

# Adds the folder of each named family that has one, so that src/, tests/,
# bench/ and fuzz/ are laid out by family alike.
function(norvane_add_families)
  foreach(family IN LISTS ARGN)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${family}/CMakeLists.txt)
      add_subdirectory(${family})
    endif()
  endforeach()
endfunction()
