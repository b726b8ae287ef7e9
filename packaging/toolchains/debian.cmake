# Debian's cross compiler, which has the system's libraries with it, and the other libraries that
# "scripts/setup arm" lays under build/sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)

set(sysroot ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot/${debian_architecture})
cmake_path(NORMAL_PATH sysroot)
set(CMAKE_FIND_ROOT_PATH ${sysroot} /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${sysroot})
set(ENV{PKG_CONFIG_LIBDIR}
    ${sysroot}/usr/lib/${triple}/pkgconfig:${sysroot}/usr/share/pkgconfig)
set(CMAKE_CXX_FLAGS_INIT "-isystem ${sysroot}/usr/include -isystem ${sysroot}/usr/include/${triple}")

# Tests run under qemu-user, by its name, so that the kernel need not know foreign programs. They find
# its name in EMULATOR: what can only be seen without one is skipped, and tells why.
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L /usr/${triple} -E EMULATOR=${emulator})
