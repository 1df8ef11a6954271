#include "protobuf/header_json.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "envelope/envelope_text.h"
#include "envelope/message_type.h"
#include "logger.h"
#include "protobuf/header_fields.h"
#include "utils/bounded.h"
#include "vynutils.h"

namespace vyn {
namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace log_text {
constexpr char kReceived[] = "%s:Received message :%d : Message type: %d : Encoding type : %d ";
constexpr char kFromWire[] = "PH";
}  // namespace log_text

// Clears what the text of so many bytes takes, its NUL included: should the unit's encoder claim more
// than it writes, nothing from the stack becomes a body. Clearing all of the room costs more than the
// rest of a small conversion.
template <std::size_t Size>
void clear_for_text(char (&room)[Size], std::size_t count) {
    std::memset(room, 0, std::min(Size, (count + 2) / 3 * 4 + 1));
}

// The property bag as text, in the room. One that is too long for the header is left out.
[[nodiscard]] std::string_view header_bag(const msg_property_bag& bag,
                                          char (&room)[kBagTextCapacity]) {
    const std::string_view text = write_property_bag(bag, room);
    return fits(text.size(), MSG_HDR_BAG_SIZE) ? text : std::string_view{};
}

}  // namespace

void log_message_type(const char* conversion, uint32_t word) {
    LOG(LOG_LEVEL_DEBUG, log_text::kReceived, conversion, static_cast<int>(word),
        static_cast<int>(message_type_of(word)), static_cast<int>(encoding_type_of(word)));
}

vyn_result header_to_json(const Header& header, char* json_out, uint32_t json_out_size) {
    log_message_type(log_text::kFromWire, header.message_type());

    // What is too long stays empty. Of several losses the last one is the result.
    msg_hdr hdr{};
    vyn_result result = copy_header(header, hdr) ? VYN_OK : VYN_DOES_NOT_FIT;

    char base64[VYN_PACKET_CAPACITY];
    const char* body = header.body().c_str();
    if (has_binary_body(header.message_type())) {
        clear_for_text(base64, header.body().size());
        body = base64;
        if (base64_encode(reinterpret_cast<const uint8_t*>(header.body().data()),
                          static_cast<uint32_t>(header.body().size()), base64,
                          sizeof base64) != 0) {
            body = "";
            result = VYN_BAD_BODY;
        }
    } else if (!fits(header.body().size(), VYN_PACKET_CAPACITY)) {
        body = "";
        result = VYN_DOES_NOT_FIT;
    }

    msg_property_bag bag{};
    if (!copy_bag(header.property_bag(), bag)) {
        result = VYN_DOES_NOT_FIT;
    }
    char bag_room[kBagTextCapacity];
    EnvelopeText envelope(hdr, hdr.time, header_bag(bag, bag_room));
    envelope.set_body(body);
    const std::size_t length = envelope.length();
    if (!fits(length, json_out_size)) {
        return VYN_NO_BODY_ADDED;
    }
    envelope.write(json_out);
    json_out[length] = '\0';
    return result;
}

}  // namespace vyn
