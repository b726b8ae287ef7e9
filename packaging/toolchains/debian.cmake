# Debian's cross compiler, which includes the system's libraries; "scripts/setup arm" unpacks the others
# into build/sysroot.
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

# Tests are run by qemu-user explicitly, so that binfmt_misc is not needed. The variable EMULATOR lets
# them skip what an emulator cannot show. GCONV_PATH has what iconv() loads.
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L /usr/${triple} -E EMULATOR=${emulator}
    -E GCONV_PATH=${sysroot}/usr/lib/${triple}/gconv)
