#include "core/Description.h"

#include <algorithm>

namespace {

constexpr std::string_view cutMark = "<…>";

bool isContinuationByte(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

bool isPlainWordByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

} // namespace

void BoundedText::append(std::string_view text) {
    if (full_)
        return;
    const std::size_t room = limit_ - text_.size();
    full_ = text.size() > room;
    text_.append(text.substr(0, room));
}

void BoundedText::newLine() {
    append("\n");
    for (std::size_t i = 0; i < depth_; ++i)
        append("    ");
}

std::string BoundedText::take() {
    if (full_) {
        const bool hasRoomForMark = limit_ >= cutMark.size();
        std::size_t end = hasRoomForMark ? limit_ - cutMark.size() : 0;
        while (end > 0 && isContinuationByte(text_[end]))
            --end;
        text_.resize(end);
        text_.append(hasRoomForMark ? cutMark : "");
    }
    return std::move(text_);
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
    for (std::size_t i = 0; i < text.size() && !out.full(); ++i) {
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
