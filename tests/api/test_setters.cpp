// Setters: what each text and its absence does, and which texts never get into the record.
#include "api/api.h"

#include <gtest/gtest.h>

#include <string>

using namespace kelo;

namespace
{

const char* const hostile[] = {"a\"b", "a\rb", "a\nb", "a\x1a", "\x1b[", "a\tb", "\x7f"};

void fill_record()
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(libgsm_set_apn("apn", "user", "password", 1), 0);
    EXPECT_EQ(libgsm_set_pincode("1234"), 0);
    EXPECT_EQ(libgsm_set_smscenter("+49"), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[4G]---> apn = apn \n");
}

} // namespace

TEST(Setters, NoTextActsPerField)
{
    fill_record();
    EXPECT_EQ(libgsm_set_pincode(nullptr), 0);
    EXPECT_STREQ(g_mobile.pincode, "1234");
    EXPECT_EQ(libgsm_set_pincode(""), 0);
    EXPECT_STREQ(g_mobile.pincode, "");
    EXPECT_EQ(libgsm_set_smscenter(nullptr), 0);
    EXPECT_STREQ(g_mobile.smscenter, "");
    testing::internal::CaptureStdout();
    EXPECT_EQ(libgsm_set_apn(nullptr, nullptr, nullptr, 0), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[4G]---> apn is NULL \n");
    EXPECT_STREQ(g_mobile.apn, "");
    EXPECT_STREQ(g_mobile.user, "");
    EXPECT_STREQ(g_mobile.password, "");
    EXPECT_EQ(g_mobile.auth, 0);
}

TEST(Setters, HostileTextsLeaveTheRecordAlone)
{
    fill_record();
    for (const char* text : hostile) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(libgsm_set_apn(text, "x", "x", 3), -1);
        EXPECT_EQ(libgsm_set_apn("x", text, "x", 3), -1);
        EXPECT_EQ(libgsm_set_apn("x", "x", text, 3), -1);
        EXPECT_EQ(libgsm_set_pincode(text), -1);
        EXPECT_EQ(libgsm_set_smscenter(text), -1);
        const std::string said = testing::internal::GetCapturedStdout();
        for (const char* what : {"apn: ", "user: ", "password: ", "pin: ", "smscenter: "})
            EXPECT_NE(said.find(std::string(what) + "refused"), std::string::npos) << said;
    }
    EXPECT_STREQ(g_mobile.apn, "apn");
    EXPECT_STREQ(g_mobile.user, "user");
    EXPECT_STREQ(g_mobile.password, "password");
    EXPECT_STREQ(g_mobile.pincode, "1234");
    EXPECT_STREQ(g_mobile.smscenter, "+49");
    EXPECT_EQ(g_mobile.auth, 1);
}

TEST(Setters, WithoutARecordNothingHappens)
{
    fill_record();
    gsm_mobile* place = &g_mobile;
    libgsm_mobile_free(&place);
    if (modem_record() != nullptr)
        libgsm_mobile_free(&mobile);
    EXPECT_EQ(libgsm_set_apn("x", "x", "x", 3), -1);
    EXPECT_EQ(libgsm_set_pincode("x"), -1);
    EXPECT_EQ(libgsm_set_smscenter(nullptr), -1);
    EXPECT_EQ(libgsm_set_simslot(2), -1);
    EXPECT_STREQ(g_mobile.apn, "apn");
    EXPECT_STREQ(g_mobile.smscenter, "+49");
    EXPECT_EQ(g_mobile.simslot, 0);
    word_set(mobile, &g_mobile);
}
