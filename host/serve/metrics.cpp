// SPDX-License-Identifier: MIT
#include "host/serve/metrics.h"

#include <kelo/version.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace kelo_host
{

namespace
{

enum class metric_type { gauge, counter, info };

struct label {
    const char* name;
    std::string value;
};

// Takes the samples of one metric.
class samples
{
  public:
    explicit samples(std::string name) : name_(std::move(name)) {}

    void add(long long value, std::initializer_list<label> labels = {});
    void add(const json_value& value); // none for null

    // Labels of this object's texts, each {label, field}; no sample where none of them is known.
    void add_info(const json_value& object,
                  std::initializer_list<std::pair<const char*, const char*>> labels);

    std::string text;

  private:
    std::string name_;
};

// Backslash, quote and line end are all that the formats escape; other control characters are out
// of a status already.
std::string escaped(std::string_view value)
{
    std::string out;
    for (const char c : value)
        if (c == '\n')
            out += "\\n";
        else if (c == '\\' || c == '"')
            out += {'\\', c};
        else
            out += c;
    return out;
}

std::string sample_line(const std::string& name, const std::string& labels,
                        const std::string& value)
{
    return name + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
}

std::string label_text(const char* name, std::string_view value)
{
    return std::string(name) + "=\"" + escaped(value) + "\"";
}

void samples::add(long long value, std::initializer_list<label> labels)
{
    std::string all;
    for (const label& one : labels)
        all += (all.empty() ? "" : ",") + label_text(one.name, one.value);
    text += sample_line(name_, all, std::to_string(value));
}

void samples::add(const json_value& value)
{
    if (value.is_number())
        text += sample_line(name_, "", value.dump());
}

void samples::add_info(const json_value& object,
                       std::initializer_list<std::pair<const char*, const char*>> labels)
{
    std::string all;
    for (const auto& [name, field] : labels) {
        const auto at = object.find(field);
        if (at != object.end() && at->is_string())
            all += (all.empty() ? "" : ",") + label_text(name, at->get<std::string>());
    }
    if (!all.empty())
        text += sample_line(name_, all, "1");
}

bool is(const metrics_source& from, const char* field, std::string_view value)
{
    return from.status.at(field) == value;
}

void add_reasons(const metrics_source& from, samples& out)
{
    for (int reason = KELO_REASON_STOPPED; reason <= KELO_REASON_ONLINE; reason++) {
        const char* const name = kelo_reason_name(static_cast<kelo_reason>(reason));
        out.add(is(from, "reason", name), {{"reason", name}});
    }
}

void add_registered(const metrics_source& from, samples& out)
{
    const json_value& registration = from.status.at("registration");
    if (registration.is_string())
        out.add(registration.get_ref<const std::string&>().starts_with("Registered ("));
}

void add_link(const metrics_source& from, samples& out)
{
    if (!is(from, "link", "off"))
        out.add(is(from, "link", "up"));
}

void add_network(const metrics_source& from, samples& out)
{
    out.add_info(from.status, {{"operator", "operator"},
                               {"plmn", "plmn"},
                               {"technology", "technology"},
                               {"nr", "5g"},
                               {"band", "band"},
                               {"area", "area"},
                               {"cell", "cell"}});
}

void add_action(const metrics_source& from, samples& out)
{
    if (const char* const name = action_name(from.figures.action))
        out.add(from.figures.action_in_s, {{"action", name}});
}

void add_messages(const metrics_source& from, samples& out)
{
    out.add(from.counts.sent, {{"state", "sent"}});
    out.add(from.counts.failed, {{"state", "failed"}});
    out.add(from.counts.unknown, {{"state", "unknown"}});
    out.add(from.counts.not_written, {{"state", "not written"}});
    out.add(from.counts.refused, {{"state", "refused"}});
}

void add_reports(const metrics_source& from, samples& out)
{
    out.add(from.counts.delivered, {{"state", "delivered"}});
    out.add(from.counts.undelivered, {{"state", "undelivered"}});
}

void add_lost(const metrics_source& from, samples& out)
{
    out.add(from.counts.messages_lost, {{"kind", "messages"}});
    out.add(from.counts.results_lost, {{"kind", "results"}});
    out.add(from.counts.reports_lost, {{"kind", "reports"}});
}

struct metric_row {
    metric_type type;
    const char* name; // without _total and _info
    const char* unit; // the name ends with it; empty: none
    const char* help;
    void (*add)(const metrics_source& from, samples& out);
};

using source = metrics_source;
using enum metric_type;

// Labels stand behind the name in the comments. Other than version, operator, plmn, area and cell
// they have few values.
// clang-format off
constexpr metric_row rows[] = {
    {info, "kelo_build", "", "The version of this program.", // version
     [](const source&, samples& out) { out.add(1, {{"version", KELO_VERSION}}); }},
    {gauge, "kelo_process_start_time_seconds", "seconds", "When this program began, since 1970.",
     [](const source& from, samples& out) { out.add(from.process.started_at); }},
    {gauge, "kelo_process_resident_memory_bytes", "bytes", "Memory of this program.",
     [](const source& from, samples& out) { if (from.process.rss_bytes > 0) out.add(from.process.rss_bytes); }},

    {gauge, "kelo_online", "", "1: all that the settings ask for is there.",
     [](const source& from, samples& out) { out.add(is(from, "reason", "online")); }},
    {gauge, "kelo_reason", "", "1 for the reason why the device is not online, or for online; 0 for the others.", // reason
     add_reasons},
    {gauge, "kelo_registered", "", "1: registered, at home or roaming.", add_registered},
    {gauge, "kelo_link_up", "", "1: the data link is up; none where none is asked for.", add_link},
    {gauge, "kelo_sim_card", "", "The SIM slot in use.",
     [](const source& from, samples& out) { out.add(from.status.at("sim_card")); }},
    {gauge, "kelo_pin_tries", "", "Tries left for the PIN.",
     [](const source& from, samples& out) { if (from.figures.pin_tries >= 0) out.add(from.figures.pin_tries); }},
    {info, "kelo_modem", "", "The modem.", // manufacturer, model, revision
     [](const source& from, samples& out) { out.add_info(from.status, {{"manufacturer", "manufacturer"}, {"model", "model"}, {"revision", "revision"}}); }},
    {info, "kelo_network", "", "Where it is registered; nr is SA or NSA.", // operator, plmn, technology, nr, band, area, cell
     add_network},

    {gauge, "kelo_rssi_dbm", "dbm", "Received signal strength.",
     [](const source& from, samples& out) { out.add(from.status.at("signal_dbm")); }},
    {gauge, "kelo_rsrp_dbm", "dbm", "Reference signal received power of the serving cell.",
     [](const source& from, samples& out) { out.add(from.status.at("rsrp_dbm")); }},
    {gauge, "kelo_rsrq_db", "db", "Reference signal received quality of the serving cell.",
     [](const source& from, samples& out) { out.add(from.status.at("rsrq_db")); }},
    {gauge, "kelo_sinr", "", "Signal to interference and noise ratio of the serving cell, as the module scales it: mostly dB.",
     [](const source& from, samples& out) { out.add(from.status.at("sinr")); }},

    {counter, "kelo_online_seconds", "seconds", "Time online.",
     [](const source& from, samples& out) { out.add(from.figures.online_s); }},
    {counter, "kelo_offline_seconds", "seconds", "Time not online.",
     [](const source& from, samples& out) { out.add(from.figures.offline_s); }},
    {gauge, "kelo_last_outage_seconds", "seconds", "Length of the outage under way, or of the last.",
     [](const source& from, samples& out) { out.add(from.figures.last_outage_s); }},
    {gauge, "kelo_longest_outage_seconds", "seconds", "Length of the longest outage.",
     [](const source& from, samples& out) { out.add(from.figures.longest_outage_s); }},
    {gauge, "kelo_last_registration_time_seconds", "seconds", "When it registered last, since 1970.",
     [](const source& from, samples& out) { if (from.figures.registered_at > 0) out.add(from.figures.registered_at); }},
    {gauge, "kelo_next_action_seconds", "seconds", "Until the next thing that is tried; none where nothing is.", // action
     add_action},

    {counter, "kelo_link_losses", "", "Losses of a link that was up.",
     [](const source& from, samples& out) { out.add(from.figures.link_losses); }},
    {counter, "kelo_port_losses", "", "Losses of an AT port that was open.",
     [](const source& from, samples& out) { out.add(from.figures.port_losses); }},
    {counter, "kelo_dials", "", "Starts of the dialer.",
     [](const source& from, samples& out) { out.add(from.figures.dials); }},
    {counter, "kelo_starts", "", "Starts of the modem task.",
     [](const source& from, samples& out) { out.add(from.figures.starts); }},
    {counter, "kelo_reloads", "", "Reloads of the modem's settings.",
     [](const source& from, samples& out) { out.add(from.figures.reloads); }},
    {counter, "kelo_radio_resets", "", "Times that the radio was switched off and on.",
     [](const source& from, samples& out) { out.add(from.figures.radio_resets); }},
    {counter, "kelo_modem_restarts", "", "Restarts of a modem that hung.",
     [](const source& from, samples& out) { out.add(from.figures.modem_restarts); }},

    {counter, "kelo_messages_received", "", "Messages received.",
     [](const source& from, samples& out) { out.add(from.counts.received); }},
    {counter, "kelo_messages", "", "Messages to be sent, by what became of them.", // state
     add_messages},
    {counter, "kelo_message_reports", "", "Status reports on parts of messages.", // state
     add_reports},
    {counter, "kelo_lost", "", "News that the host had no room for.", // kind
     add_lost},
    {counter, "kelo_calls_received", "", "Calls.",
     [](const source& from, samples& out) { out.add(from.status.at("calls_received")); }},
    {counter, "kelo_mqtt_received", "", "MQTT messages received.",
     [](const source& from, samples& out) { out.add(from.status.at("mqtt_received")); }},
};
// clang-format on

std::string metric_text(const metric_row& row, const metrics_source& from, bool openmetrics)
{
    const char* const suffix = row.type == counter ? "_total" : row.type == info ? "_info" : "";
    const std::string sample_name = std::string(row.name) + suffix;
    samples out(sample_name);
    row.add(from, out);
    if (out.text.empty())
        return "";

    // The older format has no infos, and calls a metric as its samples are called.
    const std::string name = openmetrics ? row.name : sample_name;
    const char* const type = row.type == counter               ? "counter"
                             : row.type == info && openmetrics ? "info"
                                                               : "gauge";
    std::string text = "# TYPE " + name + " " + type + "\n";
    if (openmetrics && *row.unit != '\0')
        text += "# UNIT " + name + " " + row.unit + "\n";
    return text + "# HELP " + name + " " + row.help + "\n" + out.text;
}

} // namespace

process_figures read_process(long running_s)
{
    process_figures process;
    if (FILE* const file = std::fopen("/proc/self/statm", "re")) {
        long whole = 0, resident = 0;
        // NOLINTNEXTLINE(cert-err34-c): the kernel's own figures
        if (std::fscanf(file, "%ld %ld", &whole, &resident) == 2)
            process.rss_bytes = static_cast<long long>(resident) * sysconf(_SC_PAGESIZE);
        std::fclose(file);
    }
    // Many devices get the time of day from the network, after this program began: only then it
    // moves, and not by a second now and then.
    static long long started_at = 0;
    constexpr long long wobble_s = 5;
    const long long now = std::time(nullptr) - running_s;
    if (std::llabs(now - started_at) > wobble_s)
        started_at = now;
    process.started_at = started_at;
    return process;
}

std::string metrics_text(const metrics_source& source, metrics_format format)
{
    const bool openmetrics = format == metrics_format::openmetrics;
    std::string text;
    for (const metric_row& row : rows)
        text += metric_text(row, source, openmetrics);
    return openmetrics ? text + "# EOF\n" : text;
}

} // namespace kelo_host
