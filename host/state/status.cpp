// SPDX-License-Identifier: MIT
#include "host/state/status.h"

#include "host/state/network.h"
#include "host/state/reasons.h"

#include <kelo/kelo.h>

#include <cstdio>
#include <iterator>

namespace kelo_host
{

namespace
{

// The library writes its exported words on threads of its own.
int word(const int& exported)
{
    return __atomic_load_n(&exported, __ATOMIC_RELAXED);
}

const char* sim_text()
{
    const int status = get_sim_status();
    if (status < 0)
        return "failed";
    if (word(is_pin_ready))
        return status ? "ready, registered" : "ready";
    return status ? "up" : "not ready";
}

// Text of one value for people.
std::string show(const json_value& value)
{
    if (value.is_null())
        return "-";
    if (value.is_string())
        return value.get<std::string>();
    return value.dump();
}

std::string bars(const json_value& dbm)
{
    constexpr int full = 5;
    int lit = 0;
    if (!dbm.is_null())
        for (const int limit : {-112, -95, -85, -75, -65})
            lit += dbm.get<int>() >= limit;
    return "[" + std::string(static_cast<size_t>(lit), '#') +
           std::string(static_cast<size_t>(full - lit), '.') + "]";
}

std::string fit(const std::string& text, size_t width)
{
    size_t at = 0;
    for (size_t count = 0; at < text.size() && count < width; count++)
        at += std::max<size_t>(utf8_length(std::string_view(text).substr(at)), 1);
    return text.substr(0, at);
}

} // namespace

json_value text_or_null(std::string_view text)
{
    return text.empty() ? json_value(nullptr) : json_value(printable(text));
}

json_value signal_dbm(int rssi)
{
    if (rssi >= 1 && rssi <= 31)
        return -113 + 2 * rssi;
    if (rssi >= 100 && rssi <= 191)
        return rssi - 216;
    return nullptr; // 0 too: it is what stands there before the first report
}

json_value read_status(const received_counts& received, const cellular_status& report,
                       const char* mqtt)
{
    constexpr const char* net_types[] = {"none", "5G", "4G", "3G"};
    constexpr const char* sim_states[] = {"failed or missing", "present", "identified"};
    const auto name_of = [](const auto& names, int at) {
        return at >= 0 && static_cast<size_t>(at) < std::size(names) ? json_value(names[at])
                                                                     : json_value(nullptr);
    };
    gsm_mobile mobile{};
    const bool has_record = kelo_copy_mobile(&mobile) != 0;
    char text[64] = "";
    libgsm_get_modem_status(text, sizeof text, cellular_get_cur_status());
    const char* registration = has_record ? libgsm_get_network_info() : nullptr;

    json_value status;
    status["status"] = printable(text);
    const kelo_reason reason = kelo_get_reason();
    status["reason"] = kelo_reason_name(reason);
    status["hint"] = text_or_null(row_of(reason).hint);
    status["link"] = !word(g_netWorkCardFlag) ? "off" : kelo_get_connect_status() ? "up" : "down";
    status["net_type"] = name_of(net_types, report.net_type);
    status["registration"] = text_or_null(registration ? registration : "");
    add_network(status, mobile);
    status["sim"] = sim_text();
    status["sim_state"] = name_of(sim_states, report.sim_state);
    status["sim_card"] = word(selected_card);
    status["imsi"] = text_or_null(mobile.imsi);
    status["iccid"] = text_or_null(mobile.iccid);
    status["number"] = text_or_null(mobile.number);
    status["manufacturer"] = text_or_null(mobile.mfrs);
    status["model"] = text_or_null(mobile.model);
    status["revision"] = text_or_null(mobile.revision);
    status["serial"] = text_or_null(mobile.sn);
    status["port"] =
        mobile.fd >= 0 && has_record ? text_or_null(mobile.at_dev) : json_value(nullptr);
    status["mqtt"] = mqtt;
    status["sms_received"] = received.sms;
    status["calls_received"] = received.calls;
    status["mqtt_received"] = received.mqtt;
    return status;
}

std::vector<std::string> changes(const json_value& before, const json_value& now)
{
    std::vector<std::string> lines;
    for (const auto& [name, value] : now.items()) {
        const json_value old = before.is_object() ? before.value(name, json_value()) : json_value();
        if (old != value)
            lines.push_back(name + ": " + show(old) + " -> " + show(value));
    }
    return lines;
}

std::vector<std::string> screen(const json_value& status, long seconds, size_t width)
{
    const auto s = [&](const char* name) { return show(status.at(name)); };
    char up[32];
    std::snprintf(up, sizeof up, "%02ld:%02ld:%02ld", seconds / 3600, seconds / 60 % 60,
                  seconds % 60);

    const std::string fifth = status.at("5g").is_null() ? "" : "  5G " + s("5g");
    const std::string dbm =
        status.at("signal_dbm").is_null() ? "unknown" : s("signal_dbm") + " dBm";
    const reason_row* const why = row_of(s("reason"));
    const std::string meaning = why != nullptr ? std::string(", ") + why->meaning : "";
    std::vector<std::string> lines = {
        "kelo-host " + std::string(up) + "   " + s("status") + "   " + s("reason") + meaning,
        std::string(std::min<size_t>(width, 78), '-'),
        "Link          " + s("link") + "  net type " + s("net_type") + "  MQTT " + s("mqtt"),
        "Registration  " + s("registration"),
        "Operator      " + s("operator") + "  (" + s("plmn") + ")",
        "Technology    " + s("technology") + fifth + "  band " + s("band") + "  channel " +
            s("channel"),
        "Cell          " + s("cell") + "  area " + s("area") + "  pcid " + s("pcid") + "  RSRP " +
            s("rsrp_dbm") + " dBm  RSRQ " + s("rsrq_db") + " dB  SINR " + s("sinr"),
        "Signal        " + bars(status.at("signal_dbm")) + " " + dbm,
        "SIM " + s("sim_card") + "         " + s("sim") + ", " + s("sim_state") + "  number " +
            s("number"),
        "ICCID, IMSI   " + s("iccid") + "  " + s("imsi"),
        "Modem         " + s("manufacturer") + " " + s("model") + "  " + s("revision"),
        "Serial, port  " + s("serial") + "  " + s("port"),
        "Received      SMS " + s("sms_received") + "  calls " + s("calls_received") + "  MQTT " +
            s("mqtt_received"),
    };
    for (std::string& line : lines)
        line = fit(line, width);
    return lines;
}

std::string to_text(const json_value& status)
{
    return status.dump(-1, ' ', false, json_value::error_handler_t::replace);
}

} // namespace kelo_host
