#include "handlers/handlers.h"

#include "at/answers.h"
#include "support/diag.h"

#include <climits>

namespace kelo
{

namespace
{

struct stem_word {
    const char* needle;
    int stem;
};

constexpr int stem_other = 1;

// Tried from the top, the first that the line holds decides: "TD" stands in "TDSCDMA" too, and
// "CDMA" in "WCDMA".
constexpr stem_word stem_words[] = {
    {"5G", 9}, {"FDD", 3}, {"TDSCDMA", 2}, {"TD", 3}, {"LTE", 3}, {"WCDMA", 2}, {"CDMA", 2},
};

} // namespace

void classify_net_stem(gsm_mobile* rec, const char* line)
{
    int stem = stem_other;
    for (const stem_word& word : stem_words)
        if (text_has(line, word.needle)) {
            stem = word.stem;
            break;
        }
    lock_scope guard(record_lock);
    rec->qeng_net_stem = stem;
}

namespace
{

enum class kind {
    decimal,
    hexadecimal,
    area,  // text, into lac
    cell,  // hexadecimal, into cid and what is derived of it
    index, // decimal, corrected to dBm
};

struct column_rule {
    std::size_t column; // from 1
    kind read_as;
    int gsm_mobile::*field;
};

constexpr int gsm_mobile::*by_kind = nullptr;

// Columns are counted with a run of commas as one separator, so that an empty column moves those
// behind it up by one. Columns that are not named are not read.

// clang-format off
// Column 1 is the word "NR5G-SA" itself.
constexpr column_rule nr5g_sa_columns[] = {
    {3,  kind::decimal,     &gsm_mobile::mcc},
    {4,  kind::decimal,     &gsm_mobile::mnc},
    {5,  kind::cell,        by_kind},
    {6,  kind::decimal,     &gsm_mobile::pcid},
    {7,  kind::area,        by_kind},
    {8,  kind::decimal,     &gsm_mobile::earfcn},
    {10, kind::decimal,     &gsm_mobile::dl_bandwidth},
    {11, kind::decimal,     &gsm_mobile::rsrp},
    {12, kind::decimal,     &gsm_mobile::rsrq},
    {13, kind::decimal,     &gsm_mobile::sinr},
};

// Column 1 is the word "LTE" itself.
constexpr column_rule lte_columns[] = {
    {3,  kind::decimal,     &gsm_mobile::mcc},
    {4,  kind::decimal,     &gsm_mobile::mnc},
    {5,  kind::cell,        by_kind},
    {6,  kind::decimal,     &gsm_mobile::pcid},
    {7,  kind::decimal,     &gsm_mobile::earfcn},
    {9,  kind::decimal,     &gsm_mobile::ul_bandwidth},
    {10, kind::decimal,     &gsm_mobile::dl_bandwidth},
    {11, kind::area,        by_kind},
    {12, kind::decimal,     &gsm_mobile::rsrp},
    {13, kind::decimal,     &gsm_mobile::rsrq},
    {15, kind::decimal,     &gsm_mobile::sinr},
    {16, kind::decimal,     &gsm_mobile::cqi},
};

// Column 1 is the head of the line.
constexpr column_rule wcdma_columns[] = {
    {6,  kind::area,        by_kind},
    {7,  kind::cell,        by_kind},
    {8,  kind::decimal,     &gsm_mobile::earfcn},
    {11, kind::decimal,     &gsm_mobile::rsrp},
    {12, kind::decimal,     &gsm_mobile::sinr},
};

// Cell lines without a prefix. Only those of technology 4 (LTE) carry area and cell; the NR line of
// a dual connection leaves both empty.
constexpr column_rule ccinfo_lte_columns[] = {
    {3,  kind::decimal,     &gsm_mobile::mcc},
    {4,  kind::decimal,     &gsm_mobile::mnc},
    {5,  kind::area,        by_kind},
    {6,  kind::cell,        by_kind},
    {7,  kind::hexadecimal, &gsm_mobile::earfcn},
    {8,  kind::hexadecimal, &gsm_mobile::pcid},
    {10, kind::decimal,     &gsm_mobile::dl_bandwidth},
    {11, kind::decimal,     &gsm_mobile::sinr},
    {13, kind::index,       &gsm_mobile::rsrp},
    {14, kind::decimal,     &gsm_mobile::rsrq},
};

constexpr column_rule ccinfo_other_columns[] = {
    {3,  kind::decimal,     &gsm_mobile::mcc},
    {4,  kind::decimal,     &gsm_mobile::mnc},
    {5,  kind::hexadecimal, &gsm_mobile::earfcn},
    {6,  kind::hexadecimal, &gsm_mobile::pcid},
    {8,  kind::decimal,     &gsm_mobile::dl_bandwidth},
    {9,  kind::decimal,     &gsm_mobile::sinr},
    {11, kind::index,       &gsm_mobile::rsrp},
    {12, kind::decimal,     &gsm_mobile::rsrq},
};
// clang-format on

constexpr std::size_t most_columns = 16;

struct column_list {
    char* texts[most_columns];
    std::size_t count;

