#include "core/Format.h"

#include "core/Identities.h"
#include "core/Location.h"
#include "core/OrderedSet.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// Counts how often it is described.
struct Visited {
    int* visits;
};

void describe(BoundedText& out, const Visited& visited) {
    ++*visited.visits;
    out.append("v");
}

} // namespace

TEST(Format, ReplacesEachDirectiveByItsArgument) {
    EXPECT_EQ(formatted("%@-%@ %i[%lu] %s", "a", std::string("b"), -3, std::size_t{7}, "c"),
              "a-b -3[7] c");
    EXPECT_EQ(formatted("%@ %@", std::optional<std::string>(), std::optional<std::string>("x")),
              "(null) x");
    EXPECT_EQ(formatted("100%% of %d and %", 1), "100% of %d and %");
    EXPECT_EQ(formatted("%@ and %@", "one"), "one and (null)");
    EXPECT_EQ(formatted("%i", true), "1");
}

TEST(Format, DescribesListsSetsAndRecordsInTheirForms) {
    EXPECT_EQ(formatted("%@", std::vector<std::string>{"/a/b.app", "two words", "q\"\\\n", ""}),
              "(\n    /a/b.app,\n    \"two words\",\n    \"q\\\"\\\\\\n\",\n    \"\"\n)");
    EXPECT_EQ(formatted("%@", std::vector<std::string>{}), "(\n)");
    OrderedSet<std::string> set;
    set.insert("b");
    set.insert("a");
    set.insert("b");
    EXPECT_EQ(formatted("%@", set), "{(\n    b,\n    a\n)}");
    EXPECT_EQ(formatted("%@", IdentityList{{"K", "Two Words", "K: Two Words"}}),
              "(\n    {\n        displaystring = \"K: Two Words\";\n"
              "        identitystring = \"Two Words\";\n        title = K;\n    }\n)");
    EXPECT_EQ(formatted("%@", LocationList{"/p", FileUrl("/a b", true), OtherItem{"seven"}}),
              "(\n    /p,\n    \"file:///a%20b/\",\n    seven\n)");
}

TEST(Log, KeepsTheBeginningAndTheEndOfALongTextInWholeCharacters) {
    const LogCapture log;
    logEvent("x%@", std::string(Log::messageLimit - 1, 'y'));
    EXPECT_EQ(log.messages().front(), "x" + std::string(Log::messageLimit - 1, 'y'));
    for (std::size_t offset = 0; offset < 6; ++offset) {
        std::string text(offset, 'x');
        while (text.size() <= 3 * Log::messageLimit)
            text += "\u20AC";
        logEvent("begin %@ %i", text + " error: no room: make some", 7);
        const std::string message = log.messages().back();
        EXPECT_LE(message.size(), Log::messageLimit);
        EXPECT_GE(message.size(), Log::messageLimit - 6);
        EXPECT_THAT(message, AllOf(StartsWith("begin " + std::string(offset, 'x') + "\u20AC"),
                                   HasSubstr("\u20AC<…>\u20AC"),
                                   EndsWith("\u20AC error: no room: make some 7")));
    }
}

TEST(Log, LooksAtNoMoreOfAListThanItPrints) {
    const LogCapture log;
    int visits = 0;
    logEvent("items = %@", std::vector<Visited>(1'000'000, Visited{&visits}));
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_GT(visits, 10);
    EXPECT_LE(visits, static_cast<int>(Log::messageLimit));
    EXPECT_THAT(log.messages().front(), EndsWith("<…>"));
}
