// Packets as rows of a table, for spreadsheets, databases and plots.
#ifndef VYN_TOOLS_PACKETS_PACKET_TABLE_H
#define VYN_TOOLS_PACKETS_PACKET_TABLE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "packets/packet_keys.h"

namespace vynpkt {

class PacketTable {
public:
    enum class Form {
        kCsv,  // as RFC 4180 quotes, with a newline behind each row
        kTsv   // a tab, a newline, a return and a backslash within a cell are \t \n \r \\ in it
    };
    struct Options {
        Form form = Form::kCsv;
        std::string columns;  // keys with commas between them
        std::string each;  // the key of a repeated field, each element of which is a row; or empty
        bool enum_names = false;
    };

    // Throws a usage error for keys that are not there. The types must stay.
    PacketTable(const Options& options, const MessageTypes& types);

    // Whether it has columns or rows of what is in a body.
    [[nodiscard]] bool shows_messages() const;
    // Appends the line with the names of the columns.
    void append_header(std::string& out) const;
    // Appends the rows of a packet.
    void append_rows(PacketContents& packet, std::string& out);

private:
    // A message on the way to the elements, and the one that it is in, of the level above.
    struct Reached {
        const Message* message;
        std::size_t parent;
    };

    void set_each(const std::string& text, const MessageTypes& types);
    void append_elements(PacketContents& packet, std::string& out);
    void reach_elements(const Message& message, const FieldPath& path);
    void append_row(PacketContents& packet, std::string& out);
    void append_cell(const std::string& text, std::string& out) const;

    void write_cell(PacketKey& column, PacketContents& packet);
    [[nodiscard]] bool write_from_element(const FieldPath& path);
    void write_values(const std::vector<Value>& values, const FieldPath* path, std::size_t from);
    void write_list(const std::vector<Value>& values, bool is_map);
    void write_entry(const Message& entry, std::string& text) const;
    void write_value(const Value& value);

    Form form_;
    bool enum_names_;
    std::vector<PacketKey> columns_;
    std::optional<PacketKey> each_;

    // Of the packet that is looked at.
    std::vector<std::vector<Reached>> levels_;
    const FieldPath* element_path_ = nullptr;  // null without --each
    std::vector<const Message*> way_;          // from the message of the body to the element
    Value element_;
    std::string cell_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_PACKETS_PACKET_TABLE_H
