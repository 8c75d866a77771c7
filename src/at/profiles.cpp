// SPDX-License-Identifier: MIT
// Modem profile files: the command texts of each module family.
//
// They are read on the thread that calls libgsm_init, before any task runs, and the records do not
// change afterwards.
#include "at/at.h"

#include "support/diag.h"
#include "support/owned.h"
#include "support/text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelo
{

list_head cfg_file_list = LIST_HEAD_INIT(cfg_file_list);

namespace
{

constexpr std::size_t line_size = 256;

// Far above what a device needs. A folder that something else fills must not take the host's
// memory.
constexpr int file_limit = 256;
constexpr long size_limit = 256 * 1024;

constexpr char arrow[] = "=>";
constexpr std::size_t family_length = 4; // of model texts that share a profile

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

// A profile saved with CR LF line ends leaves a CR behind each value. In that of a command it stays
// and does no harm: it is sent without.
void cut_carriage_return(char* text)
{
    const std::size_t length = std::strlen(text);
    if (length > 0 && text[length - 1] == '\r')
        text[length - 1] = '\0';
}

bool is_about_the_file(const char* name)
{
    return std::strcmp(name, model_key_name) == 0 || std::strcmp(name, like_key_name) == 0;
}

bool is_sendable(const char* value)
{
    char room[line_size];
    text_set(room, value);
    cut_carriage_return(room);
    return !text_has_control(room);
}

void set_module(cfg_file* cfg, text_pointer name)
{
    if (name == nullptr)
        return;
    if (cfg->module != nullptr)
        diag_at(plain, __func__, "dual module item '%s' vs '%s'\n", name.get(), cfg->module);
    std::free(cfg->module);
    cfg->module = name.release();
}

void add_item(cfg_file* cfg, const char* name, const char* value)
{
    const std::size_t name_size = std::strlen(name) + 1, value_size = std::strlen(value) + 1;
    const std::size_t size = cfg->items_size + name_size + value_size;
    auto* const items = static_cast<char*>(std::realloc(cfg->items, size));
    if (items == nullptr) {
        memory_refused(size);
        return;
    }
    std::memcpy(items + cfg->items_size, name, name_size);
    std::memcpy(items + cfg->items_size + name_size, value, value_size);
    cfg->items = items;
    cfg->items_size = size;
}

// One line of the file, terminated and not longer than a line may be. `number` counts from 1.
void parse_line(cfg_file* cfg, char* line, std::size_t length, int number)
{
    if (std::memchr(line, '\0', length) != nullptr) {
        diag_plain("%s:%d the line holds a NUL and is passed over\n", cfg->path, number);
        return;
    }
    trim_tail(line, length);
    char* const split = text_find(line, arrow);
    if (split == nullptr)
        return;
    if (split == line) {
        diag_plain("%s:%d the line has no name and is passed over\n", cfg->path, number);
        return;
    }
    char* const value = split + std::strlen(arrow);
    if (!is_sendable(value)) {
        diag_plain("%s:%d the value holds a control character, the line is passed over\n",
                   cfg->path, number);
        return;
    }
    split[-1] = '\0';
    trim_copy(value, value);
    if (text_begins(line, module_key_name)) {
        set_module(cfg, text_duplicate(value));
        return;
    }
    trim_tail(line, std::strlen(line));
    trim_copy(line, line);
    if (is_about_the_file(line))
        cut_carriage_return(value);
    add_item(cfg, line, value);
}

// The next line with its line feed, or as much of it as fits; 0 at the end. Unlike fgets it tells
// how long a line with a NUL in it is.
std::size_t read_line(std::FILE* file, char (&line)[line_size])
{
    std::size_t length = 0;
    int c = 0;
    while (length + 1 < sizeof line && (c = std::getc(file)) != EOF) {
        line[length++] = static_cast<char>(c);
        if (c == '\n')
            break;
    }
    line[length] = '\0';
    return length;
}

// Profiles are regular files. Whatever else bears such a name must neither hold up the start, as a
// named pipe would, nor be read without an end.
file_pointer open_profile(const char* path)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
        return nullptr;
    struct stat about = {};
    std::FILE* file = nullptr;
    if (fstat(fd, &about) == 0 && S_ISREG(about.st_mode))
        file = fdopen(fd, "re");
    if (file == nullptr) {
        close(fd);
        return nullptr;
    }
    return file_pointer(file);
}

bool is_known(const char* path)
{
    list_head* node = nullptr;
    list_for_each(node, &cfg_file_list)
    {
        if (std::strcmp(list_entry(node, cfg_file, node)->path, path) == 0)
            return true;
    }
    return false;
}

// The length of a module name up to the CR that a line end of CR LF leaves.
std::size_t module_length(const char* module)
{
    return std::strcspn(module, "\r");
}

bool serves(const char* module, const char* model)
{
    const std::size_t length = module_length(module);
    const std::size_t model_length = std::strlen(model);
    if (length == model_length && std::memcmp(module, model, length) == 0)
        return true;
    return length >= family_length && model_length >= family_length &&
           std::memcmp(module, model, family_length) == 0;
}

} // namespace

