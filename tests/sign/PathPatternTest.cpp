#include "sign/bundle/PathPattern.h"

#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>
#include <regex.h>

namespace {

using sign::PathPattern;
using sign::PatternFault;

constexpr std::size_t mostStates = 4096;

/// Other libraries read in other ways what the standard leaves open, such as "a**" and "a||b".
constexpr bool isSystemTheSame =
#ifdef __GLIBC__
    true;
#else
    false;
#endif

/// What the system's own expressions say in the C locale.
class SystemPattern {
public:
    explicit SystemPattern(const std::string& text)
        : isTaken_(regcomp(&expression_, text.c_str(), REG_EXTENDED | REG_NOSUB) == 0) {}
    SystemPattern(const SystemPattern&) = delete;
    SystemPattern& operator=(const SystemPattern&) = delete;
    ~SystemPattern() {
        if (isTaken_)
            regfree(&expression_);
    }

    [[nodiscard]] bool isTaken() const { return isTaken_; }
    [[nodiscard]] bool matches(const std::string& path) const {
        return regexec(&expression_, path.c_str(), 0, nullptr, 0) == 0;
    }

private:
    regex_t expression_ = {};
    bool isTaken_;
};

PathPattern compiled(const std::string& text) {
    return std::get<PathPattern>(PathPattern::compile(text, mostStates));
}

PatternFault faultOf(const std::string& text) {
    return std::get<PatternFault>(PathPattern::compile(text, mostStates));
}

void expectTheSame(const std::string& text, const std::vector<std::string>& paths) {
    const SystemPattern system(text);
    const auto compiled = PathPattern::compile(text, mostStates);
    const auto* pattern = std::get_if<PathPattern>(&compiled);
    ASSERT_EQ(pattern != nullptr, system.isTaken()) << text;
    if (!pattern) {
        EXPECT_EQ(std::get<PatternFault>(compiled), PatternFault::Malformed) << text;
        return;
    }
    for (const std::string& path : paths)
        EXPECT_EQ(pattern->matches(path), system.matches(path)) << text << " on \"" << path << "\"";
}

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

TEST(PathPatternTest, AgreesWithTheSystemOnEachPartOfTheSyntax) {
    if (!isSystemTheSame)
        GTEST_SKIP() << "the system's expressions are not those of glibc";
    std::vector<std::string> paths = wordsOf(
        "aa aaa aaaa ab ba abab a.b a|b a) a- a{1} a/b Resources/en.lproj/x Resources/x.lproj "
        ".DS_Store x/.DS_Store xDS_Store MacOS/a x/MacOS/a \xff\xfe");
    paths.insert(paths.end(), {"", "a\nb"});
    for (int byte = 1; byte < 256; ++byte)
        paths.emplace_back(1, static_cast<char>(byte));
    expectTheSame("", paths);
    for (const std::string& text :
         wordsOf("a ^ $ ^$ a^b a$b ^a a$ ^a$ ^^a$$ (^a) (a$) x|^a a$|b (^|a)b b(a|$) (^|/)a a*^b "
                 "(^)*b ($)* (a|$)+ (^a|b)*$ "
                 "() ()* (|a)b a||b | (|) a| |a (a|) a.b ^.$ a* ^a+$ ^a?$ ^(ab)*$ ^(a|b)*$ "
                 "^(a?){3}$ ((a)|b)+$ (((a|b)|c)|/)a$ ^(aa|b|a.b|/)$ ^a|b|-$ "
                 "^a{2}$ ^a{2,}$ ^a{0,2}$ ^a{,2}$ ^a{,}$ ^a{0}$ ^(ab){2}$ ^(a{1,2}b?){2}$ ^(){3}a$ "
                 "^a{0,0}b*$ ^(a{0})*$ "
                 "a{} a{1 a{ a{x} a{1,0} a{1,2,3} a{-1} a{1x} {1} (a ((a) a) ) } a} ] a] * +a ? "
                 "(*a) a|*b ^* (+) (^*a) $+ ${1} "
                 "a** a+? a?*b a{2}{2} a{2}* "
                 "[ [] [^] [a []a] [^]a] []-a] [a-] [-a] [^-a] [a-c] [^a-c] [c-a] [a-a] [--/] "
                 "[%--] [+---] [a---] [---] [----] "
                 "[a-c-e] [a-] [a- [a^] [^^] [.] [*+?] [\\] [\\a] [a|b] [$] [[] [[a] [\x80-\xff] "
                 "[a-\xff] [^\x01-\xff] \xff "
                 "[[.a.]] [[.-.]] [[.-.]-a] [+-[.-.]] [[.].]] [[...]] [[=a=]] [[=a=]-b] [a-[=b=]] "
                 "[[.aa.]] [[.hyphen.]] [[..]] "
                 "[[==]] [[=ab=]] [[.a] [[.a.] [[:alpha:] [[:alpha: [[: [[:] [[:]] [[::]] "
                 "[[:none:]] [[:Alpha:]] [[:alpha:]-z] "
                 "[a-[:alpha:]] [[:alpha:]-] [:alpha:] [[:digit:][:upper:]_] [^[:space:][:cntrl:]] "
                 "[[:alnum:]] [[:alpha:]] "
                 "[[:blank:]] [[:cntrl:]] [[:digit:]] [[:graph:]] [[:lower:]] [[:print:]] "
                 "[[:punct:]] [[:space:]] [[:upper:]] "
                 "[[:xdigit:]] \\ a\\ \\. a\\.b \\* \\+ \\? \\( \\) \\[ \\] \\{ \\} \\| \\^ \\$ "
                 "\\\\ \\- \\/ ^\\^ \\$$ "
                 "^Resources/.*\\.lproj/ ^(.*/)?\\.DS_Store$ ^(MacOS|Helpers)/ \\.lproj($|/) "))
        expectTheSame(text, paths);
}

/// Makes small expressions, some of which are malformed, and paths that some of them match.
class Maker {
public:
    std::string pattern() {
        static constexpr const char* pieces[] = {
            "a",    "b",   "a", "b",   ".",   "(",     ")",    "(",    ")",
            "|",    "^",   "$", "*",   "+",   "?",     "{2}",  "{1,}", "{0,2}",
            "{,1}", "{0}", "{", "}",   ",",   "1",     "[ab]", "[^a]", "[b-a]",
            "[",    "]",   "-", "[[:", ":]]", "alpha", "\\.",  "\\|"};
        std::string text;
        for (std::size_t count = below(10); count > 0; --count)
            text += pieces[below(std::size(pieces))];
        return text;
    }

