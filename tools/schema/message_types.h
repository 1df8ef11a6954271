// Which message of the catalogue the body of a packet is. The numbers are agreed between services,
// so a file tells: a line "NUMBER NAME" for each message type, "#" in front of a comment.
#ifndef VYN_TOOLS_SCHEMA_MESSAGE_TYPES_H
#define VYN_TOOLS_SCHEMA_MESSAGE_TYPES_H

#include <cstdint>
#include <map>
#include <string>

#include "schema/catalogue.h"

namespace vynpkt {

class MessageTypes {
public:
    using Table = std::map<uint32_t, const Descriptor*>;

    // Knows no message type.
    MessageTypes() = default;
    // Reads the file. Refuses one with a wrong line.
    explicit MessageTypes(const std::string& path);

    // The message of a type, or null.
    [[nodiscard]] const Descriptor* find(uint32_t type) const;
    [[nodiscard]] bool empty() const { return table_.empty(); }
    [[nodiscard]] const Table& table() const { return table_; }

private:
    Table table_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_SCHEMA_MESSAGE_TYPES_H
