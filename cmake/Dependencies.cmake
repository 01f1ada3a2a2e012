find_package(PkgConfig REQUIRED)
pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(SDBUSCPP REQUIRED IMPORTED_TARGET sdbus-c++)
pkg_check_modules(TOMLPLUSPLUS REQUIRED IMPORTED_TARGET tomlplusplus)
pkg_check_modules(MOSQUITTO QUIET IMPORTED_TARGET libmosquitto libssl libcrypto)
if(NOT MOSQUITTO_FOUND)
  message(FATAL_ERROR
    "libmosquitto or OpenSSL is missing: brenloft publish needs both (Debian: libmosquitto-dev libssl-dev)")
endif()
find_package(RapidJSON REQUIRED)
find_package(CLI11 REQUIRED)
find_package(fmt REQUIRED)

# A header-only library, as system headers so that its warnings are not ours.
add_library(brenloft_rapidjson INTERFACE)
target_include_directories(brenloft_rapidjson SYSTEM INTERFACE ${RAPIDJSON_INCLUDE_DIRS})
target_compile_definitions(brenloft_rapidjson INTERFACE RAPIDJSON_HAS_STDSTRING=1)
# Its stacks begin as null and have offsets added before they grow.
if(BRENLOFT_SANITIZE)
  target_compile_options(brenloft_rapidjson INTERFACE -fno-sanitize=pointer-overflow)
endif()

if(BRENLOFT_BUILD_TESTS)
  find_package(GTest REQUIRED)
  include(GoogleTest)
endif()
if(BRENLOFT_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
