// SPDX-License-Identifier: MIT
// What a host reads of the modem's state.
#include "tests/testing.h"

// The gravest state names the status: with all of the rows set, each hides those behind it.
TEST(Status, TheFirstOfTheBitsThatAreSetNamesIt)
{
    constexpr std::pair<unsigned int, const char*> rows[] = {
        {CELL_STATUS_NO_SIM, "No SIM Card"},
        {CELL_STATUS_SIM_ERROR, "SIM Card Error"},
        {CELL_STATUS_DIAL_REQUIRED, "Dial Number Required"},
        {CELL_STATUS_PIN_ERROR, "Pin Error"},
        {CELL_STATUS_PIN_REQUIRED, "Pin Required"},
        {CELL_STATUS_PUK_REQUIRED, "PUK Required"},
        {CELL_STATUS_SMSC_REQUIRED, "SMS Center Number Required"},
        {CELL_STATUS_USSD_FAILED, "USSD Send Failed"},
        {CELL_STATUS_NO_SIGNAL, "No Signal"},
        {CELL_STATUS_RINGING, "Ringing"},
        {CELL_STATUS_SMS_FAILED, "SMS Send Failed"},
        {CELL_STATUS_READY, "Ready"},
        {CELL_STATUS_UP, "Down"}};
    unsigned int left = ~0u;
    for (const auto& [bit, text] : rows) {
        char name[64] = "";
        libgsm_get_modem_status(name, sizeof name, left);
        EXPECT_STREQ(name, text);
        left &= ~bit;
    }
    char cut[6] = "xxxxx";
    EXPECT_EQ(libgsm_get_modem_status(cut, sizeof cut, CELL_STATUS_RINGING), 7);
    EXPECT_STREQ(cut, "Ringi");
}
