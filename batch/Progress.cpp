#include "batch/Progress.h"

#include "base/Printable.h"
#include "base/Utf8.h"

#include <algorithm>
#include <chrono>
#include <ostream>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

std::size_t columnsOfTerminal() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

/// The first `count` characters of a text in UTF-8.
std::string beginning(const std::string& text, std::size_t count) {
    std::size_t at = 0;
    for (; at < text.size(); ++at) {
        if (!base::isContinuation(text[at]) && count-- == 0)
            break;
    }
    return text.substr(0, at);
}

} // namespace

Progress::Progress(std::ostream& out, std::mutex& mutex, bool shown, std::function<bool()> stops)
    : out_(out), mutex_(mutex), shown_(shown), stops_(std::move(stops)) {}

Progress::~Progress() {
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
    }
    end_.notify_all();
    if (drawing_.joinable())
        drawing_.join();
}

std::string Progress::start(unsigned slot, const std::string& text) {
    if (!shown_)
        return "";
    Slot& used = slots_[slot];
    used.text = text;
    used.percent = 0;
    if (!drawing_.joinable())
        drawing_ = std::thread([this] { drawOften(); });
    clear();
    draw();
    return used.pipe.path();
}

void Progress::end(unsigned slot) {
    ++done_;
    if (shown_) {
        (void)readPipes(); // what is left belongs to no other package
        slots_[slot].text.clear();
    }
}

void Progress::clear() {
    if (shown_)
        out_ << "\r\033[K" << std::flush;
}

void Progress::draw() {
    if (!shown_)
        return;
    std::string line;
    for (const auto& [number, slot] : slots_) {
        if (slot.text.empty())
            continue;
        line += (line.empty() ? "" : ", ") + base::printable(slot.text);
        if (slot.percent > 0)
            line += ' ' + std::to_string(slot.percent) + " %";
    }
    if (line.empty())
        return;
    if (total_ > 1)
        line = std::to_string(done_) + " of " + std::to_string(total_) + ", " +
               std::to_string(100 * done_ / total_) + " %: " + line;
    saysStop_ = stops_();
    if (saysStop_)
        line.insert(0, "Stopping after this: ");
    // There is room for the ^C that the terminal shows: on a second line it would stay.
    out_ << beginning(line, std::max<std::size_t>(columnsOfTerminal(), 4) - 3) << std::flush;
}

bool Progress::readPipes() {
    bool changed = false;
    for (auto& [number, slot] : slots_) {
        const auto percent = slot.pipe.takePercent();
        if (percent && !slot.text.empty()) {
            slot.percent = *percent;
            changed = true;
        }
    }
    return changed;
}

void Progress::drawOften() {
    std::unique_lock lock(mutex_);
    while (!end_.wait_for(lock, std::chrono::milliseconds(100), [this] { return ended_; })) {
        if (readPipes() || stops_() != saysStop_) {
            clear();
            draw();
        }
    }
}
