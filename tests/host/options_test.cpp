#include "options.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Parsed {
    std::optional<Options> options;
    std::string error;
};

Parsed parse(std::vector<std::string> words) {
    words.insert(words.begin(), "fcgi_host");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    Parsed parsed;
    parsed.options = parseOptions(static_cast<int>(words.size()), argv.data(), parsed.error);
    return parsed;
}

TEST(Options, HaveDefaults) {
    const auto options = parse({}).options;
    ASSERT_TRUE(options);
    EXPECT_EQ(options->action, Options::Action::Serve);
    EXPECT_EQ(options->threads, 2);
    EXPECT_EQ(options->timerSeconds, 10);
    EXPECT_EQ(options->maxSessions, 0);
    EXPECT_EQ(options->drainSeconds, 5);
    EXPECT_EQ(options->listen, "");
    EXPECT_EQ(options->socketMode, mode_t{0660});
    EXPECT_EQ(options->user, "");
    EXPECT_FALSE(options->accessLogHeader);
}

TEST(Options, AreReadInTheirLongForms) {
    const auto options =
        parse({"--threads=4", "--timer", "30", "--listen", "/run/x", "--drain=0", "--socket-mode",
               "0600", "--user=phone:www", "--max-sessions=200", "--access-log-header"})
            .options;
    ASSERT_TRUE(options);
    EXPECT_EQ(options->threads, 4);
    EXPECT_EQ(options->timerSeconds, 30);
    EXPECT_EQ(options->maxSessions, 200);
    EXPECT_EQ(options->drainSeconds, 0);
    EXPECT_EQ(options->listen, "/run/x");
    EXPECT_EQ(options->socketMode, mode_t{0600});
    EXPECT_EQ(options->user, "phone:www");
    EXPECT_TRUE(options->accessLogHeader);
}

TEST(Options, AreReadInTheirShortForms) {
    const auto options = parse({"-n", "64", "-t1", "-l", "127.0.0.1:9000", "-d", "3600", "-m666",
                                "-u", "phone", "-s", "100000", "-a"})
                             .options;
    ASSERT_TRUE(options);
    EXPECT_EQ(options->threads, 64);
    EXPECT_EQ(options->timerSeconds, 1);
    EXPECT_EQ(options->maxSessions, 100000);
    EXPECT_EQ(options->drainSeconds, 3600);
    EXPECT_TRUE(options->accessLogHeader);
    EXPECT_EQ(options->listen, "127.0.0.1:9000");
    EXPECT_EQ(options->socketMode, mode_t{0666});
    EXPECT_EQ(options->user, "phone");
}

TEST(Options, IgnoreWhateverFollowsHelpOrVersion) {
    EXPECT_EQ(parse({"--help", "--nonsense"}).options->action, Options::Action::Help);
    EXPECT_EQ(parse({"-h"}).options->action, Options::Action::Help);
    EXPECT_EQ(parse({"-n", "3", "--version", "more"}).options->action, Options::Action::Version);
    EXPECT_EQ(parse({"-V"}).options->action, Options::Action::Version);
}

TEST(Options, AreRejectedWithAReason) {
    struct Case {
        std::vector<std::string> words;
        std::string error;
    };
    const Case cases[] = {
        {{"--threads=0"}, "--threads takes a number from 1 to 64, not '0'"},
        {{"--threads=65"}, "--threads takes a number from 1 to 64, not '65'"},
        {{"--threads=-2"}, "--threads takes a number from 1 to 64, not '-2'"},
        {{"--threads=two"}, "--threads takes a number from 1 to 64, not 'two'"},
        {{"--threads=2x"}, "--threads takes a number from 1 to 64, not '2x'"},
        {{"--threads="}, "--threads takes a number from 1 to 64, not ''"},
        {{"--threads=99999999999"}, "--threads takes a number from 1 to 64, not '99999999999'"},
        {{"--timer=3601"}, "--timer takes a number from 1 to 3600, not '3601'"},
        {{"-t", "1.5"}, "--timer takes a number from 1 to 3600, not '1.5'"},
        {{"--max-sessions=0"}, "--max-sessions takes a number from 1 to 100000, not '0'"},
        {{"-s100001"}, "--max-sessions takes a number from 1 to 100000, not '100001'"},
        {{"--drain=-1"}, "--drain takes a number from 0 to 3600, not '-1'"},
        {{"--drain=3601"}, "--drain takes a number from 0 to 3600, not '3601'"},
        {{"--socket-mode=0770"}, "--socket-mode takes an octal mode such as 0660, not '0770'"},
        {{"--socket-mode=-1"}, "--socket-mode takes an octal mode such as 0660, not '-1'"},
        {{"--socket-mode=0o660"}, "--socket-mode takes an octal mode such as 0660, not '0o660'"},
        {{"--socket-mode="}, "--socket-mode takes an octal mode such as 0660, not ''"},
        {{"--socket-mode=680"}, "--socket-mode takes an octal mode such as 0660, not '680'"},
        {{"--user="}, "--user takes NAME or NAME:GROUP, not nothing"},
        {{"--listen="}, "--listen takes a path or ADDRESS:PORT, not nothing"},
        {{"--listen"}, "option '--listen' needs a value"},
        {{"-n"}, "option '-n' needs a value"},
        {{"--port=80"}, "there is no option '--port=80'"},
        {{"-n", "2", "-x"}, "there is no option '-x'"},
        {{"--help=me"}, "there is no option '--help=me'"},
        {{"/run/x"}, "unexpected argument '/run/x'"},
        {{"-n", "2", "x", "-n", "3"}, "unexpected argument 'x'"},
    };
    for (const Case& wrong : cases) {
        const Parsed parsed = parse(wrong.words);
        EXPECT_FALSE(parsed.options) << wrong.error;
        EXPECT_EQ(parsed.error, wrong.error);
    }
}

TEST(Options, AreAllNamedInTheHelp) {
    const std::string help = kHelpText;
    for (const char* name : {"--listen", "--socket-mode", "--user", "--threads", "--timer",
                             "--max-sessions", "--drain", "--help", "--version"})
        EXPECT_NE(help.find(name), std::string::npos) << name;
    EXPECT_EQ(help.back(), '\n');
}

} // namespace
