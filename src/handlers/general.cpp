#include "handlers/handlers.h"

#include "at/answers.h"
#include "core/family.h"
#include "services/services.h"
#include "support/diag.h"
#include "support/shell.h"

#include <cstdio>

namespace kelo
{

namespace
{

// What to do with a line in which `match` was found.
using action = event* (*)(gsm_mobile* rec, char* line, char* match);

struct general_test {
    const char* needle;
    int code;                    // the event that is raised when there is no action
    action act;                  // its result is the handler's
    bool (*applies)() = nullptr; // to the module at hand; null means all
};

event* on_clip(gsm_mobile*, char*, char* match)
{
    constexpr std::size_t longest_number = 64;
    lock_scope guard(record_lock);
    const char* const quote = text_find(match, "\"");
    if (quote != nullptr) {
        text_copy_until(gsm_event.callingnum, longest_number + 1, quote + 1, "\"");
        diag_at(plain, "general_handler", "callingnum='%s'\n", gsm_event.callingnum);
    }
    return raise_event(GSM_EVENT_RING);
}

event* judge_signal(gsm_mobile* rec)
{
    const bool signal = rec->rssi >= 0 && rec->rssi <= 31;
    return signal ? nullptr : raise_event(GSM_EVENT_NO_SIGNAL);
}

event* on_csq(gsm_mobile* rec, char*, char* match)
{
    lock_scope guard(record_lock);
    text_scan(match, "+CSQ: %d,%d", &rec->rssi, &rec->ber);
    return judge_signal(rec);
}

event* on_qind_csq(gsm_mobile* rec, char*, char* match)
{
    lock_scope guard(record_lock);
    text_scan(match, "+QIND: \"csq\",%d,%d", &rec->rssi, &rec->ber);
    return judge_signal(rec);
}

// While a flow runs, its own query of the SIM says the same.
event* on_sim_not_ready(gsm_mobile*, char*, char*)
{
    return at_flow_finished() != 0 ? say_event(GSM_EVENT_SIM_FAILED) : nullptr;
}

event* on_context_lost(gsm_mobile*, char*, char*)
{
    diag_at(plain, "general_handler", "cellular is disconnected and start to redial !!!\n");
    word_set(cell_pdpdeact, 1);
    return nullptr;
}

// A cell of standalone 5G is proof of registration, beside the registration reports.
event* on_qeng(gsm_mobile* rec, char* line, char*)
{
    const bool standalone = text_has(line, "NR5G-SA");
    classify_net_stem(rec, line);
    parse_qeng_info(rec, line);
    if (!standalone)
        return nullptr;
    if (get_net_status_flag() == 0)
        return say_event(GSM_EVENT_SIM_UP);
    set_net_status_flag(0);
    return nullptr;
}

event* on_cereg(gsm_mobile* rec, char* line, char*)
{
    return reports_cereg() ? creg_handler(rec, line) : nullptr;
}

event* on_creg(gsm_mobile* rec, char* line, char*)
{
    return creg_handler(rec, line);
}

event* on_sim_gone(gsm_mobile*, char*, char*)
{
    word_set(cell_reload_flag, 1);
    return nullptr;
}

event* on_mqtt_state(gsm_mobile*, char* line, char*)
{
    libgsm_mqtt_urc_error(line);
    return nullptr;
}

event* on_technology(gsm_mobile* rec, char* line, char*)
{
    return nwinfo_handler(rec, line);
}

event* on_operator(gsm_mobile* rec, char* line, char*)
{
    return cops_handler(rec, line);
}

event* on_simst(gsm_mobile*, char*, char* match)
{
    constexpr int no_sim = 255;
    int state = 0;
    int lock_state = 0;
    if (reports_simst() && text_scan(match, "^SIMST: %d,%d", &state, &lock_state) == 2 &&
        state == no_sim)
        cell_start_flag_set();
    return nullptr;
}

event* on_ndisstat(gsm_mobile*, char* line, char* match)
{
    if (word_get(is_pin_ready) == 0 || !text_has(match, "\"IPV4\""))
        return nullptr;
    int state = 0;
    int cause = 0; // there when the network ended the link, absent when we did
    if (text_scan(line, "^NDISSTAT: %d,%d", &state, &cause) == 2 && state == 0) {
        diag_at(plain, "general_handler", "network is reject and start to redial !!!\n");
        word_set(cell_pdpdeact, 1);
    }
    return nullptr;
}

event* on_dhcpv6(gsm_mobile* rec, char* line, char*)
{
    dhcpv6_handler(rec, line);
    return nullptr;
}

event* on_cell_header(gsm_mobile*, char* line, char*)
{
    expect_cell_lines(line);
    return nullptr;
}

// Tried from the top, the first that matches decides. All are substring tests.
// clang-format off
constexpr general_test general_tests[] = {
    // needle                   event                        action
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
    {"+CREG:",                  0,                           on_creg, reports_creg},
    {"+SIM: Removed",           0,                           on_sim_gone},
    {"+SIM DROP",               0,                           on_sim_gone},
    {"+QMTSTAT",                0,                           on_mqtt_state},
    {"^HCSQ:",                  0,                           on_technology},
    {"+PSRAT:",                 0,                           on_technology},
    {"+COPS:",                  0,                           on_operator},
    {"^SIMST:",                 0,                           on_simst},
    {"^NDISSTAT:",              0,                           on_ndisstat},
    {"^DHCPV6:",                0,                           on_dhcpv6},
    {"service cell:",           0,                           on_cell_header},
};
// clang-format on

} // namespace

event* general_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    // The tests go on with the same line: "+CMS ERROR" both ends the command and is an event.
    if (is_final_line(line)) {
        lock_scope guard(record_lock);
        finish_command(rec);
    }
    for (const general_test& test : general_tests) {
        char* const match = text_find(line, test.needle);
        if (match == nullptr || (test.applies != nullptr && !test.applies()))
            continue;
        return test.act == nullptr ? say_event(test.code) : test.act(rec, line, match);
    }
    if (word_get(cell_ccinfo_recv) != 0) {
        parse_ccinfo(rec, line);
        word_add(cell_ccinfo_recv, -1);
    }
    return nullptr;
}

namespace
{

// The text goes into a shell line, so nothing else may be in it.
bool is_ipv6_address(const char* text)
{
    constexpr std::size_t longest = 45; // the mixed form, with four decimal numbers at its end
    const std::size_t length = std::strlen(text);
    return length <= longest && std::strspn(text, "0123456789abcdefABCDEF:.") == length;
}

} // namespace

void dhcpv6_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return;
    char* const match = text_find(line, "^DHCPV6:");
    if (match == nullptr)
        return;
    constexpr std::size_t prefix = 9; // with the blank behind the colon
    char* columns[6];
    const std::size_t count =
        text_columns(match + strnlen(match, prefix), columns, std::size(columns));
    if (count < 3)
        return;
    if (!is_ipv6_address(columns[0])) {
        diag_at(plain, __func__, "'%.64s' is no address!\n", columns[0]);
        return;
    }
    char command[512];
    std::snprintf(command, sizeof command, "ip -6 address add %s/64 dev %s", columns[0], "wwan0");
    shell_run(command);
}

} // namespace kelo
