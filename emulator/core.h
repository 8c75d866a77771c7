// SPDX-License-Identifier: MIT
// The inside of the modem, shared by modem.cpp (thread, port, log, public calls), session.cpp
// (command lines, answers, faults), the built-in behaviours and the orders.
//
// Everything here is touched under Core::mutex; all but the plain readers run on the emulator's
// thread, orders included, so that the port is opened, used and closed by one thread alone.
#pragma once

#include "emulator/broker.h"
#include "emulator/dialogue.h"
#include "emulator/modem.h"
#include "emulator/pty.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace kelo_emulator
{

// What one command of a line draws.
struct command_reply {
    enum class input_kind { none, message, file };
    std::vector<std::string> lines;
    std::string final_result = "OK"; // empty: none comes
    int wait_ms = 0;
    std::vector<later_report> reports;   // behind the final result
    std::function<void()> then;          // behind the final result, ahead of the reports
    input_kind input = input_kind::none; // `> ` or CONNECT comes in place of the final result
};

enum class sim_state { ready, pin, puk, absent, busy, failure };

struct sim_card {
    sim_state state = sim_state::ready;
    bool locked = false; // asks for its PIN after each power-up
    std::string pin = "1234", puk = "12345678";
    int pin_tries = 3, puk_tries = 10; // the card's own: they outlast every restart
};

enum reg_domain { creg, cgreg, cereg, c5greg, domain_count };

constexpr int mqtt_clients = 6;
constexpr int ssl_contexts = 6;

struct mqtt_client {
    int state = 0; // as +QMTCONN? counts, 0 closed
    bool ssl = false;
    int ssl_context = 0;
    int keepalive = 120;
    std::string host; // of the real broker
    int port = 0;     // 0: the broker is pretended
    std::shared_ptr<broker_client> broker;
};

struct stored_message {
    std::string memory; // "ME" or "SM"
    int index;
    int status; // 0 unread, 1 read, 2 unsent, 3 sent
    std::string pdu;
    std::string sender, stamp, text; // empty sender: came as PDU
};

struct voice_call {
    bool active = false, answered = false;
    std::string number; // empty: withheld
    unsigned serial = 0;
};

// Settings of a session: a restart of the module brings them back to what stands here.
struct session_state {
    bool echo = true;
    int cmee = 1;
    int cfun = 1;
    int reg_n[domain_count] = {0, 0, 0, 0};
    int cops_format = 0;
    std::string charset = "GSM";
    bool text_mode = false;
    int cnmi_mt = 1, cnmi_ds = 0;
    int csms = 0;
    bool clip = false, crc = false, simstat = false, unsolicited_csq = false;
    bool context = false;
    mqtt_client mqtt[mqtt_clients];
    std::map<std::string, std::string> ssl[ssl_contexts]; // of +QSSLCFG
    bool gps = false;
    voice_call call;

    command_reply::input_kind input = command_reply::input_kind::none;
    std::string line; // being received
    bool line_too_long = false;
    bool after_cr = false;
    std::string body;   // message or file being received
    std::string target; // argument of the AT+CMGS in progress, name of the file
    std::size_t file_size = 0;
    unsigned upload = 0;             // counts up
    bool opening_file = false;       // what comes ahead of CONNECT is lost
    bool running = false;            // a command has not had its final result yet
    std::deque<std::string> waiting; // lines that came meanwhile
};

// How a module hangs on a live port: nothing is answered or reported any more.
enum class hang_kind {
    none,
    soft, // AT+CFUN=1,1 restarts it all the same
    hard, // until its power is cut
};

// Orders to misbehave. They outlast a restart of the module.
struct fault_settings {
    bool silent = false;
    hang_kind hang = hang_kind::none;
    std::vector<std::string> silent_patterns;
    int late_ms = 0;
    std::string late_pattern = "*";
    std::size_t split_bytes = 0;
    int split_ms = 0;
    std::string partial_pattern;
    long partial_bytes = -1; // -1: half
    std::string reset_pattern;
    bool swallow = false;
    bool endless = false;
    std::string endless_text;
    int cms_error = -1; // next AT+CMGS fails with it
    bool cms_silent = false;
    int mqtt_open = 0, mqtt_result = 0, mqtt_refusal = 0; // of +QMTOPEN, +QMTCONN
    bool mqtt_no_topic = false;
};

struct modem_core {
    modem_options options;
    std::string dialogues_dir;
    dialogue_file dialogue;

    mutable std::mutex mutex;
    mutable std::condition_variable changed; // log grew, job done, thread ended
    std::thread thread;
    bool running = false, stop_wanted = false;
    int wake[2] = {-1, -1};
    struct timed_job {
        std::function<void()> work;
        bool done = false;
    };
    std::deque<timed_job*> jobs;
    bool run_on_thread(const std::function<void()>& work); // false: not running
    void wake_up() const;

    // --- modem.cpp: port, timers, log
    pseudo_terminal pty;
    std::string output; // not yet written
    monotonic_clock::time_point next_write{};
    std::multimap<monotonic_clock::time_point, std::function<void()>> timers;
    std::deque<log_entry> entries;
    std::vector<log_entry> untraced;
    std::deque<std::string> host_lines, modem_lines;
    std::size_t host_lines_gone = 0; // ahead of the first that is left
    std::string modem_partial;
    std::uint64_t endless_written = 0;
    std::size_t endless_at = 0;
    void loop();
    void after(int ms, std::function<void()> work);
    void put(const std::string& bytes); // queue for writing; dropped when the port is gone or full
    void pump();
    void write_endless();
    void note(speaker from, const std::string& bytes);
    void note_host_line(const std::string& line);
    void note_modem_bytes(const std::string& bytes);
    void read_port();
    std::string node_on();
    void node_off();

    // --- session.cpp: what is said
    session_state session;
    fault_settings faults;
    unsigned restarts = 0;
    bool away = false;   // between a restart and its boot
    bool powered = true; // else it is away until an order brings it back
    void receive(const std::string& bytes);
    void receive_command_byte(char c);
    void receive_body_byte(char c);
    void submit(const std::string& line);
    void execute(const std::string& line);
    command_reply run(const std::string& command);
    void deliver(const std::string& line, const std::vector<command_reply>& replies);
    void finish();                              // the final result is out: next waiting line
    void put_final(const command_reply& reply); // final result, what follows it, finish
    void report(const std::string& text);
    void report_sequence(const std::string& variable); // texts separated by `|`
    void reset(int away_ms);
    void go_down();
    std::string come_up(); // gives what keeps the node away
    void boot();
    void power_off(); // cures every hang
    std::string power_on();
    void power_cycle(int away_ms);
    bool hangs(const std::string& line);
    bool resets_on(const std::string& line);
    void move_node(const std::string& path, int away_ms);
    void fresh_session();
    std::string render(const std::string& final_result) const;

    // --- variables
    std::string get(const std::string& name, const std::string& fallback = "") const;
    int get_number(const std::string& name, int fallback) const;
    std::string text(const std::string& pattern) const;

    // --- builtins_*.cpp
    sim_card sim, other_sim; // of the selected slot, and of the other one
    unsigned cards = 0;      // exchanged
    void relock_sim();
    int sim_error() const; // CME number of the state, 0 when ready
    bool service() const;  // registered, home or roaming
    void sim_up();         // the reports of a SIM that gets power

    int reg_target[domain_count] = {1, 1, 1, 1};
    int reg_seen[domain_count] = {1, 1, 1, 1}; // as last reported
    std::string columns_seen[domain_count];
    bool detached = false; // AT+COPS=2
    monotonic_clock::time_point radio_on{};
    milliseconds register_after{0}; // from radio_on
    unsigned radio_offs = 0;
    void search(monotonic_clock::time_point from);
    bool searching() const;
    int reg_stat(int domain) const;
    std::string reg_columns(int domain, int n, int stat) const;
    void update_registration();
    std::string cell = "LTE";

    // --- data_interface.cpp: what happens to the interface of the data link
    std::string data_interface; // empty: nobody's
    bool carried = false, dialable = false;
    std::string follow_service(const std::string& interface);
    void update_data_interface();
    void leave_data_interface();

    std::vector<stored_message> store;      // in the order of their places
    std::deque<stored_message> undelivered; // which the network keeps until there is room
    std::vector<sent_message> sent_messages;
    int reference = 0;
    void message_ready(const std::string& body, bool given_up);
    std::string reading_memory() const; // of AT+CPMS, the first one
    std::string arriving_memory() const;
    int memory_size(const std::string& memory) const;
    int memory_used(const std::string& memory) const;
    void send_report(const std::string& hex); // +CDS, or stored and +CDSI
    void report_delivery(const std::string& submit, int message_reference);
    std::string deliver_pdu(const std::string& hex);
    std::string deliver_text(const std::string& sender, const std::string& words);
    std::string store_pdu(const std::string& hex, int status); // without a word to the host
    void arrive(stored_message message);                       // refused while there is no room
    int keep_message(stored_message message);                  // gives the place, or -1
    void place_freed();

    bool gps_fix = true;
    std::map<std::string, std::string> files;
    void file_ready();
    void watch_broker(int number);
    void broker_says(int number, const broker_event& event);

    void ring(const std::string& number);
    void hang_up(bool by_peer);
    void ring_again(unsigned serial);
};

// A built-in behaviour: a command pattern of a group that a dialogue file names with `use`.
struct builtin_row {
    const char* use; // null: every module has it
    const char* pattern;
    void (*run)(modem_core& core, const std::vector<std::string>& captures, command_reply& reply);
};

struct builtin_table {
    const builtin_row* first;
    std::size_t count;
};

builtin_table basic_builtins();   // echo, error form, radio        builtins_basic.cpp
builtin_table sim_builtins();     // SIM and PIN                    builtins_sim.cpp
builtin_table network_builtins(); // registration, operator, cell   builtins_network.cpp
builtin_table sms_builtins();     // messages                       builtins_sms.cpp
builtin_table misc_builtins();    // calls, files                   builtins_misc.cpp
builtin_table data_builtins();    // MQTT, GPS                      builtins_data.cpp
std::set<std::string> builtin_uses();
const std::vector<builtin_table>& all_builtins();

// Orders, orders.cpp. Runs on the emulator's thread.
std::string run_order(modem_core& core, const std::string& text, std::string& answer,
                      nlohmann::ordered_json& fields);

// Small helpers of the built-ins.
void cme(command_reply& reply, int number);
void cms(command_reply& reply, int number);
bool is_hex(const std::string& text);
std::string unquote(const std::string& text);                // one pair of quotes off
std::vector<std::string> arguments(const std::string& text); // at commas outside quotes, unquoted
std::string ucs2_hex(const std::string& text);

} // namespace kelo_emulator
