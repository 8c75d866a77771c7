// SPDX-License-Identifier: MIT
// What goes over the port, for the host's callback. Events are put in order under trace_lock, which
// also holds a write and its event, or a read and its event, together: an echo never stands ahead
// of its command. They are handed over later, by one thread at a time that holds no lock.
#include "core/core.h"
#include "support/diag.h"
#include <kelo/trace.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>
#include <utility>

namespace kelo
{

namespace
{

// The bytes stand behind the record.
struct waiting_event {
    waiting_event* next;
    kelo_port_event event;
};

constexpr std::size_t most_bytes = 512 * 1024; // of events that wait, their records included
constexpr int most_at_once = 256; // a callback that causes events must not go on for ever

struct receiver {
    kelo_port_trace callback = nullptr;
    void* argument = nullptr;
};

// Guarded by trace_lock; the words are looked at without it.
receiver current;
waiting_event* first = nullptr;
waiting_event* last = nullptr;
std::size_t bytes_waiting = 0;
unsigned int lost = 0;
int tracing = 0;
int events_waiting = 0;

int delivering = 0;
int paused = 0;

bool traced()
{
    return word_get(tracing) != 0 && !locks_abandoned();
}

long long now_ns(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// The caller holds trace_lock.
void append(kelo_port_happening what, const char* bytes, std::size_t length)
{
    if (current.callback == nullptr)
        return;
    const std::size_t size = sizeof(waiting_event) + length + 1;
    auto* const one = bytes_waiting + size > most_bytes
                          ? nullptr
                          : static_cast<waiting_event*>(std::malloc(size));
    if (one == nullptr) {
        lost++;
        return;
    }
    auto* const copy = reinterpret_cast<char*>(one + 1);
    std::memcpy(copy, bytes, length);
    copy[length] = '\0';
    *one = {nullptr,
            {sizeof(kelo_port_event), what, now_ns(CLOCK_MONOTONIC), now_ns(CLOCK_REALTIME), copy,
             length, std::exchange(lost, 0U)}};
    if (last == nullptr)
        first = one;
    else
        last->next = one;
    last = one;
    bytes_waiting += size;
    word_add(events_waiting, 1);
}

// The caller holds trace_lock.
waiting_event* unlink_first()
{
    waiting_event* const one = first;
    if (one == nullptr)
        return nullptr;
    first = one->next;
    if (first == nullptr)
        last = nullptr;
    bytes_waiting -= sizeof(waiting_event) + one->event.length + 1;
    word_add(events_waiting, -1);
    return one;
}

waiting_event* take_first(receiver& to)
{
    const lock_scope<trace_lock> hold;
    to = current;
    return unlink_first();
}

ssize_t write_whole_call(int fd, const char* bytes, std::size_t length)
{
    ssize_t written = -1;
    do
        written = write(fd, bytes, length);
    while (written < 0 && errno == EINTR);
    return written;
}

} // namespace

ssize_t port_put(int fd, const char* bytes, std::size_t length)
{
    if (!traced())
        return write_whole_call(fd, bytes, length);
    const lock_scope<trace_lock> hold;
    const ssize_t written = write_whole_call(fd, bytes, length);
    if (written > 0)
        append(KELO_PORT_WRITTEN, bytes, static_cast<std::size_t>(written));
    return written;
}

ssize_t port_take(int fd, char* bytes, std::size_t size)
{
    if (!traced())
        return read(fd, bytes, size);
    const lock_scope<trace_lock> hold;
    const ssize_t count = read(fd, bytes, size);
    if (count > 0)
        append(KELO_PORT_READ, bytes, static_cast<std::size_t>(count));
    return count;
}

void port_trace(kelo_port_happening what, const char* path)
{
    if (!traced())
        return;
    const lock_scope<trace_lock> hold;
    append(what, path, std::strlen(path));
}

// What comes while another thread hands over is seen by it, or by the look behind its end.
void port_trace_deliver()
{
    int left = most_at_once;
    while (left > 0 && word_get(events_waiting) != 0 && word_get(paused) == 0 && traced() &&
           !diag_holds_back() && word_take(delivering)) {
        receiver to;
        waiting_event* one = nullptr;
        while (left > 0 && (one = take_first(to)) != nullptr) {
            if (to.callback != nullptr)
                to.callback(&one->event, to.argument);
            std::free(one);
            left--;
        }
        word_set(delivering, 0);
    }
}

void port_trace_pause(bool pause)
{
    word_add(paused, pause ? 1 : -1);
}

} // namespace kelo

void kelo_set_port_trace(kelo_port_trace callback, void* argument)
{
    using namespace kelo;
    const lock_scope<trace_lock> hold;
    current = {callback, argument};
    lost = 0;
    word_set(tracing, callback != nullptr ? 1 : 0);
    if (callback == nullptr)
        while (waiting_event* const one = unlink_first())
            std::free(one);
}
