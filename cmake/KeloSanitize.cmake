# SPDX-License-Identifier: MIT
# KELO_SANITIZE: one sanitizer for the library, the programs and the tests alike, stopping at the first finding.
if(KELO_SANITIZE STREQUAL "address")
  set(flags -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
elseif(KELO_SANITIZE STREQUAL "thread")
  set(flags -fsanitize=thread -fno-omit-frame-pointer)
elseif(NOT KELO_SANITIZE STREQUAL "")
  message(FATAL_ERROR "KELO_SANITIZE is '${KELO_SANITIZE}': it takes nothing, address or thread")
endif()
if(KELO_SANITIZE)
  add_compile_options(${flags})
  add_link_options(${flags})
endif()

# What the sanitizers' run-time parts read; harmless to a program built without them.
set(KELO_SANITIZER_ENVIRONMENT
    ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:detect_leaks=1
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
    TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:exitcode=66)
