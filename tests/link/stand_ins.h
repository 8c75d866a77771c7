// Programs of a test's own, ahead of everything else in PATH.
#pragma once

#include "tests/testing.h"

#include <filesystem>
#include <unistd.h>

namespace kelo::test
{

inline std::string content_of(const std::string& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Their folder, ahead in PATH as long as the test runs.
struct bin_folder {
    const std::string path = testing::TempDir() + "bin-" + std::to_string(getpid()) + "/";
    bin_folder()
    {
        std::filesystem::create_directory(path);
        setenv("PATH", (path + ":" + std::getenv("PATH")).c_str(), 1);
    }
    ~bin_folder() { std::filesystem::remove_all(path); }
};

// Puts a shell script in the place of a program.
inline void stand_in(const std::string& name, const std::string& script)
{
    static const bin_folder bin;
    std::ofstream(bin.path + name) << "#!/bin/sh\n" << script << "\n";
    std::filesystem::permissions(bin.path + name, std::filesystem::perms{0755});
}

} // namespace kelo::test
