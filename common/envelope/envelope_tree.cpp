#include "envelope/envelope_tree.h"

#include <cstring>
#include <new>
#include <utility>

#include "envelope/header_members.h"
#include "envelope/message_type.h"
#include "logger.h"
#include "utils/bounded.h"
#include "utils/json_tree.h"

namespace vyn {
namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace log_text {
constexpr char kNotJson[] = "Unable to parse json\n%s\n";
constexpr char kUnexpected[] = "%s expected to be %s but got %d";
constexpr char kReceivedType[] = "Received type: %d";
constexpr char kSplitType[] = "Message type: %d : Encoding type : %d ";
constexpr char kBodyTooLong[] =
    "get_body_from_message: body extracted is greater than given length";
}  // namespace log_text

// What happens when a key is absent or null: a log line, or an emptied member.
enum class Absent { kLogged, kCleared };

// Each function reads a key of the envelope into a member of the header, and logs a value of the
// wrong type. The line names the expected type as it always has, for some keys by a wrong name.

template <std::size_t Size>
void read_text(json_object* envelope, const TextMember& name, Absent absent, const char* expected,
               char (&member)[Size]) {
    json_val value{};
    const int type = read_value(envelope, name.key(), value);
    if (type == VYN_JSON_STRING) {
        (void)copy_cut(member, Size, value.str_val);
    } else if (type == VYN_JSON_NULL && absent == Absent::kCleared) {
        member[0] = '\0';
    } else {
        LOG(LOG_LEVEL_DEBUG, log_text::kUnexpected, name.key(), expected, type);
    }
}

// Returns whether the key holds an integer.
bool read_int32(json_object* envelope, const char* key, Absent absent, uint32_t& number) {
    json_val value{};
    const int type = read_value(envelope, key, value);
    if (type == VYN_JSON_INT) {
        number = static_cast<uint32_t>(value.int_val);
        return true;
    }
    if (type == VYN_JSON_NULL && absent == Absent::kCleared) {
        number = 0;
    } else {
        LOG(LOG_LEVEL_DEBUG, log_text::kUnexpected, key, "int", type);
    }
    return false;
}

void read_message_type(json_object* envelope, msg_hdr& hdr) {
    uint32_t word = 0;
    if (!read_int32(envelope, "message_type", Absent::kLogged, word)) {
        return;
    }
    LOG(LOG_LEVEL_DEBUG, log_text::kReceivedType, static_cast<int>(word));
    hdr.msg_type = message_type_of(word);
    hdr.encoding_type = encoding_type_of(word);
    LOG(LOG_LEVEL_DEBUG, log_text::kSplitType, static_cast<int>(hdr.msg_type),
        static_cast<int>(hdr.encoding_type));
}

EnvelopeBag read_property_bag(json_object* envelope, msg_hdr& hdr) {
    constexpr char kKey[] = "property_bag";
    json_val value{};
    const int type = read_value(envelope, kKey, value);
    if (type == VYN_JSON_OBJECT) {
        json_object* bag = nullptr;
        (void)json_object_object_get_ex(envelope, kKey, &bag);
        if (value.str_val == nullptr) {
            throw std::bad_alloc();  // json-c had no memory to render it
        }
        if (!copy_cut(hdr.property_bag, sizeof hdr.property_bag, value.str_val)) {
            return {EnvelopeBag::State::kCut, nullptr};
        }
        return {EnvelopeBag::State::kWhole, bag};
    }
    if (type == VYN_JSON_NULL) {
        hdr.property_bag[0] = '\0';
    } else {
        LOG(LOG_LEVEL_DEBUG, log_text::kUnexpected, kKey, "string", type);
    }
    return {};
}

}  // namespace

JsonPtr parse_envelope(const char* json) {
    JsonPtr envelope = parse_json(json);
    if (envelope == nullptr) {
        LOG(LOG_LEVEL_DEBUG, log_text::kNotJson, json);
    }
    return envelope;
}

EnvelopeBag read_header(json_object* envelope, msg_hdr& hdr) {
    read_text(envelope, kMessageId, Absent::kLogged, "int", hdr.message_id);
    read_text(envelope, kCorrelationId, Absent::kCleared, "int", hdr.correlation_id);
    read_message_type(envelope, hdr);
    read_text(envelope, kTargetId, Absent::kCleared, "string", hdr.target_id);
    (void)read_int32(envelope, "version", Absent::kLogged, hdr.version);
    read_text(envelope, kSystemId, Absent::kLogged, "string", hdr.system_id);
    (void)read_int32(envelope, "sub_system_id", Absent::kCleared, hdr.sub_system_id);
    read_text(envelope, kDeviceId, Absent::kCleared, "int", hdr.device_id);
    (void)read_int64(envelope, "time", hdr.time);
    (void)read_int64(envelope, "ttl", hdr.ttl);
    return read_property_bag(envelope, hdr);
}

const char* read_body(json_object* envelope, std::size_t size) {
    json_val value{};
    const int type = read_value(envelope, "body", value);
    if (type != VYN_JSON_STRING && type != VYN_JSON_OBJECT) {
        LOG(LOG_LEVEL_DEBUG, log_text::kUnexpected, "body", "string", type);
        return nullptr;
    }
    if (value.str_val == nullptr) {
        return nullptr;  // json-c had no memory to render it
    }
    if (!fits(std::strlen(value.str_val), size)) {
        LOG(LOG_LEVEL_ERROR, log_text::kBodyTooLong);
        return nullptr;
    }
    return value.str_val;
}

bool put_body(json_object* envelope, const char* body) {
    return json_object_is_type(envelope, json_type_object) != 0 && put_text(envelope, "body", body);
}

}  // namespace vyn
