#include "json/json_text.h"

#include <algorithm>
#include <map>

namespace vynpkt {
namespace {

// Offset behind the string that starts here. It ends at the kind of quote with which it starts: the
// library's parser takes single and double quotes.
std::size_t end_of_string(std::string_view text, std::size_t start) {
    const std::string stops{text[start], '\\'};
    std::size_t i = text.find_first_of(stops, start + 1);
    while (i != std::string_view::npos && text[i] == '\\') {
        i = text.find_first_of(stops, i + 2);
    }
    return i == std::string_view::npos ? text.size() : i + 1;
}

constexpr char kBlank[] = " \t\r\n";

bool is_quote(char c) { return c == '"' || c == '\''; }

// Reads the pieces of an object one after the other.
class ObjectReader {
public:
    explicit ObjectReader(std::string_view text) : rest_(text) {}

    // Takes this character, with the blanks in front of it.
    [[nodiscard]] bool take(char c) {
        if (next() != c) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }
    [[nodiscard]] bool take_key(std::string_view& key) {
        if (!is_quote(next())) {
            return false;
        }
        key = cut(end_of_string(rest_, 0));
        if (key.size() < 2 || key.back() != key.front()) {
            return false;
        }
        key = key.substr(1, key.size() - 2);
        return true;
    }
    [[nodiscard]] std::string_view take_value() {
        const char first = next();
        if (is_quote(first)) {
            return cut(end_of_string(rest_, 0));
        }
        return cut(first == '{' || first == '[' ? end_of_document(rest_)
                                                : rest_.find_first_of(",}] \t\r\n"));
    }
    [[nodiscard]] bool at_end() { return next() == '\0'; }

private:
    // The first character behind blanks; a NUL at the end.
    char next() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlank), rest_.size()));
        return rest_.empty() ? '\0' : rest_.front();
    }
    std::string_view cut(std::size_t size) {
        const std::string_view piece = rest_.substr(0, size);
        rest_.remove_prefix(piece.size());
        return piece;
    }

    std::string_view rest_;
};

}  // namespace

bool is_blank(std::string_view text) {
    return text.find_first_not_of(kBlank) == std::string_view::npos;
}

std::size_t end_of_document(std::string_view text) {
    int depth = 0;
    std::size_t i = text.find_first_of("\"'{}[]");
    while (i != std::string_view::npos) {
        const char c = text[i];
        if (c == '"' || c == '\'') {
            i = end_of_string(text, i);
        } else {
            ++i;
            depth += c == '{' || c == '[' ? 1 : -1;
            if (depth == 0) {
                return i;
            }
        }
        i = text.find_first_of("\"'{}[]", i);
    }
    return text.size();
}

bool split_object(std::string_view json, std::vector<JsonMember>& members) {
    ObjectReader reader(json);
    members.clear();
    if (!reader.take('{')) {
        return false;
    }
    if (reader.take('}')) {
        return reader.at_end();
    }
    do {
        JsonMember member;
        if (!reader.take_key(member.key) || !reader.take(':')) {
            return false;
        }
        member.value = reader.take_value();
        if (member.value.empty()) {
            return false;
        }
        members.push_back(member);
    } while (reader.take(','));
    return reader.take('}') && reader.at_end();
}

std::vector<std::string> repeated_keys(const std::vector<JsonMember>& members) {
    std::map<std::string, int> counts;
    std::vector<JsonMember> inner;
    for (const JsonMember& member : members) {
        ++counts[std::string(member.key)];
        if (member.key == "property_bag" && split_object(member.value, inner)) {
            for (const JsonMember& in_bag : inner) {
                ++counts["property_bag." + std::string(in_bag.key)];
            }
        }
    }
    std::vector<std::string> told;
    for (const auto& [key, count] : counts) {
        if (count > 1) {
            told.push_back("\"" + key + "\": given " + std::to_string(count) +
                           " times; the last one counts");
        }
    }
    return told;
}

std::string with_integers_quoted(std::string_view json) {
    constexpr std::size_t kSafeLength = 18;
    std::string text;
    std::size_t done = 0;
    std::size_t i = json.find_first_of("\"'-0123456789");
    while (i != std::string_view::npos) {
        std::size_t end = json.find_first_not_of("+-.0123456789eE", i);
        if (json[i] == '"' || json[i] == '\'') {
            end = end_of_string(json, i);
        } else {
            const std::string_view number = json.substr(i, end - i);
            const bool integer = number.find_first_of(".eE") == std::string_view::npos;
            if (integer && (number == "-0" || number.size() > kSafeLength)) {
                text.append(json.substr(done, i - done)).append("\"").append(number).append("\"");
                done = i + number.size();
            }
        }
        i = json.find_first_of("\"'-0123456789", end);
    }
    return text.append(json.substr(done));
}

}  // namespace vynpkt
