#include "core/Format.h"

#include "core/Identities.h"
#include "core/Location.h"
#include "core/OrderedSet.h"
#include "tests/support/LogCapture.h"

#include <gmock/gmock.h>

using testing::EndsWith;

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

TEST(Log, CutsALongMessageWithAMarkBetweenCharacters) {
    const LogCapture log;
    logEvent("x%@", std::string(Log::messageLimit - 1, 'y'));
    for (std::size_t offset = 0; offset < 4; ++offset) {
        std::string text(offset, 'x');
        while (text.size() <= Log::messageLimit)
            text += "\u20AC";
        logEvent("%@", text);
    }
    const auto messages = log.messages();
    ASSERT_EQ(messages.size(), 5U);
    EXPECT_EQ(messages[0].size(), Log::messageLimit);
    EXPECT_THAT(messages[0], EndsWith("y"));
    for (std::size_t i = 1; i < messages.size(); ++i) {
        EXPECT_LE(messages[i].size(), Log::messageLimit);
        EXPECT_THAT(messages[i], EndsWith("\u20AC<…>"));
    }
}

TEST(Log, LooksAtNoMoreOfAListThanItPrints) {
    const LogCapture log;
    int visits = 0;
    logEvent("items = %@", std::vector<Visited>(1'000'000, Visited{&visits}));
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_GT(visits, 10);
    EXPECT_LE(visits, static_cast<int>(Log::messageLimit));
}
