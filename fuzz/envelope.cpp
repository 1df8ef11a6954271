// JSON envelopes to records, to the wire and back. The input: a line of a number, by which the body
// grows, a line of a body, then the envelope.
#include <json-c/json.h>

#include "bench/plain_chain.h"
#include "fuzz.h"
#include "proto_helper.h"

using vyn_fuzz::at_exact_fit, vyn_fuzz::Buffer, vyn_fuzz::require;

constexpr std::size_t kRoom = 9 * std::size_t{VYN_JSON_BODY_MAX_CHARS};  // more than any needs

// Takes over a text that is the caller's.
static std::string taken(char* text) {
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    return text != nullptr ? text : "";
}

static uint32_t to_wire(const std::string& json, const Buffer& out, uint32_t& length) {
    return cnvrt_json_hdr_to_protobuf(json.c_str(), out.bytes(), out.size, &length);
}

// What was sent is received, and sent again, but for what JSON does not carry.
static void there_and_back(Header& header) {
    const std::string pkt = vyn_test::compressed(header.SerializeAsString());
    const Buffer json(kRoom);
    const Buffer out(kRoom);
    uint32_t length = 0;
    require(cnvrt_protobuf_to_json_hdr(vyn_test::bytes_of(pkt), json.text.get(),
                                       vyn_test::length_of(pkt), json.size) == VYN_OK &&
                to_wire(json.text.get(), out, length) == VYN_OK,
            "a packet of ours is received");
    header.set_version(3);
    if (header.property_bag().error_code() == 0) {
        header.clear_property_bag();
    }
    require(out.contents().substr(0, length) == header.SerializeAsString(), "a packet comes back");
}

static void json_to_wire(const std::string& json) {
    (void)vyn_test::take_log();
    const Buffer out(kRoom);
    const Buffer chained(kRoom);
    uint32_t length = vyn_test::kUntouched;
    uint32_t chained_length = vyn_test::kUntouched;
    const uint32_t code = to_wire(json, out, length);
    const vyn_test::LogLines lines = vyn_test::take_log();
    require(plain_chain::json_to_wire(json.c_str(), chained.bytes(), chained.size,
                                      &chained_length) == code &&
                lines == vyn_test::take_log() && length == chained_length &&
                out.contents() == chained.contents(),
            "the result, log and bytes of the steps");
    const bool sent = code == VYN_OK || code == VYN_BAD_PROPERTY_BAG || code == VYN_BAD_BODY;
    require(sent || code == VYN_BAD_ENVELOPE, "a result");
    if (length == vyn_test::kUntouched) {
        return;
    }
    const std::string pkt = at_exact_fit(length, code, VYN_DOES_NOT_FIT, [&](const Buffer& to) {
        return to_wire(json, to, length);
    });
    require(length == chained_length, "the length that does not fit");
    Header header;
    if (header.ParseFromString(pkt)) {  // text that is not UTF-8 is sent, but cannot be read
        there_and_back(header);
    }
}

static std::string bytes_in(const msg_hdr& hdr) {
    return {reinterpret_cast<const char*>(&hdr), sizeof hdr};
}

// The text that json-c makes of another; none of one that is not JSON, as when it was cut. It keeps
// what it reads, but for odd numbers: of 01e it makes 01, and of that 1.
static std::string rendered(const std::string& json) {
    json_object* root = json_tokener_parse(json.c_str());
    std::string text = root != nullptr ? json_object_get_string(root) : "";
    (void)json_object_put(root);
    return text;
}

// The record of an envelope makes an envelope of the same record, and a packet of its fields.
static void record_and_back(const std::string& json, const std::string& body) {
    msg_hdr hdr{};
    if (get_msg_hdr(json.c_str(), &hdr) == 0) {
        return;
    }
    const Buffer out(kRoom);
    const Buffer chained(kRoom);
    uint32_t length = vyn_test::kUntouched;
    uint32_t chained_length = vyn_test::kUntouched;
    const auto convert = [&](const Buffer& to) {
        return cnvrt_hdr_to_protobuf(&hdr, to.bytes(), to.size, &length, vyn_test::bytes_of(body),
                                     vyn_test::length_of(body));
    };
    const uint32_t code = convert(out);
    require(plain_chain::record_to_wire(hdr, vyn_test::bytes_of(body), vyn_test::length_of(body),
                                        chained.bytes(), chained.size, &chained_length) == code &&
                length == chained_length && out.contents() == chained.contents(),
            "the packet of a record");
    if (code == VYN_OK) {
        (void)at_exact_fit(length, VYN_OK, VYN_DOES_NOT_FIT, convert);
        require(length == chained_length, "the length that does not fit");
    }
    msg_hdr again{};
    require(get_msg_hdr(taken(convert_hdr_to_json(&hdr, 0, 0)).c_str(), &again) == 1,
            "an envelope");
    again.version = hdr.version;  // always 3 in the envelope
    const std::string bag = rendered(rendered(hdr.property_bag));
    std::memset(hdr.property_bag, 0, sizeof hdr.property_bag);
    (void)memscpy(hdr.property_bag, sizeof hdr.property_bag - 1, bag.data(),
                  vyn_test::length_of(bag));
    require(bytes_in(hdr) == bytes_in(again), "a record comes back");
    require(taken(convert_hdr_to_json(&hdr, 1, 1)).find(hdr.message_id) != std::string::npos &&
                std::strcmp(hdr.message_id, again.message_id) != 0,
            "a new id");
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string json(reinterpret_cast<const char*>(data), size);
    const uint32_t more = vyn_fuzz::take_number(json) % (VYN_JSON_BODY_MAX_CHARS + 2);
    const std::string body =
        vyn_fuzz::up_to_nul(vyn_fuzz::take_line(json)) + std::string(more, 'A');
    json_to_wire(json);
    record_and_back(json, body);
    const std::string whole = taken(add_body_to_message(json.c_str(), body.c_str()));
    if (!whole.empty()) {
        json_to_wire(whole);
        const auto get_body = [&](const Buffer& to) {
            return get_body_from_message(whole.c_str(), to.text.get(), to.size) != 0 ? 1U : 0U;
        };
        require(at_exact_fit(body.size() + 1, 1, 0, get_body) == body + '\0', "a body comes back");
    }
    return 0;
}
