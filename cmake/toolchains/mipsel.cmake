# SPDX-License-Identifier: MIT
# Debian's cross compiler: apt-get install g++-mipsel-linux-gnu
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(kelo_port mipsel)
set(kelo_triplet mipsel-linux-gnu)
set(kelo_qemu qemu-mipsel-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
