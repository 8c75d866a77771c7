// The active SIM's settings.
#include "link/init.h"

#include <gtest/gtest.h>
#include <kelo/settings.h>

using namespace kelo;

// The host may write anything into selected_card: no other slot may be read for it.
TEST(SimSelect, TextsOfTheActiveSlotAlone)
{
    cell_sim_config(1)->pin = "1111";
    cell_sim_config(2)->smsc = "+49";
    selected_card = 1;
    EXPECT_STREQ(cellular_get_pincode(), "1111");
    EXPECT_EQ(cellular_get_smscenter(), nullptr);
    selected_card = 2;
    EXPECT_EQ(cellular_get_pincode(), nullptr);
    EXPECT_STREQ(cellular_get_smscenter(), "+49");
    for (const int card : {0, 3, -1, 1 << 30}) {
        selected_card = card;
        EXPECT_EQ(cellular_get_pincode(), nullptr);
        EXPECT_EQ(cellular_get_smscenter(), nullptr);
    }
}
