#include "json/envelope_losses.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>

#include "cli/report.h"
#include "json/json_document.h"
#include "json/json_faults.h"
#include "json/json_text.h"
#include "vyn_header.h"

namespace vynpkt {
namespace {

// How the library reads a value of the envelope, or what becomes of it.
enum class Kind { kId, kDevice, kInt32, kWord, kInt64, kBag, kBody, kStatus, kPosition };

struct Key {
    const char* name;
    Kind kind;
};

constexpr Key kKeys[] = {
    {"message_id", Kind::kId},
    {"correlation_id", Kind::kId},
    {"system_id", Kind::kId},
    {"device_id", Kind::kDevice},
    {"target_id", Kind::kDevice},
    {"version", Kind::kInt32},
    {"sub_system_id", Kind::kInt32},
    {"message_type", Kind::kWord},
    {"time", Kind::kInt64},
    {"ttl", Kind::kInt64},
    {"property_bag", Kind::kBag},
    {"body", Kind::kBody},
    {"packet_status", Kind::kStatus},
    // What "show --offset" adds.
    {"offset", Kind::kPosition},
    {"length", Kind::kPosition},
};

const char* const kBagKeys[] = {"error_code", "OTT",   "ack_required", "attempt",
                                "checksum",   "error", "target",       "file"};

const Key* find_key(std::string_view name) {
    const auto* key = std::find_if(std::begin(kKeys), std::end(kKeys),
                                   [name](const Key& known) { return name == known.name; });
    return key == std::end(kKeys) ? nullptr : key;
}

std::vector<std::string> names_of_keys() {
    std::vector<std::string> names;
    for (const Key& key : kKeys) {
        names.emplace_back(key.name);
    }
    return names;
}

std::string text_loss(const JsonValue& value, std::size_t room) {
    if (!value.is(json_type_string)) {
        return value.words() + " is not a string, so it is left out";
    }
    const std::string text = value.text();
    if (text.find('\0') != std::string::npos) {
        return "ends at the NUL in it";
    }
    return text.size() < room ? "" : "cut to " + std::to_string(room - 1) + " bytes";
}

template <typename Number>
std::string number_loss(const JsonValue& value) {
    if (!value.is(json_type_int)) {
        return value.words() + " is not an integer, so it is left out";
    }
    const std::string text = value.text();
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() ? ""
                                : text + " is out of range: from " +
                                      std::to_string(std::numeric_limits<Number>::min()) + " to " +
                                      std::to_string(std::numeric_limits<Number>::max());
}

std::string word_loss(const JsonValue& value) {
    constexpr uint32_t kTravels = 0xFFFF;
    const std::string loss = number_loss<int32_t>(value);
    return loss.empty() && (value.text().front() == '-' || std::stoul(value.text()) > kTravels)
               ? value.text() + " has more than the 16 bits that travel"
               : loss;
}

std::string body_loss(const JsonValue& value) {
    return value.is(json_type_string) && value.text().find('\0') != std::string::npos
               ? "ends at the NUL in it"
               : "";
}

std::string status_loss(const JsonValue& value) {
    return value.is_default() || value.text() == "NONE"
               ? ""
               : "does not travel without --header; --status sets it";
}

// Of a key that holds something.
std::string loss_of(Kind kind, const JsonValue& value) {
    switch (kind) {
        case Kind::kId:
            return text_loss(value, MSG_HDR_ID_SIZE);
        case Kind::kDevice:
            return text_loss(value, MSG_HDR_DEVICE_ID_SIZE);
        case Kind::kInt32:
            return number_loss<int32_t>(value);
        case Kind::kInt64:
            return number_loss<int64_t>(value);
        case Kind::kWord:
            return word_loss(value);
        case Kind::kBag:
            return value.is(json_type_object)
                       ? ""
                       : value.words() + " is not an object, so it is left out";
        case Kind::kBody:
            return body_loss(value);
        case Kind::kStatus:
            return status_loss(value);
        case Kind::kPosition:
            break;
    }
    return "";
}

std::string bag_member_loss(const std::string& key, const JsonValue& value, bool own_body) {
    if (key == "error_code") {
        return number_loss<int32_t>(value);
    }
    if (key == "checksum" && own_body) {
        return value.is(json_type_string) ? text_loss(value, MSG_HDR_BAG_SIZE)
                                          : value.words() + " is not a string, so it is left out";
    }
    if (value.is_default()) {
        return "";
    }
    return key == "OTT" ? "does not travel, since Header has no field for it"
                        : "does not travel without --header";
}

class Losses {
public:
    // What was found already comes first.
    Losses(const EnvelopeUse& use, std::vector<std::string> found)
        : use_(use), found_(std::move(found)) {}

