# Cross-compiling for a 32-bit ARM application board, hard-float (see `make cross`).
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CUSTODO_TRIPLET arm-linux-gnueabihf)
set(CUSTODO_DEB_ARCH armhf)
set(CUSTODO_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
