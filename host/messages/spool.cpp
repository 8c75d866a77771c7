// SPDX-License-Identifier: MIT
#include "host/messages/spool.h"

#include "host/messages/message_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace kelo_host
{

namespace
{

using namespace std::chrono_literals;

constexpr size_t longest_file = 65536;
constexpr size_t longest_record = 2 * longest_file; // with its result and reports
constexpr size_t most_handed = 8; // what a sudden end leaves undecided is one of them at most
constexpr size_t most_waiting = 4096;
constexpr size_t most_placed = 256; // the library knows as many parts
constexpr size_t most_seen = 2048;  // more than a modem stores
constexpr auto longest_pause = 60s;

constexpr size_t surely_short = 255 * 67; // bytes; a text of more may be too long for a message
constexpr int most_refusals = 8;

constexpr char begun[] = "1", not_begun[] = "0";

// Habits of those who write files in place: what they have not finished bears another name.
bool is_left_alone(std::string_view name)
{
    return name.starts_with('.') || name.ends_with(".LOCK") || name.ends_with(".tmp");
}

std::string digest_text(unsigned long long digest)
{
    char text[20];
    std::snprintf(text, sizeof text, "%016llx", digest);
    return text;
}

// It sorts by the time of arrival, whatever the time of year does to the clock on the wall.
std::string name_of_arrival(unsigned long long digest)
{
    timespec now{};
    tm parts{};
    char day[32] = "", text[80];
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &parts);
    std::strftime(day, sizeof day, "%Y%m%d-%H%M%S", &parts);
    std::snprintf(text, sizeof text, "%s-%06ld-%s", day, now.tv_nsec / 1000,
                  digest_text(digest).c_str());
    return text;
}

std::string digest_of(const std::string& arrival)
{
    return arrival.substr(arrival.rfind('-') + 1);
}

// "41, 42" of the parts that the network has taken.
std::string references_of(const kelo_sms_result& result)
{
    std::string text;
    const int known = std::min(result.confirmed, static_cast<int>(sizeof result.references));
    for (int part = 0; part < known; part++)
        text += (part > 0 ? ", " : "") + std::to_string(result.references[part]);
    return text;
}

// Whether it may work later, for one file as for all others.
bool is_of_the_disk(int error)
{
    for (const int one : {ENOSPC, EDQUOT, EROFS, EIO, ENOMEM, EMFILE, ENFILE})
        if (error == one)
            return true;
    return false;
}

} // namespace

spool::~spool()
{
    // What the modem's thread may still begin with has to outlast this object.
    // NOLINTNEXTLINE(bugprone-unhandled-exception-at-new): without memory for it the host ends
    static auto& left = *new std::list<handed_file>;
    for (auto file = handed_.begin(); file != handed_.end();) {
        const auto one = file++;
        if (one->number != 0 && !one->ended && !kelo_cancel_sms(one->number))
            left.splice(left.end(), handed_, one);
        else if (one->mark >= 0)
            close(one->mark);
    }
    if (watch_ >= 0)
        close(watch_);
}

std::string spool::open(const std::string& folder)
{
    std::string fault = disk_.open(folder);
    if (fault.empty())
        fault = watch();
    if (fault.empty()) // a full disk must not keep the modem from its start
        worked(recovered_ = recover(), out_, clock::now());
    return fault;
}

bool spool::worked(bool did, pause& tries, clock::time_point now)
{
    if (did) {
        if (tries.failing)
            say_("spool: it works again");
        tries = {};
        return true;
    }
    if (!tries.failing)
        say_("spool: " + (fault_.empty() ? disk_.fault() : fault_) + "; trying again");
    fault_.clear();
    tries.failing = true;
    tries.next = now + tries.wait;
    tries.wait = std::min<std::chrono::seconds>(2 * tries.wait, longest_pause);
    return false;
}

bool spool::fail(const std::string& fault)
{
    fault_ = fault;
    return false;
}

// ---- Where the process before has ended --------------------------------------------------------

