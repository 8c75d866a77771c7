// SPDX-License-Identifier: MIT
// The data interface under a module: where there is a wwan0.
#include "tests/e2e/story.h"

#include <filesystem>

using namespace kelo_story;

namespace
{

class DataInterface : public Story
{
  protected:
    DataInterface() { clear(); }
    ~DataInterface() override { clear(); }
    static void clear()
    {
        EXPECT_EQ(std::system("killall -q quectel-CM; rm -f /tmp/quectel-CM.*"), 0);
    }
    static bool is_up() { return std::system("ifconfig | grep -q wwan0") == 0; }
    static std::string log() { return text_of("/tmp/quectel-CM.log"); }
    static void dial() { ASSERT_EQ(std::system("quectel-CM -s internet >/dev/null 2>&1 &"), 0); }
    static void dial_anew()
    {
        EXPECT_EQ(std::system("killall -q quectel-CM"), 0);
        EXPECT_SOON(log().ends_with("stopped\n"));
        dial();
    }
};

} // namespace

// Catches: a link that outlives its module; a dial that succeeds without one; a link that comes
// back with nobody dialing.
TEST_F(DataInterface, GoesWithTheServiceAndComesByADialAlone)
{
    plug("EC25", {{"reset_ms", "300"}});
    dial();
    EXPECT_SOON(log().ends_with("up\n"));
    EXPECT_TRUE(is_up());
    order("reset"); // as ever, unless told so
    quiet(500ms);
    EXPECT_TRUE(is_up());
    order("wwan wwan0");
    for (const auto& [loss, cure] : {std::pair("reset 400", ""),
                                     {"node bounce 20", ""},
                                     {"reg searching", "reg home"},
                                     {"sim pull", "sim put"},
                                     {"node off", "node on"}}) {
        order(loss);
        EXPECT_SOON(!is_up()) << loss;
        if (*cure) {
            dial_anew();
            EXPECT_SOON(log().ends_with("no service\n")) << loss;
            order(cure);
        }
        EXPECT_SOON(!std::filesystem::exists("/tmp/wwan0.no-service")) << loss;
        quiet(300ms);
        EXPECT_FALSE(is_up()) << loss;
        dial_anew();
        // Not as soon as it is up: ifconfig takes several steps, and the last one raises it again.
        EXPECT_SOON(log().ends_with("up\n")) << loss;
        EXPECT_TRUE(is_up()) << loss;
    }
    EXPECT_EQ(std::system("touch /tmp/quectel-CM.deaf; killall -q quectel-CM"), 0);
    EXPECT_SOON(log().ends_with("deaf to a signal\n"));
    EXPECT_EQ(std::system("rm /tmp/quectel-CM.deaf; touch /tmp/quectel-CM.refuse"), 0);
    EXPECT_TRUE(is_up());
    dial_anew();
    EXPECT_SOON(log().ends_with("refused\n"));
    EXPECT_EQ(std::system("rm /tmp/quectel-CM.refuse"), 0);
    dial_anew();
    EXPECT_SOON(log().ends_with("up\n")); // the interface is, somewhat before
    order("hang"); // nothing comes down by itself, but there is nobody to dial
    quiet(100ms);
    EXPECT_TRUE(is_up());
    dial_anew();
    EXPECT_SOON(log().ends_with("no service\n"));
    modem.stop();
    EXPECT_FALSE(std::filesystem::exists("/tmp/wwan0.no-service"));
}
