#include "base/Json.h"

#include <gtest/gtest.h>

using base::Json;

TEST(Json, IsWrittenSoThatItReadsBack) {
    const Json value = Json::Object{
        {"a\"\\\n\x01\x7f", Json::Array{true, Json(), std::int64_t{-7}, 2.5, "ä \xff\xc3 日😀"}},
        {"", Json::Object{}},
        {"empty", Json::Array{}}};
    EXPECT_EQ(Json::parse(value.text()), value) << value.text();
    EXPECT_EQ(Json::parse(" { \"a\" : [ \"\\ud83d\\ude00\\u00e4\\/\" , 1e2 ] } ")
                  .value_or(Json())["a"]
                  .array(),
              (Json::Array{"😀ä/", 100.0}));
}

TEST(Json, RefusesWhatIsNotWellFormed) {
    for (const char* text : {"",
                             "{",
                             "[1,]",
                             "{\"a\":1,}",
                             "{\"a\":1,\"a\":2}",
                             "01",
                             "1.",
                             ".5",
                             "+1",
                             "-",
                             "1e",
                             "1.e3",
                             "tru",
                             "\"",
                             "\"\n\"",
                             "\"\\x\"",
                             "\"\\ud83d\"",
                             "\"\\u12g4\"",
                             "\"\\u41\"",
                             "\"\\ud83d\\u0041\"",
                             "\"\\udc41\"",
                             "\"\xff\"",
                             "1 2",
                             "NaN",
                             "'a'",
                             "{a:1}"})
        EXPECT_FALSE(Json::parse(text)) << text;
    EXPECT_FALSE(Json::parse(std::string(100'000, '[')));
}
