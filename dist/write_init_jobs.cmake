# Run at install time: the init jobs with the programs' paths under the install prefix.
string(REGEX REPLACE "/+$" "" root "${CMAKE_INSTALL_PREFIX}")
set(CUSTODO_COMMAND "${root}/sbin/custodo ${root}/opt/belvane/watchdog")
math(EXPR CUSTODO_START_BURST "${CUSTODO_RESPAWN_LIMIT} + 1")
foreach(job custodo.service custodo.conf inittab)
  configure_file(${templates}/${job}.in ${jobs}/${job} @ONLY)
endforeach()
