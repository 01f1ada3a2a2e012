# The man pages: what people wrote in packaging/man, and the options as the built program itself describes them.

find_program(SCDOC scdoc)
if(NOT SCDOC OR BRENLOFT_SANITIZE OR (CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR))
  message(STATUS "No man pages are made: they need scdoc, and a program that runs here")
  return()
endif()

set(pages)
file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/man/*.scd)
foreach(source IN LISTS sources)
  get_filename_component(page ${source} NAME_WLE)
  set(file ${PROJECT_BINARY_DIR}/man/${page})
  add_custom_command(OUTPUT ${file}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
    COMMAND ${PROJECT_SOURCE_DIR}/packaging/man/page
      "$<JOIN:${CMAKE_CROSSCOMPILING_EMULATOR}, > $<TARGET_FILE:brenloft>" ${source} ${file}
    DEPENDS brenloft ${source} ${PROJECT_SOURCE_DIR}/packaging/man/page ${PROJECT_SOURCE_DIR}/packaging/man/options
    VERBATIM)
  list(APPEND pages ${file})
  string(REGEX REPLACE ".*\\." "" section ${page})
  install(FILES ${file} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
add_custom_target(pages ALL DEPENDS ${pages})
