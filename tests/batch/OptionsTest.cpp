#include "batch/Options.h"

#include "tests/support/ExpectFails.h"

#include <gmock/gmock.h>

using testing::HasSubstr;

TEST(Options, AreReadUpToTheDoubleDash) {
    const Options options = *parseOptions({"--process-all", "a", "--identity=Jo (X1)", "-j3",
                                           "--timestamp=HTTP://a.b", "--", "--verbose"});
    EXPECT_TRUE(options.processAll);
    EXPECT_FALSE(options.verbose);
    EXPECT_EQ(options.identity, "Jo (X1)");
    EXPECT_EQ(options.jobCount(), 3U);
    EXPECT_EQ(options.timestamp, "HTTP://a.b");
    EXPECT_THAT(options.paths, testing::ElementsAre("a", "--verbose"));
}

TEST(Options, SayWhatIsWrong) {
    const struct {
        std::vector<std::string> arguments;
        const char* said;
    } rows[] = {{{"--no-such"}, "There is no option --no-such. See --help."},
                {{"--identty=Jo of a long name"}, "Did you mean --identity?"},
                {{"--jsno"}, "Did you mean --json?"},
                {{"--identity"}, "--identity needs IDENTITY behind it."},
                {{"--identity="}, "not an empty text"},
                {{"--json=x"}, "--json takes no value"},
                {{"--identity=J", "--do-not-codesign"}, "exclude each other"},
                {{"--require-signature"}, "needs an --identity"},
                {{"--require-signature", "--do-not-codesign"}, "needs an --identity"},
                {{"--level", "10"}, "The level is \"10\""},
                {{"--jobs", "0"}, "The number of jobs is \"0\""},
                {{"--timestamp", "ftp://x"}, "begins with http://"},
                {{"-0"}, "--list-packages only"},
                {{"--json", "-q"}, "exclude each other"}};
    for (const auto& [arguments, said] : rows) {
        EXPECT_FAILS(parseOptions(arguments), Usage) << said;
        EXPECT_THAT(parseOptions(arguments).error().sentence, HasSubstr(said));
    }
}
