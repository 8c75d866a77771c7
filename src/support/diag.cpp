#include "support/diag.h"

#include "support/sleeps.h"
#include "support/words.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
    std::FILE* stream;
    std::size_t length;
};

// What one thread holds. A key of the threads library and not thread-local storage, which would
// make the dynamic linker a dependency of its own, or refuse to be loaded late.
struct thread_state {
    int locks;
    held_line* first;
    held_line* last;
};

pthread_once_t key_once = PTHREAD_ONCE_INIT;
pthread_key_t key;
bool key_made = false;

void make_key()
{
    key_made = pthread_key_create(&key, std::free) == 0;
}

// Null without memory: then lines are written at once.
thread_state* this_thread()
{
    pthread_once(&key_once, make_key);
    if (!key_made)
        return nullptr;
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
    const std::int64_t deadline = monotonic_ms() + wait_ms;
    while (ftrylockfile(stream) != 0) {
        if (monotonic_ms() >= deadline)
            return false;
        microseconds_sleep(1000);
    }
    return true;
}

// Whether all of it was written. A pipe that is ready takes as much as this without a wait.
bool write_pieces(std::FILE* stream, const char* text, std::size_t length, int wait_ms)
{
    constexpr std::size_t piece = PIPE_BUF;
    for (std::size_t at = 0; at < length; at += piece) {
        pollfd out = {fileno(stream), POLLOUT, 0};
        if (poll(&out, 1, wait_ms) == 0)
            return false;
        std::fwrite(text + at, 1, std::min(piece, length - at), stream);
        std::fflush(stream);
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

bool hold_line(thread_state* state, std::FILE* stream, const char* text, std::size_t length)
{
    auto* line = static_cast<held_line*>(std::malloc(sizeof(held_line) + length));
    if (line == nullptr)
        return false;
    *line = {nullptr, stream, length};
    std::memcpy(text_of(line), text, length);
    if (state->last == nullptr)
        state->first = line;
    else
        state->last->next = line;
    state->last = line;
    return true;
}

void say_line(std::FILE* stream, const char* text, std::size_t length)
{
    thread_state* const state = this_thread();
    if (state == nullptr || state->locks == 0 || !hold_line(state, stream, text, length))
        write_line(stream, text, length);
}

void say(std::FILE* stream, const char* format, va_list values)
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
    if (length == 0 || text[length - 1] != '\n')
        text[length++] = '\n';
    say_line(stream, text, length);
    if (text != room)
        std::free(text);
}

} // namespace

void diag_plain(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    say(stdout, format, values);
    va_end(values);
}

void diag_debug(const char* format, ...)
{
    if (!diag_debug_on())
        return;
    va_list values;
    va_start(values, format);
    say(stdout, format, values);
    va_end(values);
}

void diag_error(const char* format, ...)
{
    va_list values;
    va_start(values, format);
    say(stderr, format, values);
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
    while (state->first != nullptr) {
        held_line* const line = state->first;
        state->first = line->next;
        if (state->first == nullptr)
            state->last = nullptr;
        write_line(line->stream, text_of(line), line->length);
        std::free(line);
    }
}

} // namespace kelo
