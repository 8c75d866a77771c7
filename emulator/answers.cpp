// SPDX-License-Identifier: MIT
#include "emulator/answers.h"

#include "emulator/dialogue.h"
#include "emulator/record_line.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace kelo_emulator
{

namespace
{

using nlohmann::ordered_json;

void write_line(FILE* stream, const std::string& line)
{
    fputs((line + "\n").c_str(), stream);
    fflush(stream);
}

// All ASCII, and whatever is no UTF-8 in an order replaced: a reader can rely on each line.
void write_object(const ordered_json& object)
{
    write_line(stdout, object.dump(-1, ' ', true, ordered_json::error_handler_t::replace));
}

} // namespace

void complain(const std::string& place, const std::string& what)
{
    std::string text = what;
    for (char& c : text) // else a rubbish line could write to the terminal whatever it likes
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7F')
            c = '?';
    write_line(stderr, (place.empty() ? "kelo-emulator" : place) + ": " + text);
}

double answer_printer::seconds(monotonic_clock::time_point time) const
{
    return std::round(std::chrono::duration<double, std::milli>(time - start_).count()) / 1000;
}

void answer_printer::ready(const modem_options& options) const
{
    if (json_)
        write_object({{"ready", true}, {"model", options.model}, {"port", options.port}});
    else
        write_line(stdout, options.model + " at " + options.port);
}

void answer_printer::outcome(const order_outcome& outcome) const
{
    if (!outcome.error.empty())
        complain(outcome.place, outcome.error);
    if (!json_) {
        fputs(outcome.answer.c_str(), stdout);
        fflush(stdout);
        return;
    }
    ordered_json object = {{"order", outcome.order}};
    if (outcome.line)
        object["line"] = outcome.line;
    object["time"] = seconds(monotonic_clock::now());
    object["ok"] = outcome.error.empty();
    if (!outcome.error.empty())
        object["error"] = outcome.error;
    if (outcome.more.is_object())
        object.update(outcome.more);
    write_object(object);
}

void answer_printer::trace(const log_entry& entry) const
{
    const bool host = entry.from == speaker::host;
    if (json_) {
        write_object({{"from", host ? "host" : "modem"},
                      {"time", seconds(entry.time)},
                      {"bytes", bytes_as_text(entry.bytes)}});
        return;
    }
    const auto at = std::chrono::duration_cast<milliseconds>(entry.time - start_);
    const auto from = host ? kelo_record::origin::host : kelo_record::origin::modem;
    write_line(stdout, kelo_record::text_of({at.count(), from, entry.bytes}));
}

bool answer_printer::models(const std::vector<known_model>& models) const
{
    bool good = true;
    for (const known_model& model : models) {
        good = good && model.error.empty();
        if (!model.error.empty())
            complain("", model.error);
        if (json_) {
            ordered_json object = {{"model", model.name},
                                   {"dialogue", model.dialogue},
                                   {"about", model.about},
                                   {"uses", model.uses}};
            if (!model.error.empty())
                object["error"] = model.error;
            write_object(object);
        } else {
            const std::size_t width = std::max<std::size_t>(model.name.size(), 12);
            write_line(stdout, model.name + std::string(width - model.name.size() + 1, ' ') +
                                   model.dialogue);
        }
    }
    return good;
}

} // namespace kelo_emulator
