// SPDX-License-Identifier: MIT
#include "host/services.h"

#include "host/state/happenings.h"

#include <kelo/gps.h>
#include <kelo/gsm.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <utility>

namespace kelo_host
{

namespace
{

using namespace std::chrono_literals;

constexpr auto between_updates = 5s;
constexpr auto between_gps_tries = 1s;
constexpr auto between_gps_ons = 30s;
constexpr auto position_within = 300s; // a cold start takes minutes
constexpr size_t most_reports = 32;

// From the library's callbacks, which run on its thread and must not hold it up.
std::atomic<int> confirmed{0};
std::mutex reports_mutex;
std::deque<std::string> reports;

void on_done(int result)
{
    if (result == 1)
        confirmed.store(1);
}

void on_report(const char* text)
{
    const std::lock_guard hold(reports_mutex);
    if (reports.size() < most_reports)
        reports.emplace_back(text);
}

std::deque<std::string> take_reports()
{
    const std::lock_guard hold(reports_mutex);
    return std::exchange(reports, {});
}

} // namespace

bool mqtt_client::start(const mqtt_config& config)
{
    config_ = config;
    config_.mqtt_done_callback = on_done;
    kelo_set_urc_callback(on_report);
    kelo_set_mqtt_backoff(1);
    active_ = kelo_set_cellular_wake(&config_) == 0;
    return active_;
}

void mqtt_client::pass(clock::time_point now, int restarts)
{
    if (!active_)
        return;
    if (confirmed.exchange(0)) {
        subscribed_ = true;
        wanted_ = false;
        say_("MQTT: subscribed to " + printable(config_.topic));
        feed_.tell("mqtt", mqtt_of("subscribed", config_.topic));
    }
    for (const std::string& report : take_reports()) {
        say_("MQTT: " + printable(report));
        feed_.tell("mqtt", mqtt_of("lost", config_.topic, report));
        wanted_ = true;
    }
    if (restarts != restarts_) {
        restarts_ = restarts;
        wanted_ = wanted_ || subscribed_;
    }
    if (!wanted_ || now < next_)
        return;
    // While an update is pending the library tries again by itself.
    wanted_ = subscribed_ = false;
    if (kelo_check_mqtt_update())
        return;
    next_ = now + between_updates;
    say_("MQTT: the subscription is lost, bringing it up again");
    kelo_set_cellular_wake(&config_);
}

const char* mqtt_client::state() const
{
    return !active_ ? "off" : subscribed_ ? "subscribed" : "connecting";
}

void gps_engine::start(clock::time_point now)
{
    if (state_ != state::off)
        return say_("GPS: a position is asked for already");
    state_ = state::wanted;
    begun_ = next_ = now;
    position_.clear();
}

void gps_engine::pass(clock::time_point now)
{
    if (state_ == state::off || now < next_)
        return;
    next_ = now + between_gps_tries;
    if (now - begun_ >= position_within) {
        not_found_++;
        say_("GPS: no position in 300 s");
        return stop();
    }
    // Behind the first flow: the engine's OK must not end one of its commands.
    if (state_ == state::wanted) {
        if (mobile_is_ready() && kelo_set_gps_on() == 0 && kelo_start_gps_location() == 0) {
            state_ = state::running;
            next_on_ = now + between_gps_ons;
            say_("GPS: the engine is on, waiting for a position");
        }
        return;
    }
    char position[KELO_GPS_LOCATION_SIZE] = "";
    if (!kelo_get_gps_location(position)) {
        // A modem that has restarted, or did not hear, is asked in vain; one that has it on says
        // so.
        if (now >= next_on_ && mobile_is_ready() && kelo_set_gps_on() == 0)
            next_on_ = now + between_gps_ons;
        return;
    }
    position_ = printable(position);
    say_("GPS: " + position_);
    feed_.tell("position", position_of(position));
    stop();
}

void gps_engine::stop()
{
    if (state_ == state::running)
        kelo_stop_gps_location();
    state_ = state::off;
}

} // namespace kelo_host