    void look_at(const std::string& name, const JsonValue& value) {
        const Key* key = find_key(name);
        if (key == nullptr) {
            unknown_.push_back(unknown_word(name, name, names_of_keys()));
        } else if (!value.is(json_type_null) && !is_replaced(name)) {
            add(name, loss_of(key->kind, value));
            if (key->kind == Kind::kBag && !use_.bag_is_told) {
                look_into_bag(value);
            }
        }
    }

    [[nodiscard]] std::vector<std::string> take() {
        if (!unknown_.empty()) {
            found_.push_back("skipped what the envelope does not know: " + listed(unknown_));
        }
        return std::move(found_);
    }

private:
    [[nodiscard]] bool is_replaced(const std::string& name) const {
        return std::find(use_.replaced.begin(), use_.replaced.end(), name) != use_.replaced.end();
    }

    void add(const std::string& path, const std::string& loss) {
        if (!loss.empty()) {
            found_.push_back(json_text(path) + ": " + loss);
        }
    }

    void look_into_bag(const JsonValue& bag) {
        const std::vector<std::string> known(std::begin(kBagKeys), std::end(kBagKeys));
        for (const auto& [key, value] : bag.members()) {
            const std::string path = "property_bag." + key;
            if (std::find(known.begin(), known.end(), key) == known.end()) {
                unknown_.push_back(unknown_word(path, key, known));
            } else if (!value.is(json_type_null)) {
                add(path, bag_member_loss(key, value, use_.own_body));
            }
        }
    }

    const EnvelopeUse& use_;
    std::vector<std::string> found_;
    std::vector<std::string> unknown_;
};

// ---- What is seen at a glance --------------------------------------------------------------------

bool is_short_text(std::string_view value, std::size_t room) {
    return value.front() == '"' && value.size() < room + 2 &&
           value.find('\\') == std::string_view::npos;
}

bool is_short_number(std::string_view value, std::size_t digits) {
    return value.size() <= digits &&
           value.find_first_not_of("0123456789") == std::string_view::npos;
}

// Whether a value, as it stands in the text, surely travels whole.
bool surely_travels(Kind kind, std::string_view value) {
    switch (kind) {
        case Kind::kId:
            return is_short_text(value, MSG_HDR_ID_SIZE);
        case Kind::kDevice:
            return is_short_text(value, MSG_HDR_DEVICE_ID_SIZE);
        case Kind::kInt32:
            return is_short_number(value, 9);
        case Kind::kWord:
            return is_short_number(value, 5) && (value.size() < 5 || value <= "65535");
        case Kind::kInt64:
            return is_short_number(value, 18);
        case Kind::kBody:
            return value.front() == '"' && value.find("\\u0000") == std::string_view::npos;
        case Kind::kPosition:
            return true;
        case Kind::kBag:
        case Kind::kStatus:
            break;
    }
    return false;
}

// True of most envelopes, which need not be parsed once more then.
bool surely_travel(const std::vector<JsonMember>& members) {
    return std::all_of(members.begin(), members.end(), [](const JsonMember& member) {
        const Key* key = find_key(member.key);
        return key != nullptr && surely_travels(key->kind, member.value);
    });
}

}  // namespace

std::vector<std::string> envelope_losses(const std::string& envelope, const EnvelopeUse& use) {
    std::vector<JsonMember> members;
    const bool is_object = split_object(envelope, members);
    std::vector<std::string> repeated = repeated_keys(members);
    if (is_object && repeated.empty() && surely_travel(members)) {
        return {};
    }
    const JsonDocument document(envelope);
    Losses losses(use, std::move(repeated));
    for (const auto& [key, value] : document.root().members()) {
        losses.look_at(key, value);
    }
    return losses.take();
}

}  // namespace vynpkt
