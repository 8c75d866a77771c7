// SPDX-License-Identifier: MIT
// An AT modem on a pseudo-terminal, for hosts and tests that have no hardware.
//
// Owns: the pseudo-terminal behind one port path, the dialogue file of one model, the state that a
// module keeps (SIM, registration, radio, messages, calls) and the log of everything said.
// Threads: one thread of its own runs between start() and stop() and does all reading, writing and
// waiting. Methods may be called from any thread and none blocks on the port; start() and stop()
// are for one thread at a time, with no other call under way.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace kelo_emulator
{

using monotonic_clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

enum class speaker { host, modem };

// One thing said on the port. From the host: one command line or one message body with its
// terminator, as received. From the modem: the bytes of one write.
struct log_entry {
    monotonic_clock::time_point time;
    speaker from;
    std::string bytes;
};

// One message that the host sent with AT+CMGS.
struct sent_message {
    monotonic_clock::time_point time;
    bool pdu;           // true: `body` is the hexadecimal PDU as written
    std::string target; // argument of AT+CMGS: the number in text mode, the length in PDU mode
    std::string body;   // without the closing Ctrl-Z
    int reference;      // the <mr> that was answered, -1 when it was refused
};

struct modem_options {
    std::string model;         // the dialogue file is <dialogues_dir>/<model>.dlg
    std::string port;          // path at which the pseudo-terminal appears, e.g. "/dev/ttyUSB2"
    std::string dialogues_dir; // empty: $KELO_DIALOGUES, else those installed with this program,
                               // else the folder the build came from
    bool boot_reports = false; // print the boot reports (RDY ...) after start
    std::map<std::string, std::string> variables; // override variables of the dialogue file
    // Called on the emulator's thread for each log entry, without a lock held. May be empty.
    std::function<void(const log_entry&)> trace;
};

// One file of the folder of dialogues.
struct known_model {
    std::string name, dialogue;    // the second is its path
    std::string about;             // its first line, when that is a comment
    std::vector<std::string> uses; // built-in behaviours
    std::string error;             // why it can't be started
};

// The models that can be started, by name, with the folder chosen as modem_options has it. A folder
// that can't be read leaves its reason in `error`.
std::vector<known_model> known_models(const std::string& dialogues_dir, std::string& error);

struct modem_core;

class emulated_modem
{
  public:
    emulated_modem();
    ~emulated_modem(); // stops
    emulated_modem(const emulated_modem&) = delete;
    emulated_modem& operator=(const emulated_modem&) = delete;

    // Loads the dialogue file, opens the pseudo-terminal and puts it at the port path.
    // Returns an empty text, or what went wrong ("EC25.dlg:12: ..."); nothing is left behind then.
    std::string start(const modem_options& options);
    // Takes the port away and ends the thread. Harmless when not running. The log stays readable.
    void stop();
    bool running() const;

    // Carries out one order of the table in orders.cpp ("silence on", "sim pull", "late 500"; the
    // order "help" lists them). Returns an empty text, or why the order was refused.
    // What "help", "state" and "messages" tell goes to those that are given: as text to `answer`,
    // as members of an object to `fields`.
    std::string order(const std::string& text, std::string* answer = nullptr,
                      nlohmann::ordered_json* fields = nullptr);

    // An unsolicited line, framed as CR LF line CR LF, between the lines of a running answer but
    // never inside one. A line feed in `line` begins a further line of the same report.
    void report(const std::string& line);
    // Bytes as they are, in turn with everything else.
    void raw(const std::string& bytes);

    // Variables of the dialogue: ${imsi}, ${iccid}, ... An unknown name reads as empty.
    void set(const std::string& name, const std::string& value);
    std::string get(const std::string& name) const;

    // --- what was said -------------------------------------------------------------------------
    // Patterns are whole texts in which `*` stands for any run of characters, letters in either
    // case: "AT+CPIN?", "AT+CGREG*". There is no other wildcard; `?` is a question mark.
    // The log holds the latest 50000 entries; older ones are dropped. Endless output is not logged.
    std::vector<log_entry> log() const;
    // Host: the text of each command line, without line end; empty lines are left out.
    std::vector<std::string> commands() const;
    // Modem: the lines written, without line ends and empty lines, put together over split writes.
    std::vector<std::string> sent() const;
    std::size_t count(const std::string& pattern) const;
    std::size_t count_sent(const std::string& pattern) const;
    // Waits until at least `times` commands (or sent lines) match. False when the time is up.
    bool wait_for(const std::string& pattern, milliseconds timeout, std::size_t times = 1) const;
    bool wait_sent(const std::string& pattern, milliseconds timeout, std::size_t times = 1) const;
    // Waits for a command that matches, from the `place`-th on that the host has ever sent (the
    // first is 0). `place` is then behind it; when the time is up, behind all that came. `command`
    // is the last one that was looked at.
    bool wait_next(const std::string& pattern, milliseconds timeout, std::size_t& place,
                   std::string& command) const;
    void clear_log();

    std::vector<sent_message> sent_messages() const;
    // Bytes that endless output has written since start.
    std::uint64_t endless_bytes() const;

  private:
    std::unique_ptr<modem_core> core_;
};

// The whole text against a pattern with `*`, letters in either case. What each `*` stood for is
// appended to `captures` when given.
bool pattern_matches(const std::string& pattern, const std::string& text,
                     std::vector<std::string>* captures = nullptr);

} // namespace kelo_emulator
