# Compiler settings of every target of ours; generated code is built without the warnings.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN" "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

# A shared library's own calls go to its own functions, without the detour that would let a program replace them.
add_compile_options(-fno-semantic-interposition -fno-plt)
add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>:-Wl,-Bsymbolic-functions>)

find_program(BRANTEL_CCACHE ccache)
if(BRANTEL_CCACHE)
  # What one clone has compiled serves every other: no path of the clone goes into what is compared or made.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=1 "${BRANTEL_CCACHE}")
endif()
if(NOT BRANTEL_COVERAGE)
  add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.")
endif()

add_library(BrantelWarnings INTERFACE)
target_compile_options(BrantelWarnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wold-style-cast -Woverloaded-virtual -Wnon-virtual-dtor -Wformat=2
  # clang takes the 0 of a rewritten a <=> b for a pointer
  $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>
  $<$<CXX_COMPILER_ID:GNU>:-Wzero-as-null-pointer-constant>
  # g++ does not count these among its conversions
  $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>
  $<$<BOOL:${BRANTEL_WERROR}>:-Werror>)

if(BRANTEL_SANITIZE)
  add_compile_options(-fsanitize=${BRANTEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g1)
  add_link_options(-fsanitize=${BRANTEL_SANITIZE})
  if(BRANTEL_SANITIZE MATCHES "undefined")
    # UBSan looks at an object's type through a pipe. A program that has used up its descriptors, as some tests do, leaves
    # it none, and it takes the exception that tells of it for no object.
    add_compile_options(-fno-sanitize=vptr)
  endif()
endif()
if(BRANTEL_FUZZ)
  # Twice as many inputs in the same time as with the -O1 of the other sanitizers.
  add_compile_options(-fsanitize=fuzzer-no-link -O2)
endif()
if(BRANTEL_COVERAGE)
  add_compile_options(--coverage -O0 -g)
  add_compile_definitions(BRANTEL_COVERAGE)
  add_link_options(--coverage)
endif()

# For folders that put many short texts together: optimising, g++ 12 takes an assignment of a short text for one of
# overlapping memory.
macro(brantel_allow_short_texts)
  add_compile_options("$<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-Wno-restrict>")
endmacro()

# For generated code and for what tests others: which of its lines an input reaches tells a fuzzer nothing of the product,
# and it would be most of what it looks at.
macro(brantel_leave_out_of_fuzzing target)
  if(BRANTEL_FUZZ)
    target_compile_options(${target} PRIVATE -fno-sanitize=fuzzer-no-link)
  endif()
endmacro()
