// kelo-host: the host of one modem, ready to run on a device, and an example of the calls.
#include "host/check_device.h"
#include "host/check_profiles.h"
#include "host/commands.h"
#include "host/custom_file.h"
#include "host/display.h"
#include "host/log.h"
#include "host/messages.h"
#include "host/news.h"
#include "host/options.h"
#include "host/reasons.h"
#include "host/services.h"
#include "host/settings_file.h"
#include "host/spool.h"

#include <kelo/kelo.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace kelo_host;
using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

constexpr int poll_ms = 250;
constexpr auto last_results = 10s; // for messages that are going out when it is to end
constexpr auto between_reports = 1s;
constexpr int exit_no_modem = 1;
constexpr int exit_not_done = 3;

// All that the handlers do is write to a pipe, which the main loop waits at.
int signal_pipe[2] = {-1, -1};
volatile sig_atomic_t stop_seen = 0, reread_seen = 0;

void wake()
{
    const int saved = errno;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(signal_pipe[1], &byte, 1);
    errno = saved;
}

void on_stop(int number)
{
    if (stop_seen)
        _exit(128 + number); // asked twice: a stop may wait for the modem, we do not
    stop_seen = 1;
    wake();
}

void on_reread(int)
{
    reread_seen = 1;
    wake();
}

bool install(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    return sigaction(number, &action, nullptr) == 0;
}

bool install_signals(bool reread)
{
    // A reader that goes away must not take the modem with it. The programs that the library starts
    // have the signal as ever.
    return pipe2(signal_pipe, O_CLOEXEC | O_NONBLOCK) == 0 && install(SIGINT, on_stop) &&
           install(SIGTERM, on_stop) && install(SIGPIPE, SIG_IGN) &&
           (!reread || install(SIGHUP, on_reread));
}

// Lines of standard input, as they come.
class input_lines
{
  public:
    explicit input_lines(bool open) : open_(open) {}

    // Waits for a signal, for input, or for another descriptor, if there is one.
    void wait(int ms, int other)
    {
        pollfd entries[] = {{signal_pipe[0], POLLIN, 0},
                            {open_ ? STDIN_FILENO : -1, POLLIN, 0},
                            {other, POLLIN, 0}};
        poll(entries, std::size(entries), ms);
        char bytes[256];
        if (entries[0].revents != 0)
            while (read(signal_pipe[0], bytes, sizeof bytes) > 0) {
            }
        if (!open_ || entries[1].revents == 0)
            return;
        const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
        open_ = count > 0 || (count < 0 && (errno == EINTR || errno == EAGAIN));
        if (count > 0)
            text_.append(bytes, static_cast<size_t>(count));
    }

    std::optional<std::string> next_line()
    {
        constexpr size_t longest = 65536; // a message of 255 parts
        const size_t end = text_.find('\n');
        if (end == text_.npos) {
            if (text_.size() > longest)
                text_.clear();
            if (open_ || text_.empty())
                return std::nullopt;
            return std::exchange(text_, ""); // the last line, without its end
        }
        std::string line = text_.substr(0, end);
        text_.erase(0, end + 1);
        return line;
    }

  private:
    bool open_;
    std::string text_;
};

int run_check(const std::string& folder)
{
    const auto findings = check_profiles(folder);
    for (const finding& one : findings) {
        std::string place = folder;
        if (!one.file.empty())
            place += "/" + one.file;
        if (one.line > 0)
            place += ":" + std::to_string(one.line);
        std::printf("%s: %s\n", place.c_str(), printable(one.text).c_str());
    }
    std::printf("%s: %s\n", folder.c_str(),
                findings.empty() ? "clean"
                                 : (std::to_string(findings.size()) + " findings").c_str());
    return findings.empty() ? 0 : 1;
}

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

int run_device_check(const device_paths& paths)
{
    bool well = true;
    for (const look& one : check_device(paths)) {
        std::printf("%s\n", line_of(one).c_str());
        well = well && one.well;
    }
    return well ? 0 : 1;
}

class host
{
  public:
    host(const host_options& options, const cellular_setting& settings)
        : options_(options), settings_(settings), display_(options.json, options.show_private),
          input_(options.commands), news_(say_), spool_(say_), outgoing_(say_), mqtt_(say_),
          gps_(say_)
    {
    }

