#include "sign/plist/PropertyList.h"

#include "base/ByteReader.h"

#include <gmock/gmock.h>

namespace {

using sign::PropertyArray;
using sign::PropertyDictionary;
using sign::PropertyValue;

const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                         "<plist version=\"1.0\">\n";

std::string repeated(std::size_t count, std::string_view text) {
    std::string result;
    for (std::size_t index = 0; index < count; ++index)
        result += text;
    return result;
}

/// A binary property list of `objects`, each given as its bytes; the first one is the root.
std::string binary(const std::vector<std::string>& objects) {
    std::string result = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += static_cast<char>(result.size());
        result += object;
    }
    const std::size_t tableAt = result.size();
    result += table + std::string(6, '\0') + "\1\1";
    for (const std::size_t number : {objects.size(), std::size_t{0}, tableAt})
        result += std::string(7, '\0') + static_cast<char>(number);
    return result;
}

base::Result<PropertyValue> read(std::string_view text) {
    return sign::readPropertyList(base::bytesOf(text), "Info.plist");
}

TEST(PropertyListTest, WritesWhatItReadInTheFormOfApple) {
    const std::string body = "<dict>\n"
                             "\t<key>&amp;&lt;&gt;\"'</key>\n"
                             "\t<array>\n"
                             "\t\t<true/>\n"
                             "\t\t<false/>\n"
                             "\t\t<integer>-7</integer>\n"
                             "\t\t<real>10</real>\n"
                             "\t\t<real>0.10000000000000001</real>\n"
                             "\t\t<date>2026-02-03T04:05:06Z</date>\n"
                             "\t\t<data>\n"
                             "\t\tAAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKiss\n"
                             "\t\tLS4=\n"
                             "\t\t</data>\n"
                             "\t\t<array/>\n"
                             "\t</array>\n"
                             "\t<key>Z</key>\n"
                             "\t<dict/>\n"
                             "\t<key>a</key>\n"
                             "\t<string>two\nlines</string>\n"
                             "\t<key>\U0001F600</key>\n"
                             "\t<string></string>\n"
                             "\t<key>\uFB01</key>\n"
                             "\t<string>\u00e9</string>\n"
                             "</dict>\n";
    const auto value = read(head + body + "</plist>\n");
    ASSERT_TRUE(value) << value.error().sentence;
    std::string expected = head + body + "</plist>\n";
    expected.replace(expected.find("0.10000000000000001"), 19, "0.1");
    EXPECT_EQ(sign::applePropertyListXml(*value), expected);

    PropertyDictionary reversed(value->dictionary()->rbegin(), value->dictionary()->rend());
    EXPECT_EQ(sign::applePropertyListXml(PropertyValue(std::move(reversed))), expected);
}

std::string utf16(std::string_view ascii) {
    std::string result = "\xFF\xFE";
    for (const char letter : ascii)
        (result += letter) += '\0';
    return result;
}

