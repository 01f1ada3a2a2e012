# Compiles a model into the library's bundle: cmake -DMODEL=in.model -DNAME=resource -DOUTPUT=out.cpp -P this
# Comments and spacing go, so that they do not tell models apart; what is no declaration stops the build.
file(STRINGS "${MODEL}" lines)
set(compiled "")
set(entity "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "#.*$" "" line "${line}")
  string(STRIP "${line}" line)
  if(line STREQUAL "")
    continue()
  endif()
  if(line MATCHES "^entity +([A-Za-z][A-Za-z0-9_]*)$")
    set(entity "${CMAKE_MATCH_1}")
    string(APPEND compiled "entity ${entity}\n")
  elseif(entity AND line MATCHES "^([A-Za-z][A-Za-z0-9_]*) +(integer|unsigned|string|date|binary)$")
    string(APPEND compiled "${CMAKE_MATCH_1} ${CMAKE_MATCH_2}\n")
  else()
    message(FATAL_ERROR "${MODEL}: not a declaration: ${line}")
  endif()
endforeach()

file(WRITE "${OUTPUT}" "// Generated from ${NAME} by CompileModel.cmake.
#include \"platform/foundation/CompiledResources.h\"

namespace platform {

BundleResources compiledResources() {
  constexpr std::string_view model = R\"(${compiled})\";
  return {{\"${NAME}\", toData(viewOf(model))}};
}

}  // namespace platform
")
