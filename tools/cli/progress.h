// Shows on the last line of a terminal how far a run has come.
#ifndef VYN_TOOLS_CLI_PROGRESS_H
#define VYN_TOOLS_CLI_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <string>

namespace vynpkt {

// Shows nothing in the first second, and nothing where standard error is no terminal.
class Progress {
public:
    // Shows the position as a share of the total, or in MiB when the total is 0, which means
    // unknown. The clock is read only once every so many steps, since that takes time.
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

    // Removes the progress text from the line, so that other text can be written there.
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

#endif  // VYN_TOOLS_CLI_PROGRESS_H
