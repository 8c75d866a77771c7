// Programs of a test's own, ahead of everything else in PATH.
#pragma once

#include "testing.h"

#include <filesystem>

namespace kelo::test
{

inline std::string content_of(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Puts a shell script in the place of a program.
inline void stand_in(const std::string& name, const std::string& script)
{
    const std::string bin = "/tmp/bin/";
    if (std::filesystem::create_directory(bin))
        setenv("PATH", (bin + ":" + std::getenv("PATH")).c_str(), 1);
    std::ofstream(bin + name) << "#!/bin/sh\n" << script << "\n";
    std::filesystem::permissions(bin + name, std::filesystem::perms{0755});
}

} // namespace kelo::test
