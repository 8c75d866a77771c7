// SPDX-License-Identifier: MIT
// A profile file and the custom commands of a host, both of any content: they are read, the flow
// lists are made of them, and every command is filled in as for sending. What may come of it: no
// control character in a command, no text beyond its field, no list without an end.

#include "at/at.h"
#include "modules/modules.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <kelo/settings.h>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

using namespace kelo;

namespace
{

constexpr std::size_t line_limit = 256; // of a profile

void require(bool holds)
{
    if (!holds)
        std::abort();
}

bool sendable(const char* text)
{
    for (; *text != '\0'; text++)
        if (static_cast<unsigned char>(*text) < ' ' && *text != '\t')
            return false;
    return true;
}

void forget_profiles()
{
    while (!list_empty(&cfg_file_list)) {
        auto* const cfg = list_entry(cfg_file_list.next, cfg_file, node);
        list_del(&cfg->node);
        std::free(cfg->items);
        std::free(cfg->path);
        std::free(cfg->module);
        std::free(cfg);
    }
}

// Read as the library reads a folder of one file.
cfg_file* read_profile(const std::string& text)
{
    static const int file = memfd_create("profile", 0);
    require(file >= 0 && ftruncate(file, 0) == 0 &&
            pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    require(cfg_file_add("/proc/self/fd", std::to_string(file).c_str()) == 0);
    auto* const cfg = list_entry(cfg_file_list.next, cfg_file, node);
    require(parse_cfg_file(cfg) == 0);
    cfg_item item;
    std::size_t at = 0;
    while (cfg_next_item(cfg, at, item)) {
        require(std::strlen(item.name) < line_limit && std::strlen(item.value) < line_limit);
        require(std::strchr(item.name, '\n') == nullptr);
    }
    require(at == cfg->items_size);
    if (cfg->module != nullptr)
        require(cfg_file_find(cfg->module) == cfg);
    modules_of_files();
    if (cfg->model != nullptr)
        require(module_file(cfg->model) == cfg && sendable(cfg->model) &&
                std::strlen(cfg->model) < sizeof g_mobile.model && module_is_listed(cfg->like) &&
                module_named_with(cfg->model) == nullptr);
    return cfg;
}

void fill_record(FuzzedDataProvider& data)
{
    static constexpr const char* models[] = {"EC25",    "UC20",   "U9300C",   "LE910",
                                             "EC25V-A", "RM500Q", "MH5000-31"};
    gsm_mobile& r = g_mobile;
    std::snprintf(r.model, sizeof r.model, "%s", data.PickValueInArray(models));
    r.scanmode = data.ConsumeIntegral<std::int8_t>();
    r.simslot = data.ConsumeIntegralInRange(0, 2);
    r.volte = data.ConsumeIntegral<int>();
    r.last_event = data.ConsumeBool() ? GSM_EVENT_PIN_REQUIRED : 0;
    libgsm_set_apn(data.ConsumeRandomLengthString(140).c_str(),
                   data.ConsumeRandomLengthString(140).c_str(),
                   data.ConsumeRandomLengthString(140).c_str(), data.ConsumeIntegral<int>());
    libgsm_set_pincode(data.ConsumeRandomLengthString(70).c_str());
}

struct custom_item {
    at_config_item item;
    std::string text;
};

void add_custom(FuzzedDataProvider& data, std::vector<std::unique_ptr<custom_item>>& items)
{
    while (data.remaining_bytes() > 0 && items.size() < 16) {
        auto one = std::make_unique<custom_item>();
        at_config_item& item = one->item;
        item.sim = data.ConsumeIntegralInRange(0, 3);
        item.flow = data.ConsumeIntegralInRange(0, 3);
        item.id = data.ConsumeBool() ? data.ConsumeIntegralInRange(1, 110) : INT_MAX;
        item.ignore = data.ConsumeBool();
        item.timeout = data.ConsumeIntegral<int>();
        item.seq =
            data.ConsumeBool() ? data.ConsumeIntegralInRange(-5, 120) : data.ConsumeIntegral<int>();
        one->text = data.ConsumeRandomLengthString(300);
        item.cmd = one->text.data();
        list_add_tail(&item.node, &cell_at_config_h);
        items.push_back(std::move(one));
    }
}

// As the task walks it, without a port.
void walk(at_list* list)
{
    std::size_t nodes = 0, picked = 0;
    list_head* node = nullptr;
    list_for_each(node, list)
    {
        nodes++;
        at_info* const at = at_of(node);
        require(at->handler != nullptr && at->timeout >= 0);
        require(at->custom_cmd == nullptr || sendable(at->custom_cmd));
        if (at->pre_treat != nullptr)
            at->pre_treat(&g_mobile, at);
        require(at->cmd == nullptr || sendable(at->cmd));
    }
    const lock_scope<flow_lock> hold;
    at_seq_cursor = 0;
    while (at_list_next(list) != nullptr)
        require(++picked <= nodes);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setenv("PATH", "/nowhere", 1);
    return std::freopen("/dev/null", "w", stdout) == nullptr ? -1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    cellular_gsm_init(0); // the record
    FuzzedDataProvider data(bytes, size);
    // The file comes first, so that a real profile is an input as it stands.
    const cfg_file* const cfg = read_profile(data.ConsumeRandomLengthString(1 << 16));
    fill_record(data);
    std::vector<std::unique_ptr<custom_item>> items;
    add_custom(data, items);

    at_list* const lists[] = {&start_sim1_list, &reload_sim1_list, &start_sim2_list,
                              &reload_sim2_list};
    for (at_list* list : lists) {
        at_list_free(list);
        at_list_add_first_rows(list, list == &start_sim2_list);
        for (std::size_t row = 0; row < at_private_rows; row++)
            at_list_add_private(list, at_private_table[row].id, static_cast<int>(row) + 30, cfg);
    }
    {
        const lock_scope<flow_lock> hold;
        libgsm_apply_custom_config();
        libgsm_set_at_timeout(&start_sim1_list);
        libgsm_apply_custom_config(); // as the next change of flow does
    }
    for (at_list* list : lists) {
        walk(list);
        at_list_free(list);
    }
    while (!list_empty(&cell_at_config_h))
        list_del(cell_at_config_h.next);
    forget_profiles();
    return 0;
}
