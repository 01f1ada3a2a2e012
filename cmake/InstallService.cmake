# The service's files. Run by cmake --install, because only then the prefix is known. Set before: source, bindir.

set(bindir ${CMAKE_INSTALL_PREFIX}/${bindir})
set(share ${CMAKE_INSTALL_PREFIX}/share)
# Where the system looks: the settings of both system prefixes lie in /etc, and D-Bus reads no /usr/local.
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr(/local)?/?$")
  set(sysconfdir /etc)
  set(config "")
else()
  set(sysconfdir ${CMAKE_INSTALL_PREFIX}/etc)
  set(config "--config ${sysconfdir}/brenloft/brenloft.toml ")
endif()
if(CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
  set(policies ${share}/dbus-1/system.d)
else()
  set(policies ${sysconfdir}/dbus-1/system.d)
endif()

macro(install_as file folder name)
  file(INSTALL DESTINATION ${folder} TYPE FILE RENAME ${name} FILES ${source}/packaging/${file})
endmacro()

set(unit ${CMAKE_INSTALL_PREFIX}/lib/systemd/system/brenloft.service)
message(STATUS "Installing: $ENV{DESTDIR}${unit}")
configure_file(${source}/packaging/brenloft.service.in $ENV{DESTDIR}${unit} @ONLY)
list(APPEND CMAKE_INSTALL_MANIFEST_FILES ${unit})
install_as(brenloft.sysusers ${CMAKE_INSTALL_PREFIX}/lib/sysusers.d brenloft.conf)
install_as(brenloft-dbus.conf ${policies} brenloft.conf)
install_as(hci.conf ${share}/brenloft hci.conf)
install_as(serial.conf ${share}/brenloft serial.conf)
# What somebody has set stays.
if(NOT EXISTS $ENV{DESTDIR}${sysconfdir}/brenloft/brenloft.toml)
  install_as(brenloft.toml ${sysconfdir}/brenloft brenloft.toml)
endif()
