#include "sign/PropertyList.h"

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

TEST(PropertyListTest, ReadsBinary) {
    const std::string bytes = binary({"\xD2\1\2\3\4",
                                      "\x51"
                                      "a",
                                      "\x51"
                                      "b",
                                      "\x42xy", "\xA2\5\6", "\x09", "\x10\x2A"});
    const auto value = read(bytes);
    ASSERT_TRUE(value) << value.error().sentence;
    const PropertyValue expected(PropertyDictionary{{"a", sign::PropertyData{'x', 'y'}},
                                                    {"b", PropertyArray{true, std::int64_t{42}}}});
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
