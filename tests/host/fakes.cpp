// SPDX-License-Identifier: MIT
#include "tests/host/fakes.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <utility>

namespace kelo_host
{

fake_modem fake;
fake_messages fake_sms;

void note(const std::string& line)
{
    fake.log += line + ";";
}

void fresh_library()
{
    cellular_gsm_init(0);
    g_mobile.fd = 0;
    std::snprintf(g_mobile.at_dev, sizeof g_mobile.at_dev, "/dev/null");
}

moment at_ms(int ms)
{
    return moment{} + std::chrono::hours(1) + std::chrono::milliseconds(ms);
}

void walk(const std::function<void(moment)>& pass, std::initializer_list<step> steps)
{
    for (const step& one : steps) {
        if (one.happens)
            one.happens();
        pass(at_ms(one.ms));
        EXPECT_EQ(std::exchange(fake.log, ""), one.log) << "at " << one.ms << " ms";
    }
}

int answer(const char* call, int result)
{
    note(call);
    return result;
}

} // namespace kelo_host

using namespace kelo_host;

// clang-format off
int cellular_module_restart_extern() { return answer("restart", 0); }
int cellular_reload() { cell_reload_flag = fake.reload != 0; return answer("reload", fake.reload); }
int kelo_set_cellular(const cellular_setting*) { return answer("all", 1); }
int kelo_set_cellular_but_mode(const cellular_setting*) { return answer("but mode", 1); }
void kelo_cellular_restart(const cellular_setting*) { note("restart"); }
int kelo_set_gps_on() { return answer("on", fake.gps_on); }
int kelo_start_gps_location() { return answer("start", fake.gps_start); }
int kelo_stop_gps_location() { return answer("stop", 0); }
int kelo_get_gps_location(char* buffer)
{
    return std::snprintf(buffer, KELO_GPS_LOCATION_SIZE, "%s", std::exchange(fake.position, "").c_str()) > 0;
}
int kelo_set_cellular_wake(const mqtt_config* config)
{
    fake.mqtt_done = config->mqtt_done_callback;
    return answer(config->topic, fake.mqtt_wake);
}
int kelo_check_mqtt_update() { return fake.mqtt_pending; }
int kelo_set_urc_callback(mqtt_urc_handler callback) { fake.mqtt_report = callback; return 0; }
int kelo_set_mqtt_backoff(int on) { return answer(on ? "backoff" : "", 0); }
int kelo_sms_options_defaults(kelo_sms_options* options) { options->validity = 7; return 0; }
int kelo_send_sms(const char* number, const char* text, const kelo_sms_options* options)
{
    if (fake_sms.refuse > 0 && fake_sms.refuse--)
        return 0;
    fake_sms.handed.push_back({number, text, *options});
    return static_cast<int>(fake_sms.handed.size());
}
int kelo_cancel_sms(int) { return fake_sms.cancel; }
const char* kelo_sms_state_name(int state) { return state == KELO_SMS_SENT ? "sent" : "?"; }
int kelo_get_message_parts(unsigned long long*, int) { return 0; }
int kelo_take_message(kelo_message* message, size_t, char* text, size_t size)
{
    if (fake_sms.waiting.empty())
        return 0;
    const auto& [head, words] = fake_sms.waiting.front();
    *message = head;
    message->length = static_cast<int>(words.size());
    if (size <= words.size())
        return -1;
    std::memcpy(text, words.c_str(), words.size() + 1);
    fake_sms.waiting.erase(fake_sms.waiting.begin());
    return 1;
}
