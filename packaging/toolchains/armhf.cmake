# 32-bit ARM with hardware floating point, ARMv7.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(debian_architecture armhf)
set(triple arm-linux-gnueabihf)
set(emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
