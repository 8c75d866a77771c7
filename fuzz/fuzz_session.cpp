// SPDX-License-Identifier: MIT
// A session of the whole library with a modem, the emulator's, in a world without time (world.h).
// An input is a text: the model, and then a line for each thing that happens.
//
//     .N         time passes, N tenths of a second, one second without N
//     <TEXT      the modem says a line; -TEXT: the bytes alone. \r \n \\ \xHH as in the orders
//     !CALL ...  a call of the host's, see `calls`; !custom comes ahead of all else
//     ?COMMAND   a command of the host's, with an answer
//     ORDER ...  anything else is an order to the emulator (emulator/README.md)
//
// With FUZZ_SAYS in the environment the library's lines go to the error stream, with their time.
//
// In the end the host stops the library. What has to hold: what the record and the events say is
// terminated, no queue is beyond its bound, no lock is held over a wait, no pass goes round without
// one, and all threads end.

#include "api/api.h"
#include "core/family.h"
#include "emulator/core.h"
#include "modules/modules.h"
#include "sms/sms.h"
#include "support/diag.h"
#include "task/task.h"
#include "world.h"
#include <kelo/kelo.h>
#include <kelo/log.h>
#include <kelo/trace.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace kelo
{
extern kept_link_tools real_kept_tools; // of api/bring_up.cpp
}

using namespace kelo;
using namespace fuzz_world;
using kelo_emulator::modem_core;
using kelo_emulator::monotonic_clock;

