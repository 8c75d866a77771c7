// SPDX-License-Identifier: MIT
// Registration, operator, technology and signal: the answers to their queries. Their reports come
// here as well, by way of the general handler.
#include "handlers/handlers.h"

#include "at/answers.h"
#include "handlers/parse.h"
#include "support/diag.h"
#include "support/owned.h"
#include "support/scan.h"
#include "support/text.h"

namespace kelo
{

namespace
{

// A new cell seen behind the flow asks the modem, once, what cell it is.
void follow_cell(gsm_mobile* rec, std::uint64_t cell)
{
    constexpr int en_dc = 13; // 3GPP TS 27.007 <AcT>
    const int old_cid = rec->cid;
    store_cell_id(rec, cell);
    if (rec->tech == en_dc) {
        text_set(rec->act, "5G NR");
        return;
    }
    if (word_get(flow_walked) == 0 || rec->cid == old_cid)
        return;
    if (text_pointer query = text_duplicate("AT+QENG=\"servingcell\""))
        text_replace(rec->pending_at, std::move(query));
}

void store_registration(gsm_mobile* rec, const registration& reg)
{
    rec->reg_n = reg.n.value_or(rec->reg_n);
    rec->reg_stat = reg.stat.value_or(rec->reg_stat);
    rec->tech = reg.tech.value_or(rec->tech);
    rec->rac = reg.rac.value_or(rec->rac);
    if (filled(reg.lac))
        text_set(rec->lac, reg.lac);
    if (reg.follows)
        follow_cell(rec, reg.cell_id.value_or(0));
    else if (reg.cell_id)
        store_cell_id(rec, *reg.cell_id);
    if (rec->reg_stat >= KELO_REGISTRATION_NONE && rec->reg_stat <= KELO_REGISTRATION_ROAMING)
        rec->reg_status = rec->reg_stat;
}

// Whether the modem is registered, as an event. While it is not and the command has tries left, the
// answer does not count as seen, so that the query is repeated.
event* judge_registration(gsm_mobile* rec)
{
    switch (rec->reg_status) {
    case KELO_REGISTRATION_HOME:
    case KELO_REGISTRATION_ROAMING:
        rec->reg_seen = 1;
        return raise_event(GSM_EVENT_SIM_UP);
    case KELO_REGISTRATION_NONE:
    case KELO_REGISTRATION_SEARCHING:
    case KELO_REGISTRATION_DENIED:
    case KELO_REGISTRATION_UNKNOWN:
        if (rec->cur_at != nullptr && rec->cur_at->retries_left == 0)
            rec->reg_seen = 1;
        return raise_event(GSM_EVENT_SIM_DOWN);
    default:
        return nullptr;
    }
}

// A numeric operator of five digits, by its length and first character.
bool is_short_plmn(const char* name)
{
    return std::strlen(name) == 5 && name[0] >= '0' && name[0] <= '9';
}

// Whether there is one: that is to be registered.
bool store_operator(gsm_mobile* rec, const network_operator& oper)
{
    const bool named = oper.kind == network_operator::named;
    if (named && is_short_plmn(oper.name))
        text_set(rec->plmn, oper.name);
    else if (named)
        text_set(rec->oper, oper.name);
    rec->reg_status = named ? KELO_REGISTRATION_HOME : KELO_REGISTRATION_NONE;
    return named;
}

} // namespace

event* creg_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, answer_seen(rec)))
        return nullptr;
    const std::optional<registration> reg = read_registration(line);
    if (!reg)
        return nullptr;
    store_registration(rec, *reg);
    return judge_registration(rec);
}

event* csq_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, answer_seen(rec)))
        return nullptr;
    if (const char* const match = text_find(line, "+CSQ:")) {
        scan(match, "+CSQ: ", dec(rec->rssi), ",", dec(rec->ber));
        rec->reg_seen = 1;
    }
    return nullptr;
}

void note_operator(gsm_mobile* rec, const char* line)
{
    if (!text_begins(line, "+COPS:"))
        return;
    const lock_scope<record_lock> guard;
    const std::optional<network_operator> oper = read_operator(line);
    if (oper && oper->kind != network_operator::unreadable)
        store_operator(rec, *oper);
}

} // namespace kelo

using namespace kelo;

struct gsm_event* cops_handler(struct gsm_mobile* rec, char* line)
{
    if (rec == nullptr || line == nullptr)
        return nullptr;
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, answer_seen(rec)))
        return nullptr;
    const std::optional<network_operator> oper = read_operator(line);
    if (!oper)
        return nullptr;
    rec->reg_seen = 1;
    if (oper->kind == network_operator::unreadable) {
        diag_at(plain, __func__, "unexpected error(%s)!\n", line);
        return nullptr;
    }
    return raise_event(store_operator(rec, *oper) ? GSM_EVENT_SIM_UP : GSM_EVENT_SIM_DOWN);
}

struct gsm_event* nwinfo_handler(struct gsm_mobile* rec, char* line)
{
    if (rec == nullptr || line == nullptr)
        return nullptr;
    lock_scope<record_lock> guard;
    if (finish_on_final(rec, line, answer_seen(rec)))
        return nullptr;
    const std::optional<technology> tech = read_technology(line);
    if (!tech)
        return nullptr;
    rec->reg_seen = 1;
    text_set(rec->act, tech->act);
    if (tech->partial)
        return nullptr;
    text_set(rec->plmn, tech->plmn);
    text_set(rec->band, tech->band);
    rec->channel = tech->channel.value_or(rec->channel);
    return nullptr;
}

long long libgsm_get_cid64(void)
{
    if (modem_record() == nullptr)
        return -1;
    lock_scope<record_lock> guard;
    return static_cast<long long>(full_cell_id);
}
