// Received bytes: their checksum, their base64, another status, and JSON. The input: a line of a
// number, then the packet. An odd number has the packet compressed before it is received; half of
// the number is the size of a body that is added.
#include <glib.h>

#include "fuzz.h"
#include "proto_helper.h"
#include "reference/plain_chain.h"
#include "vynutils.h"

using vyn_fuzz::at_exact_fit, vyn_fuzz::Buffer, vyn_fuzz::outcome_of, vyn_fuzz::require;

constexpr std::size_t kRoom = std::size_t{7} * VYN_PACKET_CAPACITY;  // more than any packet needs
constexpr auto kFailed = static_cast<uint32_t>(-1);

static void to_json(const std::string& pkt) {
    const Buffer in(pkt);
    const auto convert = [&](const Buffer& to) {
        return cnvrt_protobuf_to_json_hdr(in.bytes(), to.text, in.size, to.size);
    };
    const auto steps = [&](const Buffer& to) {
        return plain_chain::wire_to_json(in.bytes(), in.size, to.text, to.size);
    };
    const vyn_fuzz::Outcome outcome = outcome_of(kRoom, convert);
    require(outcome == outcome_of(kRoom, steps), "the result, log and text of the steps");
    const auto& [code, length, log, room] = outcome;
    if (room[0] != '#') {
        (void)at_exact_fit(room.find('\0') + 1, code, VYN_NO_BODY_ADDED, convert);
    }
}

static void restamp(const std::string& pkt, uint32_t status) {
    const Buffer in(pkt);
    Header header;
    const bool read = plain_chain::parse(in.bytes(), in.size, header);
    uint32_t type = 0;
    vyn_fuzz::require_same(
        2 * pkt.size() + 100,  // more than the packet needs
        [&](const Buffer& to) {
            const uint32_t code = deser_nd_alter_pkt_st(in.bytes(), in.size, to.bytes(), to.size,
                                                        &to.told, status, &type);
            require(vyn_test::take_log().size() == (read ? 1 : 0), "a line, as no step logs");
            return code;
        },
        [&](const Buffer& to) {
            return plain_chain::restamp(in.bytes(), in.size, status, to.bytes(), to.size, &to.told);
        });
    require(type == (read ? header.message_type() & 0x3FFF : 0), "the type of the message");
}

static std::string encoded(const std::string& bytes) {
    const Buffer in(bytes);
    g_autofree char* expected = g_base64_encode(in.bytes(), in.size);
    std::string text = at_exact_fit(std::strlen(expected) + 1, 0, kFailed, [&](const Buffer& to) {
        return base64_encode(in.bytes(), in.size, to.text, to.size);
    });
    text.pop_back();
    require(text == expected, "the text that glib makes");
    return text;
}

// A text that is accepted is the only one for its bytes.
static bool decodes(const std::string& text) {
    const Buffer in(text);
    uint32_t length = vyn_test::kUntouched;
    const auto decode = [&](const Buffer& to) {
        return base64_decode(in.text, in.size, to.bytes(), &length, to.size);
    };
    if (decode(Buffer(in.size)) != 0) {
        require(length == vyn_test::kUntouched, "a failure tells no length");
        return false;
    }
    require(encoded(at_exact_fit(length, 0, kFailed, decode)) == text, "one text for some bytes");
    return true;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string pkt(reinterpret_cast<const char*>(data), size);
    const uint32_t how = vyn_fuzz::take_number(pkt);
    restamp(pkt, how);
    (void)decodes(pkt);
    require(decodes(encoded(pkt)), "what was encoded is decoded");
    const Buffer digest(std::string(65, '\0'));
    g_autofree char* expected =
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, vyn_test::bytes_of(pkt), pkt.size());
    require(calculate_checksum(vyn_test::bytes_of(pkt), vyn_test::length_of(pkt), digest.text,
                               digest.size) == 1 &&
                std::strcmp(digest.text, expected) == 0,
            "the digest that glib makes");
    Header body;  // of a field that comes twice the last counts
    body.set_body(std::string(how / 2 % (VYN_PACKET_CAPACITY + 1), static_cast<char>(how)));
    pkt += body.SerializeAsString();
    to_json(how % 2 != 0 ? vyn_test::compressed(pkt) : pkt);
    return 0;
}
