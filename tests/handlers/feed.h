// SPDX-License-Identifier: MIT
// Feeds lines to handlers and compares what comes of them with tables. Every case runs in a process
// of its own, on a library as just loaded.
#pragma once

#include "tests/testing.h"

#include <memory>

namespace kelo::test
{

inline void set_texts(const char* text, std::initializer_list<char*> fields)
{
    for (char* field : fields)
        std::strcpy(field, text);
}

// One command and its answer. Lines end at '|'.
struct story {
    const char* module; // who said so, empty for nobody
    at_handler handler;
    std::string lines;
    int code;           // the last event that the lines raise, 0 for none
    int done;           // at_done behind them
    std::string record; // what the record then holds, in the words of the table
    int family = 0;
};

// The code of the last event that the lines raise, 0 for none. A line stands in memory of just its
// size, so that a sanitizer sees a read behind it.
inline int feed(at_handler handler, const std::string& answer)
{
    int code = 0;
    std::istringstream all(answer);
    for (std::string line; std::getline(all, line, '|');) {
        const auto copy = std::make_unique<char[]>(line.size() + 1);
        std::memcpy(copy.get(), line.c_str(), line.size() + 1);
        const event* const raised = handler(&g_mobile, copy.get());
        code = raised != nullptr ? raised->code : code;
    }
    return code;
}

void run(const auto& stories, void (*reset)(), std::string (*record)())
{
    for (const story& s : stories) {
        SCOPED_TRACE(s.module + (": " + s.lines));
        is_quectel = s.family;
        g_mobile.reg_seen = 0;
        g_mobile.at_done = 0;
        reset();
        EXPECT_EQ(feed(s.handler, s.lines), s.code);
        EXPECT_EQ(g_mobile.at_done, s.done);
        EXPECT_EQ(record(), s.record);
    }
}

} // namespace kelo::test
