#include "modules/modules.h"
#include "tests/testing.h"

#include <span>

namespace
{

using namespace kelo;
using kelo::test::add_node;
using kelo::test::captured;

int length_of(const at_list& list)
{
    int count = 0;
    for (const list_head* node = list.next; node != &list; node = node->next)
        count++;
    return count;
}

// A profile that has every key, so that a step is missing only for want of a catalogue row. The
// first profile found serves for the rest of the process.
void add_profile_with_every_key(const char* model)
{
    auto* const profile = new cfg_file{nullptr, strdup(model), {}, {}};
    list_init(&profile->items);
    for (std::size_t i = 0; i < at_private_rows; i++) {
        auto* const item = new cfg_item{at_private_table[i].name, strdup("AT+PRIVATE"), {}};
        list_add_tail(&item->node, &profile->items);
    }
    list_add_tail(&profile->node, &cfg_file_list);
}

// A module that gets another's commands, or none, is a module that never comes up.
TEST(Flows, WhichStepsAModuleGets)
{
    struct row {
        const char *model, *revision;
        int rows[4]; // of FLOW_START, FLOW_RELOAD, FLOW_SMS_TEXT, FLOW_SMS_PDU
    };
    constexpr row rows[] = {
        {"EC25", "EC25VFAR02A08M4G", {12, 10, 3, 3}}, // "EC25AU" comes first and begins with it
        {"EC25V", "EC25VFAR02A08M4G", {28, 24, 3, 3}},
        {"unknown", "EC25VFAR02A08M4G", {28, 24, 3, 3}},
        {"U9300C", "x", {29, 24, 3, 3}},
        {"LE910", "20.00.522", {21, 12, 3, 3}},
        {"LE910-EUG", "20.00.522", {0, 0, 0, 0}}, // no key is as long as this model
        {"V1.0.1-B7", "x", {13, 10, 3, 3}},
        {"MH5000-31", "x", {24, 23, 3, 3}},
        {"SIM7600", "x", {0, 0, 0, 0}}};
    add_profile_with_every_key(rows[0].model);
    for (const row& r : rows) {
        SCOPED_TRACE(std::string(r.model) + " " + r.revision);
        for (int flow = FLOW_START; flow <= FLOW_SMS_PDU; flow++) {
            at_list list = LIST_HEAD_INIT(list);
            EXPECT_EQ(add_remaining_ats_by_model(r.model, r.revision, flow, &list), 0);
            EXPECT_EQ(length_of(list), r.rows[flow - 1]) << "flow " << flow;
            at_list_free(&list);
        }
    }
}

// What a new flow forgets, and what must outlive it: all that is not named here.
TEST(Flows, AChangeOfFlowClearsTheCellAndKeepsTheRest)
{
    gsm_mobile& rec = g_mobile;
    for (const int flow : {FLOW_START, FLOW_RELOAD, FLOW_SMS_TEXT, FLOW_SMS_PDU}) {
        const bool forgets = flow == FLOW_START || flow == FLOW_RELOAD;
        std::memset(static_cast<void*>(&rec), 7, sizeof rec);
        rec.custom_cfg = 0;
        at_flow_done = 1;
        at_seq_cursor = 99;
        gsm_mobile want;
        std::memcpy(&want, &rec, sizeof want);
        want.flow = flow;
        want.at_done = 1;
        want.is5g = 0;
        if (forgets) {
            for (const std::span<char> text :
                 {std::span<char>(want.imsi), std::span<char>(want.iccid),
                  std::span<char>(want.number), std::span<char>(want.act),
                  std::span<char>(want.plmn), std::span<char>(want.band),
                  std::span<char>(want.oper), std::span<char>(want.lac)})
                std::memset(text.data(), 0, text.size());
            for (int* const value : {&want.channel, &want.reg_n, &want.reg_stat, &want.cid,
                                     &want.tech, &want.reg_status, &want.rssi, &want.ber, &want.cqi,
                                     &want.dl_bandwidth, &want.ul_bandwidth})
                *value = 0;
            want.rsrp = -120;
        }
        libgsm_change_flow(&rec, flow, forgets ? 1 : -1);
        EXPECT_EQ(std::memcmp(&rec, &want, sizeof rec), 0) << flow;
        EXPECT_EQ(at_flow_finished(), forgets ? 0 : 1);
        EXPECT_EQ(at_seq_cursor, 0);
    }
}

TEST(Flows, AChangeOfFlowMakesTheRowsFresh)
{
    at_info* const at = add_node(reload_sim1_list, 900, 5, "AT+ONE", 4);
    at->flags = 0xff;
    at->custom_cmd = strdup("AT+CUSTOM");
    at->custom_seq = 50;
    libgsm_change_flow(&g_mobile, FLOW_RELOAD, 1);
    EXPECT_EQ(at->flags, 0xffu & ~(AT_FLAG_SENT | AT_FLAG_SKIP | AT_FLAG_IGNORE));
    EXPECT_EQ(at->custom_cmd, nullptr);
    EXPECT_EQ(at->custom_seq, 0);
    EXPECT_EQ(at->timeout, 4);
}

TEST(Flows, WhichListAFlowWalks)
{
    struct row {
        int flow, sim, identified;
        at_list* list;
    };
    const row rows[] = {
        {FLOW_START, 1, 0, &start_sim1_list},
        {FLOW_RELOAD, 1, 0, &reload_sim1_list},
        {FLOW_START, 2, 0, &start_sim1_list}, // nothing else can tell which module it is
        {FLOW_START, 2, 1, &start_sim2_list},
        {FLOW_RELOAD, 2, 1, &reload_sim2_list},
        {FLOW_SMS_TEXT, -1, 1, &sms_text_list},
        {FLOW_SMS_PDU, 2, 1, &sms_pdu_list},
        {FLOW_START, 0, 1, nullptr},
        {5, 1, 1, nullptr}};
    for (const row& r : rows) {
        SCOPED_TRACE(::testing::Message() << r.flow << " on " << r.sim);
        captured out;
        g_mobile.custom_cfg = r.identified;
        g_mobile.flow = 77;
        libgsm_change_flow(&g_mobile, r.flow, r.sim);
        EXPECT_EQ(cur_at_list, r.list);
        EXPECT_EQ(out.has("fatal error!\n"), r.list == nullptr);
        EXPECT_EQ(g_mobile.flow, r.list == nullptr ? 77 : r.flow);
    }
}

} // namespace
