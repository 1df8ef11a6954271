#include "proto_helper.h"

#include <glib.h>
#include <google/protobuf/message.h>
#include <google/protobuf/util/json_util.h>
#include <openssl/sha.h>

#include "logger.h"
#include "protobuf/packet_file.h"
#include "protobuf/wire_convert.h"
#include "utils/guard.h"

using vyn::PacketOut;

namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace log_text {
constexpr char kNotToJson[] = "Failed to convert protobuf message to JSON";
constexpr char kNotFromJson[] = "Failed to convert JSON to protobuf message";
}  // namespace log_text

[[nodiscard]] bool append_json(const google::protobuf::Message& message, std::string& json) {
    google::protobuf::util::JsonPrintOptions options;
    options.add_whitespace = true;
    options.always_print_primitive_fields = true;
    options.always_print_enums_as_ints = true;
    options.preserve_proto_field_names = true;
    return google::protobuf::util::MessageToJsonString(message, &json, options).ok();
}

[[nodiscard]] bool parse_message(const std::string& json, google::protobuf::Message& message) {
    google::protobuf::util::JsonParseOptions options;
    options.ignore_unknown_fields = true;
    return google::protobuf::util::JsonStringToMessage(json, &message, options).ok();
}

[[nodiscard]] bool sha256(const uint8_t* data, uint32_t len,
                          unsigned char (&digest)[SHA256_DIGEST_LENGTH]) {
    SHA256_CTX context;
    return SHA256_Init(&context) == 1 && SHA256_Update(&context, data, len) == 1 &&
           SHA256_Final(digest, &context) == 1;
}

}  // namespace

uint32_t cnvrt_hdr_to_protobuf(const msg_hdr* hdr, uint8_t* out_buf, uint32_t out_buf_size,
                               uint32_t* out_len, const uint8_t* body, uint32_t body_len) {
    if (hdr == nullptr || out_buf == nullptr || out_len == nullptr ||
        (body == nullptr && body_len > 0)) {
        return VYN_NULL_POINTER;
    }
    return vyn::guarded(VYN_NOT_SERIALIZED, [&] {
        return vyn::header_to_wire(*hdr, {body, body_len}, {out_buf, out_buf_size, out_len});
    });
}

uint32_t cnvrt_json_hdr_to_protobuf(const char* json_hdr, uint8_t* out_buf, uint32_t out_buf_size,
                                    uint32_t* out_len) {
    if (json_hdr == nullptr || out_buf == nullptr || out_len == nullptr) {
        return VYN_NULL_POINTER;
    }
    return vyn::guarded(VYN_NOT_SERIALIZED, [&] {
        return vyn::json_to_wire(json_hdr, PacketOut{out_buf, out_buf_size, out_len});
    });
}

uint32_t cnvrt_protobuf_to_json_hdr(const uint8_t* pkt, char* json_out, uint32_t pkt_len,
                                    uint32_t json_out_size) {
    if (pkt == nullptr || json_out == nullptr) {
        return VYN_NULL_POINTER;
    }
    return vyn::guarded(VYN_NOT_A_HEADER,
                        [&] { return vyn::wire_to_json(pkt, pkt_len, json_out, json_out_size); });
}

uint32_t calculate_checksum(const uint8_t* data, uint32_t len, char* dest, uint32_t dest_size) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    if (dest == nullptr || (data == nullptr && len > 0) || !sha256(data, len, digest)) {
        return 0;
    }
    constexpr char kDigits[] = "0123456789abcdef";
    char hex[2 * SHA256_DIGEST_LENGTH + 1];
    char* out = hex;
    for (const unsigned char byte : digest) {
        *out++ = kDigits[byte >> 4];
        *out++ = kDigits[byte & 0xF];
    }
    *out = '\0';
    (void)g_strlcat(dest, hex, dest_size);
    return 1;
}

uint32_t deser_nd_alter_pkt_st(const uint8_t* pkt, uint32_t pkt_len, uint8_t* out_buf,
                               uint32_t out_buf_size, uint32_t* out_len, uint32_t new_status,
                               uint32_t* msg_type_out) {
    if (pkt == nullptr || out_buf == nullptr || out_len == nullptr || msg_type_out == nullptr) {
        return VYN_NULL_POINTER;
    }
    return vyn::guarded(VYN_NOT_A_HEADER, [&] {
        return vyn::restamp(pkt, pkt_len, new_status, *msg_type_out,
                            PacketOut{out_buf, out_buf_size, out_len});
    });
}

uint32_t store_proto_msg_to_file(const uint8_t* pkt, int32_t pkt_len, const char* path) {
    if (pkt == nullptr || path == nullptr) {
        return VYN_NULL_POINTER;
    }
    return vyn::guarded(VYN_NOT_SERIALIZED, [&] { return vyn::store_packet(pkt, pkt_len, path); });
}

uint32_t read_proto_msg_from_file(uint8_t** bufs, uint32_t* record_count, uint32_t* lens,
                                  const char* path) {
    if (bufs == nullptr || record_count == nullptr || lens == nullptr || path == nullptr ||
        bufs[0] == nullptr) {
        return VYN_NULL_POINTER;
    }
    return vyn::guarded(VYN_NOT_SERIALIZED,
                        [&] { return vyn::read_packets(bufs, *record_count, lens, path); });
}

bool ProtoToJson(std::string& json, const google::protobuf::Message& message) {
    const std::size_t length = json.size();
    if (vyn::guarded(false, [&] { return append_json(message, json); })) {
        return true;
    }
    json.resize(length);
    LOG(LOG_LEVEL_ERROR, log_text::kNotToJson);
    return false;
}

bool ProtoToJson(std::string& json, google::protobuf::Message& message) {
    return ProtoToJson(json, static_cast<const google::protobuf::Message&>(message));
}

bool JsonToProto(const std::string& json, google::protobuf::Message& message) {
    if (vyn::guarded(false, [&] { return parse_message(json, message); })) {
        return true;
    }
    LOG(LOG_LEVEL_ERROR, log_text::kNotFromJson);
    return false;
}
