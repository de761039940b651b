# Runs while installing, when the prefix is known: it may be another one than the build was configured
# with. With the prefix /usr files of /etc are there, else below the prefix.
set(etc ${CMAKE_INSTALL_PREFIX}/etc)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(etc /etc)
endif()

# A program that runs as a service: its init script and its unit. ready: ends when it serves others.
function(install_service name description after ready)
  set(daemon ${CMAKE_INSTALL_PREFIX}/sbin/${name})
  string(REGEX REPLACE "([^ ]+)" "\\1.service" wants "${after}")
  configure_file(${source}/init.in ${build}/${name} @ONLY)
  configure_file(${source}/service.in ${build}/${name}.service @ONLY)
  file(INSTALL DESTINATION ${etc}/init.d TYPE PROGRAM FILES ${build}/${name})
  file(INSTALL DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system TYPE FILE FILES ${build}/${name}.service)
endfunction()