    int run();

  private:
    void start();
    void say_what_device_lacks();
    void tell_module();
    int exit_status(bool told_model, kelo_reason reason, const std::string& why, long waited_s);
    void pass(clock::time_point now);
    void receive(clock::time_point now);
    bool keep_message(clock::time_point now);
    void take_results();
    void count_lost(const char* what, int lost, int& before);
    void send(const std::string& number, const std::string& text);
    void end_messages();
    void run_command(const std::string& line, clock::time_point now);
    void act(const user_command& command, clock::time_point now);
    void change(const cellular_setting& settings);
    void reread();
    void stop_modem();
    bool is_over(clock::time_point now) const;
    json_value read(clock::time_point now);
    long seconds() const
    {
        return static_cast<long>(
            std::chrono::duration_cast<std::chrono::seconds>(clock::now() - begun_).count());
    }

    const host_options& options_;
    cellular_setting settings_;
    display display_;
    input_lines input_;
    const speaker say_ = [this](const std::string& line) { display_.say(line); };
    news news_;
    spool spool_;
    outgoing outgoing_;
    mqtt_client mqtt_;
    gps_engine gps_;
    whole_message message_; // the last that was taken,
    bool unkept_ = false;   // which is still to be kept
    cellular_status report_{};
    clock::time_point next_report_{};
    const clock::time_point begun_ = clock::now();
    int messages_lost_ = 0, results_lost_ = 0, reports_lost_ = 0, mode_ = settings_.net_mode;
    const goal* const goal_ = goal_named(options_.until);
    bool reached_ = false, profile_told_ = false, unknown_told_ = false;
    bool quit_ = false;
};

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
    if (!options.on_stuck.empty()) {
        keeper.stuck = run_when_stuck;
        keeper.context = const_cast<std::string*>(&options.on_stuck);
    }
    kelo_keep(&keeper);
    kelo_set_port(options.port.c_str());
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

// Once each: a module that has no flow, or no profile, does less than its owner thinks.
void host::tell_module()
{
    gsm_mobile mobile{};
    if (!profile_told_ && kelo_copy_mobile(&mobile) && mobile.model[0] != '\0') {
        profile_told_ = true;
        const std::string fault = profile_fault(device_paths().profiles, mobile.model);
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
    count_lost("messages", kelo_messages_lost(), messages_lost_);
}

bool host::keep_message(clock::time_point now)
{
    const auto kept = options_.spool.empty() ? spool::keeping::kept : spool_.keep(message_, now);
    if (kept == spool::keeping::kept) {
        news_.note_message();
        display_.show(message_);
    }
    return kept != spool::keeping::not_yet;
}

void host::take_results()
{
    kelo_sms_result result{};
    while (kelo_take_sms_result(&result, sizeof result)) {
        outgoing_.note(result);
        spool_.note(result);
        display_.show(result);
    }
    kelo_sms_report report{};
    while (kelo_take_sms_report(&report, sizeof report)) {
        spool_.note(report);
        display_.show(report);
    }
    count_lost("results", kelo_sms_results_lost(), results_lost_);
    count_lost("reports", kelo_sms_reports_lost(), reports_lost_);
}

void host::count_lost(const char* what, int lost, int& before)
{
    if (lost != before)
        display_.say(std::string(what) +
                     " lost, too many at once: " + std::to_string(lost - before));
    before = lost;
}

void host::send(const std::string& number, const std::string& text)
{
    kelo_sms_options options{};
    options.size = sizeof options;
    kelo_sms_options_defaults(&options);
    if (options_.sms_validity)
        options.validity = *options_.sms_validity;
    options.report = options_.sms_report;
    options.flash = options_.sms_flash;
    outgoing_.add(number, text, options);
}

void host::change(const cellular_setting& settings)
{
    const bool restart = apply_change(settings_, settings, mode_);
    settings_ = settings;
    display_.say(restart ? "new settings: the modem task restarts" : "new settings are in use");
}

void host::reread()
{
    cellular_setting settings = options_.settings;
    const auto errors = read_settings_file(options_.settings_file, settings);
    for (const std::string& error : errors)
        display_.say(printable(error));
    if (!errors.empty())
        return display_.say("the settings stay as they were");
    change(settings);
}

void host::act(const user_command& command, clock::time_point now)
{
    switch (command.verb) {
    case command_verb::nothing:
        return;
    case command_verb::sim:
        mobile_select_simcard(command.sim);
        cellular_module_restart_extern(); // it brings that SIM's settings to the modem
        return display_.say("SIM " + std::to_string(command.sim) +
                            " is asked for: the modem task restarts");
    case command_verb::set: {
        cellular_setting settings = settings_;
        const std::string error = set_settings(settings, command.text);
        return error.empty() ? change(settings) : display_.say("set: " + printable(error));
    }
    case command_verb::restart:
        cellular_module_restart_extern();
        return display_.say("the modem task restarts");
    case command_verb::reload:
        return display_.say(cellular_reload() == 0 ? "the reload flow runs"
                                                   : "no reload during a start or restart");
    case command_verb::sms:
        return send(command.number, command.text);
    case command_verb::gps:
        return gps_.start(now);
    case command_verb::help:
        return display_.say(command_help);
    case command_verb::quit:
        quit_ = true;
        return;
    }
}

void host::run_command(const std::string& line, clock::time_point now)
{
    std::string error;
    if (const auto command = parse_command(line, error))
        act(*command, now);
    else
        display_.say(printable(error));
}

void host::pass(clock::time_point now)
{
    if (reread_seen) {
        reread_seen = 0;
        reread();
    }
    while (const auto line = input_.next_line())
        run_command(*line, now);
    tell_module();
    news_.pass();
    receive(now);
    take_results();
    outgoing_.pass(now);
    if (!options_.spool.empty())
        spool_.pass(now);
    mqtt_.pass(now, restarts());
    gps_.pass(now);
    display_.update(read(now), seconds());
    reached_ = goal_ != nullptr && goal_->holds();
}

bool host::is_over(clock::time_point now) const
{
    if (stop_seen || quit_ || reached_)
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
        poll(nullptr, 0, poll_ms);
        take_results();
        spool_.pass(clock::now());
    }
}

