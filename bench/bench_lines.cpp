// SPDX-License-Identifier: MIT
// One line of the modem, from the port to what a host asks for: the read, the cut into lines, the
// handler. Each case is checked once before it is timed. Counted beside the time: calls of malloc
// and its like.
#include "handlers/handlers.h"
#include "quietly.h"
#include "sms/sms.h"
#include "task/task.h"
#include <kelo/gps.h>
#include <kelo/sms.h>
#include <kelo/status.h>

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

using namespace kelo;

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
}

namespace
{

long allocations = 0; // one thread works here

} // namespace

extern "C" {
void* malloc(std::size_t size)
{
    allocations++;
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size)
{
    allocations++;
    return __libc_calloc(count, size);
}
void* realloc(void* old, std::size_t size)
{
    allocations++;
    return __libc_realloc(old, size);
}
}

namespace
{

// `take`: what a host has of it, which belongs to the time; false when it is not so. What has to be
// seen afresh each time is wiped ahead of it.
struct line_case {
    const char* name;
    at_handler running; // of the command that is answered, null for a report of the modem's own
    const char* bytes;
    void (*wipe)();
    bool (*take)();
};

constexpr auto nothing = [] {};

bool takes_message()
{
    static kelo_sms message;
    return kelo_take_sms(&message) == 1 && std::strcmp(message.text, "Door 3 open") == 0;
}

bool takes_position()
{
    char position[KELO_GPS_LOCATION_SIZE];
    return kelo_get_gps_location(position) == 1;
}

const line_case cases[] = {
    {"OK", ok_handler, "OK\r\n", [] { g_mobile.at_done = 0; },
     [] { return g_mobile.at_done == 1; }},
    {"CSQ", csq_handler, "+CSQ: 24,99\r\n", [] { g_mobile.rssi = 0; },
     [] { return g_mobile.rssi == 24; }},
    {"CREG", creg_handler, "+CREG: 2,1,\"5A1C\",\"7C4B10D\",7\r\n", [] { g_mobile.reg_stat = 0; },
     [] { return g_mobile.reg_stat == 1; }},
    {"CEREG", creg_handler, "+CEREG: 2,1,\"5A1C\",\"7C4B10D\",7\r\n", [] { g_mobile.reg_stat = 0; },
     [] { return g_mobile.reg_stat == 1; }},
    {"COPS", cops_handler, "+COPS: 0,0,\"Telekom.de\",7\r\n", [] { g_mobile.oper[0] = 0; },
     [] { return g_mobile.oper[0] == 'T'; }},
    {"QENG", servingcell_handler,
     "+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",262,01,1A2F403,214,1300,3,5,5,5A1C,-97,-11,"
     "-66,14,31\r\n",
     [] { g_mobile.rsrp = 0; }, [] { return g_mobile.rsrp == -97; }},
    {"CMTI", nullptr, "+CMTI: \"ME\",3\r\n", [] { kelo_clean_sms_received(); },
     [] { return kelo_is_sms_received() == 1; }},
    {"CMT", nullptr,
     "+CMT: "
     ",30\r\n0791947101670000040D91945111325476F80000425071900321800BC4F75B0E9A81DEF0B21B\r\n",
     nothing, takes_message},
    {"QGPSLOC", nullptr,
     "+QGPSLOC: 061951.0,48.13722,11.57555,1.2,519.0,3,0.0,0.0,0.0,170524,09\r\n",
     [] { g_mobile.gps_on = 1; }, takes_position},
    {"unknown", nullptr, "+VENDOR: 1,\"a line that nobody knows\",46,57\r\n", nothing,
     [] { return true; }},
};

struct {
    at_info command = {};
    int far_end = -1;
} exchange;

// The time of hearing it, in seconds; below 0 when it was not understood.
double hear(const line_case& line)
{
    const std::size_t length = std::strlen(line.bytes);
    exchange.command.handler = line.running;
    line.wipe();
    if (write(exchange.far_end, line.bytes, length) != static_cast<ssize_t>(length))
        return -1;
    const auto begin = std::chrono::steady_clock::now();
    libgsm_check_event(&g_mobile, line.running != nullptr ? &exchange.command : nullptr);
    const bool understood = line.take();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    return understood ? took.count() : -1;
}

void lines(benchmark::State& state, const line_case& line)
{
    for (int i = 0; i < 100; i++) // what is allocated once is there
        if (hear(line) < 0)
            return state.SkipWithError("the line was not understood");
    const long before = allocations;
    for (auto _ : state)
        state.SetIterationTime(hear(line));
    state.counters["allocations"] =
        static_cast<double>(allocations - before) / static_cast<double>(state.iterations());
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0)
        return 1;
    exchange_use(task_hooks);
    g_mobile.fd = ends[0];
    exchange.far_end = ends[1];
    for (const line_case& line : cases)
        benchmark::RegisterBenchmark((std::string("line/") + line.name).c_str(), lines, line)
            ->UseManualTime();
    return run_quietly();
}
