// SPDX-License-Identifier: MIT
// The exchange with the modem: writing a command, reading what comes back, cutting it into lines,
// and counting down the time that a command may take.

#include "at/at.h"
#include "support/diag.h"
#include "support/sleeps.h"
#include "support/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace kelo
{

namespace
{

exchange_hooks hooks;

// The end of the last read, where a mark may begin. The mobile task's own.
struct {
    char bytes[16];
    std::size_t length = 0;
} kept;

// How a command is named in the debug lines.
struct label {
    int seq = 0;
    int id = 0;
};

// Caller holds flow_lock.
label label_of(const at_info* at)
{
    return at == nullptr ? label{} : label{at_effective_seq(at), at->id};
}

label label_of_current(gsm_mobile* rec)
{
    lock_scope<flow_lock> flow_guard;
    lock_scope<record_lock> record_guard;
    return label_of(rec->cur_at);
}

constexpr long port_closed = -2;

constexpr long port_waits = -3;

// `polite`: not between a message's command and its body. Looked at under the lock, so that none
// slips in between.
long write_once(gsm_mobile* rec, const char* bytes, std::size_t length, bool polite)
{
    lock_scope<port_lock> guard;
    if (rec->fd == -1)
        return port_closed;
    if (polite && word_get(body_due) != 0)
        return port_waits;
    const ssize_t written = port_put(rec->fd, bytes, length);
    return written < 0 ? -1 : static_cast<long>(written);
}

void set_at_done(gsm_mobile* rec)
{
    lock_scope<record_lock> guard;
    rec->at_done = 1;
}

} // namespace

void exchange_use(const exchange_hooks& wanted)
{
    hooks = wanted;
}

namespace
{

long write_bytes(gsm_mobile* rec, const char* bytes, std::size_t length, int attempts,
                 const char* name, const char* shown, bool polite)
{
    long result = write_once(rec, bytes, length, polite);
    for (int left = attempts - 2; result == -1 && left >= 0; left--) {
        diag_at(plain, name, "[%d/3] failed to write command('%s'), ret=%ld!\n", left, shown,
                result);
        if (port_descriptor(rec) == -1)
            return port_closed;
        seconds_sleep(1);
        result = write_once(rec, bytes, length, polite);
    }
    port_trace_deliver();
    if (result >= 0 && static_cast<std::size_t>(result) < length)
        diag_at(plain, name, "short write, %ld of %zu bytes of '%s'\n", result, length, shown);
    if (result > 0 && diag_debug_on()) {
        const label current = label_of_current(rec);
        diag_debug("[SEQ%d,ID%d]>>> %s\n", current.seq, current.id, shown);
    }
    return result;
}

// A command line as it goes out: 0 or port_waits, -1 for a closed port and without memory.
int write_line(gsm_mobile* rec, const char* text, bool polite)
{
    constexpr const char* name = "exec_at_command";
    if (rec == nullptr || port_descriptor(rec) == -1 || text == nullptr)
        return -1;
    const std::size_t length = std::strlen(text);
    const text_pointer line = text_room(length + 2);
    if (line == nullptr)
        return -1;
    std::memcpy(line.get(), text, length);
    std::memcpy(line.get() + length, "\r\n", 2);
    const long result = write_bytes(rec, line.get(), length + 2, 3, name, text, polite);
    if (result == port_closed)
        return -1;
    if (result == port_waits)
        return port_waits;
    if (result < 0)
        diag_at(plain, name, "unexpected error!\n");
    return 0;
}

// What the mobile task has put off, in order; its own.
constexpr std::size_t most_deferred = 8;
char* deferred[most_deferred];
std::size_t deferred_count = 0;

int put_off(const char* text)
{
    text_pointer copy = text_duplicate(text);
    if (copy == nullptr || deferred_count == most_deferred) {
        diag_plain("no room to put '%s' off behind a message\n", text);
        return -1;
    }
    deferred[deferred_count++] = copy.release();
    return 0;
}

} // namespace

long port_write(gsm_mobile* rec, const char* bytes, std::size_t length, int attempts,
                const char* name, const char* shown)
{
    return write_bytes(rec, bytes, length, attempts, name, shown, false);
}

void exchange_write_deferred(gsm_mobile* rec)
{
    for (std::size_t i = 0; i < deferred_count; i++)
        write_line(rec, deferred[i], false);
    while (deferred_count > 0)
        text_replace(deferred[--deferred_count], {});
}

int exec_at_command(gsm_mobile* rec, const char* text)
{
    constexpr int look_ms = 20;
    constexpr int longest_ms = 31000; // a prompt that has not come by then does not count any more
    int result = write_line(rec, text, true);
    if (result == port_waits && on_mobile_task())
        return put_off(text);
    for (int waited = 0; result == port_waits; waited += look_ms) {
        microseconds_sleep(look_ms * 1000);
        result = write_line(rec, text, waited < longest_ms);
    }
    return result;
}

void at_command_write(char* command, std::size_t size, const char* format, ...)
{
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(command, size, format, values);
    va_end(values);
    if (length >= static_cast<int>(size))
        diag_plain("command of %d characters is cut: %s\n", length, command);
}

int read_at_result(gsm_mobile* rec, response& result)
{
    constexpr std::size_t piece = 1024;
    const int fd = port_descriptor(rec);
    if (fd == -1)
        return -1;
    std::size_t size = 2 * piece;
    result = {text_pointer(static_cast<char*>(memory_for(size)))};
    if (result.text == nullptr) {
        diag_at(plain, __func__, "fatal error!\n");
        return -1;
    }
    std::memcpy(result.text.get(), kept.bytes, kept.length);
    result.length = kept.length;
    for (;;) {
        const ssize_t count = port_take(fd, result.text.get() + result.length, piece);
        if (count < 1)
            return 0;
        result.heard = true;
        result.length += static_cast<std::size_t>(count);
        if (result.length >= response_limit) {
            result.drained = false;
            return 0;
        }
        if (size > result.length + piece)
            continue;
        size *= 2;
        char* const larger = static_cast<char*>(std::realloc(result.text.get(), size));
        if (larger == nullptr) {
            diag_at(plain, __func__, "fatal error!\n");
            return -1;
        }
        static_cast<void>(result.text.release()); // realloc has let go of it
        result.text.reset(larger);
    }
}

namespace
{

// What is chosen under the lock, for use after it.
struct choice {
    at_info* at = nullptr;
    bool custom = false;
    text_pointer custom_cmd; // own copy: another thread may release the node's
};

choice choose_next(gsm_mobile* rec)
{
    lock_scope<flow_lock> flow_guard;
    choice next;
    next.at = at_list_next(cur_at_list);
    if (next.at == nullptr) {
        word_set(flow_walked, 1);
        return next;
    }
    next.custom = next.at->custom_cmd != nullptr;
    next.custom_cmd = text_duplicate(next.at->custom_cmd);
    lock_scope<record_lock> record_guard;
    rec->cur_at = next.at;
    return next;
}

const char* shown_text(const char* cmd)
{
    return cmd == nullptr ? "(nul)" : cmd;
}

void exec_own(gsm_mobile* rec, const at_info* at)
{
    const char* const instead = hooks.instead(at->cmd);
    write_line(rec, instead != nullptr ? instead : at->cmd, false);
}

bool passed_over(at_info* at, bool wanted)
{
    const unsigned int flags = at_get_flags(at);
    if ((flags & AT_FLAG_IGNORE) != 0) {
        diag_at(plain, "libgsm_send_atcommand", "ignore command '%s'!\n", shown_text(at->cmd));
        return true;
    }
    if (!wanted || (flags & AT_FLAG_SKIP) != 0) {
        diag_at(debug, "libgsm_send_atcommand", "skip command '%s'!\n", shown_text(at->cmd));
        return true;
    }
    return false;
}

} // namespace

at_info* libgsm_send_atcommand(gsm_mobile* rec, bool& list_ended)
{
    const choice next = choose_next(rec);
    list_ended = next.at == nullptr;
    if (list_ended)
        return nullptr;
    if (next.custom) {
        hooks.before_command(rec, next.at, true);
        write_line(rec, next.custom_cmd.get(), false);
        return next.at;
    }
    const bool wanted =
        next.at->pre_treat == nullptr || next.at->pre_treat(rec, next.at) != at_not_wanted;
    if (passed_over(next.at, wanted) || !hooks.before_command(rec, next.at, false)) {
        set_at_done(rec);
        return nullptr;
    }
    exec_own(rec, next.at);
    return next.at;
}

namespace
{

label label_for_read(const at_info* cur)
{
    if (!diag_debug_on())
        return {};
    lock_scope<flow_lock> guard;
    return label_of(cur);
}

event* handle_report(gsm_mobile* rec, const at_info* cur, char* text, char* report)
{
    const label running = label_for_read(cur);
    diag_debug("[SEQ%d,ID%d]---><<< %s\n", running.seq, running.id, text);
    return hooks.report(rec, text, report);
}

event* handle_line(gsm_mobile* rec, const at_info* cur, char* line)
{
    if (is_foreign(line))
        return hooks.foreign_line(rec, line);
    hooks.each_line(rec, cur, line);
    if (cur != nullptr && cur->handler != nullptr)
        return cur->handler(rec, line);
    return hooks.idle_line(rec, line);
}

// "+COPS: 0" answers "AT+COPS?" and "AT+COPS=3,2".
bool is_answer_to(const at_info* cur, const char* line)
{
    if (cur == nullptr || cur->cmd == nullptr || !text_begins(cur->cmd, "AT"))
        return false;
    const char* const name = cur->cmd + 2;
    const std::size_t length = std::strcspn(name, "?=;");
    return length > 1 && std::strncmp(line, name, length) == 0 && line[length] == ':';
}

void handle_lines(gsm_mobile* rec, const at_info* cur, char* text, read_outcome& outcome)
{
    const label running = label_for_read(cur);
    for (char* line = text; line != nullptr && *line != '\0';) {
        char* const end = std::strchr(line, '\n');
        char* const next = end == nullptr ? nullptr : end + 1;
        if (end != nullptr) {
            *end = '\0';
            if (end > line && end[-1] == '\r')
                end[-1] = '\0';
        }
        if (*line != '\0') {
            diag_debug("[SEQ%d,ID%d]<<<(%zu) %s\n", running.seq, running.id, std::strlen(line),
                       line);
            outcome.answering |= is_answer_to(cur, line);
            event* const from_line = handle_line(rec, cur, line);
            if (from_line != nullptr)
                outcome.raised = from_line;
        }
        line = next;
    }
}

} // namespace

bool is_foreign(const char* line)
{
    return text_begins(line, "+QMTRECV:") || text_begins(line, "+CUSD:");
}

char* find_spoken(char* text, const char* needle)
{
    char* found = text_find(text, needle);
    for (char* line = text; found != nullptr;) {
        char* const end = std::strchr(line, '\n');
        if (end != nullptr && end < found) {
            line = end + 1;
            continue;
        }
        if (!is_foreign(line))
            return found;
        found = end == nullptr ? nullptr : text_find(end, needle);
    }
    return nullptr;
}

namespace
{

void keep_back(char* text, std::size_t count)
{
    kept.length = std::min(count, sizeof kept.bytes);
    char* const from = text + std::strlen(text) - kept.length;
    std::memcpy(kept.bytes, from, kept.length);
    *from = '\0';
}

} // namespace

read_outcome libgsm_check_event(gsm_mobile* rec, at_info* cur)
{
    read_outcome outcome;
    response got;
    if (rec == nullptr || read_at_result(rec, got) != 0)
        return outcome;
    port_trace_deliver();
    outcome.drained = got.drained;
    if (!got.heard)
        return outcome;
    word_add(reads_heard, 1);
    char* const text = got.text.get();
    const read_view view = hooks.each_read(text, got.length);
    keep_back(text, view.keep_back);
    if (find_spoken(text, "+QIND: SMS DONE") != nullptr ||
        find_spoken(text, "+QIND: PB DONE") != nullptr)
        libgsm_set_init_flag(1);
    if (view.report != nullptr)
        outcome.raised = handle_report(rec, cur, text, view.report);
    else
        handle_lines(rec, cur, text, outcome);
    if (outcome.raised != nullptr) {
        lock_scope<record_lock> guard;
        rec->last_event = outcome.raised->code;
    }
    return outcome;
}

namespace
{

void send_pending(gsm_mobile* rec)
{
    text_pointer pending;
    {
        lock_scope<record_lock> guard;
        pending.reset(std::exchange(rec->pending_at, nullptr));
    }
    if (pending != nullptr)
        exec_at_command(rec, pending.get());
}

void send_again(gsm_mobile* rec, at_info* cur)
{
    bool custom = false;
    text_pointer custom_cmd;
    {
        lock_scope<flow_lock> guard;
        custom = cur->custom_cmd != nullptr;
        custom_cmd = text_duplicate(cur->custom_cmd);
        cur->countdown = cur->timeout;
    }
    if (custom)
        write_line(rec, custom_cmd.get(), false);
    else
        exec_own(rec, cur);
}

// One silent second of the running command.
void tick_command(gsm_mobile* rec, at_info* cur)
{
    diag_at(debug, "libgsm_schedule_run", "[%p][id=%d] %d second%s remaining!\n",
            static_cast<void*>(cur), cur->id, cur->countdown - 1, cur->countdown == 2 ? "" : "s");
    if (cur->countdown == 0 || --cur->countdown > 0)
        return;
    cur->countdown = 0;
    diag_at(plain, "libgsm_schedule_run", "[%p][id=%d] %d times remaining!\n",
            static_cast<void*>(cur), cur->id, cur->retries_left - 1);
    if (cur->retries_left > 0)
        cur->retries_left--;
    if (cur->retries_left > 0)
        send_again(rec, cur);
    else
        set_at_done(rec);
}

} // namespace

int libgsm_schedule_run(gsm_mobile* rec, at_info* cur)
{
    if (cur == nullptr)
        send_pending(rec);
    else
        tick_command(rec, cur);
    hooks.tick(cur == nullptr);
    return 0;
}

} // namespace kelo

using namespace kelo;

int libgsm_send_at(const char* text)
{
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr || refused_in_fork(__func__))
        return -1;
    exec_at_command(rec, text);
    return 0;
}