// Results ahead of the files that they belong to.
bool spool::recover()
{
    handed_.clear();
    return recover_arrivals() && recover_results(place::ready_sent, true) &&
           recover_results(place::ready_failed, false) && recover_handed();
}

// A message counts from its digest on: without that the library still has it, and gives it again.
bool spool::recover_arrivals()
{
    for (const std::string& name : disk_.names(place::tmp)) {
        const bool counts = disk_.same_file(place::tmp, name, place::seen, digest_of(name));
        if (!(counts ? place_arrival(name) : disk_.remove(place::tmp, name)))
            return false;
    }
    seen_ = disk_.names(place::seen).size();
    forget_old();
    return disk_.sync(place::incoming) && disk_.sync(place::tmp);
}

bool spool::recover_results(place ready, bool sent)
{
    for (const std::string& name : disk_.names(ready)) {
        handed_file file{.name = name, .ended = true, .sent = sent, .written = true, .lines = ""};
        if (!finish(file))
            return false;
    }
    return true;
}

bool spool::recover_handed()
{
    for (const std::string& name : disk_.names(place::sending)) {
        std::string mark, content;
        outgoing_file as_told{};
        const bool may_be_out =
            disk_.read(place::marks, name, longest_file, mark) == reading::done && mark == begun;
        if (may_be_out && disk_.read(place::sending, name, longest_file, content) == reading::done)
            parse_outgoing(content, as_told);
        handed_file file{.name = name, .lines = ""};
        end_failed(file, "unknown: the body went out, and the process ended ahead of the answer",
                   "");
        if (!(may_be_out && !as_told.resend ? finish(file) : give_back(name)))
            return false;
    }
    for (const std::string& name : disk_.names(place::marks))
        if (!disk_.remove(place::marks, name))
            return false;
    return disk_.sync(place::marks);
}

bool spool::give_back(const std::string& name)
{
    std::string back = name;
    return disk_.rename_new(place::sending, name, place::outgoing, back) &&
           disk_.sync(place::outgoing) && disk_.sync(place::sending);
}

// ---- What waits --------------------------------------------------------------------------------

std::string spool::watch()
{
    watch_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    const std::string path = "/proc/self/fd/" + std::to_string(disk_.folder(place::outgoing));
    constexpr unsigned events = IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
    rescan_ = true; // behind the watch, so that nothing falls between
    return watch_ >= 0 && inotify_add_watch(watch_, path.c_str(), events) >= 0
               ? ""
               : std::string("the folder outgoing can't be watched: ") + std::strerror(errno);
}

void spool::read_watch()
{
    alignas(inotify_event) char bytes[16384];
    for (ssize_t count = 0; (count = read(watch_, bytes, sizeof bytes)) > 0;) {
        for (ssize_t at = 0; at < count;) {
            inotify_event event{};
            std::memcpy(&event, bytes + at, sizeof event);
            at += static_cast<ssize_t>(sizeof event);
            if (event.mask & IN_Q_OVERFLOW)
                rescan_ = true;
            else if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF))
                say_("spool: the folder outgoing was taken away: nothing comes until a restart");
            else if (event.len > 0 && !more_) // else it is behind those that are read later
                note_file(bytes + at);
            at += event.len;
        }
    }
}

void spool::note_file(const std::string& name)
{
    if (is_left_alone(name))
        return;
    for (handed_file& file : handed_)
        if (file.name == name) { // two of one name could not be told apart: it waits
            file.again = true;
            return;
        }
    const auto age = disk_.age_mark(place::outgoing, name);
    if (!age)
        return;
    waiting_.emplace(*age, name);
    if (waiting_.size() <= most_waiting)
        return;
    waiting_.erase(std::prev(waiting_.end()));
    more_ = true;
}

bool spool::is_one_waiting()
{
    if (rescan_ || (more_ && waiting_.empty())) {
        rescan_ = more_ = false;
        disk_.each(place::outgoing, [this](const std::string& name) { note_file(name); });
    }
    return !waiting_.empty();
}

// ---- Out ---------------------------------------------------------------------------------------

