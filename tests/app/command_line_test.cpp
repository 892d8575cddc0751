// The argument list's shared cursor, the integer prompt's parser and the job option parser:
// the pieces every action relies on to read words once and refuse anything it does not know.
#include "app/command_line.h"
#include "app/jobs/job_options.h"
#include "app/prompt.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

using qmp::CommandLine;

TEST(CommandLine, CursorIsSharedAndSkipsTheProgramName) {
    const char* argv[] = {"/usr/bin/quorvalith", "bench", "1b", "-TD"};
    CommandLine args(4, argv);
    EXPECT_EQ(args.size(), 3u);
    ASSERT_NE(args.peek(), nullptr);
    EXPECT_EQ(*args.peek(), "bench");
    EXPECT_EQ(args.cursor(), 0u);  // peeking does not consume

    EXPECT_EQ(args.next(), "bench");
    std::string word;
    ASSERT_TRUE(args.try_next(word));
    EXPECT_EQ(word, "1b");
    EXPECT_EQ(args.remaining(), 1u);
    EXPECT_EQ(args.next(), "-TD");
    EXPECT_FALSE(args.has_more());
    EXPECT_EQ(args.peek(), nullptr);
    EXPECT_FALSE(args.try_next(word));
    EXPECT_EQ(word, "1b");  // untouched when nothing is left
    EXPECT_EQ(args.cursor(), 3u);
}

TEST(CommandLine, MissingWordThrowsUnderTheCallersName) {
    CommandLine args(std::vector<std::string>{});
    try {
        args.next("PiBenchmark::parse_options()");
        FAIL() << "no exception";
    } catch (const CommandLine::CommandLineException& e) {
        EXPECT_EQ(e.message(), "Expected more parameters.");
        EXPECT_EQ(e.function(), "PiBenchmark::parse_options()");
        EXPECT_STREQ(e.type_name(), "CommandLine::CommandLineException");
    }
    EXPECT_EQ(args.cursor(), 0u);
}

TEST(PromptInteger, ParsesWholeLinesOnly) {
    const struct {
        const char* line;
        std::optional<int64_t> value;
    } cases[] = {
        {"7", 7},
        {"  7 \r", 7},
        {"+3", 3},
        {"-0", 0},
        {"-12", -12},
        {"9223372036854775807", INT64_MAX},
        {"-9223372036854775808", INT64_MIN},
        {"9223372036854775808", std::nullopt},
        {"-9223372036854775809", std::nullopt},
        {"99999999999999999999", std::nullopt},
        {"", std::nullopt},
        {"   ", std::nullopt},
        {"-", std::nullopt},
        {"7a", std::nullopt},
        {"1 2", std::nullopt},
        {"- 1", std::nullopt},
        {"0x5", std::nullopt},
        {"3.0", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string("line \"") + c.line + "\"");
        EXPECT_EQ(qv::parse_integer_line(c.line), c.value);
    }
}

// Runs the parser over `words` as the job "bench" would see them after its action word.
std::string option_error(std::vector<std::string> words,
                         std::initializer_list<std::string_view> supported) {
    CommandLine args(std::move(words));
    try {
        qv::parse_job_options(args, "Job::parse_options()", supported,
                              [](const std::string& w) { return w == "1b"; });
    } catch (const qmp::Exception& e) {
        return e.message();
    }
    return "";
}

TEST(JobOptions, RefusesWhatTheJobDoesNotTake) {
    EXPECT_EQ(option_error({"1b", "-foo"}, {"-TD"}), "Invalid Command: -foo");
    EXPECT_EQ(option_error({"-notsmt"}, {"-noSMT"}), "Invalid Command: -notsmt");  // exact case
    EXPECT_EQ(option_error({"-TD", "4"}, {"-noSMT"}), "Option -TD is not supported for this mode.");
    EXPECT_EQ(option_error({"1b", "-TD"}, {"-TD"}), "Expected more parameters.");
    EXPECT_EQ(option_error({"2b"}, {"-TD"}), "Invalid Parameter: 2b");
    EXPECT_EQ(option_error({"1b", "-TD", "4", "-noSMT"}, {"-TD", "-noSMT"}), "");
}

TEST(JobOptions, ValuesFollowTheirOptionAndSwapModeGatesSwapOptions) {
    CommandLine args(std::vector<std::string>{"-swap", "/a", "-TD", "-5", "-swap", "/b", "-noSMT"});
    std::vector<std::string> positional;
    const qv::JobOptions options = qv::parse_job_options(
        args, "Job::parse_options()", {"-swap", "-TD", "-noSMT", "-minIO"},
        [&](const std::string& w) {
            positional.push_back(w);
            return true;
        });
    EXPECT_TRUE(positional.empty());  // "-5" is the value of -TD, not an option or a word
    EXPECT_EQ(options.values("-swap"), (std::vector<std::string>{"/a", "/b"}));
    ASSERT_NE(options.value("-TD"), nullptr);
    EXPECT_EQ(*options.value("-TD"), "-5");
    EXPECT_TRUE(options.has("-noSMT"));
    EXPECT_FALSE(options.has("-minIO"));
    EXPECT_FALSE(args.has_more());
    EXPECT_NO_THROW(qv::check_swap_only_options(options, "Job::run()", {"-minIO", "-TD"}));

    qv::JobOptions ram;
    ram.entries = {{"-noSMT", ""}, {"-minIO", "4096"}};
    try {
        qv::check_swap_only_options(ram, "Job::run()", {"-minIO"});
        FAIL() << "no exception";
    } catch (const qmp::InvalidParametersException& e) {
        EXPECT_EQ(e.message(), "Option -minIO is not supported for this mode.");
    }
}

}  // namespace
