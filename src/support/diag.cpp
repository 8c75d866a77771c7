// SPDX-License-Identifier: MIT
#include "support/diag.h"

#include "support/lock.h"
#include "support/sleeps.h"
#include "support/words.h"
#include <kelo/log.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <pthread.h>

namespace kelo
{

int debug_5g = 0;

namespace
{

// A line waits here while its thread holds a lock. The text stands behind the record.
struct held_line {
    held_line* next;
    kelo_log_level level;
    bool echo; // said by the host's handler
    std::size_t length;
};

// What one thread holds. A key of the threads library and not thread-local storage, which would
// make the dynamic linker a dependency of its own, or refuse to be loaded late.
struct thread_state {
    int locks;
    enum { nothing, line, echo } handing; // to the host's handler, now
    held_line* first;
    held_line* last;
};

pthread_once_t key_once = PTHREAD_ONCE_INIT;
pthread_key_t key;
bool key_made = false;

void make_key()
{
    word_set(key_made, pthread_key_create(&key, std::free) == 0);
}

// Null without memory: then lines are written at once.
thread_state* this_thread()
{
    if (!word_get(key_made)) {
        pthread_once(&key_once, make_key);
        if (!word_get(key_made))
            return nullptr;
    }
    auto* state = static_cast<thread_state*>(pthread_getspecific(key));
    if (state != nullptr)
        return state;
    state = static_cast<thread_state*>(std::calloc(1, sizeof(thread_state)));
    if (state != nullptr && pthread_setspecific(key, state) != 0) {
        std::free(state);
        state = nullptr;
    }
    return state;
}

char* text_of(held_line* line)
{
    return reinterpret_cast<char*>(line + 1);
}

// A reader that has stopped costs one thread a second, once; from then on lines are dropped until
// it reads again, and then their number is said.
constexpr int patience_ms = 1000;

int dropped_of_output = 0;
int dropped_of_errors = 0;

// stdio's own lock makes the line one piece. A thread of the host may hold it while it waits
// itself.
bool lock_stream(std::FILE* stream, int wait_ms)
{
    if (ftrylockfile(stream) == 0)
        return true;
    const std::int64_t deadline = monotonic_ms() + wait_ms;
    while (ftrylockfile(stream) != 0) {
        if (monotonic_ms() >= deadline)
            return false;
        microseconds_sleep(1000);
    }
    return true;
}

// Of the last tick, which costs a tenth of the exact time, and wraps.
unsigned int coarse_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<unsigned int>(now.tv_sec) * 1000 +
           static_cast<unsigned int>(now.tv_nsec / 1000000);
}

// What a stream takes without a wait: a pipe that is ready has room for a whole piece. Lines that
// follow each other closely share one question. Written by who holds the stream's own lock.
struct stream_room {
    unsigned int asked_ms;
    std::size_t bytes;
};
stream_room room_of_output = {};
stream_room room_of_errors = {};

bool has_room(std::FILE* stream, std::size_t bytes, int wait_ms)
{
    constexpr unsigned int stays_ms = 5;
    stream_room& room = stream == stderr ? room_of_errors : room_of_output;
    const unsigned int now = coarse_ms();
    std::size_t left = word_get(room.bytes);
    if (bytes > left || now - word_get(room.asked_ms) >= stays_ms) {
        pollfd out = {fileno(stream), POLLOUT, 0};
        if (poll(&out, 1, 0) == 0 && poll(&out, 1, wait_ms) == 0)
            return false;
        word_set(room.asked_ms, now);
        left = PIPE_BUF;
    }
    word_set(room.bytes, left - bytes);
    return true;
}

// Whether all of it was written.
bool write_pieces(std::FILE* stream, const char* text, std::size_t length, int wait_ms)
{
    constexpr std::size_t piece = PIPE_BUF;
    for (std::size_t at = 0; at < length; at += piece) {
        const std::size_t count = std::min(piece, length - at);
        if (!has_room(stream, count, wait_ms))
            return false;
        fwrite_unlocked(text + at, 1, count, stream); // by who holds its lock
        fflush_unlocked(stream);
    }
    return true;
}

void write_line(std::FILE* stream, const char* text, std::size_t length)
{
    int& dropped = stream == stderr ? dropped_of_errors : dropped_of_output;
    const int wait_ms = word_get(dropped) == 0 ? patience_ms : 0;
    if (!lock_stream(stream, wait_ms)) {
        word_add(dropped, 1);
        return;
    }
    char report[64] = "";
    if (const int count = word_get(dropped); count != 0)
        std::snprintf(report, sizeof report, "%d lines were dropped, nobody read them\n", count);
    if (write_pieces(stream, report, std::strlen(report), wait_ms)) {
        word_set(dropped, 0);
        if (!write_pieces(stream, text, length, wait_ms))
            word_add(dropped, 1);
    } else {
        word_add(dropped, 1);
    }
    funlockfile(stream);
}

struct listener {
    kelo_log_handler handler;
    void* argument;
};

// The two places are written in turn. Who reads one while it is written sees that by the number. No
// lock, since a child that was forked off while it was held says lines, too.
listener listeners[2] = {};
unsigned int listener_number = 0;

listener current_listener()
{
    for (;;) {
        const unsigned int number = word_get(listener_number);
        listener& place = listeners[number % 2];
        const listener found = {word_get(place.handler), word_get(place.argument)};
        if (word_get(listener_number) == number)
            return found;
    }
}

// Line by line: the handler may unset itself between two of them. `text` ends with a line end.
void hand_over(kelo_log_level level, char* text, std::size_t length)
{
    char* const text_end = text + length;
    while (text < text_end) {
        const auto rest = static_cast<std::size_t>(text_end - text);
        const listener to = current_listener();
        if (to.handler == nullptr)
            return write_line(level == KELO_LOG_ERROR ? stderr : stdout, text, rest);
        char* const end = static_cast<char*>(std::memchr(text, '\n', rest));
        char* cut = end;
        while (cut > text && cut[-1] == '\r')
            cut--;
        *cut = '\0';
        if (*text != '\0')
            to.handler(level, text, to.argument);
        text = end + 1;
    }
}

// As if under a lock, so that the handler is not called inside itself.
void deliver(thread_state* state, kelo_log_level level, char* text, std::size_t length, bool echo)
{
    if (state == nullptr)
        return hand_over(level, text, length);
    state->locks++;
    state->handing = echo ? thread_state::echo : thread_state::line;
    hand_over(level, text, length);
    state->handing = thread_state::nothing;
    state->locks--;
}

void deliver_held(thread_state* state)
{
    while (state->first != nullptr) {
        held_line* const line = state->first;
        state->first = line->next;
        if (state->first == nullptr)
            state->last = nullptr;
        deliver(state, line->level, text_of(line), line->length, line->echo);
        std::free(line);
    }
}

// False without memory: then the line is written at once. No handler is called under a lock for
// that, the line is lost.
bool hold_line(thread_state* state, kelo_log_level level, const char* text, std::size_t length)
{
    const bool handing = state->handing != thread_state::nothing;
    if (state->handing == thread_state::echo)
        return true; // a handler that answers each line with a line ends here
    auto* line = static_cast<held_line*>(std::malloc(sizeof(held_line) + length));
    if (line == nullptr)
        return handing || current_listener().handler != nullptr;
    *line = {nullptr, level, handing, length};
    std::memcpy(text_of(line), text, length);
    if (state->last == nullptr)
        state->first = line;
    else
        state->last->next = line;
    state->last = line;
    return true;
}

void say_line(kelo_log_level level, char* text, std::size_t length)
{
    thread_state* const state = this_thread();
    if (state != nullptr && state->locks != 0 && hold_line(state, level, text, length))
        return;
    deliver(state, level, text, length, false);
    if (state != nullptr && state->locks == 0)
        deliver_held(state);
}

void say_text(kelo_log_level level, char* text, std::size_t length)
{
    if (length == 0 || text[length - 1] != '\n')
        text[length++] = '\n';
    say_line(level, text, length);
}

void say(kelo_log_level level, const char* format, va_list values)
{
    char room[512];
    char* text = room;
    std::size_t size = sizeof room;
    va_list again;
    va_copy(again, values);
    const int wanted = std::vsnprintf(room, sizeof room - 1, format, values);
    if (wanted < 0) {
        va_end(again);
        return;
    }
    auto length = static_cast<std::size_t>(wanted);
    if (length + 2 > size) {
        char* const larger = static_cast<char*>(std::malloc(length + 2));
        if (larger != nullptr) {
            text = larger;
            std::vsnprintf(text, length + 1, format, again);
        } else {
            length = size - 2; // without memory the line is cut, not lost
        }
    }
    va_end(again);
    say_text(level, text, length);
    if (text != room)
        std::free(text);
}

} // namespace

