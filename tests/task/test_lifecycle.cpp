// SPDX-License-Identifier: MIT
#include "tests/testing.h"

// A refused call changes nothing; a second set of first rows would send everything twice.
TEST(Lifecycle, RefusedCallsChangeNothing)
{
    gsm_dchan_status = CELL_STATUS_READY;
    cell_reload_flag_set();
    life.cell_start_lock = true;
    EXPECT_EQ(cellular_start(0) + cellular_stop() + cellular_reload(), -3);
    life.cell_start_lock = false;
    cell_repower_lock = 1;
    EXPECT_EQ(cellular_reload(), -1);
    EXPECT_EQ(gsm_dchan_status, CELL_STATUS_READY);
    EXPECT_EQ(in_words(cell_reload_flag, life.cell_start_lock), "10");
}

// After the record is forgotten, every call that needs one refuses instead of reading a null; there
// is no device, and a stop ahead of any start does not wait.
TEST(Lifecycle, WithoutARecordCallsRefuse)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(cellular_stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    gsm_mobile* place = &g_mobile;
    gsm_mobile copy = {};
    EXPECT_EQ(in_words(kelo_copy_mobile(&copy), kelo_copy_mobile(nullptr)), "10");
    libgsm_mobile_free(nullptr);
    libgsm_mobile_free(&place);
    EXPECT_EQ(place, nullptr);
    EXPECT_EQ(kelo_copy_mobile(&copy), 0);
    EXPECT_EQ(in_words(cellular_reload(), libgsm_send_at("AT"), libgsm_set_pincode("1234"),
                       libgsm_get_qeng_net_stem()),
              "-1-1-1-1");
    EXPECT_EQ(libgsm_get_network_info(), nullptr);
    EXPECT_EQ(corvel_mobile_dchannel(nullptr), nullptr);
    for (int round = 0; round < 2; round++) { // the second one with a record
        EXPECT_EQ(cellular_start(0), 0);
        EXPECT_EQ(in_words(life.mobile_task_stopped, cellular_at_is_ready()), "10");
        EXPECT_EQ(cellular_stop() + cellular_gsm_init(0), 0);
    }
    EXPECT_EQ(kelo_copy_mobile(&copy), 1);
}

// Two tasks on one port would each read half of every answer.
TEST(Lifecycle, OfTwoStartsAtOnceOneIsRefused)
{
    modem_port port(false);
    cellular_gsm_init(0);
    int result = 0;
    std::thread other([&result] { result = cellular_start(0); });
    const int own_result = cellular_start(0);
    other.join();
    EXPECT_EQ(result + own_result, -1);
    EXPECT_EQ(cellular_start(0), -1); // over a running task
    EXPECT_EQ(cellular_stop(), 0);
    EXPECT_EQ(in_words(life.mobile_task_stopped, port_descriptor(&g_mobile)), "1-1");
    EXPECT_EQ(cellular_at_is_ready(), 1);
}

// Catches: a child of the host that waits for ever for a lock of a thread that it does not have, or
// talks to the modem beside its parent.
TEST(Lifecycle, AForkActsOnNothingAndWaitsForNobody)
{
    modem_port port(false);
    captured said;
    cellular_gsm_init(0);
    ASSERT_EQ(cellular_start(0), 0);
    std::atomic<int> stage = 0; // another thread holds the locks while this one forks
    std::thread holder([&] {
        const lock_scope<settings_lock> settings;
        const lock_scope<flow_lock> flow;
        const lock_scope<record_lock> record;
        stage = 1;
        wait_until([&] { return stage == 2; });
    });
    ASSERT_TRUE(wait_until([&] { return stage == 1; }));
    const pid_t child = fork();
    if (child == 0) {
        alarm(5);
        gsm_mobile copy;
        const cellular_setting off = {};
        const bool read = kelo_copy_mobile(&copy) == 1;
        const int acted = cellular_start(0) + cellular_stop() + cellular_reload() +
                          libgsm_send_at("AT+FORK") +
                          sms_outbox_enq(0, "tag", "+49123", 20, "0011");
        kelo_init_cellular(&off, 0);
        _exit(read && acted == -5 && kelo_set_cellular(&off) == 0 ? 0 : 1);
    }
    stage = 2;
    holder.join();
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(said.has("refused, the modem belongs to the process"));
    EXPECT_EQ(cellular_stop(), 0);
    EXPECT_EQ(count_of(port.heard(), "AT+FORK"), 0);
}
