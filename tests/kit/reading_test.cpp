#include "kit/reading.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using kit::Problem;

TEST(ReadNumber, AcceptsWholeNumbersInTheRange) {
    EXPECT_EQ(*kit::readNumber<int>("5060", 1, 65535), 5060);
    EXPECT_EQ(*kit::readNumber<int>("1", 1, 65535), 1);
    EXPECT_EQ(*kit::readNumber<int>("65535", 1, 65535), 65535);
    EXPECT_EQ(*kit::readNumber<int>("-6", -6, 6), -6);
    EXPECT_EQ(*kit::readNumber<int>("007", 0, 10), 7);
    EXPECT_EQ(*kit::readNumber<std::uint64_t>("18446744073709551615", 0,
                                              std::numeric_limits<std::uint64_t>::max()),
              std::numeric_limits<std::uint64_t>::max());
}

TEST(ReadNumber, ReportsTheProblem) {
    const struct {
        std::optional<std::string_view> text;
        Problem problem;
    } kCases[] = {
        {std::nullopt, Problem::Missing},
        {"", Problem::Missing},
        {"0", Problem::TooSmall},
        {"-1", Problem::TooSmall},
        {"65536", Problem::TooLarge},
        {"99999999999999999999999", Problem::TooLarge},
        {"-99999999999999999999999", Problem::TooSmall},
        {" 5", Problem::NotANumber},
        {"5 ", Problem::NotANumber},
        {"+5", Problem::NotANumber},
        {"5.0", Problem::NotANumber},
        {"0x5", Problem::NotANumber},
        {"5e1", Problem::NotANumber},
        {"-", Problem::NotANumber},
        {"--5", Problem::NotANumber},
        {"five", Problem::NotANumber},
        {"99999999999999999999999x", Problem::NotANumber},
    };
    for (const auto& each : kCases) {
        const auto reading = kit::readNumber<int>(each.text, 1, 65535);
        EXPECT_FALSE(reading) << each.text.value_or("(none)");
        EXPECT_EQ(reading.problem(), each.problem) << each.text.value_or("(none)");
    }
}

TEST(ReadNumber, ReportsANegativeNumberAsTooSmallForAnUnsignedType) {
    EXPECT_EQ(kit::readNumber<unsigned>("-5", 0, 9).problem(), Problem::TooSmall);
    EXPECT_EQ(kit::readNumber<unsigned>("-x", 0, 9).problem(), Problem::NotANumber);
    EXPECT_EQ(kit::readNumber<unsigned>("-", 0, 9).problem(), Problem::NotANumber);
}

TEST(ReadText, CountsCharacters) {
    EXPECT_EQ(*kit::readText("M\xC3\xBCller", 1, 6), "M\xC3\xBCller");
    EXPECT_EQ(kit::readText("M\xC3\xBCller", 1, 5).problem(), Problem::TooLong);
    EXPECT_EQ(kit::readText("ab", 3, 5).problem(), Problem::TooShort);
    EXPECT_EQ(*kit::readText("", 0, 5), "");
}

TEST(ReadText, ReportsTheProblem) {
    EXPECT_EQ(kit::readText(std::nullopt, 0, 5).problem(), Problem::Missing);
    EXPECT_EQ(kit::readText("", 1, 5).problem(), Problem::Missing);
    EXPECT_EQ(kit::readText("a\nb", 1, 5).problem(), Problem::BadCharacters);
    EXPECT_EQ(kit::readText("a\xFF", 1, 5).problem(), Problem::BadCharacters);
}

TEST(ReadChoice, AcceptsOnlyTheChoices) {
    EXPECT_EQ(*kit::readChoice("tcp", {"udp", "tcp"}), "tcp");
    EXPECT_EQ(kit::readChoice("TCP", {"udp", "tcp"}).problem(), Problem::NotAChoice);
    EXPECT_EQ(kit::readChoice("", {"udp", "tcp"}).problem(), Problem::NotAChoice);
    EXPECT_EQ(kit::readChoice(std::nullopt, {"udp"}).problem(), Problem::Missing);
}

TEST(Reading, HasAFallback) {
    EXPECT_EQ(kit::readNumber<int>("x", 0, 9).valueOr(3), 3);
    EXPECT_EQ(kit::readNumber<int>("4", 0, 9).valueOr(3), 4);
    EXPECT_EQ(kit::readNumber<int>("4", 0, 9).problem(), Problem::None);
}

TEST(Reading, DescribesEveryProblem) {
    const Problem kAll[] = {Problem::None,     Problem::Missing,  Problem::NotANumber,
                            Problem::TooSmall, Problem::TooLarge, Problem::NotAChoice,
                            Problem::TooShort, Problem::TooLong,  Problem::BadCharacters};
    for (Problem one : kAll) {
        for (Problem other : kAll) {
            EXPECT_EQ(std::string_view(kit::describe(one)) == kit::describe(other), one == other);
        }
    }
}