void spool::pass(clock::time_point now)
{
    read_watch();
    if (now >= out_.next)
        worked(work(), out_, now);
}

// False when it was not let: the next call finds undone what this one leaves.
bool spool::work()
{
    if (!recovered_ && !(recovered_ = recover()))
        return false;
    if (!finish_ended())
        return false;
    while (!stopping_ && !full_) {
        const bool is_held = !handed_.empty() && handed_.back().number == 0;
        if (!is_held && (handed_.size() >= most_handed || !is_one_waiting()))
            return true;
        if (!is_held && !take_first())
            return false;
        if (!handed_.empty() && handed_.back().number == 0 && !hand_over(handed_.back()))
            return false;
        if (!finish_ended())
            return false;
    }
    return true;
}

bool spool::finish_ended()
{
    for (auto file = handed_.begin(); file != handed_.end();) {
        if (!file->ended) {
            ++file;
            continue;
        }
        if (!finish(*file))
            return false;
        forget(file++);
        full_ = false;
    }
    return true;
}

void spool::forget(std::list<handed_file>::iterator file)
{
    const bool again = file->again;
    const std::string name = std::move(file->name);
    handed_.erase(file);
    if (again)
        note_file(name);
}

bool spool::take_first()
{
    const std::string name = waiting_.begin()->second;
    if (disk_.rename(place::outgoing, name, place::sending, name)) {
        waiting_.erase(waiting_.begin());
        handed_.emplace_back().name = name;
        return true;
    }
    if (is_of_the_disk(disk_.error()))
        return false;
    if (disk_.error() != ENOENT) // somebody has taken it back
        say_("spool: " + disk_.fault() + ": it is left in outgoing");
    waiting_.erase(waiting_.begin());
    return true;
}

bool spool::hand_over(handed_file& file)
{
    std::string content;
    switch (disk_.read(place::sending, file.name, longest_file, content)) {
    case reading::later:
        return false;
    case reading::bad:
        if (!set_aside(file.name, disk_.fault()))
            return false;
        [[fallthrough]];
    case reading::gone:
        forget(std::prev(handed_.end())); // it is the last
        return true;
    case reading::done:
        break;
    }
    return hand_text(file, content);
}

bool spool::hand_text(handed_file& file, const std::string& content)
{
    outgoing_file message{};
    message.options.size = sizeof message.options;
    kelo_sms_options_defaults(&message.options);
    const std::string fault = parse_outgoing(content, message);
    if (!fault.empty()) {
        end_failed(file, fault, "");
        return true;
    }
    if (file.mark < 0 && !make_mark(file))
        return false;
    std::snprintf(message.options.tag, sizeof message.options.tag, "%s",
                  printable(file.name).c_str());
    message.options.going_out = note_going_out;
    message.options.context = &file;
    file.number = kelo_send_sms(message.number.c_str(), message.text.c_str(), &message.options);
    if (file.number > 0)
        return true;
    file.number = 0;
    full_ = handed_.size() > 1; // then a result will make room
    if (full_)
        return true;
    if (message.text.size() <= surely_short && ++file.refusals < most_refusals)
        return fail("the library takes no message");
    end_failed(file, "refused by the library: too long, or it has no room", "");
    return true;
}

