// SPDX-License-Identifier: MIT
// Quectel's MQTT client (+QMT...) and GPS receiver (+QGPS...). The broker is pretended and takes
// everything, or a real one: that of the variable mqtt_broker ("HOST:PORT"), else the one that
// AT+QMTOPEN names when it is of 127.0.0.1. The order `mqtt` makes either refuse.
//
// To a real broker, +QMTOPEN tells whether something listens there; the handshake of TLS is made
// together with the CONNECT, so that what fails in it is told by +QMTCONN.
#include "emulator/core.h"

#include <algorithm>

namespace kelo_emulator
{

namespace
{

using capture_list = std::vector<std::string>;

enum { closed = 0, opened = 1, connected = 3 }; // as +QMTCONN? counts

// The client of the first argument; null, with the error in the reply, when there is none or it is
// not as far as `least`.
mqtt_client* client(modem_core& core, const std::vector<std::string>& values, std::size_t count,
                    int least, command_reply& reply)
{
    const long number = parse_number(values[0], mqtt_clients - 1);
    if (number < 0 || values.size() < count || core.session.mqtt[number].state < least) {
        reply.final_result = "ERROR";
        return nullptr;
    }
    return &core.session.mqtt[number];
}

int result_ms(const modem_core& core)
{
    return core.get_number("mqtt_ms", 200);
}

void later(modem_core& core, command_reply& reply, const std::string& text)
{
    reply.reports.push_back({result_ms(core), text});
}

void mqtt_configure(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    const auto number = [&](std::size_t i, long limit) {
        return values.size() > i ? parse_number(values[i], limit) : -1;
    };
    const long index = number(1, mqtt_clients - 1);
    const bool ssl = values[0] == "ssl", keepalive = values[0] == "keepalive";
    const long on = number(2, ssl ? 1 : 3600);
    if (index < 0 || ((ssl || keepalive) && on < 0)) {
        reply.final_result = "ERROR";
        return;
    }
    mqtt_client& chosen = core.session.mqtt[index];
    if (ssl) {
        chosen.ssl = on == 1;
        chosen.ssl_context = static_cast<int>(std::max(number(3, ssl_contexts - 1), 0L));
    } else if (keepalive) {
        chosen.keepalive = static_cast<int>(on);
    }
}

// What the TLS context names of the RAM drive; the names are those of +QSSLCFG.
std::string tls_file(modem_core& core, const mqtt_client& from, const char* name)
{
    const auto found = core.files.find(core.session.ssl[from.ssl_context][name]);
    return found == core.files.end() ? "" : found->second;
}

int tls_level(modem_core& core, const mqtt_client& from)
{
    const long level = parse_number(core.session.ssl[from.ssl_context]["seclevel"], 2);
    return from.ssl && level > 0 ? static_cast<int>(level) : 0;
}

bool tls_files_missing(modem_core& core, const mqtt_client& from)
{
    const int level = tls_level(core, from);
    return (level > 0 && tls_file(core, from, "cacert").empty()) ||
           (level > 1 && (tls_file(core, from, "clientcert").empty() ||
                          tls_file(core, from, "clientkey").empty()));
}

// Where the client really connects to: the broker that was chosen, or one of this machine. Port 0
// is the pretended broker.
void choose_broker(modem_core& core, mqtt_client& opening, const std::string& host, long port)
{
    const std::string chosen = core.get("mqtt_broker");
    const std::size_t colon = chosen.rfind(':');
    opening.host = host;
    opening.port = 0;
    if (colon != std::string::npos) {
        opening.host = chosen.substr(0, colon);
        opening.port =
            static_cast<int>(std::max(parse_number(chosen.substr(colon + 1), 65535), 0L));
    } else if (host == "127.0.0.1" && port > 0) {
        opening.port = static_cast<int>(port);
    }
}

void mqtt_open(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    mqtt_client* opening = client(core, values, 3, closed, reply);
    if (!opening)
        return;
    const long port = parse_number(values[2], 65535);
    int result = core.faults.mqtt_open;
    if (opening->state != closed)
        result = 2; // client number in use
    else if (port <= 0 || values[1].empty())
        result = 1; // wrong parameter
    else if (!core.service())
        result = 3; // context not activated
    else if (result == 0)
        choose_broker(core, *opening, values[1], port);
    constexpr int network_error = 5;
    if (result == 0 &&
        (tls_files_missing(core, *opening) ||
         (opening->port != 0 && !broker_client::listens(opening->host, opening->port))))
        result = network_error;
    if (result == 0)
        opening->state = opened;
    later(core, reply, "+QMTOPEN: " + values[0] + "," + std::to_string(result));
}

void mqtt_connect(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    mqtt_client* connecting = client(core, values, 2, opened, reply);
    if (!connecting)
        return;
    const fault_settings& faults = core.faults;
    const bool accepted = faults.mqtt_result == 0 && faults.mqtt_refusal == 0;
    if (accepted && connecting->port != 0) {
        const bool tls = connecting->ssl;
        connecting->broker = std::make_shared<broker_client>(broker_target{
            connecting->host, connecting->port, values[1], values.size() > 2 ? values[2] : "",
            values.size() > 3 ? values[3] : "", connecting->keepalive, tls,
            tls_level(core, *connecting), tls_file(core, *connecting, "cacert"),
            tls_file(core, *connecting, "clientcert"), tls_file(core, *connecting, "clientkey")});
        const int number = static_cast<int>(parse_number(values[0], mqtt_clients - 1));
        reply.then = [&core, number] { core.watch_broker(number); };
        return;
    }
    if (accepted)
        connecting->state = connected;
    std::string text = "+QMTCONN: " + values[0] + "," + std::to_string(faults.mqtt_result);
    if (faults.mqtt_result == 0)
        text += "," + std::to_string(faults.mqtt_refusal);
    later(core, reply, text);
}

void mqtt_read(modem_core& core, const capture_list&, command_reply& reply)
{
    for (int i = 0; i < mqtt_clients; ++i)
        if (core.session.mqtt[i].state != closed)
            reply.lines.push_back("+QMTCONN: " + std::to_string(i) + "," +
                                  std::to_string(core.session.mqtt[i].state));
}

void mqtt_subscribe(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    mqtt_client* asking = client(core, values, 4, connected, reply);
    if (!asking)
        return;
    const long id = parse_number(values[1], 65535);
    const long qos = parse_number(values[3], 2);
    if (id < 1 || qos < 0)
        reply.final_result = "ERROR";
    else if (asking->broker && !core.faults.mqtt_no_topic)
        asking->broker->subscribe(static_cast<int>(id), values[2], static_cast<int>(qos));
    else
        later(core, reply,
              "+QMTSUB: " + values[0] + "," + values[1] + ",0," +
                  (core.faults.mqtt_no_topic ? "128" : values[3]));
}

void mqtt_disconnect(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    if (mqtt_client* leaving = client(core, values, 1, connected, reply)) {
        leaving->state = opened;
        leaving->broker.reset();
        later(core, reply, "+QMTDISC: " + values[0] + ",0");
    }
}

void mqtt_close(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    if (mqtt_client* closing = client(core, values, 1, opened, reply)) {
        closing->state = closed;
        closing->broker.reset();
        later(core, reply, "+QMTCLOSE: " + values[0] + ",0");
    }
}

void gps_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {core.session.gps ? "+QGPS: 1" : "+QGPS: 0"};
}

void gps_on(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (captures[0].empty() || captures[0][0] < '1' || captures[0][0] > '4')
        cme(reply, 501);
    else if (core.session.gps)
        cme(reply, 504);
    else
        core.session.gps = true;
}

void gps_off(modem_core& core, const capture_list&, command_reply& reply)
{
    if (!core.session.gps)
        cme(reply, 505);
    core.session.gps = false;
}

void gps_location(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (!core.session.gps)
        cme(reply, 505);
    else if (!core.gps_fix)
        cme(reply, 516);
    else
        reply.lines = {"+QGPSLOC: " + core.text(core.get("gps_mode" + captures[0]))};
}

constexpr builtin_row table[] = {
    {"mqtt", "AT+QMTCFG=*", mqtt_configure},
    {"mqtt", "AT+QMTOPEN=*", mqtt_open},
    {"mqtt", "AT+QMTCONN?", mqtt_read},
    {"mqtt", "AT+QMTCONN=*", mqtt_connect},
    {"mqtt", "AT+QMTSUB=*", mqtt_subscribe},
    {"mqtt", "AT+QMTDISC=*", mqtt_disconnect},
    {"mqtt", "AT+QMTCLOSE=*", mqtt_close},
    {"gps", "AT+QGPS?", gps_read},
    {"gps", "AT+QGPS=*", gps_on},
    {"gps", "AT+QGPSEND", gps_off},
    {"gps", "AT+QGPSLOC=*", gps_location},
};

} // namespace

