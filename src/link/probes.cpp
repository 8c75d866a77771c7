// SPDX-License-Identifier: MIT
// The link probes: is the data interface listed, does a ping get through it. Each runs one program
// and reads what it prints; nothing but that text decides.
#include "link/link.h"

#include "support/diag.h"
#include "support/scan.h"
#include "support/shell.h"
#include "support/text.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kelo
{

namespace
{

// ifconfig asks the kernel and prints; one that takes longer hangs.
constexpr int ifconfig_limit_ms = 5000;

// Beyond its wait for the reply a ping may have to look up its target.
constexpr int ping_slack_ms = 10000;

constexpr const char* summary_mark = " packets transmitted,";

// Said once, or a refused target would fill the log, five lines a second.
int refusal_said = 0;

// Whether a text names an interface, and can be nothing else to a shell or a program.
bool names_interface(const char* text)
{
    constexpr std::size_t longest = 15; // the kernel's limit
    constexpr const char* letters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._:-@";
    if (text == nullptr || text[0] == '\0' || text[0] == '-')
        return false;
    const std::size_t length = std::strspn(text, letters);
    return text[length] == '\0' && length <= longest;
}

// Builds the ping command. An empty target stays out, as ping's own usage error then says.
bool build_ping(char* command, std::size_t size, const char* interface, const char* target,
                int wait)
{
    const int length =
        std::snprintf(command, size, "ping -c 1 -I %s -s 56 -W %d ", interface, wait);
    return length > 0 && static_cast<std::size_t>(length) < size && target[0] != '-' &&
           !text_has_control(target) && (target[0] == '\0' || shell_quote(command, size, target));
}

// Whether the report of one interface holds an address line. Both forms of ifconfig, "inet addr:1"
// and "inet 1", go through the needle.
int has_address(const char* interface, const char* needle)
{
    if (!names_interface(interface))
        return 0;
    char command[64];
    char line[200];
    std::snprintf(command, sizeof command, "ifconfig %s", interface);
    return shell_find(command, needle, ifconfig_limit_ms, line, sizeof line) ? 1 : 0;
}

} // namespace

// iputils has "1 packets transmitted, 1 received, ", busybox "…, 1 packets received, ".
ping_summary ping_summary_read(char* line)
{
    ping_summary summary;
    char* const mark = text_find(line, summary_mark);
    if (mark == nullptr)
        return summary;
    const char* const behind = text_skip(mark, std::strlen(summary_mark) + 1);
    *mark = '\0';
    scan(line, dec(summary.transmitted));
    if (text_has(behind, " received"))
        scan(behind, dec(summary.received));
    if (summary.received < 0)
        summary.received = 0;
    return summary;
}

int link_ping(const char* interface, const char* target, int wait)
{
    if (interface == nullptr || target == nullptr)
        return 0;
    if (start_ping_settings().enable == 0)
        return 1;
    char command[256];
    if (!names_interface(interface) ||
        !build_ping(command, sizeof command, interface, target, wait)) {
        if (word_take(refusal_said))
            diag_at(plain, __func__, "refused to ping '%s' through '%s'\n", target, interface);
        return 0;
    }
    word_set(refusal_said, 0);
    diag_debug("[%s] %s\n", interface, command);

    char line[512];
    ping_summary summary;
    if (shell_find(command, summary_mark, wait * 1000 + ping_slack_ms, line, sizeof line))
        summary = ping_summary_read(line);
    const std::int64_t sent = summary.transmitted;
    const std::int64_t lost = sent - summary.received;
    diag_debug("[%s] --- %s ping statistics ---\n", interface, target);
    diag_debug("[%s] %ld packets transmitted, %ld received, %d%% packet loss\n", interface,
               static_cast<long>(sent), static_cast<long>(summary.received),
               static_cast<int>(sent != 0 ? lost * 100 / sent : 100));
    diag_debug("[%s] --- Link is %s ---\n", interface, summary.received != 0 ? "Up" : "Down");
    return summary.received != 0 ? 1 : 0;
}

int interface_present(const char* interface)
{
    if (!names_interface(interface))
        return 0;
    char command[64];
    char line[128];
    std::snprintf(command, sizeof command, "ifconfig | grep %s", interface);
    return shell_find(command, "wwan0", ifconfig_limit_ms, line, sizeof line) ? 1 : 0;
}

namespace
{

struct addresses_release {
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

bool is_far_address(const ifaddrs& entry)
{
    if (entry.ifa_addr == nullptr)
        return false;
    if (entry.ifa_addr->sa_family == AF_INET)
        return true;
    const auto* const address = reinterpret_cast<const sockaddr_in6*>(entry.ifa_addr);
    return entry.ifa_addr->sa_family == AF_INET6 && !IN6_IS_ADDR_LINKLOCAL(&address->sin6_addr);
}

} // namespace

// Asked several times a second: the list of all addresses would be much to read for one flag.
bool interface_up(const char* interface)
{
    ifreq request = {};
    text_set(request.ifr_name, interface);
    const int any = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (any < 0)
        return false;
    const bool there = ioctl(any, SIOCGIFFLAGS, &request) == 0;
    close(any);
    return there && (request.ifr_flags & IFF_UP) != 0;
}

bool interface_addressed(const char* interface)
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return false;
    const std::unique_ptr<ifaddrs, addresses_release> held(list);
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next)
        if (std::strcmp(entry->ifa_name, interface) == 0 && is_far_address(*entry))
            return true;
    return false;
}

} // namespace kelo

int ipv6_is_up(const char* interface)
{
    return kelo::has_address(interface, "inet6 ");
}

int ip_net_is_up(const char* interface)
{
    return kelo::has_address(interface, "inet ");
}
