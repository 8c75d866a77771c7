#include "emulator/answers.h"

#include "emulator/dialogue.h"

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

std::string visible(const std::string& bytes)
{
    std::string text;
    for (const unsigned char c : bytes) {
        char shown[8];
        snprintf(shown, sizeof shown, c < ' ' || c > 126 ? "\\x%02X" : "%c", c);
        text += c == '\r' ? "\\r" : c == '\n' ? "\\n" : shown;
    }
    return text;
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

// `12.345 >> AT+CSQ\r`: seconds since start, control bytes made visible.
void answer_printer::trace(const log_entry& entry) const
{
    const bool host = entry.from == speaker::host;
    if (json_) {
        write_object({{"from", host ? "host" : "modem"},
                      {"time", seconds(entry.time)},
                      {"bytes", bytes_as_text(entry.bytes)}});
        return;
    }
    char time[32];
    snprintf(time, sizeof time, "%9.3f",
             std::chrono::duration<double>(entry.time - start_).count());
    write_line(stdout, std::string(time) + (host ? " >> " : " << ") + visible(entry.bytes));
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