    std::vector<std::string> paths() {
        std::vector<std::string> made(6);
        for (std::string& path : made) {
            for (std::size_t count = below(7); count > 0; --count)
                path += "aabb."[below(5)];
        }
        return made;
    }

private:
    std::size_t below(std::size_t end) { return random_() % end; }

    std::mt19937 random_{1};
};

TEST(PathPatternTest, AgreesWithTheSystemOnRandomPatterns) {
    if (!isSystemTheSame)
        GTEST_SKIP() << "the system's expressions are not those of glibc";
    Maker maker;
    int taken = 0;
    for (int round = 0; round < 20'000; ++round) {
        const std::string text = maker.pattern();
        taken += SystemPattern(text).isTaken() ? 1 : 0;
        expectTheSame(text, maker.paths());
    }
    EXPECT_GT(taken, 5'000);
}

TEST(PathPatternTest, EndsWhereOthersTakeAllTimeOrMemory) {
    const auto late = compiled("^.*a" + std::string(30, '.') + "b$");
    Maker maker;
    int matched = 0;
    for (int round = 0; round < 1'000; ++round) {
        std::string path;
        while (path.size() < 200)
            path += maker.paths().front();
        const bool isLate = path.ends_with('b') && path[path.size() - 32] == 'a';
        EXPECT_EQ(late.matches(path), isLate) << path;
        matched += isLate ? 1 : 0;
    }
    EXPECT_GT(matched, 50);

    std::string nested;
    for (int count = 0; count < 110; ++count)
        nested += "a?";
    for (int depth = 0; depth < 6; ++depth)
        nested = "(" + nested + ")+";
    const auto multiplied = compiled("^" + nested + "$");
    EXPECT_TRUE(multiplied.matches(std::string(1'000, 'a')));
    EXPECT_FALSE(multiplied.matches(std::string(1'000, 'a') + "b"));

    const auto deep = compiled(std::string(100'000, '(') + "a" + std::string(100'000, ')'));
    EXPECT_TRUE(deep.matches("ba"));
    EXPECT_FALSE(deep.matches("b"));
}

TEST(PathPatternTest, HasNoMoreStatesThanAllowed) {
    for (const char* text : {"((a{1,255}){1,255}){1,255}", "(a{100}){100}", "a{4097}", "(){0,4097}",
                             "(){32768}", "a{32768}", "(((a|b)+(a|b)+){64}){64}"})
        EXPECT_EQ(faultOf(text), PatternFault::TooLarge) << text;
    for (const auto& [text, size] : {std::pair("abc", 3U),
                                     {"a{5}", 5U},
                                     {"a|b", 4U},
                                     {"[ab]*", 3U},
                                     {"(ab){2,3}", 7U},
                                     {"^.$", 3U}}) {
        EXPECT_EQ(compiled(text).size(), size) << text;
        EXPECT_TRUE(std::holds_alternative<PathPattern>(PathPattern::compile(text, size))) << text;
        EXPECT_EQ(std::get<PatternFault>(PathPattern::compile(text, size - 1)),
                  PatternFault::TooLarge)
            << text;
    }
}

/// The standard leaves escapes of ordinary letters open, and has no references back here.
TEST(PathPatternTest, TakesNothingThatSystemsReadDifferently) {
    for (const std::string text :
         {"(a)\\1", "\\0", "\\9", "\\w", "a\\b", "\\n", "\\<a", "a\\>", "\\`a", "a\\'"})
        EXPECT_EQ(faultOf(text), PatternFault::NotTaken) << text;
    EXPECT_EQ(faultOf(std::string("a\0b", 3)), PatternFault::NotTaken);
    EXPECT_EQ(faultOf(std::string("[\0]", 3)), PatternFault::NotTaken);
}

} // namespace
