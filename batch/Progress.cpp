#include "batch/Progress.h"

#include "base/Printable.h"
#include "core/Path.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <ostream>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
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
        const bool begins = (static_cast<unsigned char>(text[at]) & 0xC0U) != 0x80U;
        if (begins && count-- == 0)
            break;
    }
    return text.substr(0, at);
}

/// The number on the last whole line "N%" of what a pipe held; none if there is no such line.
std::optional<int> lastPercent(std::string_view lines) {
    const std::size_t end = lines.rfind("%\n");
    if (end == std::string_view::npos)
        return std::nullopt;
    const std::size_t before = lines.substr(0, end).rfind('\n');
    const std::string_view digits =
        lines.substr(before == std::string_view::npos ? 0 : before + 1, end);
    int percent = -1;
    std::from_chars(digits.data(), digits.data() + digits.size(), percent);
    return percent >= 0 && percent <= 100 ? std::optional(percent) : std::nullopt;
}

std::string folderForPipes() {
    for (const char* variable : {"XDG_RUNTIME_DIR", "TMPDIR", ""}) {
        const char* parent = *variable == '\0' ? "/tmp" : std::getenv(variable);
        if (parent == nullptr || *parent != '/')
            continue;
        std::string folder = appendingPathComponent(parent, "kelpmoray-XXXXXX");
        // The path stands in a command line.
        if (folder.find('\'') == std::string::npos && mkdtemp(folder.data()) != nullptr)
            return folder;
    }
    return "";
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
    for (const auto& [number, slot] : slots_)
        unlink(slot.path.c_str());
    if (!folder_.empty())
        rmdir(folder_.c_str());
}

void Progress::makePipe(unsigned number, Slot& slot) {
    if (folder_.empty())
        folder_ = folderForPipes();
    if (folder_.empty())
        return;
    const std::string path = appendingPathComponent(folder_, std::to_string(number));
    if (mkfifo(path.c_str(), 0600) != 0)
        return;
    slot.path = path;
    // For writing too: else it would be at its end between two steps.
    slot.pipe = base::FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDWR | O_NONBLOCK);
}

std::string Progress::start(unsigned slot, const std::string& text) {
    if (!shown_)
        return "";
    Slot& used = slots_[slot];
    if (!used.pipe.open())
        makePipe(slot, used);
    used.text = text;
    used.percent = 0;
    if (!drawing_.joinable())
        drawing_ = std::thread([this] { drawOften(); });
    clear();
    draw();
    return used.path;
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
        char bytes[512];
        const ssize_t count = slot.pipe.open() ? read(slot.pipe.get(), bytes, sizeof bytes) : 0;
        if (count <= 0)
            continue;
        const auto percent = lastPercent({bytes, static_cast<std::size_t>(count)});
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
