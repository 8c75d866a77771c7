#include "feed.h"

using namespace kelo;

namespace
{

void clear_identity()
{
    gsm_mobile& r = g_mobile;
    for (char* field : {r.model, r.mfrs, r.sn, r.imsi, r.iccid, r.gps_loc, r.number, r.smscenter})
        *field = '\0';
    std::strcpy(r.revision, "old");
    r.custom_cfg = 1; // the flows are left alone
}

// Each story fills one field at most, so that all of them in a row tell it.
std::string identity()
{
    const gsm_mobile& r = g_mobile;
    return std::string(r.model) + r.mfrs + r.sn + r.imsi + r.iccid + r.gps_loc + r.number +
           r.smscenter +
           (std::strcmp(r.revision, "old") == 0 ? "" : std::string("rev ") + r.revision);
}

TEST(Identity, Answers)
{
    // clang-format off
    const story stories[] = {
        {cgmm_handler, "AT+CGMM\r|EC25|OK", 0, 1, "EC25"},
        {cgmm_handler, "EC25 E9720", 0, 0, "E9720"}, // the order of the tokens, not of the line
        {cgmm_handler, "RM500Q-GL-AND-MORE", 0, 0, "RM500Q-GL-AND-M"},
        {cgmi_handler, "AT+CGMI|Quectel|OK", 0, 1, "Quectel"},
        {cgsn_handler, "AT+CGSN|867698041234567|OK", 0, 1, "867698041234567"},
        {cgsn_handler, "IMEI 8676|OK", 0, 0, ""},
        {cimi_handler, "\n460001234567890|OK", 0, 1, "460001234567890"},
        {gps_handler, "AT+QGPSLOC=2|+QGPSLOC: 061951.0,31.2|OK", 0, 1, "061951.0,31.2"},
        {qccid_handler, "AT+QCCID|OK", 0, 0, ""}, // shorter than the offset of the value
        {qccid_handler, "+QCCID: 8901260852290847433F|OK", 0, 1, "8901260852290847433F"},
        {qccid_handler, "+CCID: 01234567890123456789012345678901234", 0, 0, "0123456789012345678901234567890"},
        {qccid_handler, "#CCID: 8949|+CME ERROR: SIM failure", GSM_EVENT_SIM_FAILED, 0, "8949"},
        {qccid_handler, "#CCID: 8949|+CME ERROR: SIM busy", 0, 1, "8949"},
        {cnum_handler, "AT+CNUM|+CNUM: \"Voice\",\"4915112345678\",129", 0, 1, "4915112345678"},
        {cnum_handler, "+CNUM: ,\"1\"|+CNUM: 2", 0, 1, ""},
        {cnum_handler, "OK", 0, 0, ""},
        {csca_handler, "AT+CSCA?|+CSCA: \"+491710760000\",145|OK", 0, 1, "+491710760000"},
        {cgmr_handler, "AT+CGMR\r|OK", 0, 0, "rev "},
        {cgmr_handler, "Revision: EC25EFAR06A08M4G", 0, 0, "rev "},
        {cgmr_handler, "EC25EFAR06A08M4G beta|OK", 0, 1, "rev EC25EFAR06A08M4G"},
    };
    const story unisoc[] = { // padded with four blanks, with five, and cut
        {cgmr_handler, "Project Version:   QogirN6Pro", 0, 0, "V1.0.1-B7"},
        {cgmr_handler, "BASE  Version:    BASE_W25.39.4", 0, 0, "V1.0.1-B7rev BASE_W25.39.4"},
        {cgmr_handler, "BASE  Version:     BASE_W25.39.4", 0, 0, "V1.0.1-B7rev BASE_W25.39.4"},
        {cgmr_handler, "BASE  Version:", 0, 0, "V1.0.1-B7rev "},
    };
    // clang-format on
    run(stories, clear_identity, identity);
    run(
        unisoc,
        [] {
            clear_identity();
            std::strcpy(g_mobile.model, "V1.0.1-B7");
        },
        identity);
}

std::size_t rows_of(at_list& list)
{
    std::size_t count = 0;
    list_head* node;
    list_for_each(node, &list) count++;
    return count;
}

TEST(Identity, FirstRevisionCompletesTheFlowsOnce)
{
    std::strcpy(g_mobile.model, "EC25");
    feed_all(cgmr_handler, "AT+CGMR| EC25");
    EXPECT_EQ(g_mobile.custom_cfg, 0);
    feed(cgmr_handler, "EC25EFAR06A08M4G");
    EXPECT_EQ(g_mobile.custom_cfg, 1);
    const std::size_t rows = rows_of(start_sim1_list);
    EXPECT_GT(rows, 0u);
    EXPECT_GT(rows_of(reload_sim2_list), 0u);
    feed(cgmr_handler, "EC25AUGCR06A01M1G");
    EXPECT_STREQ(g_mobile.revision, "EC25AUGCR06A01M1G");
    EXPECT_EQ(rows_of(start_sim1_list), rows);
}

} // namespace
