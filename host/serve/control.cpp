// SPDX-License-Identifier: MIT
#include "host/serve/control.h"

#include "host/log/private.h"

#include <kelo/command.h>

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/listener.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace kelo_host
{

namespace
{

constexpr size_t most_clients = 16;
constexpr size_t longest_line = 128 * 1024; // a message of 255 parts, as JSON may write it
constexpr size_t most_unread = 256 * 1024;  // of what is told to one that watches,
constexpr size_t pause_at = 64 * 1024;      // and at which its requests wait
constexpr size_t most_kept = 64;            // messages, and results
constexpr size_t most_kept_bytes = 128 * 1024;
constexpr auto between_refusals = std::chrono::milliseconds(100);
constexpr size_t most_waiting = 16; // answers that one client waits for

std::string system_fault(const std::string& path)
{
    return path + ": " + std::strerror(errno);
}

size_t unread_of(bufferevent* stream)
{
    return evbuffer_get_length(bufferevent_get_output(stream));
}

sockaddr_un address_of(const std::string& path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

bool answers(const std::string& path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const sockaddr_un address = address_of(path);
    const bool live =
        connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
        errno == EAGAIN; // its queue is full
    ::close(fd);
    return live;
}

// The other end has closed both ways, not the one alone.
bool has_hung_up(int fd)
{
    pollfd one = {fd, 0, 0};
    return poll(&one, 1, 0) == 1 && (one.revents & (POLLHUP | POLLERR)) != 0;
}

// What stands of a command in the log, without what may be private.
std::string public_form(const user_command& command)
{
    std::string text = verb_name(command.verb);
    if (command.verb == command_verb::at)
        return text + " " + printable(command.text.substr(0, command.text.find_first_of("=\"")));
    if (command.verb == command_verb::sim)
        return text + " " + std::to_string(command.sim);
    for (const auto& [name, value] : command.settings)
        text += " " + printable(name);
    return text;
}

json_value lines_in(const std::string& text)
{
    json_value lines = json_value::array();
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

} // namespace

void control::memory::add(const json_value& one)
{
    const size_t size = to_text(one).size();
    kept.emplace_back(one, size);
    bytes += size;
    while (kept.size() > most_kept || (bytes > most_kept_bytes && kept.size() > 1)) {
        bytes -= kept.front().second;
        kept.pop_front();
    }
}

json_value control::memory::all() const
{
    json_value list = json_value::array();
    for (const auto& [one, size] : kept)
        list.push_back(one);
    return list;
}

// The lock tells a live host from a dead one, also while two start at once.
std::string control::claim(const std::string& path)
{
    const std::string lock = path + ".lock";
    lock_ = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (lock_ < 0)
        return system_fault(lock);
    if (flock(lock_, LOCK_EX | LOCK_NB) != 0)
        return path + ": another host has it";
    struct stat there = {};
    if (lstat(path.c_str(), &there) != 0)
        return errno == ENOENT ? "" : system_fault(path);
    if (!S_ISSOCK(there.st_mode))
        return path + ": is there, and no socket";
    if (answers(path))
        return path + ": another program listens there";
    return unlink(path.c_str()) == 0 ? "" : system_fault(path);
}

std::string control::bind_socket(const std::string& path, const std::string& group, int& fd)
{
    const sockaddr_un address = address_of(path);
    fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    // The first sets the mode that it is made with, so that nobody else comes in between.
    if (fd < 0 || fchmod(fd, 0660) != 0 ||
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return system_fault(path);
    path_ = path;
    if (!group.empty()) {
        const struct group* const found = getgrnam(group.c_str());
        if (found == nullptr)
            return "there is no group " + group;
        if (chown(path.c_str(), static_cast<uid_t>(-1), found->gr_gid) != 0)
            return path + ": can't be given to the group " + group + ": " + std::strerror(errno);
    }
    return chmod(path.c_str(), 0660) == 0 ? "" : system_fault(path);
}

control::~control()
{
    try {
        close("the host ends");
    } catch (...) { // no memory for a last answer
    }
}

std::string control::open(loop& waits, feed& happenings, const std::string& path,
                          const std::string& group)
{
    if (path.empty() || path.size() >= sizeof sockaddr_un::sun_path)
        return "the path of the control socket is empty or too long";
    int fd = -1;
    std::string fault = claim(path);
    if (fault.empty())
        fault = bind_socket(path, group, fd);
    if (fault.empty()) {
        listener_ =
            evconnlistener_new(waits.base(), on_client, this,
                               LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, most_clients, fd);
        if (listener_ == nullptr)
            fault = path + ": can't be listened at";
    }
    if (!fault.empty()) {
        if (fd >= 0)
            ::close(fd);
        close("");
        return fault;
    }
    evconnlistener_set_error_cb(
        listener_, [](evconnlistener*, void* self) { static_cast<control*>(self)->rest(); });
    happenings.follow([this](const json_value& happening) { happened(happening); });
    return "";
}

void control::close(const char* why)
{
    if (listener_ != nullptr)
        evconnlistener_free(std::exchange(listener_, nullptr));
    for (client& one : clients_) {
        for (const waiter& each : std::exchange(one.waiters, {}))
            answer(one, each.command.id, each.command.verb, why, json_value::object());
        evbuffer* const output = bufferevent_get_output(one.stream);
        evbuffer_unfreeze(output, 1);
        evbuffer_write(output, bufferevent_getfd(one.stream)); // what goes at once
        shutdown(bufferevent_getfd(one.stream), SHUT_RDWR);    // libevent closes later
        bufferevent_free(one.stream);
    }
    clients_.clear();
    if (!path_.empty())
        unlink(std::exchange(path_, "").c_str());
    if (lock_ >= 0)
        ::close(std::exchange(lock_, -1));
}

void control::on_client(evconnlistener*, int fd, sockaddr*, int, void* self)
{
    static_cast<control*>(self)->accept(fd);
}

void control::rest()
{
    evconnlistener_disable(listener_);
    rests_ = true;
    rests_until_ = std::chrono::steady_clock::now() + between_refusals;
}

void control::accept(int fd)
{
    if (clients_.size() >= most_clients) {
        constexpr char full[] = "{\"ok\":false,\"error\":\"too many clients\"}\n";
        [[maybe_unused]] const ssize_t sent = send(fd, full, sizeof full - 1, MSG_NOSIGNAL);
        ::close(fd);
        return rest();
    }
    bufferevent* const stream =
        bufferevent_socket_new(evconnlistener_get_base(listener_), fd, BEV_OPT_CLOSE_ON_FREE);
    if (stream == nullptr) {
        ::close(fd);
        return;
    }
    client& one = clients_.emplace_back();
    one.owner = this;
    one.stream = stream;
    socklen_t size = sizeof one.peer;
    getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &one.peer, &size);
    bufferevent_setcb(stream, on_readable, on_written, on_end, &one);
    bufferevent_setwatermark(stream, EV_READ, 0, longest_line + 1);
    bufferevent_enable(stream, EV_READ | EV_WRITE);
}

void control::on_readable(bufferevent*, void* one)
{
    client& from = *static_cast<client*>(one);
    from.owner->take_lines(from);
}

void control::on_written(bufferevent*, void* one)
{
    client& to = *static_cast<client*>(one);
    to.owner->take_lines(to); // those that had to wait
}

void control::on_end(bufferevent* stream, short what, void* one)
{
    client& from = *static_cast<client*>(one);
    from.ended = true;
    if ((what & BEV_EVENT_ERROR) != 0 || has_hung_up(bufferevent_getfd(stream)))
        from.gone = true; // freed in the next pass, not under its own call
    else
        from.owner->take_lines(from);
}

// Requests of one that does not read its answers wait where they are.
void control::take_lines(client& from)
{
    evbuffer* const input = bufferevent_get_input(from.stream);
    while (!from.gone) {
        if (unread_of(from.stream) >= pause_at || from.waiters.size() >= most_waiting) {
            bufferevent_disable(from.stream, EV_READ);
            return;
        }
        const evbuffer_ptr end = evbuffer_search_eol(input, nullptr, nullptr, EVBUFFER_EOL_LF);
        const size_t there = evbuffer_get_length(input);
        const bool whole = end.pos >= 0;
        if (!whole && there > longest_line) {
            if (!std::exchange(from.skips, true))
                answer(from, nullptr, command_verb::nothing,
                       "the line is longer than " + std::to_string(longest_line) + " bytes",
                       json_value::object());
            evbuffer_drain(input, there);
        }
        if (!whole && (!from.ended || there == 0))
            break;
        std::string line(whole ? static_cast<size_t>(end.pos) : there, '\0');
        evbuffer_remove(input, line.data(), line.size());
        evbuffer_drain(input, 1);
        if (!std::exchange(from.skips, false))
            take_line(from, line);
    }
    if (!from.ended)
        bufferevent_enable(from.stream, EV_READ);
}

void control::take_line(client& from, std::string_view line)
{
    if (line.find_first_not_of(" \t\r") == line.npos)
        return;
    json_value id = nullptr;
    std::string error;
    if (const auto command = parse_request(line, id, error))
        carry_out(from, *command);
    else
        answer(from, id, command_verb::nothing, error, json_value::object());
}

void control::note_actor(const client& from, const user_command& command)
{
    switch (command.verb) {
    case command_verb::sim:
    case command_verb::set:
    case command_verb::restart:
    case command_verb::reload:
    case command_verb::sms:
    case command_verb::at:
        say_("control: " + public_form(command) + ", by user " + std::to_string(from.peer.uid) +
             ", process " + std::to_string(from.peer.pid));
        break;
    default:
        break;
    }
}

void control::carry_out(client& from, const user_command& command)
{
    note_actor(from, command);
    reply given;
    switch (command.verb) {
    case command_verb::messages:
        given.fields["messages"] = messages_.all();
        break;
    case command_verb::results:
        given.fields["results"] = results_.all();
        break;
    case command_verb::help:
        given.fields["requests"] = request_help();
        break;
    default:
        given = calls_.act(command);
    }
    const bool known = command.verb == command_verb::messages ||
                       command.verb == command_verb::results || command.show_private;
    if (given.done && command.wait) {
        from.waiters.push_back({command, given.number});
        return;
    }
    if (!given.line.empty() && given.done)
        given.fields["line"] = given.line;
    if (given.number > 0)
        given.fields["number"] = given.number;
    answer(from, command.id, command.verb,
           given.done           ? ""
           : given.line.empty() ? "it was refused"
                                : given.line,
           known ? given.fields : masked(given.fields));
    if (command.verb == command_verb::watch) {
        from.watches = true;
        from.shows_private = command.show_private;
    }
}

void control::happened(const json_value& happening)
{
    const std::string type = happening.value("type", std::string());
    if (type == "message")
        messages_.add(happening);
    if (type == "result") {
        results_.add(happening);
        answer_waiting([&](const waiter& one, json_value& fields) -> const char* {
            if (one.command.verb != command_verb::sms || happening.value("number", 0) != one.number)
                return nullptr;
            fields["result"] = happening;
            return happening.value("state", std::string()) == "sent" ? "" : "it was not sent";
        });
    }
    for (client& one : clients_) {
        if (!one.watches)
            continue;
        if (unread_of(one.stream) > most_unread) {
            one.missed++;
            continue;
        }
        if (one.missed > 0)
            write(one, stamped("missed", {{"objects", std::exchange(one.missed, 0)}}));
        write(one, one.shows_private ? happening : masked(happening));
    }
}

// Ends the waits for which `end_of` has an error or, empty, none; null: they go on.
void control::answer_waiting(const std::function<const char*(const waiter&, json_value&)>& end_of)
{
    for (client& one : clients_)
        for (auto each = one.waiters.begin(); each != one.waiters.end();) {
            json_value fields = json_value::object();
            if (each->number > 0)
                fields["number"] = each->number;
            const char* const error = end_of(*each, fields);
            if (error == nullptr) {
                ++each;
                continue;
            }
            answer(one, each->command.id, each->command.verb, error, fields);
            each = one.waiters.erase(each);
        }
}

void control::take_answers()
{
    kelo_answer one{};
    char text[KELO_ANSWER_LONGEST + 1];
    while (kelo_take_answer(&one, sizeof one, text, sizeof text) == 1)
        answer_waiting([&](const waiter& each, json_value& fields) -> const char* {
            if (each.command.verb != command_verb::at || each.number != one.number)
                return nullptr;
            fields["lines"] = lines_in(text);
            fields["last"] = one.last;
            fields["end"] = kelo_ask_end_name(one.end);
            fields["cut"] = one.cut != 0;
            const char* const why = *one.last != '\0' ? one.last : kelo_ask_end_name(one.end);
            return one.end == KELO_ASK_OK ? "" : why;
        });
}

void control::pass()
{
    if (listener_ == nullptr)
        return;
    take_answers();
    answer_waiting([&](const waiter& one, json_value& fields) -> const char* {
        if (one.command.verb == command_verb::sms && !calls_.is_sending(one.number))
            return "it was taken back: the modem was not registered for too long";
        if (one.command.verb != command_verb::gps || calls_.is_seeking())
            return nullptr;
        if (calls_.position().empty())
            return "no position was found";
        fields["position"] = calls_.position();
        return "";
    });
    for (auto one = clients_.begin(); one != clients_.end();) {
        client& each = *one++;
        take_lines(each); // those that waited for an answer
        if (each.ended && !each.gone)
            each.gone = has_hung_up(bufferevent_getfd(each.stream)) ||
                        (!each.watches && each.waiters.empty() && unread_of(each.stream) == 0 &&
                         evbuffer_get_length(bufferevent_get_input(each.stream)) == 0);
        if (each.gone) {
            bufferevent_free(each.stream);
            clients_.erase(std::prev(one));
        }
    }
    if (rests_ &&
        (clients_.size() < most_clients || std::chrono::steady_clock::now() >= rests_until_)) {
        rests_ = false;
        evconnlistener_enable(listener_);
    }
}

void control::answer(client& to, const json_value& id, command_verb verb, const std::string& error,
                     json_value fields)
{
    json_value whole = {{"ok", error.empty()}};
    if (verb != command_verb::nothing)
        whole["do"] = verb_name(verb);
    if (!id.is_null())
        whole["id"] = id;
    if (!error.empty())
        whole["error"] = error;
    for (auto& [name, value] : fields.items())
        whole[name] = std::move(value);
    write(to, whole);
}

void control::write(client& to, const json_value& object)
{
    const std::string line = to_text(object) + "\n";
    bufferevent_write(to.stream, line.data(), line.size());
}

} // namespace kelo_host
