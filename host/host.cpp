// SPDX-License-Identifier: MIT
#include "host/host.h"

#include "host/input/settings_file.h"
#include "host/log/log.h"
#include "host/log/private.h"
#include "host/log/record.h"
#include "host/serve/control_path.h"
#include "host/state/network.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelo_host
{

namespace
{

using namespace std::chrono_literals;

constexpr auto between_passes = 250ms;
constexpr auto last_results = 10s; // for messages that are going out when it is to end
constexpr auto between_reports = 1s;
constexpr int exit_no_modem = 1;
constexpr int exit_not_done = 3;

// How often the modem task was started, by whomever.
int restarts()
{
    kelo_figures figures{};
    kelo_get_figures(&figures, sizeof figures);
    return static_cast<int>(figures.starts);
}

// The keeper waits for the end of what it calls, so the command goes into the background.
void run_when_stuck(int number, void* command)
{
    const std::string line = "KELO_TRY=" + std::to_string(number) + "; export KELO_TRY; (" +
                             static_cast<const std::string*>(command)->c_str() + ") </dev/null &";
    char shell[] = "sh", option[] = "-c";
    char* const arguments[] = {shell, option, const_cast<char*>(line.c_str()), nullptr};
    pid_t child = -1;
    if (posix_spawn(&child, "/bin/sh", nullptr, nullptr, arguments, environ) == 0)
        waitpid(child, nullptr, 0);
}

void keep(const host_options& options)
{
    kelo_keeper keeper{};
    keeper.size = sizeof keeper;
    kelo_keeper_defaults(&keeper);
    std::snprintf(keeper.second_ping_target, sizeof keeper.second_ping_target, "%s",
                  options.second_ping_target.c_str());
    keeper.pin_tries_least = options.pin_tries;
    keeper.dial_spread_s = options.dial_spread_s;
    if (!options.on_stuck.empty()) {
        keeper.stuck = run_when_stuck;
        keeper.context = const_cast<std::string*>(&options.on_stuck);
    }
    kelo_keep(&keeper);
    kelo_set_port(options.port.c_str());
}

} // namespace

device_paths device_of(const host_options& options, const cellular_setting& settings)
{
    constexpr int family_from_1 = 13; // its AT port may be the one with index 1
    device_paths paths;
    const char* const path = std::getenv("PATH");
    paths.path = path != nullptr ? path : "/bin:/usr/bin";
    paths.port = options.port;
    paths.first_port = options.family == family_from_1 ? 1 : 2;
    paths.link = settings.enable != 0;
    paths.link_ping = settings.ping_enable != 0;
    return paths;
}

// Words and settings first: the library looks at them from its start on.
void host::start()
{
    keep(options_);
    is_quectel = options_.family;
    selected_card = options_.sim;
    kelo_set_sms_storage(options_.sms_storage);
    kelo_set_sms_patience(options_.join_seconds);
    needSetApn = settings_.apn[0] != '\0'; // without it the flow passes the APN over
    kelo_init_cellular(&settings_, static_cast<unsigned char>(options_.low_power));
    if (options_.dialogue)
        set_5g_debug(1); // the start has set it by /config/5Gdebug
    if (!options_.sms_number.empty())
        send(options_.sms_number, options_.sms_text);
    if (options_.gps)
        gps_.start(clock::now());
    if (options_.mqtt && !mqtt_.start(*options_.mqtt))
        display_.say("MQTT: the settings were refused");
}

void host::say_what_device_lacks()
{
    for (const look& one : check_device(device_of(options_, settings_)))
        if (!one.well)
            display_.say(line_of(one));
}

void host::hold_refused_pin_back()
{
    if (settings_.pin[0] == '\0' || !refused_pin_.stands(options_.files))
        return;
    settings_.pin[0] = '\0';
    display_.say("the SIM has refused the PIN before this start: it is not sent again until a file "
                 "that it may come from is written, or the service is stopped and started");
}

// Somebody who follows may be turning the antenna. The half minute behind him keeps one who comes
// and goes from setting the pace.
int host::between_questions(clock::time_point now)
{
    constexpr int live_s = 2, often_s = 15, rarely_s = 600; // each wakes a modem of low power
    if (http_.has_followers())
        watched_until_ = now + 30s;
    return options_.low_power != 0 ? rarely_s : now < watched_until_ ? live_s : often_s;
}

// What it is asked for goes by its model. The rest once each: a module that has no flow, or no
// profile, does less than its owner thinks.
void host::tell_module()
{
    gsm_mobile mobile{};
    const bool told = kelo_copy_mobile(&mobile) && mobile.model[0] != '\0';
    const int every_s = between_questions(clock::now());
    // The flow asks for the name once, and a busy modem's answer may miss it.
    const bool nameless = mobile.oper[0] == '\0';
    const auto asked = std::tuple(std::string(mobile.model), every_s, nameless);
    if (told && !options_.plain && asked_ != asked) {
        asked_ = asked;
        ask_for_figures(mobile.model, every_s, nameless);
    }
    if (told && !profile_told_) {
        profile_told_ = true;
        const std::string fault = profile_fault(profile_folders(), mobile.model);
        if (!fault.empty())
            display_.say(fault);
    }
    if (unknown_told_)
        return;
    const std::string unknown = unknown_module();
    unknown_told_ = !unknown.empty();
    if (unknown_told_)
        display_.say(unknown);
}

json_value host::read(clock::time_point now)
{
    if (now >= next_report_) {
        kelo_get_cellular(&report_);
        next_report_ = now + between_reports;
    }
    return read_status(news_.received(), report_, mqtt_.state());
}

// A message is shown once it is kept, and only then is the next one taken: that lets the library
// delete the one before from the modem's storage.
void host::receive(clock::time_point now)
{
    while (unkept_ || take_message(message_)) {
        unkept_ = !keep_message(now);
        if (unkept_)
            break;
    }
    count_lost("messages", kelo_messages_lost(), counts_.messages_lost);
}

bool host::keep_message(clock::time_point now)
{
    const auto kept = options_.spool.empty() ? spool::keeping::kept : spool_.keep(message_, now);
    if (kept == spool::keeping::kept) {
        news_.note_message();
        counts_.received++;
        tell("message", message_);
    }
    return kept != spool::keeping::not_yet;
}

void host::take_results()
{
    kelo_sms_result result{};
    while (kelo_take_sms_result(&result, sizeof result)) {
        count(counts_, result);
        outgoing_.note(result);
        spool_.note(result);
        tell("result", result);
    }
    kelo_sms_report report{};
    while (kelo_take_sms_report(&report, sizeof report)) {
        count(counts_, report);
        spool_.note(report);
        tell("report", report);
    }
    count_lost("results", kelo_sms_results_lost(), counts_.results_lost);
    count_lost("reports", kelo_sms_reports_lost(), counts_.reports_lost);
}

void host::count_lost(const char* what, int lost, int& before)
{
    if (lost != before)
        display_.say(std::string(what) +
                     " lost, too many at once: " + std::to_string(lost - before));
    before = lost;
}

template <typename news_item> void host::tell(const char* type, const news_item& one)
{
    feed_.tell(type, json_of(one));
    display_.show(lines_of(one));
}

int host::send(const std::string& number, const std::string& text)
{
    kelo_sms_options options{};
    options.size = sizeof options;
    kelo_sms_options_defaults(&options);
    if (options_.sms_validity)
        options.validity = *options_.sms_validity;
    options.report = options_.sms_report;
    options.flash = options_.sms_flash;
    return outgoing_.add(number, text, options);
}

std::string host::change(const cellular_setting& settings)
{
    const bool restart = apply_change(settings_, settings, mode_);
    if (!changed_settings(settings_, settings).empty())
        feed_.tell("settings", settings_of(settings_, settings, restart));
    settings_ = settings;
    return restart ? "new settings: the modem task restarts" : "new settings are in use";
}

void host::reread()
{
    cellular_setting settings = options_.settings;
    const auto errors = read_settings_file(options_.settings_file, settings);
    for (const std::string& error : errors)
        display_.say(printable(error));
    display_.say(errors.empty() ? change(settings) : "the settings stay as they were");
}

json_value host::asked_status(clock::time_point now)
{
    json_value status = status_.is_null() ? read(now) : status_;
    const reason_row* const why = row_of(std::string(status["reason"]));
    status["meaning"] = why != nullptr ? why->meaning : "";
    status["running_s"] = seconds();
    return status;
}

reply host::ask(const user_command& command) const
{
    if (!options_.allow_at)
        return {false, "AT commands are not allowed: start kelo-host with --allow-at"};
    const int number = kelo_ask(command.text.c_str(), static_cast<unsigned>(command.timeout_s));
    return number > 0 ? reply{true, "", number} : reply{false, kelo_ask_fault_text(number)};
}

reply host::act(const user_command& command, clock::time_point now)
{
    switch (command.verb) {
    case command_verb::nothing:
        return {};
    case command_verb::sim:
        mobile_select_simcard(command.sim);
        cellular_module_restart_extern(); // it brings that SIM's settings to the modem
        return {true,
                "SIM " + std::to_string(command.sim) + " is asked for: the modem task restarts"};
    case command_verb::set: {
        cellular_setting settings = settings_;
        const std::string error = set_settings(settings, command.settings);
        return error.empty() ? reply{true, change(settings)}
                             : reply{false, "set: " + printable(error)};
    }
    case command_verb::restart:
        cellular_module_restart_extern();
        return {true, "the modem task restarts"};
    case command_verb::reload:
        return cellular_reload() == 0 ? reply{true, "the reload flow runs"}
                                      : reply{false, "no reload during a start or restart"};
    case command_verb::sms: {
        const int number = send(command.number, command.text);
        return {number > 0, "", number};
    }
    case command_verb::gps:
        gps_.start(now);
        return {};
    case command_verb::help:
        return {true, command_help()};
    case command_verb::quit:
        quit_ = true;
        return {};
    case command_verb::status:
        return {true, "", 0, {{"status", asked_status(now)}}};
    case command_verb::figures:
        return {true, "", 0, {{"figures", read_figures(counts_, seconds())}}};
    case command_verb::watch: // the control socket tells what follows
        return {true, "", 0, {{"status", asked_status(now)}}};
    case command_verb::at:
        return ask(command);
    case command_verb::messages:
    case command_verb::results: // it has them
        return {};
    }
    return {};
}

void host::run_command(const std::string& line, clock::time_point now)
{
    std::string error;
    const auto command = parse_command(line, error);
    const reply given = command ? act(*command, now) : reply{false, printable(error)};
    if (!given.line.empty())
        display_.say(given.line);
}

void host::pass(clock::time_point now)
{
    if (signals_.take_reread())
        reread();
    while (const auto line = input_.next_line())
        run_command(*line, now);
    tell_module();
    news_.pass(now, mqtt_.topic());
    receive(now);
    take_results();
    outgoing_.pass(now);
    if (!options_.spool.empty())
        spool_.pass(now);
    mqtt_.pass(now, restarts());
    gps_.pass(now);
    control_.pass();
    if (const std::string fault = pass_recording(); !fault.empty())
        display_.say(printable(fault));
    show_status(read(now));
    history_.add(status_, now);
    const kelo_reason reason = kelo_get_reason();
    if (reason == KELO_REASON_PIN_REFUSED)
        refused_pin_.note();
    manager_.pass(now, line_of(reason));
    metrics_file_.pass(now, [this] { return metrics(metrics_format::text); });
    reached_ = goal_ != nullptr && goal_->holds();
}

void host::show_status(json_value status)
{
    if (status != status_)
        feed_.tell("status", status);
    watcher_.look(status);
    display_.update(status, seconds());
    status_ = std::move(status);
}

json_value host::open_to_all(const json_value& object) const
{
    return options_.show_private ? object : masked(object);
}

std::string host::metrics(metrics_format format) const
{
    kelo_figures figures{};
    kelo_get_figures(&figures, sizeof figures);
    const json_value status = open_to_all(status_);
    return metrics_text({status, figures, counts_, read_process(seconds())}, format);
}

http_source host::pages()
{
    return {.status =
                [this] {
                    json_value status = status_;
                    status["figures"] = read_figures(counts_, seconds());
                    return stamped("status", open_to_all(status));
                },
            .figures = [this] { return stamped("figures", read_figures(counts_, seconds())); },
            .history =
                [this] {
                    const json_value empty = json_value::object();
                    std::string head = to_text(stamped("history", empty));
                    head.pop_back();
                    return head + ",\"fields\":" + sample_fields +
                           ",\"samples\":" + history_.text(clock::now()) + "}";
                },
            .metrics = [this](metrics_format format) { return metrics(format); }};
}

bool host::open_http()
{
    if (options_.http.length == 0)
        return true;
    const std::string fault = http_.open(options_.http);
    if (!fault.empty()) {
        display_.say("--http: " + fault);
        return false;
    }
    display_.say("listening on " + http_.url());
    feed_.follow([this](const json_value& happening) {
        if (http_.has_followers())
            http_.tell(open_to_all(happening));
    });
    return true;
}

bool host::is_over(clock::time_point now) const
{
    if (signals_.stop_seen() || quit_ || reached_)
        return true;
    if (options_.seconds)
        return now - begun_ >= std::chrono::seconds(*options_.seconds);
    const bool has_end = (!options_.sms_number.empty() || options_.gps) && !options_.commands &&
                         !options_.mqtt && options_.spool.empty();
    return has_end && !outgoing_.busy() && !gps_.busy();
}

// Bounded, since a start or restart that is under way refuses the stop until it is through. The
// first line waits for an MQTT attempt under way: seconds.
void host::stop_modem()
{
    kelo_deinit_cellular();
    for (int tries = 0; cellular_stop() != 0; tries++) {
        if (tries == 60)
            return display_.say("the modem task did not stop within a minute: leaving it");
        poll(nullptr, 0, 1000);
    }
}

// What a file's message is about to come to is waited for, so that a stop leaves none unknown.
void host::end_messages()
{
    spool_.stop();
    for (const auto until = clock::now() + last_results;
         spool_.is_sending() && clock::now() < until;) {
        poll(nullptr, 0, 250);
        take_results();
        spool_.pass(clock::now());
    }
}

// Only one that was asked for has to be there: elsewhere a host without it is better than none.
std::string host::open_control()
{
    if (!options_.control)
        return "";
    const bool asked = !options_.control_path.empty() || !options_.control_group.empty();
    const std::filesystem::path path =
        options_.control_path.empty() ? default_control_path : options_.control_path;
    if (path == default_control_path)
        mkdir(path.parent_path().c_str(), 0755);
    const std::string fault = control_.open(loop_, feed_, path, options_.control_group);
    if (fault.empty() || asked)
        return fault.empty() ? "" : "no control socket: " + fault;
    display_.say("no control socket: " + printable(fault) +
                 "; --control names another place, --no-control wants none");
    return "";
}

int host::run()
{
    if (!signals_.install(loop_, !options_.settings_file.empty())) {
        std::perror("kelo-host: signals");
        return exit_usage;
    }
    if (options_.json)
        feed_.follow(
            [this](const json_value& happening) { display_.show(open_to_all(happening)); });
    if (!open_http())
        return exit_usage;
    start_log({.fd = display_.log_descriptor(),
               .most = static_cast<kelo_log_level>(options_.log_level.value_or(KELO_LOG_DEBUG)),
               .show_private = options_.show_private});
    if (!options_.spool.empty()) {
        const std::string fault = spool_.open(options_.spool);
        if (!fault.empty()) {
            display_.say(printable(fault));
            return exit_usage;
        }
        loop_.watch(spool_.descriptor(), [] { return true; }); // read in its pass
    }
    if (!options_.record.empty()) {
        const std::string fault = start_recording({.path = options_.record,
                                                   .most_bytes = options_.record_mib * (1LL << 20),
                                                   .show_private = options_.show_private});
        if (!fault.empty()) {
            display_.say(printable(fault));
            return exit_usage;
        }
    }
    if (const std::string fault = open_control(); !fault.empty()) {
        display_.say(printable(fault));
        return exit_usage;
    }
    if (options_.commands)
        input_.open(loop_, STDIN_FILENO);
    say_what_device_lacks();
    hold_refused_pin_back();
    start();
    while (!is_over(clock::now())) {
        pass(clock::now());
        loop_.wait(between_passes);
    }

    manager_.stopping();
    control_.close("the host ends");
    reached_ = reached_ || (goal_ != nullptr && goal_->holds());
    // The last state of the running modem: the stop itself clears the status word.
    if (!options_.spool.empty())
        end_messages();
    show_status(read(clock::now()));
    const kelo_reason reason = kelo_get_reason();
    const std::string why = line_of(reason);
    const long waited_s = seconds();
    stop_modem();
    stop_recording();
    receive(clock::now());
    take_results();
    if (!options_.spool.empty())
        spool_.pass(clock::now());
    metrics_file_.remove();
    display_.finish(status_, seconds());
    if (outgoing_.busy())
        display_.say("stopped with a message not known to be sent");
    return exit_status(!status_.at("model").is_null(), reason, why, waited_s);
}

int host::exit_status(bool told_model, kelo_reason reason, const std::string& why, long waited_s)
{
    if (goal_ != nullptr && !reached_) {
        display_.say("not " + options_.until + " after " + std::to_string(waited_s) + " s: " + why);
        return static_cast<int>(row_of(reason).group);
    }
    if (!told_model && !reached_) {
        display_.say(why);
        return exit_no_modem;
    }
    const int unknown = outgoing_.not_sent() + (outgoing_.busy() ? 1 : 0);
    return unknown + gps_.not_found() + (gps_.busy() ? 1 : 0) != 0 ? exit_not_done : 0;
}

} // namespace kelo_host
