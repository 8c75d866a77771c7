// SPDX-License-Identifier: MIT
// The files of the page, as they stand in host/serve/page, inside this program.
#pragma once

#include <string_view>

namespace kelo_host
{

struct page_file {
    std::string_view path, bytes;
    const char* type;
};
const page_file* page_file_at(std::string_view path); // or null

} // namespace kelo_host
