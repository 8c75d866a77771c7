// SPDX-License-Identifier: MIT
// bench_latency HOSTS LINES: how long after its bytes are in the kernel a line of the modem has
// woken its host, which waits for kelo_event_fd. So many processes with a host and its modem each,
// so many lines each to a library that is at rest, and as many at any moment. Prints for each line
// which of the two, and microseconds.
#include <kelo/kelo.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <random>
#include <string>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

using micros = std::chrono::duration<double, std::micro>;
const auto now = std::chrono::steady_clock::now;

// A modem that answers OK to all, and nothing else.
struct modem {
    modem() : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        termios raw = {};
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
            std::exit(1);
        port = ptsname(master);
        slave = open(port.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        tcgetattr(slave, &raw);
        cfmakeraw(&raw);
        tcsetattr(slave, TCSANOW, &raw);
    }
    void say(const char* line) const
    {
        const std::string bytes = std::string("\r\n") + line + "\r\n";
        if (write(master, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            std::exit(1);
    }
    void answer()
    {
        char bytes[512];
        for (ssize_t count = 1; (count = read(master, bytes, sizeof bytes)) > 0;)
            for (ssize_t i = 0; i < count; i++)
                if (bytes[i] == '\n') {
                    commands++;
                    say("OK");
                }
    }

    int master, slave = -1;
    std::string port;
    std::atomic<int> commands = 0;
};

// Whether the host is woken within that time.
bool woken(int fd, int limit_ms)
{
    pollfd news = {fd, POLLIN, 0};
    eventfd_t times = 0;
    return poll(&news, 1, limit_ms) == 1 && eventfd_read(fd, &times) == 0;
}

// How far behind an event the next line comes.
struct manner {
    const char* name;
    int least_us, most_us;
};
constexpr manner manners[] = {{"rest", 600000, 800000}, {"any", 0, 1000000}};

// False when a line did not come through.
bool say_lines(const modem& far_end, int fd, int lines, const manner& how, int figures)
{
    std::minstd_rand random(static_cast<unsigned>(getpid()));
    std::uniform_int_distribution<int> gap_us(how.least_us, how.most_us);
    for (int i = 0; i < lines; i++) {
        std::this_thread::sleep_for(std::chrono::microseconds(gap_us(random)));
        while (woken(fd, 0)) // of something else
            continue;
        kelo_clean_sms_received();
        const auto begin = now(); // its bytes are not yet in the kernel: the write counts as well
        far_end.say("+CMTI: \"ME\",3");
        while (kelo_is_sms_received() == 0)
            if (!woken(fd, 5000))
                return false;
        dprintf(figures, "%s %.1f\n", how.name, micros(now() - begin).count());
    }
    return true;
}

int run_host(int figures, int lines)
{
    modem far_end;
    std::thread([&] { far_end.answer(); }).detach();
    cellular_setting settings = {};
    is_quectel = KELO_FAMILY_PLAIN;
    if (kelo_set_port(far_end.port.c_str()) != 0)
        return 1;
    const int fd = kelo_event_fd();
    kelo_init_cellular(&settings, 0);
    // The flow is over when no command has come for three seconds.
    for (int seen = -1; seen != far_end.commands || seen <= 0;) {
        seen = far_end.commands;
        std::this_thread::sleep_for(3s);
    }
    for (const manner& how : manners)
        if (!say_lines(far_end, fd, lines, how, figures))
            return 1;
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    // What the library and the programs that it runs print goes nowhere.
    const int figures = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (figures < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0 ||
        dup2(nowhere, STDERR_FILENO) < 0)
        return 1;
    for (int i = 0; i < std::atoi(argv[1]); i++)
        if (fork() == 0)
            _exit(run_host(figures, std::atoi(argv[2])));
    bool all_well = true;
    for (int status = 0; wait(&status) > 0;)
        all_well &= status == 0;
    return all_well ? 0 : 1;
}