void trim_tail(char* text, std::size_t length)
{
    while (length > 0 && (is_blank(text[length - 1]) || text[length - 1] == '\n'))
        text[--length] = '\0';
}

void trim_copy(char* destination, const char* source)
{
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): its texts are terminated
    while (is_blank(*source))
        source++;
    std::memmove(destination, source, std::strlen(source) + 1);
}

int cfg_file_add(const char* folder, const char* name)
{
    const std::size_t length = std::strlen(folder) + 1 + std::strlen(name);
    text_pointer path = text_room(length);
    if (path == nullptr)
        return -1;
    std::snprintf(path.get(), length + 1, "%s/%s", folder, name);
    if (is_known(path.get()))
        return 0;
    auto* const cfg = static_cast<cfg_file*>(memory_for(sizeof(cfg_file)));
    if (cfg == nullptr)
        return -1;
    cfg->path = path.release();
    list_add_tail(&cfg->node, &cfg_file_list);
    return 0;
}

int parse_cfg_file(cfg_file* cfg)
{
    const file_pointer file = open_profile(cfg->path);
    if (file == nullptr)
        return -1;
    char line[line_size];
    int number = 1;
    long total = 0;
    for (std::size_t length = 0; (length = read_line(file.get(), line)) > 0;) {
        total += static_cast<long>(length);
        if (total > size_limit) {
            diag_plain("%s:%d the file is too long, the rest is passed over\n", cfg->path, number);
            break;
        }
        const bool whole = line[length - 1] == '\n';
        parse_line(cfg, line, length, number);
        number += whole;
    }
    return 0;
}

bool cfg_next_item(const cfg_file* cfg, std::size_t& at, cfg_item& item)
{
    if (at >= cfg->items_size)
        return false;
    item.name = cfg->items + at;
    at += std::strlen(item.name) + 1;
    item.value = cfg->items + at;
    at += std::strlen(item.value) + 1;
    return true;
}

const char* cfg_value(const cfg_file* cfg, const char* key)
{
    cfg_item item;
    for (std::size_t at = 0; cfg_next_item(cfg, at, item);)
        if (std::strcmp(item.name, key) == 0)
            return item.value;
    return nullptr;
}

int search_cfg_file(const char* folder)
{
    struct stat about = {};
    if (folder == nullptr || stat(folder, &about) != 0) {
        diag_at(plain, __func__, "no such file or directory!\n");
        return -1;
    }
    folder_pointer entries(opendir(folder));
    if (entries == nullptr) {
        diag_at(plain, __func__, "failed to open directory(%s)!\n", folder);
        return -1;
    }
    int count = 0;
    for (const dirent* entry = nullptr; (entry = readdir(entries.get())) != nullptr;) {
        const char* const name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0 || !text_has(name, ".conf"))
            continue;
        if (++count > file_limit) {
            diag_at(plain, __func__, "too many files in '%s', the rest is passed over\n", folder);
            break;
        }
        cfg_file_add(folder, name);
    }
    entries.reset(); // its room is used again by what is read
    list_head* node = nullptr;
    list_for_each(node, &cfg_file_list)
    {
        auto* const cfg = list_entry(node, cfg_file, node);
        const bool read_already = cfg->module != nullptr || cfg->items != nullptr;
        if (!read_already && parse_cfg_file(cfg) != 0)
            diag_at(plain, __func__, "failed to open file '%s'\n", cfg->path);
    }
    return 0;
}

int search_cfg_folders()
{
    struct stat about = {};
    if (stat(KELO_OWN_PROFILE_DIR, &about) == 0)
        search_cfg_file(KELO_OWN_PROFILE_DIR);
    else if (errno != ENOENT)
        diag_plain("%s: %s\n", KELO_OWN_PROFILE_DIR, std::strerror(errno));
    return search_cfg_file(KELO_PROFILE_DIR);
}

cfg_file* cfg_file_find(const char* model)
{
    if (model == nullptr)
        return nullptr;
    list_head* node = nullptr;
    list_for_each(node, &cfg_file_list)
    {
        auto* const cfg = list_entry(node, cfg_file, node);
        if (cfg->module != nullptr && serves(cfg->module, model))
            return cfg;
    }
    return nullptr;
}

} // namespace kelo
