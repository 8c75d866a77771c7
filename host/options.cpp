// SPDX-License-Identifier: MIT
#include "host/options.h"

#include "host/input/commands.h"
#include "host/input/config_file.h"
#include "host/input/settings_file.h"
#include "host/serve/control_path.h"

#include <CLI/CLI.hpp>
#include <kelo/keeper.h>
#include <kelo/log.h>
#include <kelo/version.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace kelo_host
{

namespace
{

constexpr int default_until_s = 120;

// An option that is a setting of the library by another name.
CLI::Option* add_setting(CLI::App& app, host_options& options, const char* option,
                         const char* setting, const std::string& help)
{
    return app.add_option_function<std::string>(
        option,
        [&options, option, setting](const std::string& value) {
            const std::string fault = set_setting(options.settings, setting, value);
            if (!fault.empty())
                throw CLI::ValidationError(option, fault);
        },
        help);
}

void add_settings(CLI::App& app, host_options& options)
{
    options.settings = default_settings();
    auto* apn = add_setting(app, options, "--apn", "apn", "Access point name");
    add_setting(app, options, "--user", "user", "User for the access point")->needs(apn);
    add_setting(app, options, "--password", "password", "Password for the access point")
        ->envname("KELO_PASSWORD");
    add_setting(app, options, "--auth", "auth",
                "Authentication: 0 none, 1 PAP, 2 CHAP, 3 MS-CHAP, 4 MS-CHAPv2")
        ->needs(apn);
    add_setting(app, options, "--pin", "pin", "PIN of the SIM")->envname("KELO_PIN");
    add_setting(app, options, "--net-mode", "net_mode",
                "0 automatic (default), 1 LTE, 2 UMTS, 3 automatic, 4 LTE and NR, 5 NR alone");
    add_setting(app, options, "--ping-target", "ping_target",
                "Host that is pinged to verify the link (default 8.8.8.8)");
    app.add_option("--second-ping-target", options.second_ping_target,
                   "Another one: the link is up when either answers");
    app.add_option(
           "--dial-spread", options.dial_spread_s,
           "The first dial behind a start, a lost link or a new registration waits up to so "
           "many seconds, by chance, so that many devices do not dial at once (default 0)")
        ->check(CLI::Range(0, 3600));
    app.add_flag_callback(
        "--no-ping", [&options] { options.settings.ping_enable = 0; },
        "Take the link for up without a ping");
    app.add_flag_callback(
        "--no-link", [&options] { options.settings.enable = 0; }, "Bring no data link up");
    app.add_option("--settings", options.settings_file,
                   "File of NAME=VALUE settings (enable, apn, user, password, pin, auth, net_mode, "
                   "attach_timeout, ping_enable, ping_target), over those of the command line; "
                   "read again on SIGHUP");
}

void add_control(CLI::App& app, host_options& options)
{
    auto* path = app.add_option("--control", options.control_path,
                                "Socket by which kelo-ctl and others ask this host (default " +
                                    std::string(default_control_path) +
                                    ", where that can be made); who may open it may do all that "
                                    "--commands may");
    auto* group = app.add_option("--control-group", options.control_group,
                                 "Group whose members may open it, too");
    auto* at = app.add_flag("--allow-at", options.allow_at, "AT commands may come by it");
    app.add_flag_callback(
           "--no-control", [&options] { options.control = false; }, "No such socket")
        ->excludes(path)
        ->excludes(group)
        ->excludes(at);
}

struct mqtt_texts {
    std::string broker, topic, client_id = "kelo-host", user, password;
    std::vector<std::string> tls;
    int keepalive = 60;
};

template <size_t size> void put(char (&field)[size], const std::string& text, const char* option)
{
    if (text.size() >= size)
        throw CLI::ValidationError(option,
                                   "is longer than " + std::to_string(size - 1) + " characters");
    std::memcpy(field, text.c_str(), text.size() + 1);
}

void add_mqtt(CLI::App& app, mqtt_texts& texts)
{
    auto* broker = app.add_option("--mqtt", texts.broker,
                                  "HOST:PORT of a broker for the MQTT client inside the modem");
    auto* topic = app.add_option("--topic", texts.topic, "The topic to subscribe to");
    broker->needs(topic);
    topic->needs(broker);
    app.add_option("--client-id", texts.client_id, "MQTT client id (default kelo-host)");
    app.add_option("--mqtt-user", texts.user, "MQTT user");
    app.add_option("--mqtt-password", texts.password, "MQTT password")
        ->envname("KELO_MQTT_PASSWORD");
    app.add_option("--keepalive", texts.keepalive, "Seconds (default 60)")
        ->check(CLI::Range(0, 3600));
    app.add_option("--tls", texts.tls,
                   "TLS; with the files CA CERT KEY they are uploaded and both sides are checked")
        ->expected(0, 3);
}

void take_mqtt(const CLI::App& app, const mqtt_texts& texts, host_options& options)
{
    if (texts.broker.empty())
        return;
    mqtt_config config{};
    const size_t colon = texts.broker.rfind(':');
    if (colon == 0 || colon == texts.broker.npos || colon + 1 == texts.broker.size())
        throw CLI::ValidationError("--mqtt", "takes HOST:PORT");
    put(config.host, texts.broker.substr(0, colon), "--mqtt");
    put(config.port, texts.broker.substr(colon + 1), "--mqtt");
    put(config.topic, texts.topic, "--topic");
    put(config.client_id, texts.client_id, "--client-id");
    put(config.user, texts.user, "--mqtt-user");
    put(config.password, texts.password, "--mqtt-password");
    config.keepalive = texts.keepalive;
    std::vector<std::string> files = texts.tls;
    std::erase(files, ""); // what a bare --tls leaves
    if (app.count("--tls") != 0) {
        if (!files.empty() && files.size() != 3)
            throw CLI::ValidationError("--tls", "takes no file, or CA CERT KEY");
        config.tls_mode = files.empty() ? 1 : 2;
    }
    if (config.tls_mode == 2) {
        put(config.ca_file, files[0], "--tls");
        put(config.cert_file, files[1], "--tls");
        put(config.key_file, files[2], "--tls");
    }
    options.mqtt = config;
}

} // namespace

std::optional<int> parse_options(int argc, const char* const* argv, host_options& options)
{
    CLI::App app("Owns a USB cellular modem: keeps it online and shows what it sees.", "kelo-host");
    app.footer(
        "With --sms or --gps, and without --seconds, --commands, --mqtt and --spool, it ends when "
        "they are done.\n"
        "Exit status: 0 done, 1 the modem never told its model (or --check-profiles or "
        "--check-device found something, or --draft-profile a model that no file can bring), 2 bad "
        "arguments, a bad file, or a spool or an address "
        "that can't be used, 3 a message was not known to be sent, or no position was found. With "
        "--until, when it does not come to that, and with --draft-profile: 10 for a reason of the "
        "port, 11 of the module, 12 "
        "of the SIM, 13 of the network, 14 of the link.");
    app.get_formatter()->column_width(30);
    app.set_version_flag("--version", std::string("kelo-host " KELO_VERSION " (libkelo ") +
                                          kelo_version() + ")");
    auto* const config = app.set_config(
        "--config", "",
        "File of options, \"name = value\" a line, by their names here; may come again, "
        "the last one counts, and the command line ahead of all");
    config->take_all()->allow_extra_args(false);
    const auto files = std::make_shared<config_file>(
        app, std::set<std::string>{"pin", "password", "mqtt-password"});
    app.config_formatter(files);

    app.add_option("--seconds", options.seconds,
                   "Stop after so many seconds (default: on a signal)")
        ->check(CLI::Range(1, 1000000000));
    auto* until = app.add_option("--until", options.until,
                                 "Stop as soon as it is online, ready or registered, or after "
                                 "--seconds (default 120)")
                      ->check(CLI::IsMember({"online", "ready", "registered"}));
    app.add_option("--family", options.family, "Module family code, is_quectel (default 0)")
        ->check(CLI::Range(0, 255));
    app.add_option("--low-power", options.low_power,
                   "Low power mode: hold commands back until the modem is up (default 0)")
        ->check(CLI::Range(0, 255));
    app.add_option("--sim", options.sim, "Active SIM (default 1)")->check(CLI::Range(1, 2));
    app.add_option("--port", options.port,
                   "The AT port (default: the first USB serial device from number 2, or 1, on)");
    app.add_option("--pin-tries", options.pin_tries,
                   "Send the PIN only with so many tries left (default 3)")
        ->check(CLI::Range(1, 3));
    app.add_option("--on-stuck", options.on_stuck,
                   "Shell command that cuts the modem's power, for a modem that hangs; KELO_TRY is "
                   "the number of the try");
    add_settings(app, options);
    auto* sms =
        app.add_option("--sms", options.sms_number, "Send a message of any length to NUMBER")
            ->type_name("NUMBER TEXT")
            ->configurable(false);
    // On its own: as a second value of --sms a text in [] would be read as a list.
    app.add_option("TEXT", options.sms_text, "Text of --sms (behind -- if it begins with -)")
        ->needs(sms)
        ->configurable(false);
    app.add_option("--sms-validity", options.sms_validity,
                   "Minutes for which the network tries to deliver messages of --sms and of the "
                   "command sms (default: as long as it keeps them)")
        ->check(CLI::Range(5, 635040));
    app.add_flag("--sms-report", options.sms_report, "Ask for status reports on them");
    app.add_flag("--sms-flash", options.sms_flash, "Have them shown at once and not kept");
    app.add_option("--sms-storage", options.sms_storage,
                   "What is done with messages that the modem stores: 0 nothing, 1 they are read, "
                   "2 they are read, and deleted once they are kept (default)")
        ->check(CLI::Range(0, 2));
    app.add_option("--spool", options.spool,
                   "Folder by which scripts send and receive messages: files in its outgoing are "
                   "sent and come to sent or failed, received ones come to incoming");
    app.add_option("--join-seconds", options.join_seconds,
                   "How long a received message waits for its next part (default 60)")
        ->check(CLI::Range(1, 86400));
    mqtt_texts mqtt;
    add_mqtt(app, mqtt);
    app.add_flag("--gps", options.gps, "Fetch a position");
    app.add_flag("--commands", options.commands,
                 "Take commands from standard input, one a line: " + command_help());
    add_control(app, options);
    app.add_option("--custom", options.custom_file,
                   "File of changes to the AT commands, see examples/custom-verbose-errors.txt");
    app.add_flag("--plain", options.plain,
                 "Send what the library's flows hold and no more: no question for signal, cell, "
                 "technology, band and operator code every 15 seconds");
    auto* level =
        app.add_option("--log-level", options.log_level,
                       "The library's lines that are shown: error, notice (default) or debug")
            ->transform(
                CLI::CheckedTransformer(std::map<std::string, int>{{"error", KELO_LOG_ERROR},
                                                                   {"notice", KELO_LOG_NOTICE},
                                                                   {"debug", KELO_LOG_DEBUG}},
                                        CLI::ignore_case));
    app.add_flag("--dialogue", options.dialogue, "Show the AT dialogue: --log-level debug")
        ->excludes(level);
    app.add_flag(
        "--show-private", options.show_private,
        "Do not mask IMSI, ICCID, IMEI, telephone numbers, messages, PDUs and positions in "
        "lines and objects (PINs and passwords are masked always)");
    auto* record =
        app.add_option("--record", options.record,
                       "File of all that goes over the AT port, masked as lines are, for "
                       "kelo-emulator --replay; FILE.1 is the one before");
    app.add_option("--record-size", options.record_mib, "MiB of each of the two (default 4)")
        ->check(CLI::Range(1, 1024))
        ->needs(record);
    app.add_flag("--json", options.json,
                 "One JSON object per change and happening on standard output (docs/json.md); the "
                 "library's own lines go to standard error");
    app.add_option_function<std::string>(
        "--http",
        [&options](const std::string& text) {
            const std::string fault = parse_http_address(text, options.http);
            if (!fault.empty())
                throw CLI::ValidationError("--http", fault);
        },
        "ADDRESS:PORT, or PORT of 127.0.0.1, for a page, /status, /events, /metrics and /healthz; "
        "read-only, and without a password: for trusted networks alone");
    app.add_option("--metrics-file", options.metrics_file,
                   "File that is kept up to date with the metrics, for node_exporter's textfile "
                   "collector: its name ends in .prom");
    auto* check =
        app.add_option("--check-profiles", options.check_folders,
                       "Check folders of modem profile files, in the order in which they are read "
                       "(default: the device's), and do nothing else")
            ->type_name("[DIR]...")
            ->expected(0, 2)
            ->configurable(false);
    auto* draft = app.add_option("--draft-profile", options.draft_file,
                                 "Ask the modem what it knows, write a first profile file of it "
                                 "(default: to standard output), and do nothing else")
                      ->type_name("[FILE]")
                      ->expected(0, 1)
                      ->configurable(false);
    app.add_flag("--check-device", options.check_device,
                 "Look for what this device lacks, and do nothing else")
        ->configurable(false);
    for (const char* name : {"--sms", "--gps"}) // they have an end of their own
        until->excludes(app.get_option(name));

    try {
        app.parse(argc, argv);
        if (!options.until.empty() && !options.seconds)
            options.seconds = default_until_s;
        take_mqtt(app, mqtt, options);
        options.check_profiles = check->count() != 0;
        options.draft_profile = draft->count() != 0;
        std::erase(options.check_folders, ""); // what the bare option leaves
        if (config->count() != 0)
            options.files = config->as<std::vector<std::string>>();
        if (!options.settings_file.empty())
            options.files.push_back(options.settings_file);
        options.dialogue |= options.log_level == KELO_LOG_DEBUG;
        if (options.second_ping_target.size() >= sizeof kelo_keeper::second_ping_target ||
            options.second_ping_target.starts_with('-'))
            throw CLI::ValidationError("--second-ping-target", "is no host name or address");
        if (!options.port.empty() && (options.port[0] != '/' || options.port.size() > 31))
            throw CLI::ValidationError("--port", "takes a path of up to 31 characters");
        if (sms->count() != 0) {
            const std::string fault = message_fault(options.sms_number, options.sms_text);
            if (!fault.empty())
                throw CLI::ValidationError("--sms", fault);
        }
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        app.exit(CLI::ConfigError(files->placed(error.what())));
        return exit_usage;
    }
    return std::nullopt;
}

} // namespace kelo_host
