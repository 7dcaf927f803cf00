#include "base/Number.h"
#include "base/Printable.h"
#include "base/Utf8.h"

#include <gtest/gtest.h>

namespace {

TEST(Utf8, IsToldFromOtherBytes) {
    for (const char* text : {"", "plain", "ä", "日本語", "😀", "u\xcc\x88", "\xed\x9f\xbf",
                             "\xee\x80\x80", "\xf4\x8f\xbf\xbf"})
        EXPECT_TRUE(base::isValidUtf8(text)) << text;
    for (const char* bytes :
         {"\xe4", "a\xff", "\x80", "\xc3", "\xc0\xaf", "\xc1\xbf", "\xe0\x9f\xbf", "\xed\xa0\x80",
          "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xe6\x97", "\xe6\x97z"})
        EXPECT_FALSE(base::isValidUtf8(bytes)) << bytes;
}

TEST(Utf8, IsMadeOfUtf16) {
    const std::pair<base::OwnedBytes, const char*> cases[] = {
        {{0, 'A', 0, 0xFC, 0x20, 0xAC}, "Aü€"},
        {{0xD8, 0x3D, 0xDE, 0x00, 0xDB, 0xFF, 0xDF, 0xFF}, "😀\U0010FFFF"},
        {{0xDE, 0x00, 0xD8, 0x3D, 0, 'A'}, "\uFFFD\uFFFDA"},
        {{0xD8, 0x3D, 0xD8, 0x3D, 0xDC, 0x00}, "\uFFFD\U0001F400"},
        {{0xD7, 0xFF, 0xE0, 0x00, 0xD8, 0x3D}, "\uD7FF\uE000\uFFFD"},
        {{0xD8, 0x3D, 0xDE}, "\uFFFD"},
    };
    for (const auto& [units, text] : cases)
        EXPECT_EQ(base::utf8OfUtf16(units), text);
}

TEST(Printable, HasNothingThatATerminalObeys) {
    EXPECT_EQ(base::printable("a\nb\x1b[2J\x7f"), "a?b?[2J?");
    EXPECT_EQ(base::printable("\xc2\x9b"
                              "31m \xc2\xa0 \xff"),
              "?31m \xc2\xa0 ?");
    EXPECT_EQ(base::printable("日本 ä 😀"), "日本 ä 😀");
}

TEST(Number, IsTheWholeTextAndWithinItsBounds) {
    EXPECT_EQ(base::numberIn("7", 1, 9), 7);
    for (const char* text : {"", "0", "10", "7 ", "+7", "7x", "99999999999999999999"})
        EXPECT_FALSE(base::numberIn(text, 1, 9)) << text;
}

} // namespace
