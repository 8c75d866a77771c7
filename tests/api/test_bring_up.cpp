// SPDX-License-Identifier: MIT
// Bring-up: what an init stores and starts, which are refused, and that a stop and a new init leave
// nothing behind.
#include "tests/testing.h"

static std::string logged;

// The host's logger.
void log_log(int level, const char* file, const char* function, int, const char* format, ...)
{
    logged = in_words(level, " ", file, " ", function, ": ", format);
}

static int entries(const char* folder)
{
    const std::filesystem::directory_iterator all(folder);
    return static_cast<int>(std::distance(begin(all), end(all)));
}

struct BringUp : testing::Test {
    void start(const char* apn = "internet")
    {
        cellular_setting settings = {1, "", "", "", "1234", 0, 4, 0, 0, ""};
        text_set(settings.apn, apn);
        kelo_init_cellular(&settings, 9);
    }
    // 1: the dialer thread, 2: with a modem the mobile task, too.
    void expect_running(int threads)
    {
        const auto runs = [&] {
            return !life_get(&lifecycle::cell_start_lock) &&
                   (threads == 2) == !life_get(&lifecycle::mobile_task_stopped) &&
                   entries("/proc/self/task") == at_rest + threads;
        };
        EXPECT_TRUE(wait_until(runs, 5000));
    }
    void stop()
    {
        kelo_deinit_cellular();
        expect_running(0);
    }

    captured said;
    const int at_rest = [] {
        std::thread([] {}).join(); // a sanitizer's own thread comes with the first of ours
        usleep(50000);
        return entries("/proc/self/task");
    }();
};

TEST_F(BringUp, StoresStartsAndRefusesOthers)
{
    std::ofstream("/config/5Gdebug");
    libgsm_mobile_free(&mobile);
    std::vector<std::jthread> hosts;
    for (int i = 0; i < 8; i++)
        hosts.emplace_back([this] { start(); });
    hosts.clear(); // all have come back
    expect_running(1);
    start("second");
    EXPECT_EQ(count_of(said.text(), "init5G: refused, "), 8);
    EXPECT_EQ(logged, "2 init init5G: [Cellular]---> {init5G} lowPower=%d");
    EXPECT_EQ(in_words(g_cellSet.apn, start_settings_copy().apn), "internetinternet");
    EXPECT_EQ(in_words(get_5g_debug(), libgsm_is_low_power()), "19");
    gsm_mobile record = {};
    ASSERT_EQ(kelo_copy_mobile(&record), 1) << "an init brings the record back";
    EXPECT_EQ(in_words(record.apn, record.pincode), "internet1234");

    // A thread of the old run that does not end must not get company, nor hold the host up for
    // ever.
    stop();
    word_set(global_quagga_stop, 0);
    life_set(&lifecycle::mobile_task_stopped, false);
    end_wait_ms = 200;
    start("second");
    EXPECT_TRUE(said.has("refused, threads of the run before have not ended!"));
    EXPECT_STREQ(g_cellSet.apn, "internet");
    life_set(&lifecycle::mobile_task_stopped, true);
    start("second");
    EXPECT_STREQ(g_cellSet.apn, "second");
    expect_running(1);
    stop();
}

// Every round ends where it began: no thread or descriptor is left over. In the last one the host
// clears the word before the threads can have seen it.
TEST_F(BringUp, RoundsOfStopAndInit)
{
    modem_port port(false);
    start();
    expect_running(2);
    const int descriptors = entries("/proc/self/fd");
    for (const bool patient : {true, true, false}) {
        kelo_deinit_cellular();
        if (patient)
            expect_running(0);
        word_set(global_quagga_stop, 0);
        start();
        expect_running(2);
        EXPECT_EQ(entries("/proc/self/fd"), descriptors);
    }
    EXPECT_FALSE(said.has("refused"));
    stop();
    start();
    EXPECT_TRUE(said.has("global_quagga_stop is set"));
    expect_running(0);
}
