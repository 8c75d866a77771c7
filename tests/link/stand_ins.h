// Programs of a test's own, ahead of everything else in PATH.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kelo::test
{

inline std::string content_of(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Puts a shell script in the place of a program. It finds itself at /tmp/bin/NAME.
inline void stand_in(const std::string& name, const std::string& script)
{
    const std::string bin = "/tmp/bin";
    if (std::filesystem::create_directory(bin))
        setenv("PATH", (bin + ":" + std::getenv("PATH")).c_str(), 1);
    const std::string place = bin + "/" + name;
    std::ofstream(place) << "#!/bin/sh\n" << script << "\n";
    std::filesystem::permissions(place, std::filesystem::perms{0755});
}

} // namespace kelo::test
