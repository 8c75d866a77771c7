// SPDX-License-Identifier: MIT
// A folder by which scripts send and receive messages, so that no end of this process, however
// sudden, loses or doubles one. What is on disk tells where each stands:
//
//     outgoing/F                         waits
//     .state/sending/F                   handed to the library, which has not begun with it
//     .state/sending/F, .state/marks/F "1"   has begun: the network may have it
//     .state/ready-*/F                   the result is known and written into it
//     sent/F, failed/F                   done
//
//     .state/tmp/N                       received, being written
//     .state/tmp/N = .state/seen/DIGEST  received: it counts
//     incoming/N = .state/seen/DIGEST    there for scripts
//
// Every step leads from one of these to the next, and an open goes on from wherever it finds one.
// Who calls: the host's main loop; `note_going_out` alone runs on the modem task's thread.
#pragma once

#include "host/messages/messages.h"
#include "host/messages/spool_disk.h"

#include <chrono>
#include <list>
#include <set>
#include <string>
#include <utility>

namespace kelo_host
{

class spool
{
  public:
    using clock = std::chrono::steady_clock;

    explicit spool(speaker say) : say_(std::move(say)) {}
    ~spool();
    spool(const spool&) = delete;
    spool& operator=(const spool&) = delete;

    // Takes the folder over, and goes on where the process before has ended. Returns what is wrong.
    std::string open(const std::string& folder);

    // Readable when files may have come.
    int descriptor() const { return watch_; }

    // Hands over what waits, and brings to an end what has a result.
    void pass(clock::time_point now);

    // Of whichever message; those of files are written to them.
    void note(const kelo_sms_result& result);
    void note(const kelo_sms_report& report);

    enum class keeping { kept, known, not_yet }; // known: a process before has kept it already

    // Writes a received message. When it gives `not_yet`, no other may be taken ahead of it.
    keeping keep(const whole_message& message, clock::time_point now);

    // Takes back what has not begun to go out, and hands nothing over any more.
    void stop();

    bool is_sending() const; // messages whose results are still to come, or to be written

    disk& folders() { return disk_; }

  private:
    // One file in the hands of the library.
    struct handed_file {
        std::string name;
        int number = 0; // 0: the library has not taken it yet, or it is of a process before
        int mark = -1;
        bool marked = false; // of the modem's thread until there is a result
        bool again = false;  // another of that name has come meanwhile
        bool ended = false, sent = false;
        bool written = false, placed = false; // in ready-*, and where it belongs
        int refusals = 0;
        std::string lines; // headers to add
    };

    // Ever longer pauses between tries, and one line on the first.
    struct pause {
        std::chrono::seconds wait{1};
        clock::time_point next{};
        bool failing = false;
    };
    bool worked(bool did, pause& tries, clock::time_point now);
    bool fail(const std::string& fault);

    bool recover();
    bool recover_arrivals();
    bool recover_results(place ready, bool sent);
    bool recover_handed();
    bool give_back(const std::string& name);

    std::string watch();
    void read_watch();
    void note_file(const std::string& name);
    bool is_one_waiting();

    bool work();
    bool finish_ended();
    void forget(std::list<handed_file>::iterator file);
    bool take_first();
    bool hand_over(handed_file& file);
    bool hand_text(handed_file& file, const std::string& content);
    bool make_mark(handed_file& file);
    static void note_going_out(int number, int part, void* context);
    void end(handed_file& file, bool sent, const std::string& lines);
    void end_failed(handed_file& file, const std::string& reason, const std::string& references);
    bool finish(handed_file& file);
    bool write_result(const handed_file& file);
    bool place_result(handed_file& file);
    bool set_aside(const std::string& name, const std::string& reason);

    bool write_arrival(const whole_message& message);
    bool is_known(const whole_message& message);
    bool link_seen(const std::string& arrival, const std::string& digest);
    bool place_arrival(const std::string& arrival);
    void forget_old();

    speaker say_;
    disk disk_;
    std::string fault_; // where it is not the disk's
    int watch_ = -1;
    bool recovered_ = false, stopping_ = false;
    std::set<std::pair<long long, std::string>> waiting_; // in outgoing, the oldest first
    bool rescan_ = false;                                 // the folder is to be read
    bool more_ = false; // it holds more than `waiting_`, and younger
    bool full_ = false; // the library is, until a result comes
    std::list<handed_file> handed_;
    std::list<std::pair<int, std::string>> placed_; // numbers, and names in `sent`
    std::string arrival_;                           // name of the message that is being kept
    int arrival_step_ = 0;
    size_t seen_ = 0;
    pause out_, in_;
};

} // namespace kelo_host
