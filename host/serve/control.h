// SPDX-License-Identifier: MIT
// The control socket: other programs of this device ask the running host, one JSON object a line,
// and get one back for each. docs/kelo-host.md has the requests. Who may open the socket may do
// all of them: its file mode is the lock.
#pragma once

#include "host/input/commands.h"
#include "host/loop.h"
#include "host/state/feed.h"

#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <string>
#include <sys/socket.h>
#include <utility>

struct bufferevent;
struct evconnlistener;

namespace kelo_host
{

class control
{
  public:
    struct calls {
        std::function<reply(const user_command&)> act;
        std::function<bool(int number)> is_sending; // whether the message has no result yet
        std::function<bool()> is_seeking;           // a position
        std::function<std::string()> position;      // the last, empty for none
    };

    control(speaker say, calls to_do) : say_(std::move(say)), calls_(std::move(to_do)) {}
    ~control();
    control(const control&) = delete;
    control& operator=(const control&) = delete;

    // Returns what is wrong, empty for nothing. A socket that a dead host has left is replaced.
    std::string open(loop& waits, feed& happenings, const std::string& path,
                     const std::string& group);

    // Answers whose time has come; several times a second.
    void pass();

    // No more requests; whoever still waits for an answer is told why there is none.
    void close(const char* why);

  private:
    struct waiter {
        user_command command;
        int number = 0;
    };
    struct client {
        control* owner = nullptr;
        bufferevent* stream = nullptr;
        ucred peer{};
        bool watches = false, shows_private = false;
        bool skips = false; // the rest of a line that was too long
        bool ended = false; // it writes no more, and may still read
        bool gone = false;
        unsigned missed = 0; // objects, since it reads too slowly
        std::list<waiter> waiters;
    };
    // The last of a kind, bounded in number and bytes.
    struct memory {
        std::deque<std::pair<json_value, size_t>> kept;
        size_t bytes = 0;
        void add(const json_value& one);
        json_value all() const;
    };

    static void on_client(evconnlistener*, int fd, sockaddr*, int, void* self);
    static void on_readable(bufferevent*, void* one);
    static void on_written(bufferevent*, void* one);
    static void on_end(bufferevent*, short what, void* one);

    std::string claim(const std::string& path);
    std::string bind_socket(const std::string& path, const std::string& group, int& fd);
    void accept(int fd);
    void rest();
    void take_lines(client& from);
    void take_line(client& from, std::string_view line);
    void carry_out(client& from, const user_command& command);
    void note_actor(const client& from, const user_command& command);
    void happened(const json_value& happening);
    void answer_waiting(const std::function<const char*(const waiter&, json_value&)>& end_of);
    void take_answers();
    void answer(client& to, const json_value& id, command_verb verb, const std::string& error,
                json_value fields);
    void write(client& to, const json_value& object);

    speaker say_;
    calls calls_;
    std::string path_;
    int lock_ = -1;
    evconnlistener* listener_ = nullptr;
    bool rests_ = false; // no client has room, until one is gone or a moment is over:
    std::chrono::steady_clock::time_point rests_until_{}; // they may come without end
    std::list<client> clients_;
    memory messages_, results_;
};

} // namespace kelo_host