namespace
{

constexpr std::int64_t second = 1000000;
constexpr std::int64_t most_time = 400 * second; // of one input
constexpr int most_lines = 200;

std::map<std::string, kelo_emulator::dialogue_file> dialogues;

// ---- The modem

std::unique_ptr<modem_core> modem;

void modem_step()
{
    modem_core& core = *modem;
    while (!core.timers.empty() && core.timers.begin()->first <= monotonic_clock::now()) {
        const auto work = std::move(core.timers.begin()->second);
        core.timers.erase(core.timers.begin());
        work();
    }
    core.read_port();
    core.pump();
    if (core.faults.endless && core.output.empty())
        core.write_endless();
}

std::int64_t modem_next_us()
{
    const auto us = [](monotonic_clock::time_point when) {
        return now_us() +
               std::chrono::ceil<std::chrono::microseconds>(when - monotonic_clock::now()).count();
    };
    std::int64_t next = INT64_MAX;
    if (!modem->timers.empty())
        next = us(modem->timers.begin()->first);
    if (!modem->output.empty() && modem->next_write > monotonic_clock::now())
        next = std::min(next, us(modem->next_write));
    return next;
}

void plug(const std::string& model)
{
    modem = std::make_unique<modem_core>();
    modem_core& core = *modem;
    const auto found = dialogues.find(model);
    core.dialogue = found != dialogues.end() ? found->second : dialogues.at("EC25");
    core.options.port = port_path;
    core.sim.pin = core.get("pin", core.sim.pin);
    core.sim.puk = core.get("puk", core.sim.puk);
    core.cell = core.get("cell", core.cell);
    core.fresh_session();
    core.search(monotonic_clock::now());
    core.node_on();
    set_far_end({modem_step, modem_next_us});
}

// ---- The host

template <std::size_t size> void text_holds(const char (&text)[size])
{
    REQUIRE(strnlen(text, size) < size);
}

bool says = false;

void hear_line(kelo_log_level, const char* text, void*)
{
    REQUIRE(std::strlen(text) < 2 * 65536);
    if (says)
        std::fprintf(stderr, "%7.2f %s\n", static_cast<double>(now_us()) / 1e6, text);
}

// What the link does is up to the input: -1, no dialer; 1, an interface; 2, with an address.
int interface_is_there = 0, ping_answers = 0;

void link_stands_in()
{
    real_dialer_tools.interface_present = [](const char*) { return interface_is_there; };
    real_dialer_tools.link_ping = [](const char*, const char*, int) {
        pass_time(second);
        return ping_answers;
    };
    real_dialer_tools.run = [](const char*) { return 0; };
    real_kept_tools.interface_up = [](const char*) { return interface_is_there != 0; };
    real_kept_tools.interface_addressed = [](const char*) { return interface_is_there > 1; };
    real_kept_tools.program_there = [](const char*) { return interface_is_there >= 0; };
    real_kept_tools.link_ping = real_dialer_tools.link_ping;
    real_kept_tools.run = real_dialer_tools.run;
    real_kept_tools.start = [](const char*) { return 1; };
    real_kept_tools.ended = [](int, int& status) { return status = 1, interface_is_there == 0; };
    real_kept_tools.signal = [](int, int) {};
}

void look_at_record()
{
    gsm_mobile copy{};
    if (kelo_copy_mobile(&copy) == 1) {
        text_holds(copy.at_dev), text_holds(copy.model), text_holds(copy.mfrs);
        text_holds(copy.revision), text_holds(copy.sn), text_holds(copy.imsi);
        text_holds(copy.iccid), text_holds(copy.gps_loc), text_holds(copy.version_code);
        text_holds(copy.qmbn_code), text_holds(copy.number), text_holds(copy.smscenter);
        text_holds(copy.act), text_holds(copy.plmn), text_holds(copy.band);
        text_holds(copy.lac), text_holds(copy.oper), text_holds(copy.band_gsm);
        text_holds(copy.band_lte), text_holds(copy.band_tds), text_holds(copy.apn);
        text_holds(copy.user), text_holds(copy.password), text_holds(copy.pincode);
        text_holds(copy.sms_tag), text_holds(copy.sms_dest), text_holds(copy.sms_text);
    }
    const struct gsm_event& event = ::gsm_event;
    text_holds(event.callingnum), text_holds(event.pdu), text_holds(event.sender);
    text_holds(event.smsc), text_holds(event.sms_time), text_holds(event.time_zone);
    text_holds(event.text);
    REQUIRE(event.length >= 0 && event.length < static_cast<int>(sizeof event.text));
}

// Takes all that waits.
void take_all()
{
    int count = 0;
    kelo_sms sms;
    while (kelo_take_sms(&sms) == 1) {
        text_holds(sms.sender), text_holds(sms.text), text_holds(sms.pdu), text_holds(sms.time);
        REQUIRE(++count <= KELO_SMS_QUEUE);
    }
    count = 0;
    char text[4096];
    kelo_message message{};
    while (kelo_take_message(&message, sizeof message, text, sizeof text) == 1)
        REQUIRE(strnlen(text, sizeof text) < sizeof text && ++count <= 4096);
    count = 0;
    kelo_answer answer{};
    char lines[KELO_ANSWER_LONGEST + 1];
    while (kelo_take_answer(&answer, sizeof answer, lines, sizeof lines) == 1)
        REQUIRE(std::strlen(lines) <= KELO_ANSWER_LONGEST && ++count <= KELO_ASKS);
    count = 0;
    kelo_sms_result result{};
    while (kelo_take_sms_result(&result, sizeof result) == 1)
        REQUIRE(*kelo_sms_state_name(result.state) != '?' && ++count <= KELO_SMS_OUTBOX);
    count = 0;
    kelo_sms_report report{};
    while (kelo_take_sms_report(&report, sizeof report) == 1)
        REQUIRE(++count <= KELO_SMS_OUTBOX);
    char caller[128];
    kelo_take_caller(caller, sizeof caller);
    char position[256];
    kelo_get_gps_location(position);
    cellular_status status{};
    kelo_get_cellular(&status);
    int used = 0, total = 0;
    if (kelo_get_sms_storage(&used, &total) == 1)
        REQUIRE(used >= 0 && total >= 0);
    kelo_figures figures{};
    kelo_get_figures(&figures, sizeof figures);
    REQUIRE(std::strcmp(kelo_reason_name(kelo_get_reason()), "unknown") != 0);
    char unknown[64];
    kelo_get_unknown_model(unknown, sizeof unknown);
    char version[64];
    kelo_check_version_code(version);
}

using words = std::vector<std::string>;

std::string word(const words& all, std::size_t number, const char* otherwise = "")
{
    return number < all.size() ? all[number] : otherwise;
}
int number(const words& all, std::size_t which, int otherwise = 0)
{
    return which < all.size() ? std::atoi(all[which].c_str()) : otherwise;
}
std::string rest(const words& all, std::size_t from)
{
    std::string text;
    for (; from < all.size(); from++)
        text += (text.empty() ? "" : " ") + all[from];
    return text;
}

cellular_setting settings_of(const words& all)
{
    cellular_setting settings{};
    settings.enable = 1;
    settings.net_mode = number(all, 1);
    std::snprintf(settings.apn, sizeof settings.apn, "%s", word(all, 2, "internet").c_str());
    std::snprintf(settings.pin, sizeof settings.pin, "%s", word(all, 3).c_str());
    settings.auth = number(all, 4);
    settings.ping_enable = number(all, 5, 1);
    std::snprintf(settings.ping_target, sizeof settings.ping_target, "192.0.2.1");
    return settings;
}

void init(const words& all)
{
    const cellular_setting settings = settings_of(all);
    word_set(global_quagga_stop, 0);
    kelo_init_cellular(&settings, number(all, 6) != 0 ? 1 : 0);
}

void send_sms(const words& all)
{
    kelo_sms_options options{};
    options.size = sizeof options;
    kelo_sms_options_defaults(&options);
    const int how = number(all, 1);
    options.report = how & 1;
    options.flash = how >> 1 & 1;
    kelo_send_sms(word(all, 2, "1").c_str(), rest(all, 3).c_str(), &options);
}

void set_mqtt(const words& all)
{
    mqtt_config config{};
    config.tls_mode = number(all, 1);
    std::snprintf(config.host, sizeof config.host, "%s", word(all, 2, "broker").c_str());
    std::snprintf(config.port, sizeof config.port, "%s", word(all, 3, "1883").c_str());
    std::snprintf(config.topic, sizeof config.topic, "%s", word(all, 4, "t").c_str());
    std::snprintf(config.client_id, sizeof config.client_id, "c");
    std::snprintf(config.ca_file, sizeof config.ca_file, "/dev/null");
    std::snprintf(config.cert_file, sizeof config.cert_file, "/proc/self/comm");
    config.mqtt_done_callback = [](int) { kelo_check_mqtt_update(); };
    kelo_set_urc_callback([](const char* text) { REQUIRE(std::strlen(text) < 65536); });
    kelo_set_cellular_wake(&config);
}

void set_questions(const words& all)
{
    const std::string texts[] = {word(all, 2, "AT+CSQ"), word(all, 3, "AT+COPS?"),
                                 word(all, 4, "AT+QENG=\"servingcell\"")};
    const char* const given[] = {texts[0].c_str(), texts[1].c_str(), texts[2].c_str()};
    kelo_set_questions(given, 3, number(all, 1, 5));
}

void keep(const words& all)
{
    kelo_keeper keeper{};
    keeper.size = sizeof keeper;
    kelo_keeper_defaults(&keeper);
    keeper.silent_s = static_cast<unsigned>(number(all, 1, 60));
    keeper.search_s = static_cast<unsigned>(number(all, 2, 360));
    keeper.first_restart_s = static_cast<unsigned>(number(all, 3, 120));
    keeper.stuck = [](int, void*) {};
    kelo_keep(&keeper);
}

struct call_row {
    const char* name;
    void (*act)(const words& all);
};
constexpr call_row calls[] = {
    {"init", init}, // MODE APN PIN AUTH PING LOW-POWER
    {"deinit", [](const words&) { kelo_deinit_cellular(); }},
    {"set",
     [](const words& all) {
         const cellular_setting settings = settings_of(all);
         kelo_set_cellular(&settings);
     }},
    {"set-but-mode",
     [](const words& all) {
         const cellular_setting settings = settings_of(all);
         kelo_set_cellular_but_mode(&settings);
     }},
    {"restart",
     [](const words& all) {
         const cellular_setting settings = settings_of(all);
         kelo_cellular_restart(&settings);
     }},
    {"reload", [](const words&) { cellular_reload(); }},
    {"stop", [](const words&) { cellular_stop(); }},
    {"start", [](const words& all) { cellular_start(number(all, 1) != 0 ? 1 : 0); }},
    {"keep", keep}, // SILENT SEARCH FIRST-RESTART
    {"keep-stop", [](const words&) { kelo_keep_stop(); }},
    {"sms", send_sms}, // 1: report, 2: flash; NUMBER TEXT
    {"enqueue",        // MODE NUMBER LENGTH BODY
     [](const words& all) {
         sms_outbox_enq(number(all, 1), "tag", word(all, 2).c_str(), number(all, 3),
                        rest(all, 4).c_str());
     }},
    {"cancel", [](const words& all) { kelo_cancel_sms(number(all, 1, 1)); }},
    {"storage", [](const words& all) { kelo_set_sms_storage(number(all, 1)); }},
    {"patience", [](const words& all) { kelo_set_sms_patience(number(all, 1)); }},
    {"mqtt", set_mqtt}, // TLS HOST PORT TOPIC
    {"mqtt-backoff", [](const words& all) { kelo_set_mqtt_backoff(number(all, 1)); }},
    {"gps", [](const words&) { kelo_set_gps_on(), kelo_start_gps_location(); }},
    {"gps-stop", [](const words&) { kelo_stop_gps_location(); }},
    {"questions", set_questions}, // SECONDS TEXTS
    {"sim", [](const words& all) { mobile_select_simcard(number(all, 1, 1)); }},
    {"family", [](const words& all) { word_set(is_quectel, number(all, 1)); }},
    {"send-at", [](const words& all) { libgsm_send_at(rest(all, 1).c_str()); }},
    {"hang-up", [](const words&) { libgsm_hangup(&g_mobile); }},
    {"update-apn", [](const words&) { kelo_update_apn(); }},
    {"profile", [](const words&) { libgsm_check_qmbncfg_code(); }},
    {"debug", [](const words& all) { set_5g_debug(number(all, 1)); }},
    {"link", [](const words& all) { interface_is_there = number(all, 1); }},
    {"ping", [](const words& all) { ping_answers = number(all, 1); }},
    {"trace",
     [](const words&) {
         kelo_set_port_trace(
             [](const kelo_port_event* event, void*) {
                 REQUIRE(event->bytes == nullptr || event->bytes[event->length] == '\0');
             },
             nullptr);
     }},
    {"take", [](const words&) { take_all(); }},
};

words words_of(const std::string& line)
{
    std::istringstream stream(line);
    words all;
    for (std::string one; stream >> one;)
        all.push_back(one);
    return all;
}

void call(const std::string& line)
{
    const words all = words_of(line);
    for (const call_row& row : calls)
        if (!all.empty() && all[0] == row.name)
            row.act(all);
}

void order(const std::string& text)
{
    std::string answer;
    nlohmann::ordered_json fields;
    run_order(*modem, text, answer, fields);
}

// Changes of a host to the flows' commands, ahead of its init: they and their texts stay.
struct custom_item {
    at_config_item item{};
    std::string text;
};
std::list<custom_item> custom_items;

void add_custom(const words& all) // SIM FLOW ID IGNORE TIMEOUT SEQ TEXT
{
    custom_item& one = custom_items.emplace_back();
    one.item.sim = number(all, 1, 1);
    one.item.flow = number(all, 2);
    one.item.id = number(all, 3);
    one.item.ignore = number(all, 4);
    one.item.timeout = number(all, 5);
    one.item.seq = number(all, 6);
    one.text = rest(all, 7);
    one.item.cmd = one.text.empty() ? nullptr : one.text.data();
    list_add_tail(&one.item.node, &cell_at_config_h);
}

void happen(const std::string& line)
{
    const std::string text = line.substr(line.empty() ? 0 : 1);
    switch (line[0]) {
    case '\0':
        break;
    case '.': {
        const int tenths = text.empty() ? 10 : std::atoi(text.c_str());
        pass_time(std::clamp(tenths, 0, 600) * second / 10);
        break;
    }
    case '<':
        order("raw \\r\\n" + text + "\\r\\n");
        break;
    case '-':
        order("raw " + text);
        break;
    case '!':
        call(text);
        break;
    case '?':
        kelo_ask(text.c_str(), 5);
        break;
    default:
        order(line);
    }
}

// No more than a minute behind the stop, for a port and a modem in whatever state.
void end_all()
{
    kelo_keep_stop();
    kelo_deinit_cellular();
    word_set(conn_mode_flag, 1);
    for (int left = 180; left > 0 && fibers() > 0; left--)
        pass_time(second);
    REQUIRE(fibers() == 0);
    REQUIRE(life.nothing_runs());
    take_all();
    look_at_record();
    int parts = 0;
    while (sms_outbox_item* const item = sms_outbox_deq()) {
        sms_outbox_free(item);
        REQUIRE(++parts <= KELO_SMS_OUTBOX);
    }
    word_set(global_quagga_stop, 0);
    REQUIRE(cellular_stop() == 0); // closes the port
    modem.reset();
}

void session(std::istream& script)
{
    std::string line;
    std::getline(script, line);
    plug(line);
    link_stands_in();
    kelo_set_log(hear_line, nullptr);
    kelo_set_port(port_path);
    std::getline(script, line);
    for (; line.starts_with("!custom ") && custom_items.size() < 16; std::getline(script, line))
        add_custom(words_of(line));
    init({});
    set_5g_debug(says ? 1 : 0);
    for (int i = 0; i < most_lines && now_us() < most_time && script; i++) {
        happen(line);
        look_at_record();
        std::getline(script, line);
    }
    end_all();
    custom_items.clear();
}

} // namespace

extern "C" int kelo_system(const char*)
{
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::signal(SIGPIPE, SIG_IGN);
    says = std::getenv("FUZZ_SAYS") != nullptr;
    std::string error;
    for (const auto& model : kelo_emulator::known_models(KELO_DIALOGUES_DIR, error))
        REQUIRE(kelo_emulator::load_dialogue(KELO_DIALOGUES_DIR, model.name + ".dlg",
                                             kelo_emulator::builtin_uses(), dialogues[model.name])
                    .empty());
    REQUIRE(error.empty() && dialogues.count("EC25") == 1);
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        return -1;
    diag_plain("makes this thread's own"); // which is no variable
    remember();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    std::istringstream script(std::string(reinterpret_cast<const char*>(bytes), size));
    interface_is_there = ping_answers = 0;
    run([&] { session(script); });
    return 0;
}
