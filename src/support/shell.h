// Shell lines. The line runs through the system shell; the host's signal settings and handlers are
// left alone, no descriptor of the library is inherited (they are all O_CLOEXEC), and a line that
// does not end in time is killed, so that no caller waits for ever.
//
// Nothing from outside goes into a line unquoted: the caller checks or quotes it.
#pragma once

namespace kelo
{

// Runs a line and waits for its end. Gives its exit status, or -1 when it could not be run, was
// killed by a signal, or ran out of time, and when the host's handling of SIGCHLD took the status
// away.
int shell_run(const char* line);

// The same through the host's kelo_system when the host brings one.
int shell_run_by_host(const char* line);

} // namespace kelo
