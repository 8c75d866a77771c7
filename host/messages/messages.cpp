// SPDX-License-Identifier: MIT
#include "host/messages/messages.h"

#include <kelo/gsm.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace kelo_host
{

namespace
{

using namespace std::chrono_literals;

constexpr auto register_within = 300s;

std::string parts_text(int count, int total)
{
    return std::to_string(count) + " of " + std::to_string(total) + " parts";
}

std::string name_of_message(int number, const char* tag, const char* destination)
{
    std::string name = "message";
    if (number > 0)
        name += " " + std::to_string(number);
    if (tag[0] != '\0')
        name += " (" + printable(tag) + ")";
    return name + " to " + printable(destination);
}

const char* delivery_name(int state)
{
    return state == KELO_SMS_DELIVERED      ? "delivered"
           : state == KELO_SMS_STILL_TRYING ? "still trying"
           : state == KELO_SMS_UNDELIVERED  ? "undelivered"
                                            : "?";
}

// "2024-05-17 09:30:12" and quarters of an hour, as RFC 3339 has it.
json_value time_of(std::string text, int zone)
{
    if (text.size() < 19)
        return nullptr;
    text[10] = 'T';
    return text + zone_text(zone);
}

} // namespace

bool take_message(whole_message& message)
{
    constexpr int longest = 1 << 20; // eight times what 255 parts can hold
    message.text.resize(4096);
    int taken = 0;
    while ((taken = kelo_take_message(&message.head, sizeof message.head, message.text.data(),
                                      message.text.size())) < 0) {
        if (message.head.length < 0 || message.head.length > longest ||
            message.text.size() > static_cast<size_t>(message.head.length))
            return false;
        message.text.resize(static_cast<size_t>(message.head.length) + 1);
    }
    const auto length = static_cast<size_t>(std::max(message.head.length, 0));
    message.text.resize(std::min(length, message.text.size()));
    message.parts.resize(256);
    const int parts = kelo_get_message_parts(message.parts.data(), 256);
    message.parts.resize(static_cast<size_t>(std::clamp(taken == 1 ? parts : 0, 0, 256)));
    return taken == 1;
}

std::string zone_text(int quarters)
{
    const int minutes = std::abs(quarters) * 15;
    char text[24];
    std::snprintf(text, sizeof text, "%c%02d:%02d", quarters < 0 ? '-' : '+', minutes / 60,
                  minutes % 60);
    return text;
}

std::string hex_of(std::string_view octets)
{
    std::string hex;
    for (const char octet : octets) {
        hex += "0123456789abcdef"[static_cast<unsigned char>(octet) >> 4];
        hex += "0123456789abcdef"[octet & 0xf];
    }
    return hex;
}

std::string reason_of(const kelo_sms_result& result)
{
    switch (result.state) {
    case KELO_SMS_SENT:
        return "";
    case KELO_SMS_FAILED:
        if (result.error == KELO_SMS_ERROR || result.error_number < 0)
            return "ERROR";
        return (result.error == KELO_SMS_CME_ERROR ? "+CME ERROR: " : "+CMS ERROR: ") +
               std::to_string(result.error_number);
    case KELO_SMS_UNKNOWN:
        return "unknown: the body went out and no answer came";
    case KELO_SMS_NOT_WRITTEN:
        return "not written: the modem asked for none of it";
    case KELO_SMS_REFUSED:
        return "refused: the module has no commands for messages";
    default:
        return kelo_sms_state_name(result.state);
    }
}

std::vector<std::string> lines_of(const whole_message& message)
{
    const kelo_message& head = message.head;
    std::string first = "message from " + printable(head.sender);
    if (head.time[0] != '\0')
        first += " of " + printable(head.time) + " " + zone_text(head.zone);
    if (head.missing > 0)
        first += ", " + parts_text(head.parts - head.missing, head.parts);
    else if (head.parts > 1)
        first += ", " + std::to_string(head.parts) + " parts";
    if (head.message_class >= 0)
        first += ", class " + std::to_string(head.message_class);
    if (head.port_to >= 0)
        first += ", to port " + std::to_string(head.port_to);
    std::vector<std::string> lines = {first + (head.data != 0 ? ", data:" : ":")};
    if (head.data != 0) {
        lines.push_back("  | " + hex_of(message.text));
        return lines;
    }
    for (std::string_view rest = message.text;;) {
        const size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        lines.push_back("  | " + printable(line));
        if (end == rest.npos)
            return lines;
        rest.remove_prefix(end + 1);
    }
}

std::vector<std::string> lines_of(const kelo_sms_result& result)
{
    std::string line = name_of_message(result.number, result.tag, result.destination) + ": ";
    if (result.state == KELO_SMS_SENT)
        return {line + "sent, " + parts_text(result.confirmed, result.parts) + " confirmed"};
    line += (result.state == KELO_SMS_FAILED ? "failed: " : "") + reason_of(result);
    if (result.confirmed > 0)
        line += ", with " + parts_text(result.confirmed, result.parts) + " confirmed";
    return {line};
}

std::vector<std::string> lines_of(const kelo_sms_report& report)
{
    return {"report on " + name_of_message(report.number, report.tag, report.recipient) +
            ", part " + std::to_string(report.part) + ": " + delivery_name(report.state) + " at " +
            printable(report.discharged) + " " + zone_text(report.discharged_zone) + ", status " +
            std::to_string(report.status)};
}

json_value json_of(const whole_message& message)
{
    const kelo_message& head = message.head;
    json_value fields = {{"sender", head.sender},
                         {"sent", time_of(head.time, head.zone)},
                         {"text", head.data != 0 ? json_value(nullptr) : json_value(message.text)},
                         {"parts", head.parts - head.missing},
                         {"total", head.parts}};
    fields["class"] = head.message_class < 0 ? json_value(nullptr) : json_value(head.message_class);
    fields["data"] = head.data != 0 ? json_value(hex_of(message.text)) : json_value(nullptr);
    fields["ports"] = nullptr;
    if (head.port_to >= 0)
        fields["ports"] = {{"to", head.port_to}, {"from", head.port_from}};
    return fields;
}

json_value json_of(const kelo_sms_result& result)
{
    const int sent = std::clamp(result.parts, 0, static_cast<int>(sizeof result.references));
    return {
        {"number", result.number},
        {"tag", result.tag},
        {"destination", result.destination},
        {"state", kelo_sms_state_name(result.state)},
        {"parts", result.parts},
        {"confirmed", result.confirmed},
        {"reason", text_or_null(reason_of(result))},
        {"references", json_value(std::vector<int>(result.references, result.references + sent))}};
}

json_value json_of(const kelo_sms_report& report)
{
    return {{"number", report.number},
            {"tag", report.tag},
            {"part", report.part},
            {"reference", report.reference},
            {"recipient", report.recipient},
            {"sent", time_of(report.sent, report.sent_zone)},
            {"discharged", time_of(report.discharged, report.discharged_zone)},
            {"status", report.status},
            {"state", delivery_name(report.state)}};
}

int outgoing::add(const std::string& number, const std::string& text,
                  const kelo_sms_options& options)
{
    const int sent = kelo_send_sms(number.c_str(), text.c_str(), &options);
    if (sent > 0) {
        waiting_.push_back({sent, number});
        return sent;
    }
    not_sent_++;
    say_("message to " + number + ": refused by the library");
    return sent;
}

void outgoing::pass(clock::time_point now)
{
    if (waiting_.empty() || mobile_is_ready() || progress_ == clock::time_point{})
        progress_ = now;
    if (now - progress_ < register_within)
        return;
    const sent_message first = waiting_.front();
    if (!kelo_cancel_sms(first.number))
        return;
    waiting_.pop_front();
    not_sent_++;
    say_("message to " + first.destination + ": not sent: the modem was not registered in 300 s");
}

bool outgoing::waits_for(int number) const
{
    return std::any_of(waiting_.begin(), waiting_.end(),
                       [&](const sent_message& one) { return one.number == number; });
}

void outgoing::note(const kelo_sms_result& result)
{
    const auto own = std::find_if(waiting_.begin(), waiting_.end(), [&](const sent_message& one) {
        return one.number == result.number;
    });
    if (own == waiting_.end())
        return;
    waiting_.erase(own);
    not_sent_ += result.state != KELO_SMS_SENT;
    progress_ = {};
}

} // namespace kelo_host
