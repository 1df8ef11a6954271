// What the fuzz targets do not decide about packets: null pointers, lengths that no memory holds,
// texts that do not end. All else is held against the plain chain of steps when their seeds are
// replayed.
#include "proto_helper.h"

#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/log_trap.h"
#include "support/packets.h"

namespace vyn_test {
namespace {

class ProtoHelper : public testing::Test {
protected:
    void SetUp() override { (void)take_log(); }

    uint8_t out_[1024] = {};
    uint32_t length_ = kUntouched;
};

TEST_F(ProtoHelper, TextsThatFillTheMembersOfAHeader) {
    msg_hdr hdr;
    std::memset(&hdr, 'A', sizeof hdr);
    const auto convert = [&] {
        return cnvrt_hdr_to_protobuf(&hdr, out_, sizeof out_, &length_, nullptr, 0);
    };
    EXPECT_EQ(convert(), VYN_BAD_PROPERTY_BAG);  // it does not end inside its member
    hdr.property_bag[0] = '\0';
    hdr.packet_status = 0x80000000U;
    EXPECT_EQ(convert(), VYN_OK);
    Header header;
    ASSERT_TRUE(header.ParseFromArray(out_, static_cast<int>(length_)));
    EXPECT_EQ(header.message_id() + header.correlation_id() + header.system_id(),
              times(3 * 64, 'A'));
    EXPECT_EQ(header.device_id() + header.target_id(), times(2 * 128, 'A'));
    EXPECT_EQ(header.packet_status(), INT32_MIN);
}

TEST_F(ProtoHelper, LengthsThatAreRefusedUnread) {
    const msg_hdr hdr{};
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out_, UINT32_MAX, &length_, out_, 0x80000000U),
              VYN_DOES_NOT_FIT);
    EXPECT_EQ(length_, 0x80000006U);
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out_, 8, &length_, out_, UINT32_MAX), VYN_DOES_NOT_FIT);
    EXPECT_EQ(length_, UINT32_MAX);
    uint32_t type = 0;
    const std::string body = "b\x80\x80\x80\x80\x08";  // whose bytes would follow
    EXPECT_EQ(deser_nd_alter_pkt_st(bytes_of(body), 0x80000006U, out_, 1, &length_, 1, &type),
              VYN_NOT_A_HEADER);
}

TEST_F(ProtoHelper, NullPointers) {
    const msg_hdr hdr{};
    char text[65] = "";
    uint32_t type = kUntouched;
    uint8_t* bufs[] = {out_, nullptr};
    uint8_t* none[] = {nullptr};
    const uint32_t codes[] = {
        cnvrt_hdr_to_protobuf(nullptr, out_, 64, &length_, nullptr, 0),
        cnvrt_hdr_to_protobuf(&hdr, nullptr, 64, &length_, nullptr, 0),
        cnvrt_hdr_to_protobuf(&hdr, out_, 64, nullptr, nullptr, 0),
        cnvrt_hdr_to_protobuf(&hdr, out_, 64, &length_, nullptr, 1),
        cnvrt_json_hdr_to_protobuf(nullptr, out_, 64, &length_),
        cnvrt_json_hdr_to_protobuf("{}", nullptr, 64, &length_),
        cnvrt_json_hdr_to_protobuf("{}", out_, 64, nullptr),
        cnvrt_protobuf_to_json_hdr(nullptr, text, 1, 64),
        cnvrt_protobuf_to_json_hdr(out_, nullptr, 1, 64),
        deser_nd_alter_pkt_st(nullptr, 1, out_, 1, &length_, 1, &type),
        deser_nd_alter_pkt_st(out_, 1, nullptr, 1, &length_, 1, &type),
        deser_nd_alter_pkt_st(out_, 1, out_, 1, nullptr, 1, &type),
        deser_nd_alter_pkt_st(out_, 1, out_, 1, &length_, 1, nullptr),
        store_proto_msg_to_file(nullptr, 0, "/none"),
        store_proto_msg_to_file(out_, 0, nullptr),
        read_proto_msg_from_file(nullptr, &length_, &type, "/none"),
        read_proto_msg_from_file(bufs, nullptr, &type, "/none"),
        read_proto_msg_from_file(bufs, &length_, nullptr, "/none"),
        read_proto_msg_from_file(bufs, &length_, &type, nullptr),
        read_proto_msg_from_file(none, &length_, &type, "/none"),
        calculate_checksum(nullptr, 1, text, sizeof text) + 1,
        calculate_checksum(out_, 1, nullptr, sizeof text) + 1,
    };
    for (const uint32_t& code : codes) {
        EXPECT_EQ(code, VYN_NULL_POINTER) << &code - codes;
    }
    EXPECT_EQ(length_, kUntouched);
    EXPECT_EQ(type, kUntouched);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(take_log(), LogLines{});
}

