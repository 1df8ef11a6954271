#include "vyn_header.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "envelope/envelope_text.h"
#include "envelope/envelope_tree.h"
#include "envelope/message_type.h"
#include "logger.h"
#include "utils/bounded.h"
#include "utils/durable_file.h"
#include "utils/guard.h"
#include "utils/json_tree.h"

using vyn::JsonPtr;

// The services that hand a header over and those that take it are built apart, so its layout never
// changes.
static_assert(offsetof(msg_hdr, version) == 128 && offsetof(msg_hdr, property_bag) == 456 &&
              offsetof(msg_hdr, msg_type) == 716 && offsetof(msg_hdr, time) == 720 &&
              offsetof(msg_hdr, packet_status) == 736 && sizeof(msg_hdr) == 744);
static_assert(offsetof(msg_property_bag, checksum) == 12 && sizeof(msg_property_bag) == 908);

namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace log_text {
constexpr char kNoHeader[] = "convert_hdr_to_json: Received NULL arguments";
constexpr char kNotCreated[] = "convert_hdr_to_json: Failed to create JSON object";
constexpr char kBodyArguments[] = "get_body_from_message: Recevied invalid arguments";
constexpr char kUuidSize[] = "get_new_message_uuid: Invalid size";
}  // namespace log_text

// The last id handed out. No other memory depends on its order.
std::atomic<uint32_t> initial_message_id_{0};

// The largest id; the next one is 1.
constexpr uint32_t kLastId = 0x40000000;

// Copies the text of a value for the caller to free; null when there is none.
[[nodiscard]] char* new_text(const JsonPtr& value) {
    const char* rendered = json_object_get_string(value.get());
    return rendered != nullptr ? strdup(rendered) : nullptr;
}

}  // namespace

uint32_t combine_msg_type_encoding_type(uint32_t msg_type, uint32_t encoding_type) {
    return msg_type | (encoding_type << vyn::kEncodingShift);
}

char* convert_hdr_to_json(msg_hdr* hdr, int new_id, int current_time) {
    if (hdr == nullptr) {
        LOG(LOG_LEVEL_DEBUG, log_text::kNoHeader);
        return nullptr;
    }
    if (new_id != 0) {
        get_new_message_uuid(hdr->message_id, sizeof hdr->message_id);
    }
    const int64_t time =
        current_time != 0 ? static_cast<int64_t>(get_current_timestamp_()) : hdr->time;
    const JsonPtr bag =
        hdr->property_bag[0] != '\0' ? vyn::parse_member(hdr->property_bag) : nullptr;
    const char* rendered = bag != nullptr ? json_object_to_json_string(bag.get()) : nullptr;
    const vyn::EnvelopeText envelope(*hdr, time, rendered != nullptr ? rendered : "");
    const std::size_t length = envelope.length();
    auto* json = static_cast<char*>(std::malloc(length + 1));
    if (json == nullptr) {
        LOG(LOG_LEVEL_ERROR, log_text::kNotCreated);
        return nullptr;
    }
    envelope.write(json);
    json[length] = '\0';
    return json;
}

int get_msg_hdr(const char* json, msg_hdr* hdr) {
    if (json == nullptr || hdr == nullptr) {
        return 0;
    }
    const JsonPtr envelope = vyn::parse_envelope(json);
    if (envelope == nullptr) {
        return 0;
    }
    return vyn::guarded(0, [&]() -> int {
        msg_hdr read = *hdr;
        (void)vyn::read_header(envelope.get(), read);
        *hdr = read;
        return 1;
    });
}

char* add_body_to_message(const char* json, const char* body) {
    if (json == nullptr || body == nullptr) {
        return nullptr;
    }
    const JsonPtr envelope = vyn::parse_json(json);
    return vyn::put_body(envelope.get(), body) ? new_text(envelope) : nullptr;
}

int get_body_from_message(const char* json, char* body, uint32_t body_size) {
    if (json == nullptr || body == nullptr) {
        LOG(LOG_LEVEL_ERROR, log_text::kBodyArguments);
        return 0;
    }
    const JsonPtr envelope = vyn::parse_envelope(json);
    if (envelope == nullptr) {
        return 0;
    }
    const char* found = vyn::read_body(envelope.get(), body_size);
    return found != nullptr && vyn::copy_if_fits(body, body_size, found, std::strlen(found));
}

char* construct_property_bag(const msg_property_bag* bag) {
    char room[vyn::kBagTextCapacity];
    const std::string_view built =
        bag != nullptr ? vyn::write_property_bag(*bag, room) : std::string_view{};
    return built.empty() ? nullptr : strndup(built.data(), built.size());
}

uint32_t get_new_message_id(void) {
    uint32_t last = initial_message_id_.load(std::memory_order_relaxed);
    uint32_t next = 0;
    do {
        next = last >= kLastId ? 1 : last + 1;
    } while (!initial_message_id_.compare_exchange_weak(last, next, std::memory_order_relaxed));
    return next;
}

uint32_t get_current_message_id(void) {
    return initial_message_id_.load(std::memory_order_relaxed);
}

void get_new_message_uuid(char* uuid, uint32_t uuid_size) {
    if (uuid == nullptr || uuid_size < MSG_UUID_SIZE) {
        LOG(LOG_LEVEL_ERROR, log_text::kUuidSize);
        return;
    }
    uuid_t fresh;
    uuid_generate(fresh);
    uuid_unparse(fresh, uuid);
}

uint32_t memscpy(void* dest, uint32_t dest_size, const void* src, uint32_t src_size) {
    const uint32_t count = std::min(dest_size, src_size);
    if (count > 0) {
        std::memcpy(dest, src, count);
    }
    return count;
}

int fsync_parent_dir(const char* path) {
    return vyn::succeeded(path != nullptr ? vyn::sync_parent_dir(path) : EINVAL) ? 0 : -1;
}
