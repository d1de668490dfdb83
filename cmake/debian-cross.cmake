# What the toolchain files share: Debian's cross compiler for CUSTODO_TRIPLET with its
# multiarch -dev packages, or the robot's sysroot given as CMAKE_SYSROOT; programs of the build
# run through qemu-user and the target's loader (qemu's -L path prefix hangs threaded programs).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${CUSTODO_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${CUSTODO_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${CUSTODO_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

if(CMAKE_SYSROOT)
  # Everything from the sysroot, which the compiler and the find commands search already.
  set(cross_root ${CMAKE_SYSROOT})
  set(cross_search ONLY)
  set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
  set(cross_pkgconfig ${CMAKE_SYSROOT}/usr/lib/${CUSTODO_TRIPLET}/pkgconfig
                      ${CMAKE_SYSROOT}/usr/lib/pkgconfig ${CMAKE_SYSROOT}/usr/share/pkgconfig)
  string(REPLACE ";" ":" cross_pkgconfig "${cross_pkgconfig}")
  set(ENV{PKG_CONFIG_LIBDIR} ${cross_pkgconfig})
  set(cross_libs ${CMAKE_SYSROOT}/lib ${CMAKE_SYSROOT}/usr/lib
                 ${CMAKE_SYSROOT}/lib/${CUSTODO_TRIPLET} ${CMAKE_SYSROOT}/usr/lib/${CUSTODO_TRIPLET})
  string(REPLACE ";" ":" cross_libs "${cross_libs}")
else()
  # Debian's multiarch libraries live in the host's /usr/lib/<triplet>, the cross C library in
  # /usr/<triplet>; a root path given on the command line (a vendor's libraries) comes first.
  set(cross_root /usr/${CUSTODO_TRIPLET})
  set(cross_search BOTH)
  if(NOT cross_root IN_LIST CMAKE_FIND_ROOT_PATH)
    list(APPEND CMAKE_FIND_ROOT_PATH ${cross_root})
  endif()
  set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${CUSTODO_TRIPLET}/pkgconfig:/usr/share/pkgconfig)
  set(cross_libs ${cross_root}/lib)
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ${cross_search})
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ${cross_search})
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ${cross_search})
set(CMAKE_CROSSCOMPILING_EMULATOR ${CUSTODO_QEMU} ${cross_root}/lib/${CUSTODO_LOADER}
    --library-path ${cross_libs})
