#include "cli/progress.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <utility>

namespace vynpkt {
namespace {

constexpr std::chrono::seconds kPatience(1);
constexpr std::chrono::milliseconds kPause(200);

// Length of the progress text that stands on the terminal now.
std::size_t g_shown = 0;

}  // namespace

Progress::Progress(std::string command, uint64_t total, uint64_t steps)
    : command_(std::move(command)),
      total_(total),
      steps_(steps),
      next_time_(Clock::now() + kPatience),
      on_(::isatty(STDERR_FILENO) != 0) {}

void Progress::look(uint64_t position) {
    next_look_ = position + steps_;
    const auto now = Clock::now();
    if (now < next_time_) {
        return;
    }
    next_time_ = now + kPause;
    wipe();
    const std::string text = words(position);
    std::cerr << text << std::flush;
    g_shown = text.size();
}

std::string Progress::words(uint64_t position) const {
    constexpr uint64_t kPercent = 100;
    if (total_ > 0) {
        // The position exceeds the total when the file has grown meanwhile.
        return command_ + ": " + std::to_string(std::min(position, total_) * kPercent / total_) +
               " %";
    }
    return command_ + ": " + std::to_string(position >> 20) + " MiB";
}

void Progress::wipe() {
    if (g_shown > 0) {
        std::cerr << "\r" + std::string(g_shown, ' ') + "\r" << std::flush;
        g_shown = 0;
    }
}

}  // namespace vynpkt
