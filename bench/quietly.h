// SPDX-License-Identifier: MIT
#pragma once

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

// Runs what was registered. What the library prints while it works is timed, and thrown away. Gives
// what main has to give.
inline int run_quietly()
{
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0)
        return 1;
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    reporter.SetOutputStream(&std::cerr);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
