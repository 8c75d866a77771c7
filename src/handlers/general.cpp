// SPDX-License-Identifier: MIT
// The general handler: all that a modem says unasked, and the answers that no other handler reads.
#include "handlers/handlers.h"

#include "at/answers.h"
#include "core/family.h"
#include "handlers/parse.h"
#include "services/services.h"
#include "support/diag.h"
#include "support/rows.h"
#include "support/scan.h"
#include "support/shell.h"
#include <kelo/status.h>

#include <cstdio>
#include <utility>

namespace kelo
{

namespace
{

struct general_test {
    const char* needle;
    int code;                    // the event of a line without a reader
    at_handler read;             // its result is the handler's
    bool (*applies)() = nullptr; // to the module at hand; null means all
};

bool caller_waits = false; // for the host; guarded by record_lock

event* on_clip(gsm_mobile*, char* line)
{
    constexpr std::size_t longest_number = 64;
    lock_scope<record_lock> guard;
    const char* const quote = text_find(text_find(line, "+CLIP:"), "\"");
    if (quote != nullptr) {
        text_copy(gsm_event.callingnum, longest_number + 1, quote + 1, "\"");
        caller_waits = true;
        diag_at(plain, "general_handler", "callingnum='%s'\n", gsm_event.callingnum);
    }
    return raise_event(GSM_EVENT_RING);
}

// `head` goes as far as the two figures.
event* read_signal(gsm_mobile* rec, const char* report, const char* head)
{
    lock_scope<record_lock> guard;
    scan(report, head, dec(rec->rssi), ",", dec(rec->ber));
    const bool signal = rec->rssi >= 0 && rec->rssi <= 31;
    return signal ? nullptr : raise_event(GSM_EVENT_NO_SIGNAL);
}

event* on_csq(gsm_mobile* rec, char* line)
{
    return read_signal(rec, text_find(line, "+CSQ:"), "+CSQ: ");
}

event* on_qind_csq(gsm_mobile* rec, char* line)
{
    return read_signal(rec, text_find(line, "+QIND: \"csq\""), "+QIND: \"csq\",");
}

// While a flow runs, its own query of the SIM says the same.
event* on_sim_not_ready(gsm_mobile*, char*)
{
    return word_get(flow_walked) != 0 ? say_event(GSM_EVENT_SIM_FAILED) : nullptr;
}

event* on_context_lost(gsm_mobile*, char*)
{
    diag_at(plain, "general_handler", "cellular is disconnected and start to redial !!!\n");
    word_set(cell_pdpdeact, 1);
    return nullptr;
}

// A cell of standalone 5G is proof of registration, beside the registration reports.
event* on_qeng(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    rec->qeng_net_stem = classify_net_stem(line);
    parse_qeng_info(rec, line);
    if (!text_has(line, "NR5G-SA"))
        return nullptr;
    if (get_net_status_flag() == 0)
        return raise_event(GSM_EVENT_SIM_UP);
    set_net_status_flag(0);
    return nullptr;
}

event* on_cereg(gsm_mobile* rec, char* line)
{
    return reports_cereg() ? creg_handler(rec, line) : nullptr;
}

event* on_sim_gone(gsm_mobile*, char*)
{
    word_set(cell_reload_flag, 1);
    return nullptr;
}

event* on_mqtt_state(gsm_mobile*, char* line)
{
    libgsm_mqtt_urc_error(line);
    return nullptr;
}

event* on_simst(gsm_mobile*, char* line)
{
    constexpr int no_sim = 255;
    int state = 0;
    int lock_state = 0;
    if (reports_simst() &&
        scan(text_find(line, "^SIMST:"), "^SIMST: ", dec(state), ",", dec(lock_state)) &&
        state == no_sim)
        cell_start_flag_set();
    return nullptr;
}

event* on_ndisstat(gsm_mobile*, char* line)
{
    if (word_get(is_pin_ready) == 0 || !text_has(text_find(line, "^NDISSTAT:"), "\"IPV4\""))
        return nullptr;
    int state = 0;
    int cause = 0; // there when the network ended the link, absent when we did
    if (scan(line, "^NDISSTAT: ", dec(state), ",", dec(cause)) && state == 0) {
        diag_at(plain, "general_handler", "network is reject and start to redial !!!\n");
        word_set(cell_pdpdeact, 1);
    }
    return nullptr;
}

// The text goes into a shell line, so nothing else may be in it.
bool is_ipv6_address(const char* text)
{
    constexpr std::size_t longest = 45; // the mixed form, with four decimal numbers at its end
    const std::size_t length = std::strlen(text);
    return length <= longest && std::strspn(text, "0123456789abcdefABCDEF:.") == length;
}

event* dhcpv6_handler(gsm_mobile*, char* line)
{
    constexpr std::size_t prefix = 9; // with the blank behind the colon
    const char* columns[3];
    if (text_columns(text_skip(text_find(line, "^DHCPV6:"), prefix), columns, 3) < 3)
        return nullptr;
    char address[65];
    text_set(address, columns[0], ",");
    if (!is_ipv6_address(address)) {
        diag_at(plain, __func__, "'%s' is no address!\n", address);
        return nullptr;
    }
    char command[128];
    std::snprintf(command, sizeof command, "ip -6 address add %s/64 dev %s", address, "wwan0");
    shell_run(command);
    return nullptr;
}

// Tried from the top, the first that matches decides. All are substring tests.
// clang-format off
constexpr general_test general_tests[] = {
    // needle                   event                        reader
    {"+CLIP:",                  0,                           on_clip},
    {"RING",                    GSM_EVENT_RINGING,           nullptr},
    {"NO CARRIER",              GSM_EVENT_HANGUP,            nullptr},
    {"+CMS ERROR",              GSM_EVENT_SMS_SEND_FAILED,   nullptr},
    {"+CMGS:",                  GSM_EVENT_SMS_SEND_OK,       nullptr},
    {"+CUSD:",                  GSM_EVENT_USSD_RECEIVED,     nullptr},
    {"+CSQ:",                   0,                           on_csq},
    {"+QIND: \"csq\"",          0,                           on_qind_csq},
    {"+CPIN: NOT READY",        0,                           on_sim_not_ready},
    {"+CPIN: READY",            GSM_EVENT_SIM_INSERTED,      nullptr},
    {"+QIURC: \"pdpdeact\"",    0,                           on_context_lost},
    {"+QENG:",                  0,                           on_qeng},
    {"+CEREG:",                 0,                           on_cereg},
    {"+CREG:",                  0,                           creg_handler, reports_creg},
    {"+SIM: Removed",           0,                           on_sim_gone},
    {"+SIM DROP",               0,                           on_sim_gone},
    {"+QMTSTAT",                0,                           on_mqtt_state},
    {"^HCSQ:",                  0,                           nwinfo_handler},
    {"+PSRAT:",                 0,                           nwinfo_handler},
    {"+COPS:",                  0,                           cops_handler},
    {"^SIMST:",                 0,                           on_simst},
    {"^NDISSTAT:",              0,                           on_ndisstat},
    {"^DHCPV6:",                0,                           dhcpv6_handler},
    {"service cell:",           0,                           expect_cell_lines},
};
// clang-format on

} // namespace

event* general_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    // The tests go on with the same line: "+CMS ERROR" both ends the command and is an event.
    finish_on_final(rec, line);
    guard.release();
    return report_handler(rec, line);
}

event* report_handler(gsm_mobile* rec, char* line)
{
    const auto* const test = find_row(general_tests, [&](const general_test& row) {
        return text_has(line, row.needle) && (row.applies == nullptr || row.applies());
    });
    if (test != nullptr)
        return test->read != nullptr ? test->read(rec, line) : say_event(test->code);
    lock_scope<record_lock> cell_guard;
    take_cell_line(rec, line);
    return nullptr;
}

} // namespace kelo

int kelo_take_caller(char* buffer, std::size_t size)
{
    using namespace kelo;
    const lock_scope<record_lock> guard;
    if (buffer == nullptr || size == 0 || !std::exchange(caller_waits, false))
        return 0;
    text_copy(buffer, size, ::gsm_event.callingnum, "");
    return 1;
}
