// SPDX-License-Identifier: MIT
// Plays the modem's side of a record (record_line.h) to a host that says about the same again.
//
// Each command of the host is looked for in the record, and what the modem said behind it comes
// again after the same time. Time goes on as in the record: what the modem did by itself comes when
// it is due, and a command that does not come is passed over after ten seconds. A host is never
// quite the same: what it says
//   earlier than recorded           moves the record forward, when that is a matter of seconds
//   once more, or in another order  gets the answer that is recorded nearest ahead of it
//   and the record does not know    gets ERROR: that alone is a fault of the replay
// While the recorded modem was silent, it is silent to all of these.
#pragma once

#include "emulator/record_line.h"

#include <cstddef>
#include <deque>
#include <iosfwd>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kelo_emulator
{

// The record as a sequence, and where in it the replay is. Knows no port and no clock: times are
// milliseconds of the caller.
class record_player
{
  public:
    explicit record_player(double speed = 1) : speed_(speed) {}

    // Returns what is wrong: "12: what", or without a line.
    std::string load(std::istream& in);

    void hear(std::string_view bytes, long long now);

    enum class deed { say, node_off, node_on };
    struct action {
        deed what;
        std::string bytes;
    };
    std::vector<action> due(long long now);
    long long next_due() const; // `never` for none
    static constexpr long long never = std::numeric_limits<long long>::max();

    std::vector<std::string> take_notes(); // differences and the end, a line each; bounded
    std::string summary() const;
    bool got_over() const { return unknown_ == 0; }

  private:
    struct step {
        std::size_t line;
        long long ms;
        kelo_record::origin from;
        std::string bytes;
        std::string left;     // of what the modem said, without answers to what was passed over
        bool reduced = false; // and that it is to be said in place of the whole
    };
    struct missing {
        std::size_t line;
        std::string text;
        long long until;
    };
    // Where in the recorded answer to a command its reader is.
    struct answer_state {
        const std::string& command;
        bool echoed = false, ended = false;
    };

    std::string add(std::string_view text, std::size_t number, long long& offset);
    bool next_unit(std::string& unit);
    void hear_unit(const std::string& unit, long long now);
    std::size_t next_host_step(std::size_t from) const;
    std::size_t find_ahead(const std::string& unit) const;
    std::size_t find_behind(const std::string& unit) const;
    void go_to(std::size_t at, long long now);
    std::string command_of(std::size_t at) const;
    void pass_over(std::size_t at, long long now);
    void play(std::size_t at, long long when);
    void repeat(std::size_t at, const std::string& unit, long long now);
    bool is_silent() const;
    bool answer_of(std::size_t at, std::string& answer, long long& after) const;
    static void split_answer(answer_state& state, const std::string& bytes, std::string& answer,
                             std::string& rest);
    long long real(long long ms) const;   // of a time of the record
    double recorded(long long now) const; // and back
    long long step_due() const;
    void note(const std::string& text);

    const double speed_;
    std::vector<step> steps_;
    std::size_t at_ = 0; // the next one
    bool begun_ = false, ended_ = false;
    long long anchor_ms_ = 0, anchor_real_ = 0; // the same moment in both times
    std::multimap<long long, action> waiting_;  // by its time
    std::string heard_;                         // not yet a whole unit
    bool after_cr_ = false;
    std::vector<missing> missing_;
    std::vector<std::string> notes_;
    std::size_t noted_ = 0, in_place_ = 0, repeated_ = 0, reordered_ = 0, absent_ = 0, unknown_ = 0;
    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::size_t last_said_[2] = {none, none}; // the commands that the host has said last
};

struct replay_options {
    std::string record, port;
    double speed = 1;
};

// Serves the port until `signals` (a signalfd) can be read. Differences go to standard error.
// Returns the exit status: 0, 1 for differences that it could not get over, 2 for a bad file.
int replay_record(const replay_options& options, int signals);

} // namespace kelo_emulator
