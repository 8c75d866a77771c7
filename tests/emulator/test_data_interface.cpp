// The data interface under a module, and the stand-in for the dialer program: where there is a
// wwan0.
#include "tests/e2e/story.h"

#include <csignal>
#include <filesystem>
#include <fstream>

using namespace kelo_story;

namespace
{

class DataInterface : public Story
{
  protected:
    DataInterface() { clear(); }
    ~DataInterface() override
    {
        clear();
        std::system("killall -q -15 quectel-CM");
    }
    static void clear()
    {
        for (const char* name : {"log", "delay", "deaf", "refuse", "pid"})
            std::filesystem::remove("/tmp/quectel-CM." + std::string(name));
    }
    static bool is_up() { return std::system("ifconfig | grep -q wwan0") == 0; }
    static std::string log() { return text_of("/tmp/quectel-CM.log"); }
    static void dial() { ASSERT_EQ(std::system("quectel-CM -s internet >/dev/null 2>&1 &"), 0); }
    static void stop_dialer(int number = SIGTERM)
    {
        const std::string line = "killall -q -" + std::to_string(number) + " quectel-CM";
        EXPECT_EQ(std::system(line.c_str()), 0);
    }
    static void dial_anew()
    {
        stop_dialer();
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
    EXPECT_SOON(is_up());
    order("reset"); // as ever, unless told so
    quiet(500ms);
    EXPECT_TRUE(is_up());
    order("wwan wwan0");
    for (const auto& [loss, cure] :
         std::initializer_list<std::pair<const char*, const char*>>{{"reset 400", ""},
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
        EXPECT_SOON(is_up()) << loss;
    }
    order("hang"); // nothing comes down by itself, but there is nobody to dial
    quiet(100ms);
    EXPECT_TRUE(is_up());
    dial_anew();
    EXPECT_SOON(log().ends_with("no service\n"));
    modem.stop();
    EXPECT_FALSE(std::filesystem::exists("/tmp/wwan0.no-service"));
}

TEST_F(DataInterface, DialerIsSlowOrDeafOrRefused)
{
    std::ofstream("/tmp/quectel-CM.delay") << "2\n";
    dial();
    std::this_thread::sleep_for(1200ms);
    EXPECT_FALSE(is_up());
    EXPECT_SOON(is_up());
    std::ofstream("/tmp/quectel-CM.deaf").flush();
    stop_dialer();
    EXPECT_SOON(log().ends_with("deaf to a signal\n"));
    EXPECT_TRUE(is_up());
    std::ofstream("/tmp/quectel-CM.refuse").flush();
    std::filesystem::remove("/tmp/quectel-CM.delay");
    dial();
    EXPECT_SOON(log().find("there are two") != std::string::npos);
    EXPECT_SOON(log().ends_with("refused\n"));
    stop_dialer(SIGKILL);
    std::filesystem::remove("/tmp/quectel-CM.deaf");
    dial();
    EXPECT_SOON(log().ends_with("refused\n"));
    stop_dialer();
    EXPECT_SOON(log().ends_with("stopped\n"));
    EXPECT_EQ(count_of(log(), "there are two"), 1u);
}
