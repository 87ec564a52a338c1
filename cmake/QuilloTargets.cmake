# How every target of the tree is made: one library per folder, warnings as errors, shared precompiled headers.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_AUTOMOC OFF)
set(CMAKE_LINK_DEPENDS_NO_SHARED ON)
set(QUILLO_SANITIZE "" CACHE STRING "Sanitizers to build with, as for -fsanitize=")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wimplicit-fallthrough -Werror
                    -Wno-gnu-zero-variadic-macro-arguments -Wno-gnu-statement-expression
                    -fno-omit-frame-pointer -fcolor-diagnostics)
# ccache keys a precompiled header by content; the timestamp that clang stores would defeat it.
add_compile_options("SHELL:-Xclang -fno-pch-timestamp")
# Not QT_USE_QSTRINGBUILDER: with it `auto text = a + b` holds references to what is gone at the end of the line.
add_compile_definitions(QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII QT_NO_FOREACH
                        QUILLO_VERSION="${PROJECT_VERSION}")
# Both only save time.
find_program(QUILLO_CCACHE ccache)
if(QUILLO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${QUILLO_CCACHE})
endif()
find_program(QUILLO_MOLD mold)
if(QUILLO_MOLD)
  add_link_options(-fuse-ld=mold)
endif()
# The address sanitizer's build compiles every test, and optimising what it instruments takes three times as long as the
# rest of the compilation. The thread sanitizer should see the accesses that remain in an optimised program.
if(QUILLO_SANITIZE)
  if(QUILLO_SANITIZE MATCHES thread)
    add_compile_options(-O1)
  else()
    add_compile_options(-O0)
  endif()
  add_compile_options(-fsanitize=${QUILLO_SANITIZE} -gline-tables-only)
  add_compile_options(-fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=${QUILLO_SANITIZE})
else()
  add_compile_options(-gline-tables-only)
endif()
# The code that drives a test needs no speed; the code under test has the options of its build.
set(QUILLO_TEST_OPTIONS -O0)
# The programs find each other side by side, in the build as when installed.
set(QUILLO_PROGRAM_FOLDER ${CMAKE_BINARY_DIR}/bin)
# Debug information for line numbers is enough, and keeps objects small and links fast.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "")

function(quillo_check_arguments name)
  if(ARGN)
    message(FATAL_ERROR "${name}: unknown arguments ${ARGN}")
  endif()
endfunction()

# quillo_library(Name FOLDER path SOURCES ... LINK ... [PRIVATE_LINK ...] [MOC headers...] [NO_QT])
#
# Makes the static library QuilloName of the folder it is called in. FOLDER is the path that includes are written with
# ("Services/Auth"). Headers are reachable only through the library: each has an include directory of its own that
# holds nothing but a link to its folder, so that an include of a layer that is not linked does not build.
function(quillo_library name)
  cmake_parse_arguments(arg "NO_QT" "FOLDER" "SOURCES;LINK;PRIVATE_LINK;MOC" ${ARGN})
  quillo_check_arguments(${name} ${arg_UNPARSED_ARGUMENTS})
  set(target Quillo${name})
  if(arg_MOC)
    qt6_wrap_cpp(moc_sources ${arg_MOC} TARGET ${target})
  endif()
  set(include_root ${CMAKE_BINARY_DIR}/include/${target})
  get_filename_component(parent ${include_root}/${arg_FOLDER} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${include_root}/${arg_FOLDER} SYMBOLIC)
  if(arg_SOURCES)
    add_library(${target} STATIC ${arg_SOURCES} ${moc_sources})
    target_include_directories(${target} PUBLIC ${include_root})
    target_link_libraries(${target} PUBLIC ${arg_LINK} PRIVATE ${arg_PRIVATE_LINK})
    if(arg_NO_QT)
      target_precompile_headers(${target} REUSE_FROM QuilloPlainPrecompiled)
      target_link_libraries(${target} PRIVATE nlohmann_json::nlohmann_json)
    else()
      target_precompile_headers(${target} REUSE_FROM QuilloPrecompiled)
      target_link_libraries(${target} PRIVATE Qt6::Core QCoro6::Core nlohmann_json::nlohmann_json)
    endif()
  else()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${include_root})
    target_link_libraries(${target} INTERFACE ${arg_LINK})
  endif()
