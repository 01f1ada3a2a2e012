# What every target shares: the language, the warnings, hidden visibility, sanitizers.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Off for who packages: another machine's compiler warns of other things.
option(BRENLOFT_WARNINGS_ARE_ERRORS "Stop at a compiler's warning" ON)
add_library(brenloft_options INTERFACE)
target_include_directories(brenloft_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(brenloft_options INTERFACE
  -Wall -Wextra -Wpedantic $<$<BOOL:${BRENLOFT_WARNINGS_ARE_ERRORS}>:-Werror> -Wshadow
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor$<SEMICOLON>-Woverloaded-virtual$<SEMICOLON>-Wold-style-cast>
  -Wno-missing-field-initializers  # designated initialisers name what they set
  -Wcast-align -Wformat=2 -Wimplicit-fallthrough
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)  # GCC 12 sees overlaps within std::string that are none
find_package(Threads REQUIRED)
target_link_libraries(brenloft_options INTERFACE Threads::Threads)

if(BRENLOFT_SANITIZE)
  add_compile_options(-fsanitize=${BRENLOFT_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${BRENLOFT_SANITIZE})
endif()

# brl_component(NAME SOURCES ... [LINK ...] [PRIVATE_LINK ...]): one folder of the platform or of the library.
function(brl_component name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINK;PRIVATE_LINK")
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC brenloft_options ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK})
  # What the shared library is made of.
  set_property(GLOBAL APPEND PROPERTY BRENLOFT_COMPONENTS ${name})
  set_property(GLOBAL APPEND PROPERTY BRENLOFT_DEPENDENCIES ${ARG_PRIVATE_LINK})
endfunction()

# brl_room(NAME SOURCES ... [LINK ...] [PRIVATE_LINK ...]): one room of the gateway; no part of the shared library.
function(brl_room name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINK;PRIVATE_LINK")
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC brenloft_options ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK})
endfunction()

# brl_test(NAME SOURCES ... LINK ...): one test program per folder; ctest runs each test in its own process.
function(brl_test name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;LINK;LABELS")
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE brenloft_options ${ARG_LINK} GTest::gtest GTest::gmock GTest::gtest_main)
  target_compile_definitions(${name} PRIVATE
    BRENLOFT_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/data" BRENLOFT_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  target_compile_options(${name} PRIVATE ${BRENLOFT_TEST_OPTIONS})
  gtest_discover_tests(${name} TEST_PREFIX ${name}. DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300 SKIP_REGULAR_EXPRESSION "\\[  SKIPPED \\]" LABELS "${ARG_LABELS}")
endfunction()
