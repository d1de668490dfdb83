# Cross-compiling for the robot's aarch64 application board (see `make cross`).
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CUSTODO_TRIPLET aarch64-linux-gnu)
set(CUSTODO_DEB_ARCH arm64)
set(CUSTODO_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
