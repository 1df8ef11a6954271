// A received packet to JSON, and another status. The input: a line of a number, then the packet.
// An odd number has it compressed first; half of it is the size of a body that is added.
#include <glib.h>

#include "bench/plain_chain.h"
#include "fuzz.h"
#include "proto_helper.h"

using vyn_fuzz::at_exact_fit, vyn_fuzz::Buffer, vyn_fuzz::require;

static void to_json(const std::string& pkt) {
    const Buffer in(pkt);
    const Buffer out(std::size_t{7} * VYN_PACKET_CAPACITY);  // more than any packet needs
    const Buffer chained(out.size);
    const auto convert = [&](const Buffer& to) {
        return cnvrt_protobuf_to_json_hdr(in.bytes(), to.text.get(), in.size, to.size);
    };
    (void)vyn_test::take_log();
    const uint32_t code = convert(out);
    const vyn_test::LogLines lines = vyn_test::take_log();
    require(plain_chain::wire_to_json(in.bytes(), in.size, chained.text.get(), out.size) == code &&
                lines == vyn_test::take_log() &&
                std::memcmp(out.text.get(), chained.text.get(), out.size) == 0,
            "the result, log and text of the steps");
    if (code == VYN_NOT_A_HEADER || code == VYN_NOT_DECOMPRESSED) {
        require(out.contents() == Buffer(out.size).contents(), "no text after a failure");
        return;
    }
    msg_hdr hdr{};
    require(code == VYN_OK || code == VYN_DOES_NOT_FIT || code == VYN_BAD_BODY, "a result");
    require(get_msg_hdr(out.text.get(), &hdr) == 1 && hdr.version == 3, "an envelope");
    (void)at_exact_fit(std::strlen(out.text.get()) + 1, code, VYN_NO_BODY_ADDED, convert);
}

static void restamp(const std::string& pkt, uint32_t status) {
    const Buffer in(pkt);
    Header header;
    const bool read = header.ParseFromString(pkt);
    header.set_packet_status(static_cast<PacketStatus>(static_cast<int>(status)));
    const std::string expected = read ? header.SerializeAsString() : "";
    uint32_t length = 0;
    uint32_t type = 0;
    const auto stamp = [&](const Buffer& to) {
        return deser_nd_alter_pkt_st(in.bytes(), in.size, to.bytes(), to.size, &length, status,
                                     &type);
    };
    require(at_exact_fit(expected.size(), read ? VYN_OK : VYN_NOT_A_HEADER, VYN_DOES_NOT_FIT,
                         stamp) == expected &&
                length == expected.size() && type == (read ? header.message_type() & 0x3FFF : 0),
            "the packet with its status");
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string pkt(reinterpret_cast<const char*>(data), size);
    const uint32_t how = vyn_fuzz::take_number(pkt);
    restamp(pkt, how);
    const Buffer digest(std::string(65, '\0'));
    g_autofree char* expected =
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, vyn_test::bytes_of(pkt), pkt.size());
    require(calculate_checksum(vyn_test::bytes_of(pkt), vyn_test::length_of(pkt), digest.text.get(),
                               digest.size) == 1 &&
                std::strcmp(digest.text.get(), expected) == 0,
            "the digest that another library makes");
    Header body;  // of a field that comes twice the last counts
    body.set_body(std::string(how / 2 % (VYN_PACKET_CAPACITY + 1), static_cast<char>(how)));
    pkt += body.SerializeAsString();
    to_json(how % 2 != 0 ? vyn_test::compressed(pkt) : pkt);
    return 0;
}
