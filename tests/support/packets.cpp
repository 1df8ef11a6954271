#include "support/packets.h"

#include <zstd.h>

namespace vyn_test {

std::string compressed(const std::string& bytes) {
    std::string out(ZSTD_compressBound(bytes.size()), '\0');
    out.resize(ZSTD_compress(out.data(), out.size(), bytes.data(), bytes.size(), 3));
    return out;
}

Header full_header() {
    Header header;
    header.set_message_id("0123");
    header.set_correlation_id("c");
    header.set_version(4);
    header.set_system_id("s");
    header.set_sub_system_id(0x80000001U);
    header.set_device_id("d/\"\xC3\xA4");
    header.set_message_type(5 | 2 << 14);
    header.set_target_id("t");
    header.set_ttl(-2);
    header.set_time(1700000000000);
    Header_Property_bag* bag = header.mutable_property_bag();
    bag->set_error_code(0x80000000U);
    bag->set_ack_required(1);
    bag->set_checksum("abc");
    bag->set_error("e/\x01");
    bag->set_target("t");
    bag->set_file("f");
    bag->set_attempt("a");
    header.set_body(std::string("\0\x01/\xFF body", 9));
    header.set_packet_status(LIVE);
    return header;
}

}  // namespace vyn_test
