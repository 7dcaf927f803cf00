#include "sign/bundle/PathPattern.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace sign {

namespace {

constexpr std::size_t mostRepetitions = 32767; // RE_DUP_MAX

std::uint8_t byteOf(char letter) {
    return static_cast<std::uint8_t>(letter);
}

void addRange(std::bitset<256>& set, std::size_t low, std::size_t high) {
    for (std::size_t byte = low; byte <= high; ++byte)
        set.set(byte);
}

/// What some systems give a meaning of its own after a backslash, if not always the same.
constexpr std::string_view ambiguous =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz<>`'";

/// A class of the C locale as ranges, each from one byte to another; empty if there is none.
std::string_view rangesOf(std::string_view className) {
    static constexpr std::pair<std::string_view, std::string_view> classes[] = {
        {"alnum", "09AZaz"}, {"alpha", "AZaz"}, {"blank", "\t\t  "},   {"cntrl", "\1\x1f\x7f\x7f"},
        {"digit", "09"},     {"graph", "!~"},   {"lower", "az"},       {"print", " ~"},
        {"space", "\t\r  "}, {"upper", "AZ"},   {"punct", "!/:@[`{~"}, {"xdigit", "09AFaf"},
    };
    for (const auto& [name, ranges] : classes) {
        if (name == className)
            return ranges;
    }
    return {};
}

} // namespace

/// The states that a match may have come to, at one place of a path after the other.
class PathPattern::Search {
public:
    explicit Search(const PathPattern& pattern) : pattern_(pattern), seen_(pattern.size() + 1) {
        reached_.reserve(seen_.size());
        left_.reserve(seen_.size());
    }

    void reach(std::size_t state) {
        if (std::exchange(seen_[state], place_) != place_)
            reached_.push_back(static_cast<std::uint32_t>(state));
    }

    /// Follows all that takes no byte; whether that is a match.
    bool follow(bool isStart, bool isEnd) {
        for (std::size_t next = 0; next < reached_.size(); ++next) {
            const std::size_t index = reached_[next];
            if (index == pattern_.size())
                return true;
            const State& state = pattern_.states_[index];
            if (state.step == Step::Jump || state.step == Step::Split)
                reach(index + static_cast<std::size_t>(state.value));
            if (state.step == Step::Split || (state.step == Step::AtStart && isStart) ||
                (state.step == Step::AtEnd && isEnd))
                reach(index + 1);
        }
        return false;
    }

    /// To the next place, over `byte`.
    void goOver(std::uint8_t byte) {
        ++place_;
        left_.swap(reached_);
        reached_.clear();
        for (const std::size_t state : left_) {
            const Bytes* taken = pattern_.takenBy(state);
            if (taken && (*taken)[byte])
                reach(state + 1);
        }
    }

    [[nodiscard]] const std::vector<std::uint32_t>& reached() const { return reached_; }

private:
    const PathPattern& pattern_;
    std::size_t place_ = 1;
    std::vector<std::size_t> seen_; ///< at which place each state was reached last
    std::vector<std::uint32_t> reached_;
    std::vector<std::uint32_t> left_;
};

/// Writes the states while it reads the text; open groups are on a stack of its own.
class PathPattern::Compiler {
public:
    Compiler(std::string_view text, std::size_t mostStates)
        : text_(text), mostStates_(mostStates) {}

    std::variant<PathPattern, PatternFault> compile() {
        if (text_.find('\0') != std::string_view::npos)
            fail(PatternFault::NotTaken);
        while (at_ < text_.size() && !fault_)
            readOne();
        if (groups_.size() > 1)
            fail(PatternFault::Malformed);
        if (fault_)
            return *fault_;
        closeGroup();
        Search inside(result_);
        inside.reach(0);
        inside.follow(false, false);
        for (const std::size_t state : inside.reached()) {
            if (const Bytes* taken = result_.takenBy(state))
                result_.leading_ |= *taken;
        }
        return std::move(result_);
    }

private:
    struct Group {
        std::size_t start = 0;
        std::size_t branch = 0;         ///< where its last alternative starts
        std::vector<std::size_t> jumps; ///< from the ends of the others to its end
    };

    void fail(PatternFault fault) { fault_ = fault_.value_or(fault); }

    bool hasRoomFor(std::size_t count) {
        if (count > mostStates_ - states_.size())
            fail(PatternFault::TooLarge);
        return !fault_;
    }

    void add(State state) {
        if (hasRoomFor(1))
            states_.push_back(state);
    }

    void addAtom(const Bytes& bytes) {
        atom_ = states_.size();
        add({Step::Take, static_cast<std::ptrdiff_t>(result_.sets_.size())});
        result_.sets_.push_back(bytes);
    }

    void readOne() {
        const char letter = text_[at_++];
        switch (letter) {
        case '(':
            groups_.push_back({states_.size(), states_.size(), {}});
            return atom_.reset();
        case '|':
            return closeBranch();
        case '^':
        case '$':
            add({letter == '^' ? Step::AtStart : Step::AtEnd});
            return atom_.reset(); // cannot be repeated
        case '*':
            return repeat(0, std::nullopt);
        case '+':
            return repeat(1, std::nullopt);
        case '?':
            return repeat(0, 1);
        case '{':
            return readCounts();
        case '[':
            return readBracket();
        case '.':
            return addAtom(Bytes().set());
        case '\\':
            return readEscape();
        default:
            if (letter == ')' && groups_.size() > 1)
                return closeGroup();
            addAtom(Bytes().set(byteOf(letter)));
        }
    }

