// SPDX-License-Identifier: MIT
// hammer SOCKET SECONDS: a hundred clients that ask and come again, each as fast as it can. Prints
// how many answers they had, and fails when one had none.
#include "host/ctl/client.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

int main(int, char** argv)
{
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[2]));
    std::atomic<int> answered = 0, refused = 0, silent = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < 100; i++)
        clients.emplace_back([&] {
            while (std::chrono::steady_clock::now() < until) {
                kelo_ctl::client host;
                if (!host.open(argv[1]).empty())
                    continue;
                host.ask("{\"do\":\"status\"}\n{\"do\":\"figures\"}\nrubbish");
                const auto line = host.next_line(10);
                (!line ? silent : line->starts_with("{\"ok\":true") ? answered : refused)++;
            }
        });
    for (std::thread& one : clients)
        one.join();
    std::printf("%d answered, %d refused, %d silent\n", answered.load(), refused.load(),
                silent.load());
    return answered > 0 && silent == 0 ? 0 : 1;
}
