# SPDX-License-Identifier: MIT
# Debian's cross compiler: apt-get install g++-arm-linux-gnueabihf
set(CMAKE_SYSTEM_PROCESSOR arm)
set(kelo_port armhf)
set(kelo_triplet arm-linux-gnueabihf)
set(kelo_qemu qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