TEST_F(ProtoHelper, ChecksumIsAppendedAsFarAsItFits) {
    const std::string of_abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    for (uint32_t size = 0; size <= 68; ++size) {
        std::string dest = times(80, '#');
        std::memcpy(dest.data(), "x:", 3);
        EXPECT_EQ(calculate_checksum(bytes_of("abc"), 3, dest.data(), size), 1U);
        // A text that does not end inside its size is left alone.
        const std::string expected = size < 3 ? "x:" : ("x:" + of_abc).substr(0, size - 1);
        EXPECT_EQ(dest, expected + '\0' + times(79 - expected.size(), '#')) << size;
    }
    char dest[65] = "";
    EXPECT_EQ(calculate_checksum(nullptr, 0, dest, sizeof dest), 1U);
}

TEST_F(ProtoHelper, StatusIsChangedInPlace) {
    std::string pkt = full_header().SerializeAsString();
    uint32_t type = kUntouched;
    EXPECT_EQ(deser_nd_alter_pkt_st(bytes_of(pkt), length_of(pkt), bytes_of(pkt), length_of(pkt),
                                    &length_, HISTORY, &type),
              VYN_OK);
    const std::string line =
        "7 DPH:Received message :32773 : Message type: 5 : Encoding type : 2 \n";
    EXPECT_EQ(take_log(), LogLines{line});
    EXPECT_EQ(type, 5U);
    Header expected = full_header();
    expected.set_packet_status(HISTORY);
    EXPECT_EQ(pkt, expected.SerializeAsString());
}

TEST_F(ProtoHelper, TranscodersHaveTheirFixedOptions) {
    Header header;
    header.set_message_id("m");
    header.set_packet_status(LIVE);
    std::string json = "kept";
    ASSERT_TRUE(ProtoToJson(json, header));
    EXPECT_EQ(json.find("kept{\n \"message_id\": \"m\",\n \"correlation_id\": \"\",\n"), 0U);
    EXPECT_NE(json.find("\n \"time\": \"0\",\n"), std::string::npos);
    EXPECT_NE(json.find("\n \"packet_status\": 3\n}\n"), std::string::npos);
    EXPECT_TRUE(JsonToProto(R"({"version":7,"no such key":[{}]})", header));
    EXPECT_EQ(header.ShortDebugString(), "version: 7");
    EXPECT_EQ(take_log(), LogLines{});
    EXPECT_FALSE(JsonToProto(R"({"version":"x"})", header));
    EXPECT_EQ(take_log(), LogLines{error_line("Failed to convert JSON to protobuf message")});
}

// A program may hold a copy of the library's data, which must be the library's too.
TEST_F(ProtoHelper, DefaultInstancesAreOneInProgramAndLibrary) {
    EXPECT_EQ(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(Header::descriptor()),
        &Header::default_instance());
    EXPECT_EQ(&Header().property_bag(), &Header_Property_bag::default_instance());
}

}  // namespace
}  // namespace vyn_test
