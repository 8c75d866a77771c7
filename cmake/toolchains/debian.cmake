# SPDX-License-Identifier: MIT
# What Debian's cross compilers have in common: `kelo_triplet` names one, `kelo_qemu` who runs its programs here.
# Headers and libraries beyond the C library come from build/sysroot/<Debian's name of the port>, where
# scripts/check-ports puts them, without a foreign architecture on the machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${kelo_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${kelo_triplet}-g++)
set(kelo_sysroot ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot/${kelo_port})
get_filename_component(kelo_sysroot ${kelo_sysroot} ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${kelo_sysroot} /usr/${kelo_triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${kelo_sysroot})
set(ENV{PKG_CONFIG_LIBDIR} ${kelo_sysroot}/usr/lib/${kelo_triplet}/pkgconfig)
set(CMAKE_CROSSCOMPILING_EMULATOR ${kelo_qemu} -L /usr/${kelo_triplet}
    -E LD_LIBRARY_PATH=${kelo_sysroot}/usr/lib/${kelo_triplet})
