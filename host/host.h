// SPDX-License-Identifier: MIT
// The host of one modem: starts the library, acts on what it and its user say, and tells both.
#pragma once

#include "host/display.h"
#include "host/input/commands.h"
#include "host/look/check_device.h"
#include "host/loop.h"
#include "host/messages/messages.h"
#include "host/messages/spool.h"
#include "host/options.h"
#include "host/serve/control.h"
#include "host/serve/http.h"
#include "host/serve/metrics_file.h"
#include "host/serve/service_manager.h"
#include "host/services.h"
#include "host/state/feed.h"
#include "host/state/figures.h"
#include "host/state/happenings.h"
#include "host/state/history.h"
#include "host/state/news.h"
#include "host/state/reasons.h"
#include "host/state/refused_pin.h"

#include <kelo/kelo.h>

#include <chrono>
#include <string>
#include <tuple>

namespace kelo_host
{

class host
{
  public:
    using clock = std::chrono::steady_clock;

    host(const host_options& options, const cellular_setting& settings)
        : options_(options), settings_(settings), display_(options.json, options.show_private),
          news_(say_, feed_), spool_(say_), outgoing_(say_), mqtt_(say_, feed_), gps_(say_, feed_),
          metrics_file_(options.metrics_file, say_), http_(loop_.base(), pages())
    {
    }

    // To its end; returns the exit status. Once.
    int run();

  private:
    void start();
    void say_what_device_lacks();
    void hold_refused_pin_back();
    void tell_module();
    int between_questions(clock::time_point now);
    int exit_status(bool told_model, kelo_reason reason, const std::string& why, long waited_s);
    void pass(clock::time_point now);
    void receive(clock::time_point now);
    bool keep_message(clock::time_point now);
    void take_results();
    void count_lost(const char* what, int lost, int& before);
    int send(const std::string& number, const std::string& text);
    void end_messages();
    void run_command(const std::string& line, clock::time_point now);
    reply act(const user_command& command, clock::time_point now);
    json_value asked_status(clock::time_point now);
    reply ask(const user_command& command) const;
    std::string open_control();
    std::string change(const cellular_setting& settings);
    void reread();
    void stop_modem();
    bool is_over(clock::time_point now) const;
    json_value read(clock::time_point now);
    void show_status(json_value status);
    bool open_http();
    http_source pages();
    std::string metrics(metrics_format format) const;
    json_value open_to_all(const json_value& object) const;
    template <typename news_item> void tell(const char* type, const news_item& one);
    long seconds() const
    {
        return static_cast<long>(
            std::chrono::duration_cast<std::chrono::seconds>(clock::now() - begun_).count());
    }

    const host_options& options_;
    cellular_setting settings_;
    service_manager manager_;
    refused_pin refused_pin_;
    loop loop_;
    signals signals_;
    input_lines input_;
    display display_;
    feed feed_;
    const speaker say_ = [this](const std::string& line) { display_.say(line); };
    news news_;
    spool spool_;
    outgoing outgoing_;
    mqtt_client mqtt_;
    gps_engine gps_;
    whole_message message_; // the last that was taken,
    bool unkept_ = false;   // which is still to be kept
    json_value status_;     // as it was told last
    watcher watcher_{feed_};
    cellular_status report_{};
    clock::time_point next_report_{};
    const clock::time_point begun_ = clock::now();
    message_counts counts_;
    history history_;
    metrics_file metrics_file_;
    http_server http_;
    int mode_ = settings_.net_mode;
    const goal* const goal_ = goal_named(options_.until);
    bool reached_ = false, profile_told_ = false, unknown_told_ = false;
    std::tuple<std::string, int, bool> asked_; // of which model, how often, for its operator's name
    clock::time_point watched_until_{};
    bool quit_ = false;
    control control_{say_,
                     {[this](const user_command& command) { return act(command, clock::now()); },
                      [this](int number) { return outgoing_.waits_for(number); },
                      [this] { return gps_.busy(); }, [this] { return gps_.position(); }}};
};

// What this device needs for that.
device_paths device_of(const host_options& options, const cellular_setting& settings);

} // namespace kelo_host
