// SPDX-License-Identifier: MIT
#include "tests/testing.h"

#include <kelo/keeper.h>
#include <kelo/trace.h>

namespace
{

struct tracer {
    std::vector<std::string> seen;
    std::atomic<int> inside = 0;
    std::size_t most = 20;
    bool answers = false;

    tracer() { kelo_set_port_trace(take, this); }
    ~tracer() { kelo_set_port_trace(nullptr, nullptr); }
    static void take(const kelo_port_event* event, void* argument)
    {
        constexpr const char* names[] = {"open ", "close ", "gone ", "> ", "< "};
        auto& self = *static_cast<tracer*>(argument);
        EXPECT_EQ(self.inside++, 0) << "two calls at once";
        if (event->lost != 0)
            self.seen.push_back(in_words("lost ", event->lost));
        self.seen.push_back(names[event->what] + std::string(event->bytes, event->length));
        if (self.answers && self.seen.size() < self.most) {
            kelo_set_port(""); // takes locks
            libgsm_send_at("AT");
        }
        self.inside--;
    }
};

} // namespace

// A recorder that misses bytes, or gets an echo ahead of its command, tells of a modem that was
// not.
TEST(PortTrace, GivesEveryByteInOrder)
{
    tracer host;
    {
        modem_port port;
        libgsm_send_at("AT+CSQ");
        hear(port, nullptr, std::string_view("AT+CSQ\r\r\n+CSQ: 2\0", 17));
        port_hung_up();
    }
    const std::vector<std::string> all = {"open /dev/ttyUSB2", "> AT+CSQ\r\n",
                                          "< " + std::string("AT+CSQ\r\r\n+CSQ: 2\0", 17),
                                          "gone /dev/ttyUSB2", "close /dev/ttyUSB2"};
    EXPECT_EQ(host.seen, all);
}

// Under a lock nothing is handed over: the callback may call what takes it.
TEST(PortTrace, WaitsForTheLockAndDropsWhatIsTooMuch)
{
    modem_port port;
    tracer host;
    host.answers = true;
    {
        const lock_scope<settings_lock> hold;
        libgsm_send_at("AT+ONE");
        EXPECT_TRUE(host.seen.empty());
    }
    port_trace_deliver();
    EXPECT_EQ(host.seen.size(), host.most) << "what the callback writes is traced as well";
    port.heard(0);

    host.answers = false;
    host.seen.clear();
    port_trace_pause(true);
    const std::string path(100000, 'x');
    for (int i = 0; i < 8; i++)
        port_trace(KELO_PORT_OPENED, path.c_str());
    port_trace_pause(false);
    port_trace_deliver();
    port_trace(KELO_PORT_CLOSED, "end");
    port_trace_deliver();
    ASSERT_EQ(host.seen.size(), 7u);
    EXPECT_EQ(host.seen[5], "lost 3");
    EXPECT_EQ(host.seen[6], "close end");
}

// Commands of many threads beside the reads: each event once, one call at a time.
TEST(PortTrace, OneCallAtATime)
{
    modem_port port;
    tracer host;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; i++)
        threads.emplace_back([i] {
            for (int n = 0; n < 50; n++)
                libgsm_send_at(in_words("AT+N=", i, ",", n).c_str());
        });
    const std::string heard = port.heard(300);
    for (std::thread& one : threads)
        one.join();
    EXPECT_TRUE(wait_until(
        [&] {
            port_trace_deliver();
            return host.seen.size() == 200;
        },
        2000));
    std::string told;
    for (const std::string& one : host.seen)
        told += one.substr(2);
    EXPECT_EQ(told, heard + port.heard(0));
}