    explicit column_list(char* text) : count(text_columns(text, texts, most_columns)) {}
};

// The index minus the offset, which stays an int however low the index is.
int index_to_dbm(int index, int offset)
{
    return index < INT_MIN + offset ? INT_MIN : index - offset;
}

void read_cell(gsm_mobile* rec, const char* text)
{
    std::uint64_t cell = 0;
    if (text_scan(text, "%lx", &cell) != 1)
        return;
    store_cell_id(rec, cell);
    rec->enodebid = rec->cid >> 8;
    rec->cellid = rec->cid & 0xff;
}

void read_index(gsm_mobile* rec, const column_rule& rule, const char* text, int offset)
{
    int index = 0;
    if (text_scan(text, "%d", &index) == 1)
        rec->*rule.field = index_to_dbm(index, offset);
}

// Reads the columns that the rules name, up to the first that is missing.
template <std::size_t size>
void read_columns(gsm_mobile* rec, const column_list& columns, const column_rule (&rules)[size],
                  int index_offset = 0)
{
    for (const column_rule& rule : rules) {
        if (rule.column > columns.count)
            return;
        const char* const text = columns.texts[rule.column - 1];
        switch (rule.read_as) {
        case kind::decimal:
            text_scan(text, "%d", &(rec->*rule.field));
            break;
        case kind::hexadecimal:
            text_scan(text, "%x", &(rec->*rule.field));
            break;
        case kind::area:
            text_set(rec->lac, text);
            break;
        case kind::cell:
            read_cell(rec, text);
            break;
        case kind::index:
            read_index(rec, rule, text, index_offset);
            break;
        }
    }
}

void parse_nr5g_nsa(gsm_mobile* rec, const char* line, const char* match)
{
    constexpr int unmeasured = -32768; // of a released NR leg
    int mcc = 0;
    int mnc = 0;
    int pcid = 0;
    int rsrp = 0;
    int sinr = 0;
    int rsrq = 0;
    const char* const numbers = text_skip(match, 10); // behind the quote and the comma
    if (text_scan(numbers, "%d,%d,%d,%d,%d,%d", &mcc, &mnc, &pcid, &rsrp, &sinr, &rsrq) < 6) {
        diag_at(plain, "parse_qeng_info", "unrecognizable fault('%s')\n", line);
        return;
    }
    rec->mcc = mcc;
    rec->mnc = mnc;
    if (rsrp == unmeasured && sinr == unmeasured && rsrq == unmeasured)
        return;
    text_set(rec->act, "5G NR");
    rec->pcid = pcid;
    rec->rsrp = rsrp;
    rec->sinr = sinr;
    rec->rsrq = rsrq;
    rec->is5g = 1;
}

void parse_nr5g_sa(gsm_mobile* rec, char* match)
{
    text_set(rec->act, "5G NR");
    read_columns(rec, column_list(match), nr5g_sa_columns);
    rec->is5g = 2;
    rec->cqi = 0;
    rec->ul_bandwidth = 0;
}

void parse_wcdma(gsm_mobile* rec, char* line)
{
    text_set(rec->act, "WCDMA");
    read_columns(rec, column_list(line), wcdma_columns);
    rec->cqi = 0;
    rec->ul_bandwidth = 0;
    rec->dl_bandwidth = 0;
    rec->rsrq = 0;
}

} // namespace

void parse_qeng_info(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return;
    lock_scope guard(record_lock);
    char* match = nullptr;
    if ((match = text_find(line, "NR5G-NSA")) != nullptr)
        parse_nr5g_nsa(rec, line, match);
    else if ((match = text_find(line, "NR5G-SA")) != nullptr)
        parse_nr5g_sa(rec, match);
    else if ((match = text_find(line, "LTE")) != nullptr)
        read_columns(rec, column_list(match), lte_columns);
    else if (text_has(line, "WCDMA"))
        parse_wcdma(rec, line);
}

void parse_ccinfo(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return;
    constexpr int lte = 4;
    constexpr int nr = 9;
    const column_list columns(line);
    int technology = 0;
    if (columns.count >= 2)
        text_scan(columns.texts[1], "%d", &technology);
    const int offset = technology == nr ? 157 : 141;
    lock_scope guard(record_lock);
    if (technology == lte)
        read_columns(rec, columns, ccinfo_lte_columns, offset);
    else
        read_columns(rec, columns, ccinfo_other_columns, offset);
}

void expect_cell_lines(const char* line)
{
    if (text_has(line, "LTE service cell"))
        word_set(cell_ccinfo_recv, 1);
    else if (text_has(line, "LTE-NR EN-DC"))
        word_set(cell_ccinfo_recv, 2);
}

event* servingcell_handler(gsm_mobile* rec, char* line)
{
    if (nothing_to_read(rec, line))
        return nullptr;
    if (text_has(line, "OK")) {
        lock_scope guard(record_lock);
        finish_if_seen(rec);
        return nullptr;
    }
    if (text_has(line, "+QENG:")) {
        const bool standalone = text_has(line, "NR5G-SA");
        classify_net_stem(rec, line);
        parse_qeng_info(rec, line);
        lock_scope guard(record_lock);
        rec->reg_seen = 1;
        return standalone ? raise_event(GSM_EVENT_SIM_UP) : nullptr;
    }
    if (text_has(line, "service cell:")) {
        expect_cell_lines(line);
        return nullptr;
    }
    if (word_get(cell_ccinfo_recv) != 0) {
        parse_ccinfo(rec, line);
        word_add(cell_ccinfo_recv, -1);
        lock_scope guard(record_lock);
        rec->reg_seen = 1;
        return nullptr;
    }
    if (text_has(line, "ERROR")) {
        lock_scope guard(record_lock);
        finish_command(rec);
    }
    return nullptr;
}

} // namespace kelo
