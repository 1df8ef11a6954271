// A packet as a line of JSON: its envelope, or `Header` itself, with the message in its body.
#ifndef VYN_TOOLS_IO_PACKET_JSON_H
#define VYN_TOOLS_IO_PACKET_JSON_H

#include <string>
#include <vector>

#include "cli/report.h"
#include "io/packet_contents.h"

namespace vynpkt {

struct JsonStyle {
    bool header = false;      // as JSON of `Header`, which loses nothing, instead of the envelope
    bool types = false;       // with "type", "encoding", "name" and "message"
    bool keep_body = false;   // the body too, where "message" stands
    bool enum_names = false;  // enums in "message" by name instead of by number
    bool position = false;    // with "offset" and "length"
};

struct PacketLine {
    // What the line lacks, and the result of the library that tells it, if one does.
    struct Loss {
        std::string reason;
        LibraryCode code;
    };

    std::string json;          // without a newline; empty when the packet does not become JSON
    std::vector<Loss> losses;  // in the order in which they were met
};

// Writes the line. Keeps the room of the one before, so a caller hands over the same line again.
void write_json(PacketContents& packet, const JsonStyle& style, PacketLine& line);

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_PACKET_JSON_H
