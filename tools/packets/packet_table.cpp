#include "packets/packet_table.h"

#include <algorithm>

#include "cli/report.h"

namespace vynpkt {
namespace {

std::string quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + '"';
}

std::string escaped(const std::string& text) {
    constexpr std::string_view kSpecial = "\t\n\r\\";
    constexpr std::string_view kLetters = "tnr\\";
    std::string escaped;
    for (const char c : text) {
        const std::size_t special = kSpecial.find(c);
        if (special == std::string_view::npos) {
            escaped += c;
        } else {
            escaped += '\\';
            escaped += kLetters[special];
        }
    }
    return escaped;
}

// The message that a value is, or null.
const Message* message_of(const Value& value) {
    if (value.kind != Value::Kind::kMessage || value.field == nullptr) {
        return nullptr;
    }
    const auto& reflection = *value.message->GetReflection();
    return value.index < 0
               ? &reflection.GetMessage(*value.message, value.field)
               : &reflection.GetRepeatedMessage(*value.message, value.field, value.index);
}

std::size_t shared_steps(const FieldPath& one, const FieldPath& other) {
    const auto ends = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
    return static_cast<std::size_t>(ends.first - one.begin());
}

}  // namespace

PacketTable::PacketTable(const Options& options, const MessageTypes& types)
    : form_(options.form), enum_names_(options.enum_names) {
    std::string_view left = options.columns;
    for (bool more = true; more;) {
        const std::size_t comma = left.find(',');
        columns_.emplace_back(std::string(left.substr(0, comma)), types);
        more = comma != std::string_view::npos;
        left.remove_prefix(more ? comma + 1 : left.size());
    }
    if (!options.each.empty()) {
        set_each(options.each, types);
    }
}

void PacketTable::set_each(const std::string& text, const MessageTypes& types) {
    each_.emplace(text, types);
    const PacketKey::Paths& paths = each_->paths();
    const bool is_repeated = std::any_of(paths.begin(), paths.end(), [](const auto& path) {
        return PacketKey::is_list(path.second, 0);
    });
    if (!is_repeated) {
        throw Failure(ExitCode::kUsage, "--each " + text, "not a repeated field of a message");
    }
}

bool PacketTable::shows_messages() const {
    return each_ || std::any_of(columns_.begin(), columns_.end(), [](const PacketKey& column) {
               return column.is_whole_message() || !column.paths().empty();
           });
}

void PacketTable::append_header(std::string& out) const {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (i > 0) {
            out += form_ == Form::kCsv ? ',' : '\t';
        }
        append_cell(columns_[i].text(), out);
    }
    out += '\n';
}

void PacketTable::append_rows(PacketContents& packet, std::string& out) {
    if (each_) {
        append_elements(packet, out);
    } else {
        append_row(packet, out);
    }
}

// ---- Elements ------------------------------------------------------------------------------------

void PacketTable::append_elements(PacketContents& packet, std::string& out) {
    element_path_ = each_->path_in(packet);
    if (element_path_ == nullptr) {
        return;
    }
    reach_elements(*packet.message(), *element_path_);
    const std::vector<Reached>& holders = levels_.back();
    std::vector<Value> elements;
    way_.resize(levels_.size() + 1);
    for (std::size_t i = 0; i < holders.size(); ++i) {
        std::size_t at = i;
        for (std::size_t level = levels_.size(); level-- > 0;) {
            way_[level] = levels_[level][at].message;
            at = levels_[level][at].parent;
        }
        elements.clear();
        read_field(*element_path_->back().field, *holders[i].message, elements);
        for (const Value& element : elements) {
            element_ = element;
            way_.back() = message_of(element);
            append_row(packet, out);
        }
    }
}

// Finds the messages on the way to the elements, those of one step of the path beside each other.
void PacketTable::reach_elements(const Message& message, const FieldPath& path) {
    levels_.assign(1, {{&message, 0}});
    std::vector<const Message*> found;
    for (std::size_t step = 0; step + 1 < path.size(); ++step) {
        levels_.emplace_back();
        const std::vector<Reached>& above = levels_[step];
        for (std::size_t i = 0; i < above.size(); ++i) {
            found.clear();
            follow(path[step], *above[i].message, found);
            for (const Message* reached : found) {
                levels_.back().push_back({reached, i});
            }
        }
    }
}

// ---- Cells ---------------------------------------------------------------------------------------

void PacketTable::append_row(PacketContents& packet, std::string& out) {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (i > 0) {
            out += form_ == Form::kCsv ? ',' : '\t';
        }
        cell_.clear();
        write_cell(columns_[i], packet);
        append_cell(cell_, out);
    }
    out += '\n';
}

// Many readers skip an empty line, so the only cell of a row is never nothing at all.
void PacketTable::append_cell(const std::string& text, std::string& out) const {
    if (form_ == Form::kTsv) {
        out += text.find_first_of("\t\n\r\\") == std::string::npos ? text : escaped(text);
        return;
    }
    const bool needs_quotes = text.find_first_of(",\"\r\n") != std::string::npos ||
                              (text.empty() && columns_.size() == 1);
    out += needs_quotes ? quoted(text) : text;
}

void PacketTable::write_cell(PacketKey& column, PacketContents& packet) {
    const FieldPath* path = column.path_in(packet);
    if (path == nullptr || element_path_ == nullptr) {
        write_values(column.values(packet), path, 0);
    } else if (!write_from_element(*path)) {
        const std::size_t shared = shared_steps(*path, *element_path_);
        write_values(column.values(*way_[shared], *path, shared), path, shared);
    }
}

// The element itself, or one of the messages that it is in.
bool PacketTable::write_from_element(const FieldPath& path) {
    const std::size_t shared = shared_steps(path, *element_path_);
    if (shared < path.size()) {
        return false;
    }
    if (shared == element_path_->size()) {
        write_value(element_);
        return true;
    }
    Value value;
    value.kind = Value::Kind::kMessage;
    value.message = way_[shared];
    write_value(value);
    return true;
}

void PacketTable::write_values(const std::vector<Value>& values, const FieldPath* path,
                               std::size_t from) {
    if (path != nullptr && PacketKey::is_list(*path, from)) {
        write_list(values, path->back().field->is_map() && !path->back().has_map_key);
    } else if (!values.empty()) {
        write_value(values.front());
    }
}

void PacketTable::write_list(const std::vector<Value>& values, bool is_map) {
    std::vector<std::string> texts;
    for (const Value& value : values) {
        std::string& text = texts.emplace_back();
        if (is_map) {
            write_entry(*message_of(value), text);
        } else {
            append_json(text, value, enum_names_);
        }
    }
    if (is_map) {
        std::sort(texts.begin(), texts.end());  // entries of a map have no order
    }
    cell_ += is_map ? '{' : '[';
    for (const std::string& text : texts) {
        cell_ += (&text == &texts.front() ? "" : ",") + text;
    }
    cell_ += is_map ? '}' : ']';
}

void PacketTable::write_entry(const Message& entry, std::string& text) const {
    const Descriptor& type = *entry.GetDescriptor();
    std::string key;
    append_plain(key, read_value(entry, *type.FindFieldByNumber(1), -1), false);
    text += json_text(key) + ':';
    append_json(text, read_value(entry, *type.FindFieldByNumber(2), -1), enum_names_);
}

// The status of a packet is always told by its name.
void PacketTable::write_value(const Value& value) {
    const bool of_header =
        value.field != nullptr && value.field->containing_type() == Header::descriptor();
    append_plain(cell_, value, enum_names_ || of_header);
}

}  // namespace vynpkt