void diag_plain(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    say(KELO_LOG_NOTICE, format, values);
    va_end(values);
}

void diag_text(char* text, std::size_t length)
{
    say_text(KELO_LOG_NOTICE, text, length);
}

void diag_debug(const char* format, ...)
{
    if (!diag_debug_on())
        return;
    va_list values;
    va_start(values, format);
    say(KELO_LOG_DEBUG, format, values);
    va_end(values);
}

void diag_error(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    say(KELO_LOG_ERROR, format, values);
    va_end(values);
}

bool diag_debug_on()
{
    return word_get(debug_5g) != 0;
}

void diag_hold()
{
    thread_state* const state = this_thread();
    if (state != nullptr)
        state->locks++;
}

void diag_let_go()
{
    thread_state* const state = this_thread();
    if (state == nullptr || state->locks == 0 || --state->locks > 0)
        return;
    deliver_held(state);
}

bool diag_holds_back()
{
    const thread_state* const state = this_thread();
    return state == nullptr || state->locks != 0;
}

} // namespace kelo

void kelo_set_log(kelo_log_handler handler, void* argument)
{
    using namespace kelo;
    const lock_scope<log_lock> hold;
    const unsigned int next = word_get(listener_number) + 1;
    word_set(listeners[next % 2].handler, handler);
    word_set(listeners[next % 2].argument, argument);
    word_set(listener_number, next);
}
