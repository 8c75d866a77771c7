#include "support/diag.h"

#include "support/words.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

// stdio's own lock makes the line one piece.
void write_line(std::FILE* stream, const char* text, std::size_t length)
{
    flockfile(stream);
    std::fwrite(text, 1, length, stream);
    std::fflush(stream);
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
