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