endfunction()

# quillo_program(target): puts the program where the others look for it.
function(quillo_program target)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${QUILLO_PROGRAM_FOLDER})
endfunction()

# Everything that the thread sanitizer is to look at.
add_custom_target(concurrency-tests)
# Everything that runs in a session with a display or a sound server of its own.
add_custom_target(session-tests)

# quillo_test(Name SOURCES ... LINK ... [MOC ...] [LABELS ...] [ENVIRONMENT ...] [TIMEOUT seconds] [NO_QT]
#             [SHARDS count] [COST seconds])
#
# SHARDS runs the cases of one program as several tests, which can run side by side. The dearest tests begin first.
# A GoogleTest program whose main runs a QCoreApplication; see tests/Support/TestMain.cpp.
function(quillo_test name)
  cmake_parse_arguments(arg "NO_QT" "TIMEOUT;SHARDS;COST" "SOURCES;LINK;MOC;LABELS;ENVIRONMENT;WRAPPER" ${ARGN})
  quillo_check_arguments(${name} ${arg_UNPARSED_ARGUMENTS})
  if(arg_MOC)
    qt6_wrap_cpp(moc_sources ${arg_MOC} TARGET ${name})
  endif()
  add_executable(${name} ${arg_SOURCES} ${moc_sources})
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest GTest::gmock)
  target_compile_options(${name} PRIVATE ${QUILLO_TEST_OPTIONS})
  if(arg_NO_QT)
    # The precompiled header is position-independent as in a library; Qt asks the same of what links it.
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_compile_options(${name} PRIVATE -fPIC)
    target_precompile_headers(${name} REUSE_FROM QuilloPlainTestPrecompiled)
    target_link_libraries(${name} PRIVATE nlohmann_json::nlohmann_json)
  else()
    target_precompile_headers(${name} REUSE_FROM QuilloTestPrecompiled)
    target_link_libraries(${name} PRIVATE Qt6::Core QCoro6::Core nlohmann_json::nlohmann_json)
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  if("concurrency" IN_LIST arg_LABELS)
    add_dependencies(concurrency-tests ${name})
  endif()
  if("desktop" IN_LIST arg_LABELS OR "display" IN_LIST arg_LABELS)
    add_dependencies(session-tests ${name})
  endif()
  if(QUILLO_SANITIZE MATCHES address)
    list(APPEND arg_ENVIRONMENT LSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0)
  endif()
  if(QUILLO_SANITIZE MATCHES thread)
    # System libraries are not instrumented; the file lists what is suppressed, and why.
    list(APPEND arg_ENVIRONMENT TSAN_OPTIONS=suppressions=${CMAKE_SOURCE_DIR}/tests/tsan.supp)
  endif()
  if(NOT arg_COST)
    set(arg_COST 0)
  endif()
  if(NOT arg_SHARDS)
    set(arg_SHARDS 1)
  endif()
  foreach(shard RANGE 1 ${arg_SHARDS})
    set(test ${name})
    if(arg_SHARDS GREATER 1)
      set(test ${name}-${shard})
      math(EXPR index "${shard} - 1")
      set(part GTEST_TOTAL_SHARDS=${arg_SHARDS} GTEST_SHARD_INDEX=${index})
    endif()
    add_test(NAME ${test} COMMAND ${arg_WRAPPER} $<TARGET_FILE:${name}>)
    set_tests_properties(${test} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}" COST ${arg_COST}
      ENVIRONMENT "${arg_ENVIRONMENT};${part}")
  endforeach()
endfunction()
