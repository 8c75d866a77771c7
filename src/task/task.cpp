// SPDX-License-Identifier: MIT
// The mobile task: the one thread that walks flows and listens to the modem.

#include "task/task.h"

#include "core/family.h"
#include "handlers/handlers.h"
#include "handlers/questions.h"
#include "modules/modules.h"
#include "sms/sms.h"
#include "support/diag.h"
#include "support/sleeps.h"
#include "support/text.h"
#include "support/wakeup.h"

#include <cerrno>
#include <poll.h>
#include <pthread.h>

namespace kelo
{

namespace
{

constexpr std::int64_t pace_us = 500000;
constexpr int poll_ms = 1000;

// The low power wait ends above this; a silent poll counts 10, any other 1.
constexpr int low_power_limit = 29;

// A port that never falls silent must not keep commands and idle work waiting for ever: after this
// long without a silent second, or while more comes than one response may hold, time itself ticks.
constexpr std::int64_t busy_limit_ms = 10000;

// There, an answer that has begun gets a second from each of its lines, but no longer than this.
constexpr std::int64_t answer_limit_ms = 30000;

bool may_send(gsm_mobile* rec, const task_state& state)
{
    if (word_get(isLowPower) != 0 && word_get(gsm_init_flag) == 0)
        return false;
    if (word_get(body_due) != 0)
        return false; // it would become part of the message
    if (state.running == nullptr)
        return true;
    lock_scope<record_lock> guard;
    return rec->at_done != 0;
}

void arm_command(gsm_mobile* rec, at_info* at)
{
    {
        lock_scope<flow_lock> guard;
        at->countdown = at->timeout;
    }
    at->retries_left = at->retries;
    lock_scope<record_lock> guard;
    rec->reg_seen = 0;
    rec->at_done = 0;
}

bool may_send_messages(gsm_mobile* rec)
{
    lock_scope<record_lock> guard;
    return is_registered(rec->reg_status);
}

// Takes one message from the outbox and selects the flow that sends it. Only called when no command
// was left to choose, so a message in flight is never replaced; and a reload that came since then
// goes first. False for none.
bool take_message(gsm_mobile* rec)
{
    if (sms_outbox_next_is_numbered())
        at_compose_added_flow();
    lock_scope<flow_lock> flow_guard;
    if (word_get(flow_walked) == 0)
        return false;
    const sms_part* const part = sms_send_next(monotonic_ms());
    if (part == nullptr)
        return false;
    if (part->sms_mode == KELO_SMS_MODE_PDU)
        at_select_flow(rec, sms_job_wishes(part->job).number != 0 ? flow_sms_added : FLOW_SMS_PDU,
                       -1);
    else if (part->sms_mode == KELO_SMS_MODE_TEXT)
        at_select_flow(rec, FLOW_SMS_TEXT, -1);
    const lock_scope<record_lock> record_guard;
    text_set(rec->sms_tag, part->sms_tag);
    rec->sms_len = part->sms_length;
    text_set(rec->sms_dest, part->sms_number);
    text_set(rec->sms_text, part->sms_body);
    return true;
}

// The answers of the errand are taken ahead of the lines; what else the modem says meanwhile is for
// the same ear as while nothing runs.
event* errand_line(gsm_mobile* rec, char* line)
{
    return sms_errand_owns(line) ? nullptr : general_handler(rec, line);
}

// What the modem says while a command of the host's runs is for the same ear; but for its echo, and
// for an error that is no message's. Its end was seen ahead of the lines.
event* asked_line(gsm_mobile* rec, char* line)
{
    const bool own = text_begins(line, "AT") || text_begins(line, "+CMS ERROR");
    return own ? nullptr : report_handler(rec, line);
}

const char* next_asked(at_info& errand)
{
    const char* const command = ask_next(errand.timeout);
    if (command != nullptr) {
        sms_command_goes_out();
        errand.handler = asked_line;
    }
    return command;
}

const char* next_of_storage(at_info& errand)
{
    errand.handler = errand_line;
    return sms_errand_next(monotonic_ms());
}

const char* next_question(at_info& errand)
{
    constexpr int question_s = 5;
    errand.handler = question_line;
    errand.timeout = question_s;
    return question_next(monotonic_ms());
}

// What there is to do beside flows and messages; null for nothing now. The host's commands and the
// storage take turns.
at_info* run_errand(gsm_mobile* rec, task_state& state)
{
    constexpr int storage_s = 20;
    static at_info errand;
    if (sms_sending())
        return nullptr;
    const char* command = sms_mode_to_restore();
    errand.handler = general_handler;
    errand.timeout = storage_s;
    const bool was_asked = std::exchange(state.asked, false);
    if (command == nullptr && was_asked)
        command = next_of_storage(errand);
    if (command == nullptr) {
        command = next_asked(errand);
        state.asked = command != nullptr;
    }
    if (command == nullptr && !was_asked)
        command = next_of_storage(errand);
    if (command == nullptr)
        command = next_question(errand);
    if (command == nullptr || state.asked)
        state.errand_ms = monotonic_ms();
    if (command == nullptr)
        return nullptr;
    exec_at_command(rec, command);
    return &errand;
}

// Messages go out first, but not for ever: a storage that nobody reads fills.
bool errand_goes_first(const task_state& state)
{
    constexpr std::int64_t patience_ms = 30000;
    return sms_reports_due() || monotonic_ms() - state.errand_ms >= patience_ms;
}

void send_next(gsm_mobile* rec, task_state& state)
{
    bool list_ended = false;
    ask_over();
    state.running = libgsm_send_atcommand(rec, list_ended);
    if (list_ended) {
        if (errand_goes_first(state))
            state.running = run_errand(rec, state);
        if (state.running == nullptr && may_send_messages(rec) && take_message(rec))
            return;
        if (state.running == nullptr)
            state.running = run_errand(rec, state);
    }
    if (state.running != nullptr) {
        arm_command(rec, state.running);
        // Its time begins now, whatever the port has said before.
        state.last_tick_ms = state.armed_ms = monotonic_ms();
    }
}

void tick(gsm_mobile* rec, task_state& state)
{
    state.last_tick_ms = monotonic_ms();
    if (word_get(gsm_init_flag) != 0)
        libgsm_schedule_run(rec, state.running);
}

event* hear(gsm_mobile* rec, task_state& state)
{
    const read_outcome outcome = libgsm_check_event(rec, state.running);
    const std::int64_t now = monotonic_ms();
    if (outcome.answering && now - state.armed_ms < answer_limit_ms)
        state.last_tick_ms = now;
    const bool busy = !outcome.drained || now - state.last_quiet_ms >= busy_limit_ms;
    if (busy && now - state.last_tick_ms >= poll_ms)
        tick(rec, state);
    return outcome.raised;
}

// A hung-up port stays ready and has nothing to read; the pace keeps the passes calm meanwhile, and
// the task ends once the device node goes.
void note_hang_up(task_state& state, short ready)
{
    const bool hung_up = (ready & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    if (hung_up && !state.hung_up) {
        diag_at(plain, "corvel_mobile_dchannel", "the AT port has hung up\n");
        port_hung_up();
    }
    state.hung_up = hung_up;
}

// Waits for the port; gives what the lines raised. `silent`: nothing came for the whole wait.
event* wait_and_hear(gsm_mobile* rec, task_state& state, int fd, bool& silent)
{
    pollfd port = {fd, POLLIN | POLLPRI, 0};
    const int ready = poll(&port, 1, poll_ms);
    silent = ready == 0;
    if (ready == 0) {
        state.last_quiet_ms = monotonic_ms();
        sms_quiet_second();
        tick(rec, state);
        return nullptr;
    }
    if (ready < 0) {
        if (errno != EINTR)
            diag_at(plain, "corvel_mobile_dchannel", "unexpected error!\n");
        return nullptr;
    }
    note_hang_up(state, port.revents);
    return (port.revents & POLLIN) != 0 ? hear(rec, state) : nullptr;
}

void count_low_power_wait(task_state& state, bool silent)
{
    if (word_get(isLowPower) == 0 || word_get(gsm_init_flag) != 0)
        return;
    state.low_power_credit += silent ? 10 : 1;
    if (state.low_power_credit > low_power_limit)
        libgsm_set_init_flag(1);
}

} // namespace

long task_pace(task_state& state, std::int64_t now_us)
{
    // 32 bits on purpose: a clock that steps back gives a negative difference and no sleep.
    const auto passed = static_cast<std::int32_t>(now_us - state.last_us);
    state.last_us = now_us;
    return passed >= 0 && passed < pace_us ? static_cast<long>(pace_us - passed) : 0;
}

bool task_pass(gsm_mobile* rec, task_state& state)
{
    if (word_get(global_quagga_stop) != 0)
        return false;
    if (left_alone()) {
        seconds_sleep(1);
        return true;
    }
    if (mobile_device_exist() == 0) {
        diag_at(plain, "corvel_mobile_dchannel", "/dev/ttyUSB: No such file or directory\n");
        return false;
    }
    port_trace_deliver(); // what threads under a lock have left
    const int fd = port_descriptor(rec);
    if (fd == -1) {
        seconds_sleep(1);
        return true;
    }
    microseconds_sleep(task_pace(state, time_of_day_us()));
    sms_look_at_clock(monotonic_ms());
    ask_look_at_clock(monotonic_ms());
    if (host_is_woken())
        sms_messages_have_room(); // one whose last part does not come is given by a host's poll
                                  // else
    if (word_get(body_due) == 0)
        exchange_write_deferred(rec);
    if (may_send(rec, state))
        send_next(rec, state);
    bool silent = false;
    const int heard = word_get(reads_heard);
    event* const raised = wait_and_hear(rec, state, fd, silent);
    count_low_power_wait(state, silent);
    if (state.hung_up && word_get(keeper_on) != 0)
        return false; // it never comes back to life, and the keeper opens what takes its place
    if (raised != nullptr)
        mobile_handle_event(rec, raised);
    if (word_get(reads_heard) != heard)
        wake_host();
    return true;
}

void* corvel_mobile_dchannel(void* record)
{
    pthread_setname_np(pthread_self(), "MobileTask");
    if (record == nullptr)
        return nullptr;
    mobile_task_begins();
    ask_task_begins();
    libgsm_set_init_flag(word_get(isLowPower) == 0 ? 1 : 0);
    word_set(cell_first_boot, 0);
    life_set(&lifecycle::mobile_task_stopped, false);
    task_state state;
    state.last_quiet_ms = state.last_tick_ms = monotonic_ms();
    while (life_get(&lifecycle::mobile_task_run))
        if (!task_pass(static_cast<gsm_mobile*>(record), state))
            break;
    sms_reads_end();
    sms_port_lost();
    ask_task_ends();
    mobile_task_ends();
    life_set(&lifecycle::mobile_task_stopped, true);
    wake_host();
    return nullptr;
}

} // namespace kelo