// Looks for what the broker said, as long as this connection is the client's.
void modem_core::watch_broker(int number)
{
    constexpr int look_ms = 10;
    const std::weak_ptr<broker_client> watched = session.mqtt[number].broker;
    after(look_ms, [this, number, watched] {
        const std::shared_ptr<broker_client> broker = watched.lock();
        if (!broker)
            return;
        for (const broker_event& event : broker->take())
            broker_says(number, event);
        if (session.mqtt[number].broker == broker)
            watch_broker(number);
    });
}

void modem_core::broker_says(int number, const broker_event& event)
{
    mqtt_client& of = session.mqtt[number];
    const std::string index = std::to_string(number);
    const auto report_later = [this](const std::string& words) {
        after(result_ms(*this), [this, words] { report(words); });
    };
    switch (event.kind) {
    case broker_event::answered:
        of.state = event.code == 0 ? connected : closed;
        report_later("+QMTCONN: " + index + ",0," + std::to_string(event.code));
        break;
    case broker_event::failed:
        of.state = closed;
        report_later("+QMTCONN: " + index + ",2");
        break;
    case broker_event::subscribed:
        report_later("+QMTSUB: " + index + "," + std::to_string(event.id) + ",0," +
                     std::to_string(event.code));
        break;
    case broker_event::message: // as it is, whatever is in it
        put("\r\n+QMTRECV: " + index + "," + std::to_string(event.id) + ",\"" + event.topic +
            "\",\"" + event.payload + "\"\r\n");
        break;
    case broker_event::lost:
        of.state = closed;
        report("+QMTSTAT: " + index + ",1");
        break;
    }
    if (of.state == closed)
        of.broker.reset();
}

builtin_table data_builtins()
{
    return {table, std::size(table)};
}

} // namespace kelo_emulator
