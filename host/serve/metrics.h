// SPDX-License-Identifier: MIT
// What the host knows as metrics, for Prometheus: the text of /metrics, and a file for
// node_exporter. The table in metrics.cpp is the list of them: docs/kelo-host.md says how they
// are read.
#pragma once

#include "host/state/figures.h"
#include "host/state/status.h"

#include <kelo/keeper.h>

#include <string>

namespace kelo_host
{

enum class metrics_format {
    text,       // Prometheus text 0.0.4, which node_exporter's textfile collector reads, too
    openmetrics // OpenMetrics 1.0.0
};

struct process_figures {
    long long rss_bytes = 0;  // 0: not known
    long long started_at = 0; // seconds since 1970
};

process_figures read_process(long running_s);

struct metrics_source {
    const json_value& status; // of read_status; what is private in it shows where it is not masked
    const kelo_figures& figures;
    const message_counts& counts;
    process_figures process;
};

// What is not known has no sample.
std::string metrics_text(const metrics_source& source, metrics_format format);

} // namespace kelo_host
