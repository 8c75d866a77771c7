#include "host/joiner.h"

#include <algorithm>
#include <utility>

namespace kelo_host
{

namespace
{

constexpr size_t most_waiting = 64; // messages; a sender of stray parts must not fill the memory
constexpr int most_parts = 255;

std::string utf8_of_latin1(std::string_view text)
{
    std::string utf8;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            utf8 += c;
        } else {
            utf8 += static_cast<char>(0xc0 | byte >> 6);
            utf8 += static_cast<char>(0x80 | (byte & 0x3f));
        }
    }
    return utf8;
}

std::string text_of(const kelo_sms& sms)
{
    const auto length = static_cast<size_t>(std::max(sms.length, 0));
    std::string_view text(sms.text, std::min(length, sizeof sms.text));
    if (sms.coding == 0)
        return utf8_of_latin1(text);
    if (text.starts_with("\xef\xbb\xbf")) // the library's mark of UTF-8
        text.remove_prefix(3);
    return std::string(text);
}

} // namespace

void joiner::add(const kelo_sms& sms, clock::time_point now)
{
    const bool unreadable = sms.length == 0 && sms.sender[0] == '\0' && sms.pdu[0] != '\0';
    const std::string text =
        unreadable ? "[can't be read: " + std::string(sms.pdu) + "]" : text_of(sms);
    const bool is_part =
        sms.total > 1 && sms.total <= most_parts && sms.number >= 1 && sms.number <= sms.total;
    if (!is_part) {
        ready_.push_back({sms.sender, sms.time, sms.zone, text, 1, 1});
        return;
    }

    const part_key key{sms.sender, sms.reference, sms.total};
    if (const auto old = waiting_.find(key); old != waiting_.end()) {
        const auto same = old->second.texts.find(sms.number);
        if (same != old->second.texts.end()) {
            if (same->second == text)
                return;             // reported twice
            give(key, old->second); // a new message under a reference of before
            waiting_.erase(old);
        }
    } else if (waiting_.size() >= most_waiting) {
        const auto oldest =
            std::min_element(waiting_.begin(), waiting_.end(), [](const auto& a, const auto& b) {
                return a.second.last < b.second.last;
            });
        give(oldest->first, oldest->second);
        waiting_.erase(oldest);
    }

    waiting_parts& parts = waiting_[key];
    parts.texts[sms.number] = text;
    parts.last = now;
    if (parts.texts.begin()->first == sms.number) {
        parts.time = sms.time;
        parts.zone = sms.zone;
    }
    if (parts.texts.size() == static_cast<size_t>(sms.total)) {
        give(key, parts);
        waiting_.erase(key);
    }
}

std::vector<joined_message> joiner::take(clock::time_point now)
{
    for (auto entry = waiting_.begin(); entry != waiting_.end();) {
        if (now - entry->second.last < patience_) {
            ++entry;
            continue;
        }
        give(entry->first, entry->second);
        entry = waiting_.erase(entry);
    }
    return std::exchange(ready_, {});
}

std::vector<joined_message> joiner::take_all()
{
    return take(clock::time_point::max());
}

void joiner::give(const part_key& key, const waiting_parts& parts)
{
    std::string text;
    for (int number = 1; number <= key.total; number++) {
        const auto part = parts.texts.find(number);
        text += part != parts.texts.end() ? part->second
                                          : "[part " + std::to_string(number) + " missing]";
    }
    ready_.push_back({key.sender, parts.time, parts.zone, text,
                      static_cast<int>(parts.texts.size()), key.total});
}

} // namespace kelo_host
