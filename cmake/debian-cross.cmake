# What the toolchain files share: Debian's cross compiler for CUSTODO_TRIPLET against a sysroot
# given as CMAKE_SYSROOT (the robot's, or the one `make cross` extracts from Debian's archive);
# programs of the build run through qemu-user with the sysroot as its prefix.
if(NOT CMAKE_SYSROOT)
  message(FATAL_ERROR "cross builds need a sysroot: -DCMAKE_SYSROOT=DIR (`make cross` makes one)")
endif()
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${CUSTODO_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${CUSTODO_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${CUSTODO_TRIPLET})

# Everything from the sysroot, which the compiler and the find commands search already; a root
# given with CMAKE_FIND_ROOT_PATH is searched too. Programs come from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(cross_pkgconfig ${CMAKE_SYSROOT}/usr/lib/${CUSTODO_TRIPLET}/pkgconfig
                    ${CMAKE_SYSROOT}/usr/lib/pkgconfig ${CMAKE_SYSROOT}/usr/share/pkgconfig)
string(REPLACE ";" ":" cross_pkgconfig "${cross_pkgconfig}")
set(ENV{PKG_CONFIG_LIBDIR} ${cross_pkgconfig})
set(CMAKE_CROSSCOMPILING_EMULATOR ${CUSTODO_QEMU} -L ${CMAKE_SYSROOT})
