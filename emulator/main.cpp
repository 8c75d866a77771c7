// SPDX-License-Identifier: MIT
// kelo-emulator: a modem at a port path, with orders on standard input or from a script.
#include "emulator/answers.h"
#include "emulator/replay.h"
#include "emulator/script.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <kelo/version.h>
#include <sys/signalfd.h>
#include <unistd.h>

using namespace kelo_emulator;

namespace
{

constexpr int good = 0, failed = 1, not_started = 2; // exit statuses
constexpr int most_failures = 100; // with --keep-going: a script that is no script ends

struct tool_options {
    modem_options modem;
    replay_options replay;
    std::vector<std::string> variables, orders;
    std::string script;
    bool keep_going = false, stay = false, trace = false, json = false, list = false;
};

void add_options(CLI::App& app, tool_options& options)
{
    app.set_version_flag("--version", "kelo-emulator " KELO_VERSION);
    app.add_option("--model", options.modem.model, "Name of a dialogue file");
    app.add_option("--port", options.modem.port, "Path at which the port appears")
        ->default_val("/dev/ttyUSB2");
    app.add_option("--dialogues", options.modem.dialogues_dir, "Folder of the dialogue files");
    app.add_option("--set", options.variables, "NAME=VALUE, a variable of the dialogue");
    app.add_option("--order", options.orders, "An order to carry out after the start");
    app.add_option("--script", options.script,
                   "A file of orders, `-` for standard input: the emulator ends with it, or with "
                   "its first order that fails");
    app.add_flag("--keep-going", options.keep_going, "A failed order does not end the script");
    app.add_flag("--stay", options.stay, "Go on behind the script, with standard input");
    app.add_flag("--boot", options.modem.boot_reports, "Print the boot reports at start");
    app.add_flag("--trace", options.trace, "Print the dialogue");
    app.add_flag("--json", options.json, "Print one JSON object a line");
    app.add_flag("--list", options.list, "List the models and their dialogues, and end");
    auto* const record = app.add_option(
        "--replay", options.replay.record,
        "Play the modem of a record of kelo-host, or of --trace, in place of a model");
    app.add_option("--replay-speed", options.replay.speed, "So many times as fast")
        ->check(CLI::Range(1.0, 100.0))
        ->needs(record);
    for (const char* const name : {"--model", "--dialogues", "--set", "--order", "--script",
                                   "--boot", "--trace", "--json", "--list"})
        record->excludes(app.get_option(name));
}

// Empty text, or what is wrong with the options.
std::string check_options(tool_options& options)
{
    if (options.modem.model.empty() && options.replay.record.empty() && !options.list)
        return "--model or --replay is required; --list lists the models";
    if (options.script.empty() && (options.keep_going || options.stay))
        return "--keep-going and --stay are for a --script";
    for (const std::string& variable : options.variables) {
        const std::size_t equals = variable.find('=');
        if (equals == std::string::npos || equals == 0)
            return "--set " + variable + ": expected NAME=VALUE";
        options.modem.variables[variable.substr(0, equals)] = variable.substr(equals + 1);
    }
    return "";
}

int not_to_be_started(const std::string& why)
{
    complain("", why);
    return not_started;
}

int list_models(const tool_options& options, const answer_printer& answers)
{
    std::string error;
    const std::vector<known_model> models = known_models(options.modem.dialogues_dir, error);
    if (!error.empty())
        return not_to_be_started(error);
    return answers.models(models) ? good : failed;
}

// All orders there are; the exit status.
int carry_out(const tool_options& options, script_run& run, int script)
{
    const bool scripted = !options.script.empty();
    run_state state = run_state::on;
    for (const std::string& order : options.orders)
        if (state == run_state::on)
            state = take_order(run, order);
    if (state == run_state::on && scripted)
        state = run_script(run, script, options.script == "-" ? "<stdin>" : options.script);
    if (state == run_state::failed || (state == run_state::signalled && scripted))
        return failed;
    if (state == run_state::on && (!scripted || options.stay)) {
        script_run talk = run;
        talk.most_failures = 0;
        if (run_script(talk, STDIN_FILENO) == run_state::on)
            wait_for_signal(run); // no more orders; the modem stays
    }
    return scripted && run.failures ? failed : good;
}

int run(int argc, char** argv)
{
    CLI::App app{"An AT modem on a pseudo-terminal. Orders are read from standard input, or from a "
                 "script; the order `help` lists them."};
    tool_options options;
    add_options(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? good : not_started;
    }
    std::string error = check_options(options);
    if (!error.empty())
        return not_to_be_started(error);
    const answer_printer answers(options.json, monotonic_clock::now());
    if (options.list)
        return list_models(options, answers);
    const int script = options.script.empty() ? STDIN_FILENO : open_script(options.script, error);
    if (!error.empty())
        return not_to_be_started(error);
    if (options.trace)
        options.modem.trace = [&](const log_entry& entry) { answers.trace(entry); };

    // Before the modem's thread starts, so that it inherits the mask and no signal ends the
    // process with the port still in place.
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ending, number);
    sigprocmask(SIG_BLOCK, &ending, nullptr);
    const int signals = signalfd(-1, &ending, SFD_CLOEXEC);
    signal(SIGPIPE, SIG_IGN);

    if (!options.replay.record.empty()) {
        options.replay.port = options.modem.port;
        return replay_record(options.replay, signals);
    }
    emulated_modem modem;
    error = modem.start(options.modem);
    if (!error.empty())
        return not_to_be_started(error);
    answers.ready(options.modem);
    script_run run{modem, answers, signals, 0};
    if (!options.script.empty())
        run.most_failures = options.keep_going ? most_failures : 1;
    const int status = carry_out(options, run, script);
    modem.stop();
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) { // out of memory
        std::fprintf(stderr, "kelo-emulator: %s\n", error.what());
        return failed;
    }
}
