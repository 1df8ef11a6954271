// The options of commands that print or read packets as JSON.
#ifndef VYN_TOOLS_CLI_PACKET_OPTIONS_H
#define VYN_TOOLS_CLI_PACKET_OPTIONS_H

#include <string>

#include "json/packet_json.h"
#include "schema/message_types.h"

namespace CLI {
class App;
}

namespace vynpkt {

class PacketOptions {
public:
    // Adds --types.
    void add_types_to(CLI::App& command);
    // Adds --types and --header; with printing also --keep-body and --enum-names.
    void add_to(CLI::App& command, bool printing);

    // Reads the file of --types or else of VYNPKT_TYPES; knows no message type without both.
    [[nodiscard]] MessageTypes read_types() const;
    // Whether either is given.
    [[nodiscard]] bool has_types() const;
    [[nodiscard]] bool header() const { return style_.header; }
    [[nodiscard]] JsonStyle style() const;

private:
    std::string types_;
    JsonStyle style_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_CLI_PACKET_OPTIONS_H