int host::run()
{
    start_log({.fd = display_.log_descriptor(),
               .most = static_cast<kelo_log_level>(options_.log_level.value_or(KELO_LOG_DEBUG)),
               .show_private = options_.show_private});
    if (!options_.spool.empty()) {
        const std::string fault = spool_.open(options_.spool);
        if (!fault.empty()) {
            display_.say(printable(fault));
            return exit_usage;
        }
    }
    say_what_device_lacks();
    start();
    while (!is_over(clock::now())) {
        pass(clock::now());
        input_.wait(poll_ms, spool_.descriptor());
    }

    reached_ = reached_ || (goal_ != nullptr && goal_->holds());
    // The last state of the running modem: the stop itself clears the status word.
    if (!options_.spool.empty())
        end_messages();
    const json_value status = read(clock::now());
    const kelo_reason reason = kelo_get_reason();
    const std::string why = line_of(reason);
    const long waited_s = seconds();
    stop_modem();
    receive(clock::now());
    take_results();
    if (!options_.spool.empty())
        spool_.pass(clock::now());
    display_.finish(status, seconds());
    if (outgoing_.busy())
        display_.say("stopped with a message not known to be sent");
    return exit_status(!status.at("model").is_null(), reason, why, waited_s);
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

bool print_errors(const std::vector<std::string>& errors)
{
    for (const std::string& error : errors)
        std::fprintf(stderr, "kelo-host: %s\n", printable(error).c_str());
    return !errors.empty();
}

} // namespace

int main(int argc, char** argv)
{
    host_options options;
    if (const auto status = parse_options(argc, argv, options))
        return *status;
    if (!options.check_profiles.empty())
        return run_check(options.check_profiles);
    if (!options.custom_file.empty()) {
        const custom_file custom = read_custom_file(options.custom_file);
        if (print_errors(custom.errors))
            return exit_usage;
        install_custom(custom.items);
    }
    cellular_setting settings = options.settings;
    if (!options.settings_file.empty() &&
        print_errors(read_settings_file(options.settings_file, settings)))
        return exit_usage;
    if (options.check_device)
        return run_device_check(device_of(options, settings));
    if (!install_signals(!options.settings_file.empty())) {
        std::perror("kelo-host: signals");
        return exit_usage;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return host(options, settings).run();
}