// Made beforehand, so that one write that needs no room on the disk is all that is left to do while
// the modem waits. A mark without its file would be taken for an old one: that has to be there,
// too.
bool spool::make_mark(handed_file& file)
{
    if (!disk_.write(place::marks, file.name, not_begun) || !disk_.sync(place::marks) ||
        !disk_.sync(place::sending) || !disk_.sync(place::outgoing))
        return false;
    file.mark =
        openat(disk_.folder(place::marks), file.name.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
    return file.mark >= 0 || fail(std::string("can't open a mark: ") + std::strerror(errno));
}

// On the modem task's thread. A mark that can't be written is tried again with the next part.
void spool::note_going_out(int, int, void* context)
{
    auto& file = *static_cast<handed_file*>(context);
    if (!file.marked)
        file.marked = pwrite(file.mark, begun, 1, 0) == 1 && fdatasync(file.mark) == 0;
}

void spool::note(const kelo_sms_result& result)
{
    for (handed_file& file : handed_) {
        if (result.number == 0 || file.number != result.number || file.ended)
            continue;
        const std::string references = references_of(result);
        if (result.state != KELO_SMS_SENT)
            return end_failed(file, reason_of(result), references);
        return end(file, true, "Sent: " + local_time() + "\nMessage_id: " + references + "\n");
    }
}

void spool::end_failed(handed_file& file, const std::string& reason, const std::string& references)
{
    end(file, false,
        "Failed: " + local_time() + "\nFail_reason: " + printable(reason) + "\n" +
            (references.empty() ? "" : "Message_id: " + references + "\n"));
}

void spool::end(handed_file& file, bool sent, const std::string& lines)
{
    file.ended = true;
    file.sent = sent;
    file.lines = lines + "Modem: kelo\n" + file.lines;
    if (file.mark >= 0)
        close(std::exchange(file.mark, -1));
}

bool spool::finish(handed_file& file)
{
    if (!file.written && !(file.written = write_result(file)))
        return false;
    if (!file.placed && !place_result(file))
        return false;
    return disk_.sync(file.sent ? place::sent : place::failed) &&
           disk_.sync(file.sent ? place::ready_sent : place::ready_failed);
}

// From here on the result is what counts.
bool spool::write_result(const handed_file& file)
{
    constexpr char name[] = "result";
    const place ready = file.sent ? place::ready_sent : place::ready_failed;
    std::string content;
    return disk_.read(place::sending, file.name, longest_file, content) != reading::later &&
           disk_.write(place::tmp, name, with_headers(content, file.lines)) &&
           disk_.rename(place::tmp, name, ready, file.name) && disk_.sync(ready);
}

bool spool::place_result(handed_file& file)
{
    std::string name = file.name;
    file.placed = disk_.remove(place::sending, file.name) &&
                  disk_.remove(place::marks, file.name) && disk_.sync(place::sending) &&
                  disk_.rename_new(file.sent ? place::ready_sent : place::ready_failed, file.name,
                                   file.sent ? place::sent : place::failed, name);
    if (!file.placed || !file.sent || file.number == 0)
        return file.placed;
    placed_.emplace_back(file.number, name);
    if (placed_.size() > most_placed)
        placed_.pop_front();
    return true;
}

// What is no file to read goes as it is, its result beside it.
bool spool::set_aside(const std::string& name, const std::string& reason)
{
    constexpr size_t longest = 240;
    constexpr char result[] = "result";
    std::string end = name;
    if (!disk_.rename_new(place::sending, name, place::failed, end) || !disk_.sync(place::failed) ||
        !disk_.sync(place::sending))
        return false;
    say_("spool: " + printable(name) + ": " + reason);
    end = end.substr(0, longest) + ".reason";
    if (disk_.write(place::tmp, result,
                    "Failed: " + local_time() + "\nFail_reason: " + reason + "\nModem: kelo\n"))
        disk_.rename_new(place::tmp, result, place::failed, end);
    return true;
}

void spool::note(const kelo_sms_report& report)
{
    if (report.number == 0 || report.state == KELO_SMS_STILL_TRYING)
        return;
    const std::string line =
        (report.state == KELO_SMS_DELIVERED ? "Delivered: " + std::string(report.discharged) + " " +
                                                  zone_text(report.discharged_zone)
                                            : "Undelivered: " + std::to_string(report.status)) +
        ", part " + std::to_string(report.part);
    for (handed_file& file : handed_)
        if (file.number == report.number && !file.written) {
            file.lines += printable(line) + "\n";
            return;
        }
    const auto placed = std::find_if(placed_.begin(), placed_.end(),
                                     [&](const auto& one) { return one.first == report.number; });
    std::string content;
    if (placed == placed_.end() ||
        disk_.read(place::sent, placed->second, longest_record, content) != reading::done)
        return; // a script has taken it
    if (disk_.write(place::tmp, "report", with_line(content, printable(line))))
        disk_.rename(place::tmp, "report", place::sent, placed->second);
}

void spool::stop()
{
    stopping_ = true;
    for (auto file = handed_.begin(); file != handed_.end();) {
        const auto one = file++;
        if (one->ended || (one->number != 0 && !kelo_cancel_sms(one->number)))
            continue;
        if (one->mark >= 0)
            close(one->mark);
        give_back(one->name); // else the next process does
        handed_.erase(one);
    }
}

bool spool::is_sending() const
{
    return !handed_.empty();
}

// ---- In ----------------------------------------------------------------------------------------

spool::keeping spool::keep(const whole_message& message, clock::time_point now)
{
    if (now < in_.next)
        return keeping::not_yet;
    if (!recovered_)
        return worked(recovered_ = recover(), in_, now) ? keep(message, now) : keeping::not_yet;
    if (arrival_.empty()) {
        if (message.head.stored != 0 && is_known(message))
            return keeping::known;
        arrival_ = name_of_arrival(message.head.digest);
        arrival_step_ = 0;
    }
    if (!worked(write_arrival(message), in_, now))
        return keeping::not_yet;
    arrival_.clear();
    forget_old();
    return keeping::kept;
}

// Or it is what a process before did not come to delete of a message in parts.
bool spool::is_known(const whole_message& message)
{
    const auto seen = [&](unsigned long long digest) {
        return disk_.age_mark(place::seen, digest_text(digest)).has_value();
    };
    return seen(message.head.digest) ||
           (message.head.missing > 0 && !message.parts.empty() &&
            std::all_of(message.parts.begin(), message.parts.end(), seen));
}

// The digest is there as long as the file under its first name or its last: whenever all ends, the
// next process either finds both, or neither and is given the message again.
bool spool::write_arrival(const whole_message& message)
{
    switch (arrival_step_) {
    case 0:
        if (!disk_.write(place::tmp, arrival_, incoming_content(message, local_time())) ||
            !disk_.sync(place::tmp))
            return false;
        arrival_step_++;
        [[fallthrough]];
    case 1:
        // Those of its parts ahead of its own, with which it counts.
        for (const unsigned long long part : message.parts)
            if (!link_seen(arrival_, digest_text(part)))
                return false;
        if (!link_seen(arrival_, digest_of(arrival_)) || !disk_.sync(place::seen))
            return false;
        arrival_step_++;
        [[fallthrough]];
    case 2:
        if (!place_arrival(arrival_))
            return false;
        arrival_step_++;
        [[fallthrough]];
    default:
        return disk_.sync(place::incoming) && disk_.sync(place::tmp);
    }
}

// A message may come a second time, to the octet: then the digest stands for the newer one.
bool spool::link_seen(const std::string& arrival, const std::string& digest)
{
    const std::string second = arrival + ".seen";
    if (disk_.same_file(place::tmp, arrival, place::seen, digest))
        return true;
    if (disk_.link(place::tmp, arrival, place::seen, digest)) {
        seen_++;
        return true;
    }
    return disk_.error() == EEXIST && disk_.remove(place::tmp, second) &&
           disk_.link(place::tmp, arrival, place::tmp, second) &&
           disk_.rename(place::tmp, second, place::seen, digest);
}

bool spool::place_arrival(const std::string& arrival)
{
    std::string name = arrival;
    return disk_.rename_new(place::tmp, arrival, place::incoming, name);
}

void spool::forget_old()
{
    constexpr size_t slack = 64; // the folder is not read for each message
    if (seen_ <= most_seen + slack)
        return;
    std::vector<std::pair<long long, std::string>> digests;
    for (const std::string& name : disk_.names(place::seen))
        digests.emplace_back(disk_.age_mark(place::seen, name).value_or(0), name);
    std::sort(digests.begin(), digests.end());
    for (size_t at = 0; at + most_seen < digests.size(); at++)
        disk_.remove(place::seen, digests[at].second);
    seen_ = std::min(digests.size(), most_seen);
}

} // namespace kelo_host
