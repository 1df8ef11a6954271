// The options of commands that read packets as text, one or a line each.
#ifndef VYN_TOOLS_CLI_TEXT_OPTIONS_H
#define VYN_TOOLS_CLI_TEXT_OPTIONS_H

#include <functional>
#include <string>

#include "cli/report.h"
#include "io/text_form.h"

namespace CLI {
class App;
}

namespace vynpkt {

class TextOptions {
public:
    // Adds -l, --hex, --base64 and --plain.
    void add_to(CLI::App& command);

    // Throws a usage error for options that do not go together.
    void check() const;
    // Whether each line is a packet.
    [[nodiscard]] bool lines() const { return lines_; }
    // Whether these bytes are to be decompressed.
    [[nodiscard]] bool is_compressed(const std::string& packet) const;
    // Reads the packet that an input holds, as text or as it is. Refuses one without any byte.
    [[nodiscard]] std::string read(const std::string& path) const;
    // The packet, decompressed if it is a frame.
    [[nodiscard]] std::string plain(const std::string& packet, const Place& place) const;

    using Use = std::function<ExitCode(const std::string& packet, const Place& place)>;
    using Tell = std::function<void(const Remark& remark)>;
    // Hands over the packet of each line as soon as the line has arrived. A line that is refused is
    // told, and the next one follows. Blank lines are no packets. Returns the worst that happened.
    [[nodiscard]] ExitCode read_lines(const std::string& path, const Use& use,
                                      const Tell& tell) const;

private:
    [[nodiscard]] TextForm form() const;

    bool lines_ = false;
    bool hex_ = false;
    bool base64_ = false;
    bool plain_ = false;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_CLI_TEXT_OPTIONS_H
