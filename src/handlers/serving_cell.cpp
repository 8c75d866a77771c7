// SPDX-License-Identifier: MIT
// Serving cell: what its reports leave in the record, and the answer to the query of it.
#include "handlers/handlers.h"

#include "at/answers.h"
#include "handlers/parse.h"
#include "support/diag.h"

namespace kelo
{

namespace
{

void keep(int& field, const std::optional<int>& value)
{
    field = value.value_or(field);
}

void store_cell(gsm_mobile* rec, const serving_cell& cell)
{
    if (cell.act != nullptr)
        text_set(rec->act, cell.act);
    if (filled(cell.lac))
        text_set(rec->lac, cell.lac);
    if (cell.cell_id) {
        store_cell_id(rec, *cell.cell_id);
        rec->enodebid = rec->cid >> 8;
        rec->cellid = rec->cid & 0xff;
    }
    keep(rec->is5g, cell.is5g);
    keep(rec->mcc, cell.mcc);
    keep(rec->mnc, cell.mnc);
    keep(rec->pcid, cell.pcid);
    keep(rec->earfcn, cell.earfcn);
    keep(rec->ul_bandwidth, cell.ul_bandwidth);
    keep(rec->dl_bandwidth, cell.dl_bandwidth);
    keep(rec->rsrp, cell.rsrp);
    keep(rec->rsrq, cell.rsrq);
    keep(rec->sinr, cell.sinr);
    keep(rec->cqi, cell.cqi);
}

} // namespace

void parse_qeng_info(gsm_mobile* rec, const char* line)
{
    const std::optional<serving_cell> cell = read_qeng(line);
    if (cell)
        store_cell(rec, *cell);
    else
        diag_at(plain, __func__, "unrecognizable fault('%s')\n", line);
}

void parse_rfsts_info(gsm_mobile* rec, const char* line)
{
    constexpr int stem_lte = 3;
    constexpr int stem_other = 1;
    const std::optional<serving_cell> cell = read_rfsts(line);
    rec->qeng_net_stem = cell ? stem_lte : stem_other;
    if (cell)
        store_cell(rec, *cell);
}

void parse_ccinfo(gsm_mobile* rec, const char* line)
{
    store_cell(rec, read_cell_line(line));
}

bool take_cell_line(gsm_mobile* rec, const char* line)
{
    if (word_get(cell_ccinfo_recv) == 0)
        return false;
    parse_ccinfo(rec, line);
    word_add(cell_ccinfo_recv, -1);
    return true;
}

event* expect_cell_lines(gsm_mobile*, char* line)
{
    if (text_has(line, "LTE service cell"))
        word_set(cell_ccinfo_recv, 1);
    else if (text_has(line, "LTE-NR EN-DC"))
        word_set(cell_ccinfo_recv, 2);
    return nullptr;
}

event* servingcell_handler(gsm_mobile* rec, char* line)
{
    lock_scope<record_lock> guard;
    if (finish_on_ok(rec, line, answer_seen(rec)))
        return nullptr;
    if (text_has(line, "+QENG:")) {
        rec->qeng_net_stem = classify_net_stem(line);
        parse_qeng_info(rec, line);
        rec->reg_seen = 1;
        return text_has(line, "NR5G-SA") ? raise_event(GSM_EVENT_SIM_UP) : nullptr;
    }
    if (text_has(line, "service cell:"))
        return expect_cell_lines(rec, line);
    if (take_cell_line(rec, line))
        rec->reg_seen = 1;
    else
        finish_on_error(rec, line);
    return nullptr;
}

} // namespace kelo
