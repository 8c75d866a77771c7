// kelo-host: a supervisor for one modem, ready to run on a device, and an example of the calls.
#include "check_profiles.h"
#include "custom_file.h"
#include "options.h"
#include "status.h"
#include "supervisor.h"

#include <kelo/kelo.h>
#include <kelo/settings.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

using namespace kelo_host;
using namespace std::chrono_literals;
using Clock = Supervisor::Clock;

constexpr int poll_ms = 250;
constexpr int exit_no_modem = 1;

// A handler, not a blocked signal: the mask would be inherited by the programs that the library
// starts, and a dialer that blocks SIGTERM could not be stopped. All it does is write to a pipe.
int signal_pipe[2] = {-1, -1};
volatile sig_atomic_t signals_seen = 0;

void on_signal(int number)
{
    const int saved = errno;
    if (signals_seen)
        _exit(128 + number); // asked twice: a stop may wait for the modem, we do not
    signals_seen = 1;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(signal_pipe[1], &byte, 1);
    errno = saved;
}

bool install_signals()
{
    if (pipe2(signal_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    struct sigaction action = {};
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESTART;
    return sigaction(SIGINT, &action, nullptr) == 0 && sigaction(SIGTERM, &action, nullptr) == 0;
}

// True when a signal asked for the end.
bool wait_for_signal(int ms)
{
    pollfd entry = {signal_pipe[0], POLLIN, 0};
    poll(&entry, 1, ms);
    return signals_seen != 0;
}

void write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t done = write(fd, text.data(), text.size());
        if (done < 0 && errno != EINTR)
            return; // nobody reads any more: the modem is still ours to keep
        if (done > 0)
            text.remove_prefix(static_cast<size_t>(done));
    }
}

// Where the status goes. On a terminal the screen stands in the upper rows, and what the library
// prints scrolls below it.
class Display
{
  public:
    explicit Display(bool json) : json_(json)
    {
        if (json_) {
            // Objects only on standard output, so that a reader needs no filter.
            fd_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
            dup2(STDERR_FILENO, STDOUT_FILENO);
        } else {
            const char* term = std::getenv("TERM");
            live_ = isatty(STDOUT_FILENO) && term != nullptr && std::strcmp(term, "dumb") != 0;
        }
    }

    void update(const Json& status, long seconds)
    {
        if (live_) {
            draw(status, seconds);
        } else if (status != last_) {
            if (json_)
                write_all(fd_, to_text(status) + "\n");
            else
                for (const std::string& line : changes(last_, status))
                    say(line);
        }
        last_ = status;
    }

    void finish(const Json& status, long seconds)
    {
        update(status, seconds);
        if (json_)
            return;
        std::string text;
        if (rows_ > 0)
            text += "\0337\033[r\0338"; // the whole terminal scrolls again
        rows_ = 0;
        for (const std::string& line : screen(status, seconds, 200))
            text += line + "\n";
        write_all(fd_, text);
    }

    void say(const std::string& line)
    {
        write_all(json_ ? STDERR_FILENO : fd_, "kelo-host: " + line + "\n");
    }

  private:
    void draw(const Json& status, long seconds)
    {
        winsize size = {};
        if (ioctl(fd_, TIOCGWINSZ, &size) != 0 || size.ws_row < 20 || size.ws_col < 40)
            return; // no room: the screen comes at the end
        const auto lines = screen(status, seconds, size.ws_col);
        std::string text;
        if (size.ws_row != rows_) {
            rows_ = size.ws_row;
            text += "\033[2J\033[" + std::to_string(lines.size() + 2) + ";" +
                    std::to_string(rows_) + "r\033[" + std::to_string(rows_) + ";1H";
        }
        text += "\0337\033[H"; // keep the library's place
        for (const std::string& line : lines)
            text += line + "\033[K\r\n";
        text += "\033[K\0338";
        if (text != drawn_)
            write_all(fd_, text); // in one piece, so that no other line falls into it
        drawn_ = std::move(text);
    }

    bool json_, live_ = false;
    int fd_ = STDOUT_FILENO;
    int rows_ = 0; // of the terminal that was split, 0 while it is whole
    Json last_;
    std::string drawn_;
};

int run_check(const std::string& folder)
{
    const auto findings = check_profiles(folder);
    for (const Finding& finding : findings) {
        std::string place = folder;
        if (!finding.file.empty())
            place += "/" + finding.file;
        if (finding.line > 0)
            place += ":" + std::to_string(finding.line);
        std::printf("%s: %s\n", place.c_str(), printable(finding.text).c_str());
    }
    std::printf("%s: %s\n", folder.c_str(),
                findings.empty() ? "clean"
                                 : (std::to_string(findings.size()) + " findings").c_str());
    return findings.empty() ? 0 : 1;
}

// Everything that the library looks at before and during its start.
void apply_settings(const Options& options)
{
    is_quectel = options.family;
    selected_card = options.sim;
    set_5g_debug(options.dialogue);
    libgsm_set_low_power(options.low_power);
    if (options.apn) {
        libgsm_set_apn(options.apn->c_str(), options.user.c_str(), options.password.c_str(),
                       options.auth);
        needSetApn = 1; // without it the flow passes the APN over
    }
    if (!options.pin.empty())
        libgsm_set_pincode(options.pin.c_str());
}

// Bounded, since a restart that is under way refuses the stop until it is through.
void stop_modem(Display& display)
{
    for (int tries = 0; cellular_stop() != 0; tries++) {
        if (tries == 60)
            return display.say("the modem task did not stop within a minute: leaving it");
        poll(nullptr, 0, 1000);
    }
}

int run(const Options& options)
{
    if (!install_signals()) {
        std::perror("kelo-host: signals");
        return exit_usage;
    }
    // A reader that goes away must not take the modem with it. Ignored, the signal would stay so in
    // the programs that the library starts.
    signal(SIGPIPE, [](int) {});
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    Display display(options.json);
    Supervisor supervisor([&](const std::string& line) { display.say(line); });
    apply_settings(options);
    const auto start = Clock::now();
    const auto seconds = [&] {
        return static_cast<long>(
            std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count());
    };

    cellular_gsm_init(static_cast<unsigned char>(options.low_power));
    cellular_start(options.low_power);
    while (!options.seconds || Clock::now() - start < std::chrono::seconds(*options.seconds)) {
        supervisor.pass(Clock::now());
        display.update(read_status(supervisor.received()), seconds());
        if (wait_for_signal(poll_ms))
            break;
    }

    // The last state of the running modem: the stop itself clears the status word.
    const Json status = read_status(supervisor.received());
    stop_modem(display);
    display.finish(status, seconds());
    if (!status.at("model").is_null())
        return 0;
    display.say("the modem never told its model");
    return exit_no_modem;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    if (const auto status = parse_options(argc, argv, options))
        return *status;
    if (!options.check_profiles.empty())
        return run_check(options.check_profiles);
    if (!options.custom_file.empty()) {
        const CustomFile custom = read_custom_file(options.custom_file);
        for (const std::string& error : custom.errors)
            std::fprintf(stderr, "kelo-host: %s\n", printable(error).c_str());
        if (!custom.errors.empty())
            return exit_usage;
        install_custom(custom.items);
    }
    return run(options);
}
