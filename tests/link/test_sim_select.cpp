// SIM selection: what a driver of the switch would see, and the active SIM's settings.
#include "link/init.h"

#include "../testing.h"

#include <kelo/settings.h>

using namespace kelo;
using namespace kelo::test;

namespace
{

std::string switched_to(int sim)
{
    constexpr char record[] = "/tmp/brgpio-record";
    setenv("BRGPIO_RECORD", record, 1);
    EXPECT_EQ(mobile_select_simcard(sim), 0);
    std::ifstream file(record);
    unlink(record);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

TEST(SimSelect, RequestOfTheSwitch)
{
    captured said;
    EXPECT_EQ(switched_to(2), "open 2\nioctl 0x4004af74 0\nclose\n");
    EXPECT_EQ(switched_to(1), "open 2\nioctl 0x4004af74 1\nclose\n");
    setenv("BRGPIO_RESULT", "-1", 1);
    EXPECT_FALSE(said.has("failed"));
    EXPECT_EQ(switched_to(-5), "open 2\nioctl 0x4004af74 0\nclose\n");
    EXPECT_TRUE(said.has("gpio_select_simcard: failed to ioctl(-5), ret -1!\n"));
    EXPECT_EQ(selected_card, -5) << "only the message tells";
}

// Without a device, with one whose descriptor counts as failure (and must not stay open), and on a
// module that is switched by command, the card stays.
TEST(SimSelect, CardStays)
{
    captured complained(STDERR_FILENO);
    EXPECT_EQ(gpio_select_simcard(2), -1);
    close(STDIN_FILENO);
    EXPECT_EQ(switched_to(2), "open 2\nclose\n");
    EXPECT_EQ(complained.text(), "/dev/brgpio: open failed\n/dev/brgpio: open failed\n");
    is_quectel = 14;
    EXPECT_EQ(switched_to(2), "");
    EXPECT_EQ(g_mobile.simslot, 2);
    EXPECT_EQ(selected_card, 1);
}

// The host may write anything into selected_card: no other slot may be read for it. A start with a
// card that is none says so, and the record keeps what it has.
TEST(SimSelect, SettingsOfTheActiveSlotAlone)
{
    *cell_sim_config(1) = {2, nullptr, nullptr, nullptr, nullptr, "1111", nullptr};
    *cell_sim_config(2) = {8, nullptr, nullptr, nullptr, nullptr, nullptr, "+49"};
    struct {
        int card, scanmode;
        const char *pin, *smsc;
    } const cases[] = {
        {1, 3, "1111", ""}, {2, 10, "2222", "+49"}, {3, 77, "2222", ""}, {0, 77, "2222", ""}};
    for (const auto& c : cases) {
        captured said;
        selected_card = c.card;
        g_mobile.scanmode = 77;
        libgsm_set_pincode("2222");
        EXPECT_EQ(cellular_start(0), 0);
        EXPECT_EQ(said.has("fatal error!"), c.scanmode == 77);
        EXPECT_EQ(g_mobile.scanmode, c.scanmode);
        EXPECT_STREQ(g_mobile.pincode, c.pin);
        EXPECT_STREQ(g_mobile.smscenter, c.smsc);
    }
    EXPECT_EQ(cellular_get_pincode(), nullptr);
    EXPECT_EQ(cellular_get_smscenter(), nullptr);
}
