#include "sign/signature/Entitlements.h"

#include "base/ByteReader.h"

#include <gtest/gtest.h>

namespace {

base::Result<sign::Entitlements> entitlements(const std::string& content) {
    return sign::entitlementsFromXml(
        base::bytesOf("<plist version=\"1.0\">" + content + "</plist>\n"), "x.entitlements");
}

std::string der(const std::string& content) {
    auto made = entitlements(content);
    return made ? base::hex(base::Bytes(made->der).subspan(8)) : made.error().sentence;
}

TEST(Entitlements, BecomeDerWithSortedKeys) {
    EXPECT_EQ(der("<dict/>"), "7005020101b000");
    EXPECT_EQ(der("<dict><key>b</key><true/><key>a</key><false/></dict>"), "7015020101b010"
                                                                           "30060c0161010100"
                                                                           "30060c01620101ff");
    EXPECT_EQ(der("<dict><key>n</key><array><integer>127</integer><integer>128</integer>"
                  "<integer>-129</integer><string>x</string></array></dict>"),
              "701a020101b015"
              "30130c016e300e"
              "02017f"
              "02020080"
              "0202ff7f"
              "0c0178");
    EXPECT_EQ(der("<dict><key>n</key><integer>9223372036854775807</integer></dict>"),
              "7014020101b00f300d0c016e02087fffffffffffffff");
    std::string comment = "<!--<integer>9223372036854775808</integer>";
    for (int count = 0; count < 500'000; ++count)
        comment += "<integer>";
    EXPECT_EQ(der("<dict>" + comment + "--></dict>"), "7005020101b000");
    EXPECT_EQ(der("<dict><key>d</key><data>AQID</data></dict>"),
              "700f020101b00a30080c01640403010203");
    EXPECT_EQ(der("<dict><key>k</key><string>" + std::string(200, 'x') + "</string></dict>")
                  .substr(0, 28),
              "7081d7020101b081d13081ce0c01");
}

TEST(Entitlements, KeepTheTextAsItWasGiven) {
    auto made = entitlements("<dict ><!-- mine --></dict>");
    ASSERT_TRUE(made);
    EXPECT_NE(std::string(base::textOf(made->xml)).find("<dict ><!-- mine --></dict></plist>\n"),
              std::string::npos);
    auto again = sign::entitlementsFromBlob(made->xml, "x");
    ASSERT_TRUE(again);
    EXPECT_EQ(again->xml, made->xml);
    EXPECT_FALSE(sign::entitlementsFromBlob(made->der, "x"));
}

TEST(Entitlements, RefuseWhatASignatureCannotHold) {
    for (const char* content :
         {"<array/>", "<dict><key>s</key><string>\xC3</string></dict>",
          "<dict><key>i</key><integer> 9223372036854775808</integer></dict>",
          "<dict><key>i</key><integer>922337203685477580&#56;</integer></dict>",
          "<dict><key>i</key><array><integer>1</integer><integer\n>+0xFFFFFFFFFFFFFFFF </integer>"
          "</array></dict>",
          "<dict><key>r</key><real>1</real></dict>",
          "<dict><key>t</key><date>2020-01-01T00:00:00Z</date></dict>", "<dict>"}) {
        auto made = entitlements(content);
        ASSERT_FALSE(made) << content;
        EXPECT_TRUE(made.error().sentence.starts_with("The entitlements in x.entitlements "))
            << content << made.error().sentence;
    }
    EXPECT_FALSE(sign::entitlementsFromXml(base::bytesOf("bplist00"), "x.entitlements"));
}

TEST(Entitlements, SetFlagsOnlyWhereTheyAreTrue) {
    auto made =
        entitlements("<dict><key>get-task-allow</key><true/><key>dynamic-codesigning</key><true/>"
                     "<key>com.apple.private.cs.debugger</key><false/></dict>");
    ASSERT_TRUE(made);
    EXPECT_EQ(sign::executableSegmentFlags(made->value), 0x50U);
}

} // namespace
