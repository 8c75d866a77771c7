// SPDX-License-Identifier: MIT
// What is wrong with a folder of modem profile files, read the way the library reads them.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
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

// The models that the files of a folder are for, the values of their MODULE lines.
std::vector<std::string> profile_modules(const std::filesystem::path& folder);

// What the check takes for true of the keys, so that a test can hold it to the library.
std::vector<std::string> known_keys();
struct key_facts {
    std::string placeholder; // empty for none
    bool reached;            // by a flow of the module
    bool unfilled;           // nothing fills the placeholder on the module
};
key_facts facts_of(std::string_view module, std::string_view key); // one of known_keys

} // namespace kelo_host