    void closeBranch() {
        Group& group = groups_.back();
        if (!hasRoomFor(2))
            return;
        const auto first = states_.begin() + static_cast<std::ptrdiff_t>(group.branch);
        states_.insert(first, {Step::Split, states_.end() - first + 2});
        group.jumps.push_back(states_.size());
        states_.push_back({Step::Jump});
        group.branch = states_.size();
        atom_.reset();
    }

    void closeGroup() {
        for (const std::size_t jump : groups_.back().jumps)
            states_[jump].value = static_cast<std::ptrdiff_t>(states_.size() - jump);
        atom_ = groups_.back().start;
        groups_.pop_back();
    }

    void repeat(std::size_t least, std::optional<std::size_t> most) {
        if (!atom_)
            return fail(PatternFault::Malformed);
        const std::vector<State> piece(states_.begin() + static_cast<std::ptrdiff_t>(*atom_),
                                       states_.end());
        const auto length = static_cast<std::ptrdiff_t>(piece.size());
        const auto append = [&] {
            if (hasRoomFor(piece.size()))
                states_.insert(states_.end(), piece.begin(), piece.end());
        };
        states_.resize(*atom_);
        for (std::size_t copy = 0; copy < least && !fault_; ++copy)
            append();
        for (std::size_t copy = least; copy < most.value_or(1) && !fault_; ++copy) {
            add({Step::Split, length + 1});
            append();
        }
        if (!most)
            add({Step::Split, -length});
    }

    std::optional<std::size_t> readNumber() {
        std::optional<std::size_t> number;
        for (; at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9'; ++at_)
            number = std::min(number.value_or(0) * 10 + static_cast<std::size_t>(text_[at_] - '0'),
                              mostRepetitions + 1);
        return number;
    }

    void readCounts() {
        const auto least = readNumber();
        const bool isRange = takes(',');
        const auto most = isRange ? readNumber() : least;
        if ((!isRange && !least) || !takes('}') || (most && *most < least.value_or(0)))
            return fail(PatternFault::Malformed);
        if (std::max(least.value_or(0), most.value_or(0)) > mostRepetitions)
            return fail(PatternFault::TooLarge);
        repeat(least.value_or(0), most);
    }

    void readEscape() {
        if (at_ == text_.size())
            return fail(PatternFault::Malformed);
        const char letter = text_[at_++];
        if (ambiguous.find(letter) != std::string_view::npos)
            return fail(PatternFault::NotTaken);
        addAtom(Bytes().set(byteOf(letter)));
    }

    void readBracket() {
        const bool isNegated = takes('^');
        Bytes set;
        for (bool isFirst = true; isFirst || !takes(']'); isFirst = false) {
            const bool isHyphen = isNext('-') && !isFirst && !isNext(']', 1);
            const auto low = readElement(set);
            const bool isRange = low && isNext('-') && !isNext(']', 1);
            if (isRange)
                ++at_;
            const auto high = isRange ? readElement(set) : low;
            if (isHyphen || (isRange && (!high || *high < *low)))
                fail(PatternFault::Malformed);
            if (fault_)
                return;
            if (low)
                addRange(set, *low, *high);
        }
        addAtom(isNegated ? ~set : set);
    }

    /// Absent if what it read is no single byte.
    std::optional<std::uint8_t> readElement(Bytes& set) {
        std::string_view name = text_.substr(at_, 1);
        char kind = '.';
        if (isNext('[') && (isNext('.', 1) || isNext('=', 1) || isNext(':', 1))) {
            kind = text_[at_ + 1];
            const char closing[] = {kind, ']'};
            name = text_.substr(at_ + 2);
            name = name.substr(0, name.find(closing, 0, 2));
            at_ += name.size() + 3;
        }
        ++at_;
        const std::string_view ranges = kind == ':' ? rangesOf(name) : name;
        if (at_ > text_.size() || ranges.empty() || (kind != ':' && name.size() != 1))
            fail(PatternFault::Malformed);
        else if (kind == '.')
            return byteOf(name[0]);
        else if (kind == '=')
            set.set(byteOf(name[0]));
        for (std::size_t range = 0; kind == ':' && range < ranges.size(); range += 2)
            addRange(set, byteOf(ranges[range]), byteOf(ranges[range + 1]));
        return std::nullopt;
    }

    [[nodiscard]] bool isNext(char letter, std::size_t further = 0) const {
        return at_ + further < text_.size() && text_[at_ + further] == letter;
    }

    bool takes(char letter) {
        const bool isThere = isNext(letter);
        at_ += isThere ? 1 : 0;
        return isThere;
    }

    std::string_view text_;
    std::size_t mostStates_;
    std::size_t at_ = 0;
    std::vector<Group> groups_ = {Group()};
    std::optional<std::size_t> atom_; ///< where what can be repeated starts
    std::optional<PatternFault> fault_;
    PathPattern result_;
    std::vector<State>& states_ = result_.states_;
};

std::variant<PathPattern, PatternFault> PathPattern::compile(std::string_view text,
                                                             std::size_t mostStates) {
    return Compiler(text, mostStates).compile();
}

const PathPattern::Bytes* PathPattern::takenBy(std::size_t state) const {
    if (state == states_.size() || states_[state].step != Step::Take)
        return nullptr;
    return &sets_[static_cast<std::size_t>(states_[state].value)];
}

bool PathPattern::matches(std::string_view path) const {
    Search search(*this);
    for (std::size_t place = 0;; ++place) {
        const bool isEnd = place == path.size();
        if (place == 0 || isEnd || leading_[byteOf(path[place])])
            search.reach(0);
        if (search.follow(place == 0, isEnd))
            return true;
        if (isEnd)
            return false;
        search.goOver(byteOf(path[place]));
    }
}

} // namespace sign
