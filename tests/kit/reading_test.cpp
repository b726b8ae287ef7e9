#include "kit/reading.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using kit::Problem;

TEST(ReadNumber, TakesWholeNumbersInTheRange) {
    EXPECT_EQ(*kit::readNumber<int>("5060", 1, 65535), 5060);
    EXPECT_EQ(*kit::readNumber<int>("1", 1, 65535), 1);
    EXPECT_EQ(*kit::readNumber<int>("65535", 1, 65535), 65535);
    EXPECT_EQ(*kit::readNumber<int>("-6", -6, 6), -6);
    EXPECT_EQ(*kit::readNumber<int>("007", 0, 10), 7);
    EXPECT_EQ(*kit::readNumber<std::uint64_t>("18446744073709551615", 0,
                                              std::numeric_limits<std::uint64_t>::max()),
              std::numeric_limits<std::uint64_t>::max());
}

TEST(ReadNumber, SaysWhatIsWrong) {
    const struct {
        std::optional<std::string_view> text;
        Problem problem;
    } kCases[] = {
        {std::nullopt, Problem::missing},
        {"", Problem::missing},
        {"0", Problem::tooSmall},
        {"-1", Problem::tooSmall},
        {"65536", Problem::tooLarge},
        {"99999999999999999999999", Problem::tooLarge},
        {"-99999999999999999999999", Problem::tooSmall},
        {" 5", Problem::notANumber},
        {"5 ", Problem::notANumber},
        {"+5", Problem::notANumber},
        {"5.0", Problem::notANumber},
        {"0x5", Problem::notANumber},
        {"5e1", Problem::notANumber},
        {"-", Problem::notANumber},
        {"--5", Problem::notANumber},
        {"five", Problem::notANumber},
        {"99999999999999999999999x", Problem::notANumber},
    };
    for (const auto& each : kCases) {
        const auto reading = kit::readNumber<int>(each.text, 1, 65535);
        EXPECT_FALSE(reading) << each.text.value_or("(none)");
        EXPECT_EQ(reading.problem(), each.problem) << each.text.value_or("(none)");
    }
}

TEST(ReadNumber, CallsANegativeNumberTooSmallWhereTheTypeHasNone) {
    EXPECT_EQ(kit::readNumber<unsigned>("-5", 0, 9).problem(), Problem::tooSmall);
    EXPECT_EQ(kit::readNumber<unsigned>("-x", 0, 9).problem(), Problem::notANumber);
    EXPECT_EQ(kit::readNumber<unsigned>("-", 0, 9).problem(), Problem::notANumber);
}

TEST(ReadText, CountsCharacters) {
    EXPECT_EQ(*kit::readText("M\xC3\xBCller", 1, 6), "M\xC3\xBCller");
    EXPECT_EQ(kit::readText("M\xC3\xBCller", 1, 5).problem(), Problem::tooLong);
    EXPECT_EQ(kit::readText("ab", 3, 5).problem(), Problem::tooShort);
    EXPECT_EQ(*kit::readText("", 0, 5), "");
}

TEST(ReadText, SaysWhatIsWrong) {
    EXPECT_EQ(kit::readText(std::nullopt, 0, 5).problem(), Problem::missing);
    EXPECT_EQ(kit::readText("", 1, 5).problem(), Problem::missing);
    EXPECT_EQ(kit::readText("a\nb", 1, 5).problem(), Problem::badCharacters);
    EXPECT_EQ(kit::readText("a\xFF", 1, 5).problem(), Problem::badCharacters);
}

TEST(ReadChoice, TakesNothingElse) {
    EXPECT_EQ(*kit::readChoice("tcp", {"udp", "tcp"}), "tcp");
    EXPECT_EQ(kit::readChoice("TCP", {"udp", "tcp"}).problem(), Problem::notAChoice);
    EXPECT_EQ(kit::readChoice("", {"udp", "tcp"}).problem(), Problem::notAChoice);
    EXPECT_EQ(kit::readChoice(std::nullopt, {"udp"}).problem(), Problem::missing);
}

TEST(Reading, HasAFallback) {
    EXPECT_EQ(kit::readNumber<int>("x", 0, 9).valueOr(3), 3);
    EXPECT_EQ(kit::readNumber<int>("4", 0, 9).valueOr(3), 4);
    EXPECT_EQ(kit::readNumber<int>("4", 0, 9).problem(), Problem::none);
}

TEST(Reading, DescribesEveryProblem) {
    const Problem kAll[] = {Problem::none,     Problem::missing,  Problem::notANumber,
                            Problem::tooSmall, Problem::tooLarge, Problem::notAChoice,
                            Problem::tooShort, Problem::tooLong,  Problem::badCharacters};
    for (Problem one : kAll) {
        for (Problem other : kAll) {
            EXPECT_EQ(std::string_view(kit::describe(one)) == kit::describe(other), one == other);
        }
    }
}
