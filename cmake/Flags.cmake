# Warnings for our own code only: third-party sources are built without them.
add_library(routing_warnings INTERFACE)
target_compile_options(routing_warnings INTERFACE -Wall -Wextra -Wpedantic -Werror)

if(ROUTING_32BIT)
  add_compile_options(-m32 -msse2 -mfpmath=sse)
  add_link_options(-m32)
  # The kernel's headers for the 32-bit ABI are the 64-bit ones; only gcc-multilib, which cannot be
  # installed beside a cross compiler, puts them on the default path.
  add_compile_options("SHELL:-idirafter /usr/include/x86_64-linux-gnu")
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

if(ROUTING_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    message(FATAL_ERROR "ROUTING_FUZZ: expected clang, found ${CMAKE_CXX_COMPILER_ID}")
  endif()
  set(ROUTING_SANITIZE address,undefined,fuzzer-no-link)
endif()

if(ROUTING_SANITIZE)
  add_compile_options(-fsanitize=${ROUTING_SANITIZE} -fno-omit-frame-pointer -g1)
  add_link_options(-fsanitize=${ROUTING_SANITIZE})
  if(ROUTING_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

# Sources that run once and are slow to compile, for the most part because of the libraries that they
# include: what the optimiser would gain there, nobody would see.
function(routing_cold)
  if(CMAKE_BUILD_TYPE STREQUAL Release)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -O1)
  endif()
endfunction()

# Targets whose compilation is for the most part reading the same libraries' headers again and again:
# they are compiled several sources at a time. gcc then takes a source for a header, and warns of the
# types that it keeps to itself.
function(routing_unity)
  if(ROUTING_UNITY)
    set_target_properties(${ARGN} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
    foreach(target ${ARGN})
      target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    endforeach()
  endif()
endfunction()
