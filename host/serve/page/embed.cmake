# SPDX-License-Identifier: MIT
# cmake -D OUT=FILE.cpp -P embed.cmake: the files of this folder as a C++ source, see host/serve/page.h.
set(rows "")
foreach(row "/ index.html text/html" "/style.css style.css text/css" "/page.js page.js text/javascript")
  string(REPLACE " " ";" row "${row}")
  list(GET row 0 path)
  list(GET row 1 file)
  list(GET row 2 type)
  file(READ "${CMAKE_CURRENT_LIST_DIR}/${file}" text)
  if(text MATCHES "\\)page\"")
    message(FATAL_ERROR "${file} holds what ends its literal")
  endif()
  string(APPEND rows "    {\"${path}\", R\"page(${text})page\", \"${type}; charset=utf-8\"},\n")
endforeach()
file(WRITE "${OUT}" "// Made from host/serve/page.
#include \"host/serve/page.h\"

namespace kelo_host
{

namespace
{

constexpr page_file files[] = {
${rows}};

} // namespace

const page_file* page_file_at(std::string_view path)
{
    for (const page_file& file : files)
        if (path == file.path)
            return &file;
    return nullptr;
}

} // namespace kelo_host
")
