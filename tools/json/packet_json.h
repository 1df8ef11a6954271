// A packet as a line of JSON: its envelope, or `Header` itself, with the message in its body.
//
// With types, the envelope has the keys of the plain one, in its order and form, and then, as far as
// they apply: "packet_status" (by name) if it is set, "type" (the 14-bit number), "encoding", "name"
// (the full name of the message), "message" (its JSON, an object), "message_error" (why the body is
// not that message, or not for certain). "body" stands among the envelope's keys when there is no
// "message", when the message would not give the same bytes again, or when it is to be kept. Nothing
// of a packet is lost then: "version" is that of the packet, texts and body have any length.
//
// `Header` itself is its protobuf JSON, with "packet_status" by name; with types, the keys from "type"
// on follow, and its "body" is left out as above.
#ifndef VYN_TOOLS_JSON_PACKET_JSON_H
#define VYN_TOOLS_JSON_PACKET_JSON_H

#include <string>
#include <vector>

#include "cli/report.h"
#include "packets/packet_contents.h"

namespace vynpkt {

struct JsonStyle {
    bool header = false;      // as JSON of `Header`, which loses nothing, instead of the envelope
    bool types = false;       // with "type", "encoding", "name" and "message"
    bool keep_body = false;   // the body too, where "message" stands
    bool enum_names = false;  // enums in "message" by name instead of by number
    bool position = false;    // with "offset" and "length" in front
};

struct PacketLine {
    // What the line lacks, and the result of the library that tells it, if one does.
    struct Loss {
        std::string reason;
        LibraryCode code;
    };

    std::string json;          // without a newline; empty when the packet does not become JSON
    std::vector<Loss> losses;  // in the order in which they were met
    std::vector<char> room;    // for the library, kept from one packet to the next
};

// Writes the line. A caller hands the same line over for each packet: clearing new room each time
// would take longer than the rest.
void write_json(PacketContents& packet, const JsonStyle& style, PacketLine& line);

// `"offset": 0, "length": 38`
[[nodiscard]] std::string position_keys(const PacketContents& packet);

}  // namespace vynpkt

#endif  // VYN_TOOLS_JSON_PACKET_JSON_H
