// SPDX-License-Identifier: MIT
// What is wrong with folders of modem profile files, read the way the library reads them.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kelo_host
{

using folder_list = std::vector<std::filesystem::path>;

// Those of this device, in the order in which they are read: its owner's, where there is one, ahead
// of the one that is installed.
folder_list profile_folders();

struct finding {
    std::filesystem::path folder;
    std::string file; // name without its folder; empty for the folder itself
    int line = 0;     // 0: about the whole file
    std::string text;
};

// Folder by folder, sorted by file and line; empty for clean folders.
std::vector<finding> check_profiles(const folder_list& folders);

// Whether one of their files serves this model.
bool profile_serves(const folder_list& folders, std::string_view model);

// Why no file can bring a module with this MODEL; empty where one can.
std::string model_fault(std::string_view model);

// What the check takes for true of modules and keys, so that a test can hold it to the library.
bool names_module(std::string_view name); // whose flow is known, for LIKE
bool takes_away(std::string_view model);  // what a MODEL may not be
bool has_flow(std::string_view model);    // of its own, whatever the revision is
std::vector<std::string> known_keys();
std::vector<std::string> known_file_keys();
struct key_facts {
    std::string placeholder; // empty for none
    bool reached;            // by a flow of the module
    bool unfilled;           // nothing fills the placeholder on the module
};
key_facts facts_of(std::string_view module, std::string_view key);    // one of known_keys
key_facts facts_of_like(std::string_view like, std::string_view key); // of a file with this LIKE

} // namespace kelo_host
