// JSON envelopes to packets, and to headers and back. The input: a line of a number, by which the body
// grows, a line of a body, then the envelope.
#include <json-c/json.h>

#include "fuzz.h"
#include "proto_helper.h"
#include "reference/plain_chain.h"

using vyn_fuzz::at_exact_fit, vyn_fuzz::Buffer, vyn_fuzz::require, vyn_fuzz::require_same;

constexpr std::size_t kRoom = 9 * std::size_t{VYN_JSON_BODY_MAX_CHARS};  // more than any needs

// Takes over a text that is the caller's.
static std::string taken(char* text) {
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    return text != nullptr ? text : "";
}

static void send(const char* json) {
    require_same(
        kRoom,
        [&](const Buffer& to) {
            return cnvrt_json_hdr_to_protobuf(json, to.bytes(), to.size, &to.told);
        },
        [&](const Buffer& to) {
            return plain_chain::json_to_wire(json, to.bytes(), to.size, &to.told);
        });
}

static std::string bytes_in(const msg_hdr& hdr) {
    return {reinterpret_cast<const char*>(&hdr), sizeof hdr};
}

// The header of an envelope makes a packet of its fields, and an envelope of the same header.
static void header_and_back(const std::string& json, const std::string& body) {
    msg_hdr hdr{};
    if (get_msg_hdr(json.c_str(), &hdr) == 0) {
        return;
    }
    const uint8_t* bytes = vyn_test::bytes_of(body);
    const uint32_t count = vyn_test::length_of(body);
    require_same(
        kRoom,
        [&](const Buffer& to) {
            return cnvrt_hdr_to_protobuf(&hdr, to.bytes(), to.size, &to.told, bytes, count);
        },
        [&](const Buffer& to) {
            return plain_chain::header_to_wire(hdr, bytes, count, to.bytes(), to.size, &to.told);
        });
    const auto there_and_back = [](msg_hdr there) {
        msg_hdr back{};
        require(get_msg_hdr(taken(convert_hdr_to_json(&there, 0, 0)).c_str(), &back) == 1,
                "an envelope");
        return back;
    };
    msg_hdr back = there_and_back(hdr);
    const msg_hdr again = there_and_back(back);
    require(bytes_in(back) == bytes_in(again), "a header from an envelope comes back");
    // json-c renders odd numbers in the bag otherwise, and the version is always 3.
    json_object* bag = json_tokener_parse(hdr.property_bag);
    require((bag != nullptr) == (back.property_bag[0] != '\0'), "a bag that was not cut is kept");
    (void)json_object_put(bag);
    back.version = hdr.version;
    std::memcpy(back.property_bag, hdr.property_bag, sizeof hdr.property_bag);
    require(bytes_in(hdr) == bytes_in(back), "a header comes back");
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string json(reinterpret_cast<const char*>(data), size);
    const uint32_t more = vyn_fuzz::take_number(json) % (VYN_JSON_BODY_MAX_CHARS + 2);
    const std::string body =
        vyn_fuzz::up_to_nul(vyn_fuzz::take_line(json)) + std::string(more, 'A');
    send(json.c_str());
    header_and_back(json, body);
    const std::string whole = taken(add_body_to_message(json.c_str(), body.c_str()));
    json_object* again =
        json_tokener_parse(whole.c_str());  // json-c 0.12 renders what it cannot read
    if (json_object_put(again) == 1) {
        send(whole.c_str());
        const auto get_body = [&](const Buffer& to) {
            return get_body_from_message(whole.c_str(), to.text, to.size);
        };
        require(at_exact_fit(body.size() + 1, 1, 0, get_body) == body + '\0', "a body comes back");
    }
    return 0;
}
