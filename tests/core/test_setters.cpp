// Setters: what each text and its absence does, and which texts never get into the record.
#include "tests/testing.h"

using namespace kelo;
using namespace kelo::test;

namespace
{

std::string stored()
{
    return std::string(g_mobile.apn) + "," + g_mobile.user + "," + g_mobile.password + "," +
           std::to_string(g_mobile.auth) + "," + g_mobile.pincode + "," + g_mobile.smscenter;
}

} // namespace

TEST(Setters, HostileTextsLeaveTheRecordAloneAndNoTextActsPerField)
{
    captured said;
    libgsm_set_apn("apn", "user", "password", 1);
    libgsm_set_pincode("1234");
    libgsm_set_smscenter("+49");
    for (const char* text : {"a\"b", "a\rb", "a\nb", "a\x1a", "\x1b[", "a\tb", "\x7f"}) {
        EXPECT_EQ(libgsm_set_apn(text, "x", "x", 3), -1);
        EXPECT_EQ(libgsm_set_apn("x", text, "x", 3), -1);
        EXPECT_EQ(libgsm_set_apn("x", "x", text, 3), -1);
        EXPECT_EQ(libgsm_set_pincode(text), -1);
        EXPECT_EQ(libgsm_set_smscenter(text), -1);
    }
    for (const char* what : {"apn: ", "user: ", "password: ", "pin: ", "smscenter: "})
        EXPECT_EQ(count_of(said.text(), std::string(what) + "refused"), 7);
    EXPECT_EQ(stored(), "apn,user,password,1,1234,+49");

    libgsm_set_apn(nullptr, nullptr, nullptr, 0);
    libgsm_set_pincode(nullptr);
    libgsm_set_smscenter(nullptr);
    EXPECT_EQ(stored(), ",,,0,1234,");
    libgsm_set_pincode("");
    EXPECT_EQ(stored(), ",,,0,,");

    word_set(mobile, {});
    EXPECT_EQ(libgsm_set_apn("x", "x", "x", 3), -1);
    EXPECT_EQ(libgsm_set_pincode("x"), -1);
    EXPECT_EQ(libgsm_set_smscenter("x"), -1);
    EXPECT_EQ(stored(), ",,,0,,");
}
