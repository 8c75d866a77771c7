// Quectel's MQTT client (+QMT...) and GPS receiver (+QGPS...). The broker takes everything unless
// the order `mqtt` says otherwise.
#include "core.h"

namespace kelo_emulator
{

namespace
{

using Captures = std::vector<std::string>;

enum { closed = 0, opened = 1, connected = 3 }; // as +QMTCONN? counts

// The client of the first argument; null, with the error in the reply, when there is none or it is
// not as far as `least`.
int* client(Core& core, const std::vector<std::string>& values, std::size_t count, int least,
            Reply& reply)
{
    const long number = parse_number(values[0], mqtt_clients - 1);
    if (number < 0 || values.size() < count || core.session.mqtt[number] < least) {
        reply.final_result = "ERROR";
        return nullptr;
    }
    return &core.session.mqtt[number];
}

void later(Core& core, Reply& reply, const std::string& text)
{
    reply.reports.push_back({core.get_number("mqtt_ms", 200), text});
}

void mqtt_open(Core& core, const Captures& captures, Reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    int* state = client(core, values, 3, closed, reply);
    if (!state)
        return;
    const int result = *state != closed  ? 2 // client number in use
                       : !core.service() ? 3 // context not activated
                                         : core.faults.mqtt_open;
    if (result == 0)
        *state = opened;
    later(core, reply, "+QMTOPEN: " + values[0] + "," + std::to_string(result));
}

void mqtt_connect(Core& core, const Captures& captures, Reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    int* state = client(core, values, 2, opened, reply);
    if (!state)
        return;
    const Faults& faults = core.faults;
    if (faults.mqtt_result == 0 && faults.mqtt_refusal == 0)
        *state = connected;
    std::string text = "+QMTCONN: " + values[0] + "," + std::to_string(faults.mqtt_result);
    if (faults.mqtt_result == 0)
        text += "," + std::to_string(faults.mqtt_refusal);
    later(core, reply, text);
}

void mqtt_read(Core& core, const Captures&, Reply& reply)
{
    for (int i = 0; i < mqtt_clients; ++i)
        if (core.session.mqtt[i] != closed)
            reply.lines.push_back("+QMTCONN: " + std::to_string(i) + "," +
                                  std::to_string(core.session.mqtt[i]));
}

void mqtt_subscribe(Core& core, const Captures& captures, Reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    if (client(core, values, 4, connected, reply))
        later(core, reply,
              "+QMTSUB: " + values[0] + "," + values[1] + ",0," +
                  (core.faults.mqtt_no_topic ? "128" : values[3]));
}

void mqtt_disconnect(Core& core, const Captures& captures, Reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    if (int* state = client(core, values, 1, connected, reply)) {
        *state = opened;
        later(core, reply, "+QMTDISC: " + values[0] + ",0");
    }
}

void mqtt_close(Core& core, const Captures& captures, Reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    if (int* state = client(core, values, 1, opened, reply)) {
        *state = closed;
        later(core, reply, "+QMTCLOSE: " + values[0] + ",0");
    }
}

void gps_read(Core& core, const Captures&, Reply& reply)
{
    reply.lines = {core.session.gps ? "+QGPS: 1" : "+QGPS: 0"};
}

void gps_on(Core& core, const Captures& captures, Reply& reply)
{
    if (captures[0].empty() || captures[0][0] < '1' || captures[0][0] > '4')
        cme(reply, 501);
    else if (core.session.gps)
        cme(reply, 504);
    else
        core.session.gps = true;
}

void gps_off(Core& core, const Captures&, Reply& reply)
{
    if (!core.session.gps)
        cme(reply, 505);
    core.session.gps = false;
}

void gps_location(Core& core, const Captures& captures, Reply& reply)
{
    if (!core.session.gps)
        cme(reply, 505);
    else if (!core.gps_fix)
        cme(reply, 516);
    else
        reply.lines = {"+QGPSLOC: " + core.text(core.get("gps_mode" + captures[0]))};
}

constexpr Builtin table[] = {
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

Builtins data_builtins()
{
    return {table, std::size(table)};
}

} // namespace kelo_emulator
