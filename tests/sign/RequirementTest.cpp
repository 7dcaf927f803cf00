#include "base/ByteReader.h"
#include "sign/signature/DesignatedRequirement.h"
#include "sign/signature/RequirementText.h"

#include <gmock/gmock.h>

namespace {

using sign::CertificateFacts;
using sign::CodeFacts;

sign::Requirement parsed(const std::string& text) {
    auto requirement = sign::parsedRequirement(text);
    EXPECT_TRUE(requirement) << text << ": " << requirement.error().sentence;
    return requirement ? *requirement : sign::Requirement{};
}

sign::Digest digest(char fill, std::size_t size = 20) {
    return sign::Digest(base::bytesOf(std::string(size, fill)));
}

CertificateFacts apple(std::map<std::string, std::string, std::less<>> subject,
                       std::set<std::string, std::less<>> extensions, bool isRoot = false) {
    return {
        .subject = std::move(subject), .extensions = std::move(extensions), .isAppleRoot = isRoot};
}

const std::vector<CertificateFacts> developerId = {
    apple({{"CN", "Developer ID Application: A (9TEAM)"}, {"OU", "9TEAM"}},
          {"1.2.840.113635.100.6.1.13"}),
    apple({{"CN", "Developer ID Certification Authority"}}, {"1.2.840.113635.100.6.2.6"}),
    apple({{"CN", "Apple Root CA"}}, {}, true)};

CodeFacts code() {
    CodeFacts facts{.identifier = "org.example.tool",
                    .codeDirectoryHashes = {digest('a'), digest('b')},
                    .chain = developerId,
                    .platform = 1};
    sign::PropertyDictionary info;
    info.emplace_back("CFBundleVersion", sign::PropertyValue(std::string("1.10.2")));
    info.emplace_back("Off", sign::PropertyValue(false));
    sign::PropertyArray names;
    names.emplace_back(std::string("x"));
    names.emplace_back(std::string("fun"));
    info.emplace_back("Names", sign::PropertyValue(std::move(names)));
    facts.info = sign::PropertyValue(std::move(info));
    return facts;
}

TEST(Requirement, SurvivesItsTextAndItsBytes) {
    // Each is what Apple's tools print.
    for (const char* text : {
             "always",
             "identifier simple",
             "identifier \"org.example.tool\" and anchor apple",
             "identifier \"say \\\"\\\\\"",
             "identifier 0xc3a4",
             "anchor apple generic and ! legacy",
             "! (always or never)",
             "(always or never) and notarized",
             "always and never or notarized",
             "cdhash H\"6161616161616161616161616161616161616161\" or platform = 2",
             "certificate root = H\"6161616161616161616161616161616161616161\"",
             "certificate leaf[subject.OU] = \"9TEAM\" and certificate "
             "1[field.1.2.840.113635.100.6.2.6] "
             "/* exists */",
             "certificate leaf[subject.CN] = Apple* and certificate -2[policy.1.2.840.5] absent ",
             "info[CFBundleVersion] >= \"1.2\" and entitlement[a.b] = *c and info[x] ~ y",
             "anchor trusted or certificate 1 trusted or anchor apple Name",
             "(Name) or (\"a name\") or ! (0xc3a4) or anchor apple 0xc3a4",
             "certificate leaf[timestamp.1.2.840.113635.100.6.1.33] >= timestamp 599616000",
             "info[a] = timestamp -1 and info[a] < timestamp 0 and info[a] > timestamp 1 and "
             "info[a] <= timestamp -9223372036854775808",
         }) {
        const sign::Requirement requirement = parsed(text);
        EXPECT_EQ(sign::requirementText(requirement), text);
        const base::OwnedBytes blob = sign::requirementBlob(requirement);
        auto again = sign::readRequirement(blob);
        ASSERT_TRUE(again) << text;
        EXPECT_EQ(*again, requirement) << text;
        EXPECT_EQ(blob.size() % 4, 0U);
        for (std::size_t size = 0; size < blob.size(); ++size)
            EXPECT_FALSE(sign::readRequirement(base::Bytes(blob).first(size))) << text;
    }
    for (const char* text :
         {"", "and", "identifier", "always always", "(always", "cdhash 12", "identifier \"x",
          "certificate leaf[field.x]", "/* always", "info[a", "anchor = \"x\"", "0x1",
          "identifier 0x1g", "(Name", "(Name x)", "info[a] = timestamp", "info[a] < timestamp x",
          "info[a] ~ timestamp 1"})
        EXPECT_FALSE(sign::parsedRequirement(text)) << text;
}

TEST(Requirement, ReadsDatesAndSkipsTheMarkOfAnEditor) {
    EXPECT_EQ(parsed("info[a] >= timestamp \"20200101000000Z\""),
              parsed("\xEF\xBB\xBFinfo[a] >= timestamp 599529600"));
    EXPECT_EQ(parsed("info[a] = timestamp \"20001231235958Z\""), parsed("info[a] = timestamp -2"));
    for (const char* date :
         {"20200101000000", "20200230000000Z", "20200101240000Z", "2020-101000000Z"})
        EXPECT_FALSE(sign::parsedRequirement("info[a] = timestamp \"" + std::string(date) + '"'));
}

TEST(Requirement, SaysWhatItDoesNotUnderstand) {
    const struct {
        const char* text;
        const char* place;
    } rows[] = {{"always and", "its end"},
                {"always §", "\"§\""},
                {"identifier 0x1g and always", "\"0x1g and always\""},
                {"always /* never and so on\nalways", "\"/* never and so on\""},
                {"always and identifier \"abcdefghi", "\"\"abcdefghi\""},
                {"always $1234567890123456789012345", "\"$1234567890123456789\""},
                {"certificate leaf[field.1.40.1]", "\"field.1.40.1\""},
                {"certificate leaf[policy.1.2.4294967296] exists", "\"policy.1.2.4294967296\""},
                {"(identifer a)", "\"identifer\""}};
    for (const auto& [text, place] : rows)
        EXPECT_EQ(sign::parsedRequirement(text).error().sentence,
                  "The code requirement is not understood at " + std::string(place) +
                      ". Write it as Apple's code requirement language asks.");
}

TEST(Requirement, IsAsLongInItsTextAsInItsBytes) {
    using sign::Requirement;
    const auto repeated = [](const std::string& text, int count) {
        std::string all;
        while (count-- > 0)
            all += text;
        return all;
    };
    const struct {
        std::string before;
        std::string after;
        int most;
    } forms[] = {{"always or ", "", 199},   {"legacy and ", "", 199},
                 {"! ", "", 399},           {"! (legacy and ", ")", 133},
                 {"(always or ", ")", 199}, {"legacy and (always or ", ")", 99}};
    for (const auto& [before, after, most] : forms) {
        const auto text = [from = before, to = after, &repeated](int count) {
            return repeated(from, count) + "never" + repeated(to, count);
        };
        const Requirement longest = parsed(text(most));
        const auto read = sign::readRequirement(sign::requirementBlob(longest));
        EXPECT_TRUE(read && *read == longest) << before;
        EXPECT_EQ(parsed(sign::requirementText(longest)), longest) << before;
        for (const int count : {most + 1, 400000}) {
            const auto refused = sign::parsedRequirement(text(count));
            ASSERT_FALSE(refused) << before << count;
            EXPECT_THAT(refused.error().sentence, testing::HasSubstr("more than 400 terms"));
        }
        Requirement longer;
        longer.op = Requirement::Op::And;
        longer.operands = {longest, longest};
        EXPECT_FALSE(sign::readRequirement(sign::requirementBlob(longer))) << before;
    }
    // Balanced, it is as long as in its text, which has no order of its own.
    const auto half = sign::anyOf(std::vector<Requirement>(100));
    Requirement whole;
    whole.op = Requirement::Op::Or;
    whole.operands = {half, half};
    const auto read = sign::readRequirement(sign::requirementBlob(whole));
    EXPECT_TRUE(read && sign::parsedRequirement(sign::requirementText(*read)));
    EXPECT_FALSE(sign::parsedRequirement(repeated("(", 400000)));
    EXPECT_FALSE(
        sign::parsedRequirementSet("designated => " + repeated("always or ", 200) + "never"));
}

TEST(Requirement, HasTheBytesOfThePublishedForm) {
    EXPECT_EQ(base::hex(sign::requirementBlob(parsed("identifier abcde and anchor apple"))),
              "fade0c00"
              "00000024"
              "00000001"
              "00000006"
              "00000002"
              "00000005"
              "6162636465000000"
              "00000003");
}

TEST(RequirementSet, KeepsKindsApartAndInOrder) {
    auto set = sign::parsedRequirementSet("library => anchor apple designated => always // last");
    ASSERT_TRUE(set);
    const base::OwnedBytes blob = sign::requirementSetBlob(*set);
    auto again = sign::readRequirementSet(blob);
    ASSERT_TRUE(again);
    EXPECT_EQ(*again, *set);
    EXPECT_EQ(again->begin()->first, sign::RequirementKind::Designated);
    EXPECT_EQ(base::hex(sign::requirementSetBlob({})), "fade0c010000000c00000000");
    EXPECT_FALSE(sign::parsedRequirementSet("always"));
    EXPECT_FALSE(sign::parsedRequirementSet("designated => always =>"));
}

TEST(RequirementCheck, ComparesAsThePlatformDoes) {
    const struct {
        const char* text;
        bool holds;
    } rows[] = {
        {"identifier \"org.example.tool\"", true},
        {"identifier \"org.example.tool2\"", false},
        {"anchor apple generic and not_there", false},
        {"anchor apple generic", true},
        {"anchor apple", false},
        {"cdhash H\"6262626262626262626262626262626262626262\"", true},
        {"cdhash H\"6363636363636363636363636363636363636363\"", false},
        {"info[CFBundleVersion] > \"1.9\"", true},
        {"info[CFBundleVersion] < \"1.10.2\"", false},
        {"info[CFBundleVersion] = 1.1*", true},
        {"info[Off]", false},
        {"info[None] absent", true},
        {"info[Names] = fun", true},
        {"certificate leaf[subject.OU] = \"9TEAM\"", true},
        {"certificate 1[field.1.2.840.113635.100.6.2.6]", true},
        {"certificate 7[field.1.2.840.113635.100.6.2.6] absent", false},
        {"certificate root[field.1.2.3] absent", true},
        {"platform = 1 and ! platform = 2", true},
        {"notarized or anchor trusted", false},
    };
    for (const auto& [text, holds] : rows) {
        auto requirement = sign::parsedRequirement(text);
        EXPECT_EQ(requirement && sign::meets(code(), *requirement), holds) << text;
    }
}

TEST(DesignatedRequirement, DependsOnWhoIssuedTheChain) {
    const auto text = [](const std::vector<CertificateFacts>& chain) {
        return sign::requirementText(sign::defaultDesignatedRequirement("a.b", chain));
    };
    EXPECT_EQ(
        text(developerId),
        "identifier \"a.b\" and anchor apple generic and certificate "
        "1[field.1.2.840.113635.100.6.2.6] /* exists */ and certificate "
        "leaf[field.1.2.840.113635.100.6.1.13] /* exists */ and certificate leaf[subject.OU] = "
        "\"9TEAM\"");
    EXPECT_EQ(sign::teamOf(developerId), "9TEAM");

    std::vector<CertificateFacts> development = developerId;
    development[0] =
        apple({{"CN", "Apple Development: B"}, {"OU", "T"}}, {"1.2.840.113635.100.6.1.12"});
    development[1].extensions = {"1.2.840.113635.100.6.2.1"};
    EXPECT_EQ(
        text(development),
        "identifier \"a.b\" and anchor apple generic and certificate leaf[subject.CN] = \"Apple "
        "Development: B\" and certificate 1[field.1.2.840.113635.100.6.2.1] /* exists */");
    EXPECT_EQ(sign::teamOf(development), "T");
    development.erase(development.begin() + 1);
    EXPECT_EQ(text(development), "identifier \"a.b\" and anchor apple");

    std::vector<CertificateFacts> own = {{.sha1 = digest('a')}, {.sha1 = digest('b')}};
    const std::string a = "6161616161616161616161616161616161616161";
    const std::string b = "6262626262626262626262626262626262626262";
    EXPECT_EQ(text(own), "identifier \"a.b\" and certificate leaf = H\"" + a + '"');
    own[0].subject["O"] = "X";
    EXPECT_EQ(text(own), "identifier \"a.b\" and certificate leaf = H\"" + a + '"');
    own[1].subject["O"] = "X";
    EXPECT_EQ(text(own), "identifier \"a.b\" and certificate root = H\"" + b + '"');
    own.pop_back();
    EXPECT_EQ(text(own), "identifier \"a.b\" and certificate root = H\"" + a + '"');
    EXPECT_EQ(sign::teamOf(own), std::nullopt);
    const sign::Digest hashes[] = {digest('a'), digest('b')};
    EXPECT_EQ(sign::requirementText(sign::adHocDesignatedRequirement(hashes)),
              "cdhash H\"" + a + "\" or cdhash H\"" + b + '"');
}

} // namespace
