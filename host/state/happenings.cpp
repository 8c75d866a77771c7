// SPDX-License-Identifier: MIT
#include "host/state/happenings.h"

#include "host/input/settings_file.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>

namespace kelo_host
{

namespace
{

// <UTC>,<latitude>,<longitude>,<HDOP>,<altitude>,<fix>,<COG>,<spkm>,<spkn>,<date>,<nsat>
enum column {
    utc,
    latitude,
    longitude,
    hdop,
    altitude,
    fix,
    course,
    km_h,
    knots,
    date,
    satellites,
    columns
};

std::array<std::string_view, columns> split(std::string_view text)
{
    std::array<std::string_view, columns> parts;
    for (std::string_view& part : parts) {
        const size_t end = text.find(',');
        part = text.substr(0, end);
        if (end == text.npos)
            break;
        text.remove_prefix(end + 1);
    }
    return parts;
}

std::optional<double> number(std::string_view text, double low, double high)
{
    double value = 0;
    if (text.starts_with('+'))
        text.remove_prefix(1);
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = fault == std::errc() && end == text.data() + text.size();
    return whole && value >= low && value <= high ? std::optional(value) : std::nullopt;
}

json_value figure(std::string_view text, double low, double high)
{
    const auto value = number(text, low, high);
    return value ? json_value(*value) : json_value(nullptr);
}

json_value count(std::string_view text, int low, int high)
{
    const auto value = number(text, low, high);
    return value ? json_value(std::lround(*value)) : json_value(nullptr);
}

// hhmmss.s and ddmmyy, of UTC.
json_value time_of(std::string_view clock, std::string_view day)
{
    const auto two = [](std::string_view text, size_t at, int low, int high) {
        const auto value =
            text.size() < at + 2 ? std::nullopt : number(text.substr(at, 2), low, high);
        return value ? static_cast<int>(*value) : -1;
    };
    const int parts[] = {two(day, 4, 0, 99),   two(day, 2, 1, 12),   two(day, 0, 1, 31),
                         two(clock, 0, 0, 23), two(clock, 2, 0, 59), two(clock, 4, 0, 60)};
    for (const int part : parts)
        if (part < 0)
            return nullptr;
    char text[80];
    std::snprintf(text, sizeof text, "20%02d-%02d-%02dT%02d:%02d:%02dZ", parts[0], parts[1],
                  parts[2], parts[3], parts[4], parts[5]);
    return text;
}

} // namespace

json_value call_of(const std::string& number)
{
    return {{"caller", text_or_null(number)}};
}

json_value mqtt_of(const char* event, const std::string& topic, const std::string& report)
{
    return {{"event", event}, {"topic", printable(topic)}, {"report", text_or_null(report)}};
}

json_value position_of(std::string_view text)
{
    const auto of = split(text);
    return {{"latitude", figure(of[latitude], -90, 90)},
            {"longitude", figure(of[longitude], -180, 180)},
            {"altitude_m", figure(of[altitude], -10000, 100000)},
            {"hdop", figure(of[hdop], 0, 100)},
            {"fix", count(of[fix], 2, 3)},
            {"course_deg", figure(of[course], 0, 360)},
            {"speed_km_h", figure(of[km_h], 0, 10000)},
            {"satellites", count(of[satellites], 0, 999)},
            {"fixed_at", time_of(of[utc], of[date])}};
}

json_value settings_of(const cellular_setting& before, const cellular_setting& now, bool restart)
{
    return {{"changed", changed_settings(before, now)}, {"restart", restart}};
}

void watcher::tell_change(const char* type, const json_value& status, json_value fields)
{
    fields["was"] = last_.at(type);
    if (last_.at(type) != status.at(type))
        feed_.tell(type, fields);
}

void watcher::tell_count(const char* what, unsigned int now, unsigned int& before)
{
    if (now != before)
        feed_.tell("restart", {{"what", what}, {"count", now}});
    before = now;
}

void watcher::look(const json_value& status)
{
    kelo_figures figures{};
    kelo_get_figures(&figures, sizeof figures);
    if (starts_ == 0) // the first is none
        starts_ = figures.starts;
    tell_count("start", figures.starts, starts_);
    tell_count("reload", figures.reloads, reloads_);
    if (last_.is_object()) {
        tell_change("link", status, {{"link", status.at("link")}});
        tell_change("reason", status,
                    {{"reason", status.at("reason")}, {"hint", status.at("hint")}});
    }
    last_ = status;
}

} // namespace kelo_host
