// How far a run has come, on the last line of a terminal.
#ifndef VYN_TOOLS_PROGRESS_H
#define VYN_TOOLS_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace vynpkt {

// Shows nothing in the first second, and nothing where standard error is no terminal.
class Progress {
public:
    // Total is 0 when it is not known: then the position counts bytes. Looks at the clock once for
    // so many steps.
    Progress(std::string command, uint64_t total, uint64_t steps = kBytesPerLook);
    ~Progress() { wipe(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    Progress(Progress&&) = delete;
    Progress& operator=(Progress&&) = delete;

    void only_if(bool wanted) { on_ = on_ && wanted; }
    void at(uint64_t position) {
        if (on_ && position >= next_look_) {
            look(position);
        }
    }

    // Clears the line for something else.
    static void wipe();

private:
    using Clock = std::chrono::steady_clock;
    static constexpr uint64_t kBytesPerLook = uint64_t{64} << 10;

    void look(uint64_t position);
    [[nodiscard]] std::string words(uint64_t position) const;

    std::string command_;
    uint64_t total_;
    uint64_t steps_;
    uint64_t next_look_ = 0;
    Clock::time_point next_time_;
    bool on_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_PROGRESS_H