TEST(PropertyListTest, ReadsXmlAsThePlatformDoes) {
    const auto text = [](const std::string& content) { return "<string>" + content + "</string>"; };
    const auto lines = repeated(100'000, "\r\nx"); // longer than what is read at once
    const struct {
        std::string xml;
        std::string same; ///< in the form of Apple
    } cases[] = {
        {"<string>&lt;&#65;&#x1F600;&#13;&#10;<![CDATA[&lt;\r\n]]> <!-- no --> b </string>",
         text("&lt;A\U0001F600\r\n&amp;lt;\r\n  b ")},
        {text("Icon\r"), text("Icon\r")},
        {text(lines), text(lines)},
        {text(std::string(200'000, 'x')), text(std::string(200'000, 'x'))},
        {"<dict><key>b</key><true/><key>a</key><true></true><key/><string/>\r\n<key>b</key><false/"
         "></dict>",
         "<dict>\n\t<key></key>\n\t<string></string>\n\t<key>a</key>\n\t<true/>\n"
         "\t<key>b</key>\n\t<false/>\n</dict>"},
        {"<data> QU\n\tJD!eA== QUJDQg==C</data>", "<data>\nQUJDeEFCQ0I=\n</data>"},
        {"<data/>", "<data>\n</data>"},
        {"<integer> 010\n</integer>", "<integer>10</integer>"},
        {"<integer>-0x1f</integer>", "<integer>-31</integer>"},
        {"<integer>-9223372036854775808</integer>", "<integer>-9223372036854775808</integer>"},
        {"<integer>18446744073709551615</integer>", "<integer>18446744073709551615</integer>"},
        {"<real> +1.5e1 </real>", "<real>15</real>"},
        {"<real>NaN</real>", "<real>nan</real>"},
        {"<real>-inf</real>", "<real>-infinity</real>"},
        {"<date>4001-01-01T00:00:00Z</date>", "<date>4001-01-01T00:00:00Z</date>"},
        {"<date>0001-01-01T00:00:00Z</date>", "<date>0001-01-01T00:00:00Z</date>"},
        {"<date>-44-03-15T12:00:00Z</date>", "<date>-0044-03-15T12:00:00Z</date>"},
        {"<date>-0044-03-15T12:00:00Z</date>", "<date>-0044-03-15T12:00:00Z</date>"},
        {"<date>2023-02-29T23:59:60Z</date>", "<date>2023-03-02T00:00:00Z</date>"},
    };
    for (const auto& [xml, same] : cases) {
        const std::string whole = head + xml + "</plist>";
        for (const std::string& file :
             {" \n" + whole + '\0', xml + "behind", "\xEF\xBB\xBF" + whole}) {
            const auto value = read(file);
            ASSERT_TRUE(value) << xml.substr(0, 80) << ": " << value.error().sentence;
            // Not EXPECT_EQ, which takes minutes to tell long texts apart.
            EXPECT_TRUE(sign::applePropertyListXml(*value) == head + same + "\n</plist>\n")
                << xml.substr(0, 80);
        }
    }
}

TEST(PropertyListTest, ReadsXmlToTheSameValuesWhateverItsForm) {
    const auto wide = read(utf16("<plist><string>a\r\nb\r</string></plist>"));
    ASSERT_TRUE(wide);
    EXPECT_EQ(*wide, PropertyValue(std::string("a\r\nb\r")));
    EXPECT_EQ(*read(head + "<date>2001-01-01T00:00:01Z</date></plist>"),
              PropertyValue(sign::PropertyDate{1}));
    EXPECT_EQ(*read("<dict><key>a</key><true/><key>a</key><false/></dict>"),
              PropertyValue(PropertyDictionary{{"a", false}}));
    const auto levels = [](std::size_t count) {
        return repeated(count, "<array>") + repeated(count, "</array>");
    };
    EXPECT_TRUE(read(levels(64)));
    EXPECT_FALSE(read(levels(65)));
}

TEST(PropertyListTest, RefusesXmlThatIsNoPropertyList) {
    const std::string_view bodies[] = {"<string>&name;</string>",
                                       "<string>\xFF</string>",
                                       "<string>\a</string>",
                                       "<string><true/></string>",
                                       "<true>x</true>",
                                       "<true/><true/>",
                                       "text",
                                       "",
                                       "<array>text</array>",
                                       "<array><key>a</key></array>",
                                       "<dict><true/></dict>",
                                       "<dict><key>a</key></dict>",
                                       "<dict><key>a</key><key>b</key><true/></dict>",
                                       "<plist><true/></plist>",
                                       "<set/>",
                                       "<integer/>",
                                       "<integer>1a</integer>",
                                       "<integer>--1</integer>",
                                       "<integer>-9223372036854775809</integer>",
                                       "<integer>18446744073709551616</integer>",
                                       "<real/>",
                                       "<real>1,5</real>",
                                       "<date>2026-13-01T00:00:00Z</date>",
                                       "<date>99999-01-01T00:00:00Z</date>",
                                       "<date>2026-01-01</date>",
                                       "<date>2026-01-01T00:00:00Zx</date>"};
    for (const std::string_view body : bodies) {
        const auto value = read(head + std::string(body) + "</plist>");
        ASSERT_FALSE(value) << body;
        EXPECT_EQ(value.error().kind, base::ErrorKind::Damaged) << body;
    }
    for (const char* declared : {"a \"b\"", "a SYSTEM \"b\"", "% a \"b\""})
        EXPECT_FALSE(read("<!DOCTYPE plist [<!ENTITY " + std::string(declared) +
                          ">]><plist><true/></plist>"))
            << declared;
    EXPECT_TRUE(read("<!DOCTYPE plist [<!ELEMENT plist ANY>]><plist><true/></plist>"));
    EXPECT_FALSE(read("<array><plist><true/></plist></array>"));
    EXPECT_FALSE(read(head + "<true/>"));
}

TEST(PropertyListTest, ReadsBinary) {
    const std::string bytes = binary({"\xD3\1\2\1\5\4\3", // a key that comes twice
                                      "\x51"
                                      "a",
                                      "\x51"
                                      "b",
                                      "\x42xy", "\xA4\5\6\7\x8", "\x09", "\x10\x2A",
                                      "\x14" + std::string(8, '\0') + std::string(8, '\xFF'),
                                      "\x14" + std::string(16, '\xFF')});
    const auto value = read(bytes);
    ASSERT_TRUE(value) << value.error().sentence;
    const PropertyValue expected(PropertyDictionary{
        {"b", PropertyArray{true, std::int64_t{42}, ~std::uint64_t{0}, std::int64_t{-1}}},
        {"a", sign::PropertyData{'x', 'y'}}});
    EXPECT_EQ(*value, expected);
}

TEST(PropertyListTest, RefusesWhatWouldExhaustMemoryOrStack) {
    using base::ErrorKind;
    std::vector<std::string> laughs;
    for (char next = 1; next <= 12; ++next)
        laughs.push_back("\xAE" + std::string(14, next));
    laughs.emplace_back("\x09");
    const struct {
        const char* name;
        std::string bytes;
        ErrorKind kind;
    } cases[] = {
        {"deep XML", head + repeated(100'000, "<array>"), ErrorKind::Unsupported},
        {"deep behind a comment", head + repeated(100, "<dict><key>a</key><!--</dict>-->"),
         ErrorKind::Unsupported},
        {"array that holds itself", binary({std::string("\xA1\0", 2)}), ErrorKind::Unsupported},
        {"objects that multiply", binary(laughs), ErrorKind::Unsupported},
        {"reference past the table", binary({"\xA1\7"}), ErrorKind::Damaged},
        {"array longer than the file", binary({"\xAF\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"}),
         ErrorKind::Damaged},
        {"cut trailer", "bplist00", ErrorKind::Damaged},
        {"no property list", "hello", ErrorKind::Damaged},
        {"unclosed", head + "<dict>", ErrorKind::Damaged},
        {"nothing", "", ErrorKind::Damaged},
    };
    for (const auto& [name, bytes, kind] : cases) {
        const auto value = read(bytes);
        ASSERT_FALSE(value) << name;
        EXPECT_EQ(value.error().kind, kind) << name << ": " << value.error().sentence;
        EXPECT_THAT(value.error().sentence, testing::HasSubstr("\"Info.plist\"")) << name;
    }
}

} // namespace
