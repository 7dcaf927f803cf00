#include "core/Description.h"

#include "base/Utf8.h"

#include <algorithm>

namespace {

constexpr std::string_view cutMark = "<…>";

bool isPlainWordByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

} // namespace

void BoundedText::append(std::string_view text) {
    if (closed_)
        return;
    const std::size_t room = limit_ - text_.size();
    text_.append(text.substr(0, room));
    if (text.size() <= room)
        return;
    full_ = true;
    text.remove_prefix(std::max(room, text.size() - std::min(text.size(), limit_)));
    overflow_.append(text);
    if (overflow_.size() > limit_)
        overflow_.erase(0, overflow_.size() - limit_);
}

void BoundedText::newLine() {
    append("\n");
    for (std::size_t i = 0; i < depth_; ++i)
        append("    ");
}

std::string BoundedText::take() {
    if (!full_)
        return std::move(text_);
    if (limit_ < cutMark.size())
        return {};
    const std::string whole = text_ + overflow_;
    std::size_t tail = closed_ ? whole.size() : whole.size() - (limit_ - cutMark.size()) / 2;
    while (tail < whole.size() && base::isContinuation(whole[tail]))
        ++tail;
    std::size_t head = limit_ - cutMark.size() - (whole.size() - tail);
    while (head > 0 && base::isContinuation(whole[head]))
        --head;
    return whole.substr(0, head).append(cutMark).append(whole, tail);
}

void describe(BoundedText& out, long long number) {
    out.append(std::to_string(number));
}

void describeQuoted(BoundedText& out, std::string_view text) {
    if (!text.empty() && std::ranges::all_of(text, isPlainWordByte)) {
        out.append(text);
        return;
    }
    out.append("\"");
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (out.full()) {
            out.close();
            return;
        }
        if (text[i] == '\n')
            out.append("\\n");
        else if (text[i] == '"' || text[i] == '\\')
            out.append(std::string{'\\', text[i]});
        else
            out.append(text.substr(i, 1));
    }
    out.append("\"");
}

void describeRecord(BoundedText& out,
                    std::initializer_list<std::pair<std::string_view, std::string_view>> entries) {
    out.append("{");
    out.nest();
    for (const auto& [key, value] : entries) {
        out.newLine();
        out.append(key);
        out.append(" = ");
        describeElement(out, value);
        out.append(";");
    }
    out.unnest();
    out.newLine();
    out.append("}");
}
