# The reference of the public headers, where Doxygen is there: cmake --build --preset release --target reference

find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  return()
endif()
set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/reference)
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${PROJECT_SOURCE_DIR}/docs/reference/main.md)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/application/c ${PROJECT_SOURCE_DIR}/application/cpp)
set(DOXYGEN_STRIP_FROM_INC_PATH ${DOXYGEN_STRIP_FROM_PATH})
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)  # the first sentence
set(DOXYGEN_EXTRACT_ALL YES)
set(DOXYGEN_HIDE_FRIEND_COMPOUNDS YES)
set(DOXYGEN_SORT_MEMBER_DOCS NO)
set(DOXYGEN_BUILTIN_STL_SUPPORT YES)
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED BRL_EXPORT= BRENLOFT_API= __cplusplus=202002L)
set(DOXYGEN_HAVE_DOT NO)
set(DOXYGEN_QUIET YES)
# What its name and its type say is not said again.
set(DOXYGEN_WARN_IF_UNDOCUMENTED NO)
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
doxygen_add_docs(reference docs/reference/main.md ${public_headers}
  application/c/brenloft.h application/cpp/brenloft.hpp COMMENT "Reference of the public headers")
