// SPDX-License-Identifier: MIT
// Shell lines. The line runs through the system shell; the host's signal settings and handlers are
// left alone, no descriptor of the library is inherited (they are all O_CLOEXEC), and a line that
// does not end in time is killed with all that it has started, so that no caller waits for ever.
// Each line has a process group of its own: a Ctrl-C at the host's terminal does not reach it.
//
// Nothing from outside goes into a line unquoted: the caller checks or quotes it.
#pragma once

#include <cstddef>

namespace kelo
{

// Time for a line. Longer than any line of the library takes on a loaded device; a tool that hangs
// must not keep a start or a stop from ever coming back.
extern int shell_limit_ms;

// Runs a line and waits for its end; what the line leaves in the background lives on. Gives its
// exit status, or -1 when it could not be run, was killed by a signal, or ran out of time, and when
// the host's handling of SIGCHLD took the status away.
int shell_run(const char* line);

// The same, for what outlives the line: it writes nowhere, so that no reader of the host's output
// waits for its end.
int shell_run_quietly(const char* line);

// Runs a line and reads its standard output up to the first text line that holds `needle`, which is
// left in `found`, cut to `size`. False when none came: the output ended, held more than 64 KiB, or
// time ran out. When this returns the line has ended, and nothing that it started is left.
bool shell_find(const char* line, const char* needle, int limit_ms, char* found, std::size_t size);

// Adds `value` behind the text in `line` so that the shell takes it as one word and nothing else:
// as it is while it holds plain characters alone, else in quotes. False when it does not fit;
// `line` is then as it was.
bool shell_quote(char* line, std::size_t size, const char* value);

// As shell_run, through the host's kelo_system when the host brings one.
int shell_run_by_host(const char* line);

// Starts a line and does not wait: its process, which is a group of its own, or -1. It writes
// nowhere.
int shell_start(const char* line);

// Whether a process of shell_start has ended; with what status, or -1 where that is not known.
bool shell_ended(int process, int& status);

// Sends a signal to a process of shell_start and all of its group.
void shell_signal(int process, int number);

// Whether a program of this name stands in PATH and may be run.
bool program_there(const char* name);

} // namespace kelo
