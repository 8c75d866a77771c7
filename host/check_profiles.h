// What is wrong with a folder of modem profile files, read the way the library reads them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelo_host
{

struct finding {
    std::string file; // name without its folder; empty for the folder itself
    int line = 0;     // 0: about the whole file
    std::string text;
};

// Sorted by file and line; empty for a clean folder.
std::vector<finding> check_profiles(const std::filesystem::path& folder);

} // namespace kelo_host
