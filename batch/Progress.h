#pragma once

#include "base/ProgressChannel.h"

#include <condition_variable>
#include <functional>
#include <iosfwd>
#include <map>
#include <mutex>
#include <string>
#include <thread>

/// The line at the bottom of a terminal: what is at work, and how far. It shares the stream with
/// what stays, so the caller's mutex guards both.
class Progress {
public:
    /// With `shown` false nothing is ever printed. `stops` tells whether nothing more will begin.
    /// `mutex` is held by the callers of all functions but these two, and outlives this object.
    Progress(std::ostream& out, std::mutex& mutex, bool shown, std::function<bool()> stops);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void add(std::size_t packages) { total_ += packages; }
    /// The named pipe that the package's steps may tell their progress through; empty if there is
    /// none.
    [[nodiscard]] std::string start(unsigned slot, const std::string& text);
    void end(unsigned slot);
    /// One is over that never was at work.
    void pass() { ++done_; }
    /// Takes the line away, for something that stays; draw() brings it back.
    void clear();
    void draw();

private:
    struct Slot {
        base::ProgressPipe pipe;
        std::string text; ///< empty if nothing is at work
        int percent = 0;
    };
    bool readPipes();
    void drawOften();

    std::ostream& out_;
    std::mutex& mutex_;
    const bool shown_;
    const std::function<bool()> stops_;
    bool saysStop_ = false;
    std::size_t total_ = 0;
    std::size_t done_ = 0;
    std::map<unsigned, Slot> slots_;
    bool ended_ = false;
    std::condition_variable end_;
    std::thread drawing_;
};
