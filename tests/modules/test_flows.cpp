// SPDX-License-Identifier: MIT
#include "tests/testing.h"

// Steps of both catalogues, in order, with the texts of the profile; the first profile that was
// found serves for the rest of the process.
TEST(Flows, AFlowHasTheStepsOfItsModuleAndNoOther)
{
    const scratch folder("/tmp/profile");
    std::filesystem::create_directory(folder.path);
    std::ofstream("/tmp/profile/a.conf") << "MODULE => EC25\nAT_SEND_PIN => AT+PIN\n";
    at_list list = LIST_HEAD_INIT(list);
    captured out;
    EXPECT_EQ(add_remaining_ats_by_model("", "EC25E", FLOW_START, &list), -1);
    EXPECT_EQ(add_remaining_ats_by_model("EC25", "", FLOW_START, &list), -1);
    EXPECT_EQ(add_remaining_ats_by_model("EC25", "EC25E", FLOW_START, &list), 0);
    EXPECT_TRUE(out.has("failed to match module 'EC25'"));
    at_list_free(&list);
    EXPECT_EQ(search_cfg_file(folder.path), 0);
    for (const char* model : {"EC25", "EC21"}) {
        EXPECT_EQ(add_remaining_ats_by_model(model, "x", FLOW_RELOAD, &list), 0);
        std::string text;
        for (list_head* node = list.next; node != &list; node = node->next) {
            const at_info* const at = at_of(node);
            text += std::to_string(at->seq) + (at->cmd != nullptr ? at->cmd : at->cmd_template);
        }
        EXPECT_EQ(text, "42AT+CPIN?43AT+PIN45AT+CIMI");
        at_list_free(&list);
    }
}

// Catches: a module that is never asked what it needs, since a stray line came ahead of its
// revision.
TEST(Flows, AreComposedForTheFirstRevisionThatIsKnown)
{
    captured out;
    const auto revision_is = [](const char* line) {
        std::string text = line;
        cgmr_handler(&g_mobile, text.data());
        int count = 0;
        for (list_head* node = start_sim1_list.next; node != &start_sim1_list; node = node->next)
            count++;
        return count;
    };
    text_set(g_mobile.model, "EC99");
    EXPECT_EQ(revision_is("Boot"), 0);
    EXPECT_EQ(g_mobile.custom_cfg, 1);
    text_set(g_mobile.model, "EC25");
    const int commands = revision_is("EC25EFAR06A08M4G");
    EXPECT_GT(commands, 0);
    EXPECT_EQ(revision_is("EC25EFAR06A09M4G"), commands);
}

// What a new flow forgets, and what must outlive it: all that is not named here.
TEST(Flows, AChangeOfFlowClearsTheCellAndKeepsTheRest)
{
    gsm_mobile& rec = g_mobile;
    for (const int flow : {FLOW_START, FLOW_RELOAD, FLOW_SMS_TEXT, FLOW_SMS_PDU}) {
        const bool forgets = flow == FLOW_START || flow == FLOW_RELOAD;
        std::memset(static_cast<void*>(&rec), 7, sizeof rec);
        rec.custom_cfg = 0;
        flow_walked = 1;
        at_seq_cursor = 99;
        gsm_mobile want;
        std::memcpy(&want, &rec, sizeof want);
        want.flow = flow;
        want.at_done = 1;
        want.is5g = 0;
        if (forgets) {
            const auto clear = [](auto&... fields) {
                (std::memset(&fields, 0, sizeof fields), ...);
            };
            clear(want.imsi, want.iccid, want.number, want.act, want.plmn, want.band, want.oper,
                  want.lac, want.channel, want.reg_n, want.reg_stat, want.cid, want.tech,
                  want.reg_status, want.rssi, want.ber, want.cqi, want.dl_bandwidth,
                  want.ul_bandwidth);
            want.rsrp = -120;
        }
        libgsm_change_flow(&rec, flow, forgets ? 1 : -1);
        EXPECT_EQ(std::memcmp(&rec, &want, sizeof rec), 0) << flow;
        EXPECT_EQ(in_words(word_get(flow_walked), at_seq_cursor), forgets ? "00" : "10");
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
    EXPECT_EQ(in_words(at->custom_seq, at->timeout), "04");
}

TEST(Flows, WhichListAFlowWalks)
{
    const std::tuple<int, int, int, at_list*> rows[] = {
        {FLOW_START, 1, 0, &start_sim1_list},
        {FLOW_RELOAD, 1, 0, &reload_sim1_list},
        {FLOW_START, 2, 0, &start_sim1_list}, // nothing else tells which module it is
        {FLOW_START, 2, 1, &start_sim2_list},
        {FLOW_RELOAD, 2, 1, &reload_sim2_list},
        {FLOW_SMS_TEXT, -1, 1, &sms_text_list},
        {FLOW_SMS_PDU, 2, 1, &sms_pdu_list},
        {FLOW_START, 0, 1, nullptr},
        {5, 1, 1, nullptr}};
    for (const auto& [flow, sim, identified, list] : rows) {
        captured out;
        g_mobile.custom_cfg = identified;
        g_mobile.flow = 77;
        libgsm_change_flow(&g_mobile, flow, sim);
        EXPECT_EQ(cur_at_list, list) << flow << " on " << sim;
        EXPECT_EQ(out.has("fatal error!\n"), list == nullptr);
        EXPECT_EQ(g_mobile.flow, list == nullptr ? 77 : flow);
    }
}
