# SPDX-License-Identifier: MIT
# Debian's cross compiler: apt-get install g++-aarch64-linux-gnu
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(kelo_port arm64)
set(kelo_triplet aarch64-linux-gnu)
set(kelo_qemu qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
