// SPDX-License-Identifier: MIT
// kelo-ctl: asks the kelo-host that runs on this device, by its control socket.
#include "host/ctl/client.h"
#include "host/serve/control_path.h"
#include "host/text.h"

#include <CLI/CLI.hpp>
#include <kelo/version.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <exception>
#include <iostream>
#include <iterator>

namespace
{

using json_value = nlohmann::ordered_json;
using kelo_host::printable;

enum exit_code { done = 0, failed = 1, usage = 2, no_host = 3 };

constexpr int answers_within_s = 30; // what waits for nothing

struct request { // NOLINT(bugprone-exception-escape): to destroy a json_value throws nothing
    json_value fields;
    void (*show)(const json_value& answer) = nullptr;
    bool waits = false; // for the modem, or for good
};

struct arguments {
    std::string socket = kelo_host::default_control_path;
    bool json = false, show_private = false, no_wait = false;
    std::string number, text, command;
    std::vector<std::string> settings;
    int sim = 0, timeout = 0;
};

// ---- What is shown: all of it comes from outside, and may hold what acts on a terminal.

std::string text_of(const json_value& value)
{
    if (value.is_null())
        return "-";
    return printable(value.is_string()
                         ? value.get<std::string>()
                         : value.dump(-1, ' ', false, json_value::error_handler_t::replace));
}

void say(const std::string& line)
{
    std::puts(line.c_str());
}

void show_table(const json_value& object, const std::string& ahead = "")
{
    for (const auto& [name, value] : object.items()) {
        if (value.is_object())
            show_table(value, ahead + name + " ");
        else
            std::printf("%-28s%s\n", printable(ahead + name).c_str(), text_of(value).c_str());
    }
}

json_value field(const json_value& object, const char* name)
{
    return object.is_object() ? object.value(name, json_value()) : json_value();
}

// Why it is as it is comes first.
void show_status(const json_value& answer)
{
    json_value status = field(answer, "status");
    for (const char* const name : {"reason", "meaning", "hint"})
        if (status.is_object() && status.contains(name)) {
            show_table({{name, status[name]}});
            status.erase(name);
        }
    show_table(status);
}

void show_figures(const json_value& answer)
{
    show_table(field(answer, "figures"));
}

void show_line(const json_value& answer)
{
    if (answer.contains("line"))
        say(text_of(answer["line"]));
}

void show_result(const json_value& result)
{
    std::string line = "message " + text_of(field(result, "number")) + " to " +
                       text_of(field(result, "destination")) + ": " +
                       text_of(field(result, "state"));
    if (!field(result, "reason").is_null())
        line += ", " + text_of(field(result, "reason"));
    say(line);
}

void show_sms(const json_value& answer)
{
    if (answer.contains("result"))
        show_result(answer["result"]);
    else
        say("message " + text_of(field(answer, "number")) + " is queued");
}

void show_results(const json_value& answer)
{
    for (const json_value& one : field(answer, "results"))
        show_result(one);
}

void show_messages(const json_value& answer)
{
    for (const json_value& one : field(answer, "messages")) {
        say("from " + text_of(field(one, "sender")) + ", " + text_of(field(one, "sent")) + ":");
        const json_value text = field(one, "text");
        std::istringstream lines(text.is_string() ? text.get<std::string>()
                                                  : text_of(field(one, "data")));
        for (std::string line; std::getline(lines, line);)
            say("  | " + printable(line));
    }
}

void show_position(const json_value& answer)
{
    say(answer.contains("position") ? text_of(answer["position"]) : "a position is asked for");
}

void show_answer(const json_value& answer)
{
    for (const json_value& line : field(answer, "lines"))
        say(text_of(line));
    if (answer["ok"])
        say(text_of(field(answer, "last")));
}

// ---- The command line

std::string read_text(const std::string& given)
{
    if (given != "-")
        return given;
    std::string text(std::istreambuf_iterator<char>(std::cin), {});
    if (text.ends_with('\n'))
        text.pop_back();
    return text;
}

json_value settings_of(const std::vector<std::string>& fields)
{
    json_value settings = json_value::object();
    for (const std::string& one : fields) {
        const size_t end = one.find('=');
        if (end == one.npos || end == 0)
            throw CLI::ValidationError("set", "takes NAME=VALUE, not " + printable(one));
        if (settings.contains(one.substr(0, end)))
            throw CLI::ValidationError("set", printable(one.substr(0, end)) + " stands twice");
        settings[one.substr(0, end)] = one.substr(end + 1);
    }
    return settings;
}

void add_commands(CLI::App& app, arguments& given, request& wanted)
{
    const auto add = [&](const char* name, const char* help, const std::function<request()>& make) {
        CLI::App* const command = app.add_subcommand(name, help);
        command->fallthrough();
        command->callback([&wanted, make] { wanted = make(); });
        return command;
    };
    add("status", "What the host knows of the modem, and why it is not online", [] {
        return request{{{"do", "status"}}, show_status};
    });
    add("watch", "The status, then each change, message and result, one JSON object a line", [] {
        return request{{{"do", "watch"}}, nullptr, true};
    });
    CLI::App* const sms =
        add("sms", "Send a message of any length, and wait until it is known what became of it",
            [&given] {
                const json_value fields = {{"do", "sms"},
                                           {"number", given.number},
                                           {"text", read_text(given.text)},
                                           {"wait", !given.no_wait}};
                return request{fields, show_sms, !given.no_wait};
            });
    sms->add_option("NUMBER", given.number, "To whom")->required();
    sms->add_option("TEXT", given.text, "The text; - takes it from standard input")->required();
    sms->add_flag("--no-wait", given.no_wait, "Come back as soon as it is queued");
    add("messages", "The last messages that came in, 64 at most", [] {
        return request{{{"do", "messages"}}, show_messages};
    });
    add("results", "What became of the last messages that went out", [] {
        return request{{{"do", "results"}}, show_results};
    });
    add("gps", "Ask for a position, and wait for it: minutes", [&given] {
        return request{{{"do", "gps"}, {"wait", !given.no_wait}}, show_position, !given.no_wait};
    })->add_flag("--no-wait", given.no_wait, "Only ask");
    add("sim", "Change to the other SIM",
        [&given] {
            return request{{{"do", "sim"}, {"sim", given.sim}}, show_line};
        })
        ->add_option("SIM", given.sim, "1 or 2")
        ->required()
        ->check(CLI::Range(1, 2));
    add("set", "Change settings, until the host ends or reads its file again",
        [&given] {
            return request{{{"do", "set"}, {"settings", settings_of(given.settings)}}, show_line};
        })
        ->add_option("SETTINGS", given.settings, "NAME=VALUE, as in the file of --settings")
        ->required();
    add("restart", "Walk the modem anew", [] { return request{{{"do", "restart"}}, show_line}; });
    add("reload", "Run the reload flow", [] { return request{{{"do", "reload"}}, show_line}; });
    CLI::App* const at = add("at", "Send an AT command, for a host with --allow-at", [&given] {
        json_value fields = {{"do", "at"}, {"command", given.command}};
        if (given.timeout > 0)
            fields["timeout"] = given.timeout;
        return request{fields, show_answer, true};
    });
    at->add_option("COMMAND", given.command, "As AT+CSQ")->required();
    at->add_option("--timeout", given.timeout, "Seconds for its answer (default 20)")
        ->check(CLI::Range(1, 600));
    add("figures", "Counts since the host's start", [] {
        return request{{{"do", "figures"}}, show_figures};
    });
}

// ----

int fail(exit_code code, const std::string& why)
{
    std::fprintf(stderr, "kelo-ctl: %s\n", printable(why).c_str());
    return code;
}

int follow(kelo_ctl::client& host, const json_value& first)
{
    std::string line = first.dump(-1, ' ', false, json_value::error_handler_t::replace);
    for (std::optional<std::string> next = line; next; next = host.next_line(-1)) {
        say(printable(*next));
        std::fflush(stdout);
    }
    return fail(failed, "the host has ended");
}

int carry_out(const arguments& given, request wanted)
{
    kelo_ctl::client host;
    if (const std::string fault = host.open(given.socket); !fault.empty())
        return fail(no_host, fault);
    if (given.show_private)
        wanted.fields["private"] = true;
    const std::string text =
        wanted.fields.dump(-1, ' ', false, json_value::error_handler_t::replace);
    // A host that refuses the client says so ahead of any request.
    host.ask(text);
    const auto line = host.next_line(wanted.waits ? -1 : answers_within_s);
    if (!line)
        return fail(failed, "the host gave no answer");
    const json_value answer = json_value::parse(*line, nullptr, false);
    if (!answer.is_object() || !field(answer, "ok").is_boolean())
        return fail(failed, "that is no kelo-host: " + *line);
    const bool ok = answer["ok"];
    if (given.json && wanted.show != nullptr)
        say(printable(*line));
    else if (wanted.show == show_answer && answer.contains("lines"))
        show_answer(answer);
    else if (ok && wanted.show != nullptr)
        wanted.show(answer);
    if (!ok)
        return fail(failed, text_of(field(answer, "error")));
    return wanted.show == nullptr ? follow(host, answer) : done;
}

int run(int argc, char** argv)
{
    CLI::App app("Asks the kelo-host that runs on this device.", "kelo-ctl");
    app.footer("Exit status: 0 done, 1 refused or failed, 2 bad arguments, 3 no host there, or it "
               "may not be asked.");
    arguments given;
    request wanted;
    app.require_subcommand(1);
    app.set_version_flag("--version", "kelo-ctl " KELO_VERSION);
    app.add_option("--socket", given.socket,
                   std::string("The control socket of the host (default ") +
                       kelo_host::default_control_path + ")");
    app.add_flag("--json", given.json, "Show the host's answer as it came");
    app.add_flag("--private", given.show_private,
                 "Do not mask identities, telephone numbers and positions");
    add_commands(app, given, wanted);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? done : usage;
    }
    return carry_out(given, wanted);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) { // out of memory, an answer that makes no sense
        std::fprintf(stderr, "kelo-ctl: %s\n", error.what());
        return failed;
    }
}
