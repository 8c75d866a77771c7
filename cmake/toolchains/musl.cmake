# SPDX-License-Identifier: MIT
# The library for musl, by Debian's own gcc: apt-get install musl-tools g++. Debian has no C++ library for musl; the
# library takes so little of one (headers, and operator new and delete) that the machine's own does. For programs that
# use C++ themselves take a compiler that was made for musl.
set(CMAKE_SYSTEM_NAME Linux)
execute_process(COMMAND uname -m OUTPUT_VARIABLE CMAKE_SYSTEM_PROCESSOR OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)

execute_process(COMMAND g++ -dumpmachine OUTPUT_VARIABLE triplet OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -print-file-name=include OUTPUT_VARIABLE own OUTPUT_STRIP_TRAILING_WHITESPACE)
string(REPLACE "-gnu" "-musl" musl ${triplet})
set(includes "-nostdinc -nostdinc++ -include ${CMAKE_CURRENT_LIST_DIR}/../musl/musl.h")
foreach(dir /usr/include/c++/${version} /usr/include/${triplet}/c++/${version} /usr/include/c++/${version}/backward
            /usr/include/${musl} ${own})
  string(APPEND includes " -isystem ${dir}")
endforeach()
set(CMAKE_CXX_FLAGS_INIT "${includes}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -specs=/usr/lib/${musl}/musl-gcc.specs")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_FIND_ROOT_PATH /usr/lib/${musl})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
