#include "tests/api/host_side.h"

#include <kelo/host.h>

#include <cstdarg>

using namespace kelo;

cellular_setting test::full_settings()
{
    return {1, "internet", "someone", "secret", "1234", 2, 4, 60, 1, "192.0.2.1"};
}

int kelo_system(const char* command)
{
    start_settings_copy(); // the library holds no lock here: a host may call it
    test::shell_lines.emplace_back(command);
    return libgsm_set_volte(0);
}

void log_log(int level, const char* file, const char* function, int, const char* format, ...)
{
    char text[256];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    test::logged = std::to_string(level) + " " + file + " " + function + ": " + text;
}
