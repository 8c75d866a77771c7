// SPDX-License-Identifier: MIT
// Parts that become messages, and what the host takes of them.
#include "tests/sms/messages.h"

static message_part part_of(int reference, int number, int total, std::string_view text)
{
    message_part part;
    text_set(part.sender, "+49");
    part.numbers = {reference, total, number};
    for (const char c : text) {
        part.content.add(octet(0));
        part.content.add(static_cast<octet>(c));
        part.digest = part.digest * 31 + static_cast<octet>(c);
    }
    return part;
}

static void come(const message_part& part, int age_s = 0, sms_place place = {})
{
    sms_message_part(part, place, false, monotonic_ms() - 1000 * age_s);
}

static std::string taken()
{
    std::string all;
    kelo_message message;
    char text[2000];
    while (kelo_take_message(&message, sizeof message, text, sizeof text) == 1) {
        EXPECT_EQ(std::string(text).size(), static_cast<std::size_t>(message.length));
        all += (all.empty() ? "" : " ") + std::string(text);
    }
    return all;
}

// A part is a letter, its message, and its number of so many. A small letter is another message
// under the same reference. Behind the stroke, what is given when the patience is over.
TEST(Joiner, PutsPartsTogether)
{
    come(part_of(0, 0, 0, "nobody asks"));
    ASSERT_EQ(taken(), "");
    come(part_of(7, 2, 2, "second"));
    come(part_of(7, 1, 2, "first"));
    kelo_message message;
    char text[2000];
    unsigned long long digests[2] = {};
    EXPECT_EQ(kelo_take_message(&message, sizeof message, text, sizeof text), 1);
    EXPECT_EQ(kelo_get_message_parts(digests, 1), 2);
    EXPECT_EQ(digests[0], part_of(7, 2, 2, "second").digest);
    EXPECT_EQ(digests[1], 0u) << "more than there is room for";
    EXPECT_EQ(kelo_get_message_parts(digests, 2), 2);
    EXPECT_EQ(digests[1], part_of(7, 1, 2, "first").digest);
    ASSERT_EQ(taken(), "");
    EXPECT_EQ(kelo_get_message_parts(digests, 2), 0);
    constexpr std::pair<const char*, const char*> rows[] = {
        {"A00", "A00/"},
        {"A43", "A43/"}, // no number of that message: by itself
        {"A12 A22", "A12A22/"},
        {"A33 B12 A13 B22 A23", "B12B22 A13A23A33/"},
        {"A13 B13 A33 B33", "/A13[part 2 missing]A33 B13[part 2 missing]B33"},
        {"A12 A12 A22 A12", "A12A22/A12[part 2 missing]"},
        {"A12 a12 a22", "A12[part 2 missing] a12a22/"},
        {"A12 A13 A22", "A12A22/A13[part 2 missing][part 3 missing]"},
    };
    for (const auto& [parts, expected] : rows) {
        std::istringstream all(parts);
        for (std::string one; all >> one;)
            come(part_of(std::toupper(one[0]), one[1] - '0', one[2] - '0', one), 50);
        const std::string whole = taken();
        EXPECT_EQ(kelo_set_sms_patience(50), 0);
        EXPECT_EQ(whole + "/" + taken(), expected) << parts;
        EXPECT_EQ(kelo_set_sms_patience(60), 0);
    }
}

// A pair of UTF-16 that two parts share, halves without another one, and octets as they are.
TEST(Joiner, Content)
{
    taken();
    message_part half[3];
    for (int i = 0; i < 3; i++) {
        half[i] = part_of(1, i + 1, 3, "");
        half[i].content.add(std::array<octet, 4>{0xDE, 0x00, 0xD8, 0x3D});
        half[i].digest = static_cast<std::uint64_t>(i);
        come(half[i]);
    }
    EXPECT_EQ(taken(), "\xEF\xBF\xBD\xF0\x9F\x98\x80\xF0\x9F\x98\x80\xEF\xBF\xBD");
    half[0].data = half[2].data = true;
    come(half[2], 50);
    come(half[0], 50);
    kelo_set_sms_patience(50);
    kelo_message message = {};
    char text[9];
    EXPECT_EQ(kelo_take_message(&message, sizeof message, text, 8), -1); // stays
    EXPECT_EQ(message.length, 8);
    EXPECT_EQ(kelo_take_message(&message, sizeof message, text, 9), 1);
    EXPECT_EQ(std::memcmp(text, "\xDE\x00\xD8\x3D\xDE\x00\xD8\x3D", 9), 0);
    EXPECT_EQ(joined(message.data, message.parts, message.missing), "1|3|1");
}

// The oldest give way: parts that wait to their own message, given as it is; messages to later
// ones. What is stored does not: it has no room. A part that is found again at a later look, or
// came by a report before, is no second one.
TEST(Joiner, IsBounded)
{
    taken();
    for (int i = 0; i < 256; i++) {
        EXPECT_TRUE(sms_messages_have_room());
        come(part_of(i, 1, 2, std::to_string(i)), 0, {i < 4 ? i : -1, 1});
    }
    EXPECT_FALSE(sms_messages_have_room());
    come(part_of(999, 1, 2, "new"));
    EXPECT_EQ(taken(), "4[part 2 missing]");
    come(part_of(2, 1, 2, "2"), 0, {7, 2});
    come(part_of(2, 2, 2, "b"));
    EXPECT_EQ(taken(), "2b");
    for (int i = 0; i < KELO_MESSAGES; i++)
        come(part_of(0, 0, 0, std::to_string(i)), 0, {i, 1});
    EXPECT_FALSE(sms_messages_have_room());
    come(part_of(0, 0, 0, "5"), 0, {5, 2});
    EXPECT_EQ(kelo_messages_lost(), 0);
    come(part_of(0, 0, 0, "by a report"));
    EXPECT_EQ(kelo_messages_lost(), 1);
    EXPECT_TRUE(taken().ends_with(" 62 63"));
}
