// kelo-emulator: a modem at a port path, with orders on standard input.
#include "emulator/modem.h"
#include "emulator/record_line.h"
#include "emulator/replay.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

using namespace kelo_emulator;

namespace
{

constexpr std::size_t max_order = 8192;

// `12.345 >> AT+CSQ\r`: seconds since start, control bytes made visible.
void print_entry(monotonic_clock::time_point start, const log_entry& entry)
{
    const auto at = std::chrono::duration_cast<milliseconds>(entry.time - start);
    const auto from =
        entry.from == speaker::host ? kelo_record::origin::host : kelo_record::origin::modem;
    puts(kelo_record::text_of({at.count(), from, entry.bytes}).c_str());
    fflush(stdout);
}

// True when the tool is to end.
bool take_order(emulated_modem& modem, const std::string& line)
{
    if (line == "quit")
        return true;
    std::string answer;
    const std::string error = modem.order(line, &answer);
    if (!error.empty())
        fprintf(stderr, "kelo-emulator: %s\n", error.c_str());
    if (!answer.empty()) {
        fputs(answer.c_str(), stdout);
        if (line == "help")
            fputs("quit\n        end\n", stdout);
        fflush(stdout);
    }
    return false;
}

void serve(emulated_modem& modem, int signals)
{
    struct pollfd polled[2] = {{signals, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    std::string pending;
    for (;;) {
        if (poll(polled, 2, -1) < 0 && errno != EINTR)
            return;
        if (polled[0].revents)
            return;
        if (!polled[1].revents)
            continue;
        char bytes[1024];
        const ssize_t length = read(STDIN_FILENO, bytes, sizeof bytes);
        if (length <= 0) {
            polled[1].fd = -1; // no more orders; the modem stays until a signal comes
            continue;
        }
        pending.append(bytes, static_cast<std::size_t>(length));
        for (std::size_t end; (end = pending.find('\n')) != std::string::npos;) {
            const std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            if (take_order(modem, line))
                return;
        }
        if (pending.size() > max_order) {
            fprintf(stderr, "kelo-emulator: order line too long, dropped\n");
            pending.clear();
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"An AT modem on a pseudo-terminal. Orders are read from standard input; the order "
                 "`help` lists them."};
    modem_options options;
    bool trace = false;
    std::vector<std::string> variables, orders;
    app.add_option("--model", options.model, "Name of a dialogue file");
    app.add_option("--port", options.port, "Path at which the port appears")
        ->default_val("/dev/ttyUSB2");
    app.add_option("--dialogues", options.dialogues_dir, "Folder of the dialogue files");
    app.add_option("--set", variables, "NAME=VALUE, a variable of the dialogue");
    app.add_option("--order", orders, "An order to carry out after the start");
    app.add_flag("--boot", options.boot_reports, "Print the boot reports at start");
    app.add_flag("--trace", trace, "Print the dialogue");
    replay_options replay;
    auto* record = app.add_option(
        "--replay", replay.record,
        "Play the modem of a record of kelo-host, or of --trace, in place of a model");
    app.add_option("--replay-speed", replay.speed, "So many times as fast")
        ->check(CLI::Range(1.0, 100.0))
        ->needs(record);
    for (const char* name : {"--model", "--dialogues", "--set", "--order", "--boot", "--trace"})
        record->excludes(app.get_option(name));
    CLI11_PARSE(app, argc, argv);

    if (options.model.empty() && replay.record.empty()) {
        fprintf(stderr, "kelo-emulator: --model or --replay is required\n");
        return 2;
    }
    for (const std::string& variable : variables) {
        const std::size_t equals = variable.find('=');
        if (equals == std::string::npos || equals == 0) {
            fprintf(stderr, "kelo-emulator: --set %s: expected NAME=VALUE\n", variable.c_str());
            return 2;
        }
        options.variables[variable.substr(0, equals)] = variable.substr(equals + 1);
    }
    if (trace)
        options.trace = [start = monotonic_clock::now()](const log_entry& entry) {
            print_entry(start, entry);
        };

    // Before the modem's thread starts, so that it inherits the mask and no signal ends the
    // process with the port still in place.
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ending, number);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    const int signals = signalfd(-1, &ending, SFD_CLOEXEC);
    signal(SIGPIPE, SIG_IGN);

    if (!replay.record.empty()) {
        replay.port = options.port;
        return replay_record(replay, signals);
    }
    emulated_modem modem;
    const std::string error = modem.start(options);
    if (!error.empty()) {
        fprintf(stderr, "kelo-emulator: %s\n", error.c_str());
        return 1;
    }
    printf("%s at %s\n", options.model.c_str(), options.port.c_str());
    fflush(stdout);
    for (const std::string& order : orders)
        if (take_order(modem, order))
            return 0;
    serve(modem, signals);
    modem.stop();
    return 0;
}
