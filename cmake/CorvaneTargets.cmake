# Helpers that give every target of ours the same warnings and sanitizer flags.

function(corvane_compile_options target)
  # The gcc trees hold the -Werror line; the clang TSan and fuzzing trees look for races and
  # crashes, not for warnings only the second compiler knows.
  if((CORVANE_SANITIZE STREQUAL "thread" OR CORVANE_BUILD_FUZZ)
     AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(werror -Wno-error)
  else()
    set(werror -Werror)
  endif()
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic ${werror}
    # GCC 12 reports impossible overlaps in inlined std::string concatenation at -O2 and above
    # (GCC bug 105329); the warning has no true positives in our code to lose.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
endfunction()

if(CORVANE_BUILD_FUZZ)
  # Every library gets coverage for libFuzzer to steer by; only the fuzz targets link its main.
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "CORVANE_BUILD_FUZZ needs clang (-DCMAKE_CXX_COMPILER=clang++)")
  endif()
  add_compile_options(-O1 -gline-tables-only -fno-omit-frame-pointer
    -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(CORVANE_SANITIZE STREQUAL "address")
  add_compile_options(-O1 -g1 -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(CORVANE_SANITIZE STREQUAL "thread")
  add_compile_options(-O1 -g1 -fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT CORVANE_SANITIZE STREQUAL "")
  message(FATAL_ERROR "CORVANE_SANITIZE must be empty, 'address' or 'thread'")
endif()

# corvane_library(NAME [SOURCES ...] [PUBLIC ...] [PRIVATE ...]): one static library per
# subsystem. Without SOURCES, every .cpp below the calling folder is taken, sub-folders included.
# PUBLIC lists what the library's own headers include; PRIVATE what only its sources use.
#
# Headers are named from the repository root ("CorvaneApp/worker/WorkerController.h"), but a
# library does not get the whole repository as an include root: it gets a root of its own that
# holds only its folder, and sees another subsystem's headers only through that subsystem's
# target. Including a header of a library it does not link therefore fails to build, and the
# layering of the subsystems holds by construction.
function(corvane_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  if(NOT ARG_SOURCES)
    file(GLOB_RECURSE ARG_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  endif()
  add_library(${name} STATIC ${ARG_SOURCES})
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set(root ${PROJECT_BINARY_DIR}/include-roots/${name})
  get_filename_component(parent ${root}/${folder} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${folder} SYMBOLIC)
  target_include_directories(${name} PUBLIC ${root})
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
  corvane_compile_options(${name})
endfunction()

# corvane_program(TARGET): the flags of an executable of ours. Programs (the commands, tests,
# benchmarks and tools) sit above every library, so they may name any header of the repository.
function(corvane_program target)
  corvane_compile_options(${target})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
endfunction()

# corvane_test(NAME SOURCES ... DEPS ... [CONCURRENCY]): one GoogleTest executable, its cases
# registered with CTest one by one. CONCURRENCY marks a suite that also runs under TSan.
function(corvane_test name)
  cmake_parse_arguments(ARG "CONCURRENCY" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} corvane_test_support GTest::gmock GTest::gtest GTest::gtest_main)
  corvane_program(${name})
  # One label per suite: discovered tests get their properties through a command line that
  # flattens lists, so a second label would turn into a property name of its own.
  set(label ${name})
  if(ARG_CONCURRENCY)
    set(label concurrency)
    add_dependencies(concurrency_tests ${name})
  endif()
  include(GoogleTest)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS ${label} TIMEOUT 300)
endfunction()
