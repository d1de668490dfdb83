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
  set(target_root ${CMAKE_SYSROOT})
  set(search ONLY)
  set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
  set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${CUSTODO_TRIPLET}/pkgconfig:${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
  set(loader_dirs ${CMAKE_SYSROOT}/lib:${CMAKE_SYSROOT}/usr/lib:${CMAKE_SYSROOT}/lib/${CUSTODO_TRIPLET}:${CMAKE_SYSROOT}/usr/lib/${CUSTODO_TRIPLET})
else()
  # Debian's multiarch libraries live in the host's /usr/lib/<triplet>, the cross C library in
  # /usr/<triplet>; a root path given on the command line (a vendor's libraries) comes first.
  set(target_root /usr/${CUSTODO_TRIPLET})
  set(search BOTH)
  if(NOT target_root IN_LIST CMAKE_FIND_ROOT_PATH)
    list(APPEND CMAKE_FIND_ROOT_PATH ${target_root})
  endif()
  set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${CUSTODO_TRIPLET}/pkgconfig:/usr/share/pkgconfig)
  set(loader_dirs ${target_root}/lib)
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ${search})
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ${search})
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ${search})
set(CMAKE_CROSSCOMPILING_EMULATOR ${CUSTODO_QEMU} ${target_root}/lib/${CUSTODO_LOADER}
    --library-path ${loader_dirs})
