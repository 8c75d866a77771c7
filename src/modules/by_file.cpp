// SPDX-License-Identifier: MIT
// Modules that a profile file brings by itself: its MODEL is how their answer to AT+CGMM begins,
// and its LIKE names the module of the table whose flow they walk.
//
// The files are looked at once, behind their reading, and do not change afterwards.
#include "modules/modules.h"

#include "support/diag.h"
#include "support/text.h"

namespace kelo
{

namespace
{

// As many characters as decide which profile serves a model. Fewer would hit many modules.
constexpr std::size_t shortest_model = 4;
constexpr std::size_t longest_model = sizeof(gsm_mobile::model) - 1;

const cfg_file* file_with(const char* model)
{
    list_head* node = nullptr;
    list_for_each(node, &cfg_file_list)
    {
        const cfg_file* const cfg = list_entry(node, cfg_file, node);
        if (cfg->model != nullptr && std::strcmp(cfg->model, model) == 0)
            return cfg;
    }
    return nullptr;
}

// A line that can be the answer, and whose end is not taken for that of the command.
bool may_begin_an_answer(const char* model)
{
    for (const char* at = model; *at != '\0'; at++)
        if (*at < ' ' || *at > '~')
            return false;
    return std::strpbrk(model, "+:\",") == nullptr && !text_begins(model, "AT") &&
           !text_has(model, "OK") && !text_has(model, "ERROR");
}

// What is wrong with the pair, and the name that it is about; null for nothing.
struct pair_fault {
    const char* text = nullptr;
    const char* name = "";
};

pair_fault fault_of(const char* model, const char* like)
{
    const std::size_t length = std::strlen(model);
    if (length < shortest_model)
        return {length == 0 ? "it is empty" : "it is shorter than 4 characters"};
    if (length > longest_model)
        return {"it is longer than the 15 characters that are kept of a model"};
    if (!may_begin_an_answer(model))
        return {"no answer to AT+CGMM begins so"};
    if (const char* const taken = module_named_with(model))
        return {"it would take away a module that is known without a file, ", taken};
    if (!module_is_listed(like))
        return {"no flow is known of its LIKE, ", like};
    if (const cfg_file* const other = file_with(model))
        return {"another file has the same and comes first, ", other->path};
    return {};
}

void look_at(cfg_file* cfg)
{
    const char* const model = cfg_value(cfg, model_key_name);
    const char* const like = cfg_value(cfg, like_key_name);
    if (model == nullptr && like == nullptr)
        return;
    if (model == nullptr || like == nullptr) {
        diag_plain("%s: %s\n", cfg->path,
                   model == nullptr ? "LIKE without MODEL is passed over"
                                    : "MODEL without LIKE is passed over");
        return;
    }
    const pair_fault fault = fault_of(model, like);
    if (fault.text != nullptr) {
        diag_plain("%s: MODEL '%s' is passed over: %s%s\n", cfg->path, model, fault.text,
                   fault.name);
        return;
    }
    cfg->model = model;
    cfg->like = like;
}

} // namespace

void modules_of_files()
{
    list_head* node = nullptr;
    list_for_each(node, &cfg_file_list)
    {
        cfg_file* const cfg = list_entry(node, cfg_file, node);
        if (cfg->model == nullptr)
            look_at(cfg);
    }
}

const cfg_file* module_file(const char* model)
{
    const cfg_file* best = nullptr;
    list_head* node = nullptr;
    list_for_each(node, &cfg_file_list)
    {
        const cfg_file* const cfg = list_entry(node, cfg_file, node);
        if (cfg->model != nullptr && text_begins(model, cfg->model) &&
            (best == nullptr || std::strlen(cfg->model) > std::strlen(best->model)))
            best = cfg;
    }
    return best;
}

} // namespace kelo
