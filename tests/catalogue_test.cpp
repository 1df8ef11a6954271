// The generated classes in a program, and the two transcoders. That the schemas are those that were
// released is told by a gate.
#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <string>

#include "proto_helper.h"
#include "support/log_trap.h"
#include "vyn_header_v3.pb.h"

namespace vyn_test {
namespace {

// A program may hold a copy of the library's data, which must be the library's too.
TEST(Catalogue, DefaultInstancesAreOneInProgramAndLibrary) {
    EXPECT_EQ(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(Header::descriptor()),
        &Header::default_instance());
    EXPECT_EQ(&Header().property_bag(), &Header_Property_bag::default_instance());
}

TEST(Transcoding, HasItsFixedOptions) {
    Header header;
    header.set_message_id("m");
    header.set_packet_status(LIVE);
    std::string json = "kept";
    ASSERT_TRUE(ProtoToJson(json, header));
    EXPECT_EQ(json,
              "kept{\n \"message_id\": \"m\",\n \"correlation_id\": \"\",\n \"version\": 0,\n "
              "\"system_id\": \"\",\n \"sub_system_id\": 0,\n \"device_id\": \"\",\n "
              "\"message_type\": 0,\n \"target_id\": \"\",\n \"ttl\": \"0\",\n \"time\": \"0\",\n "
              "\"body\": \"\",\n \"packet_status\": 3\n}\n");

    (void)take_log();
    EXPECT_TRUE(JsonToProto(R"({"version":7,"no such key":[{}]})", header));
    EXPECT_EQ(header.ShortDebugString(), "version: 7");
    EXPECT_EQ(take_log(), LogLines{});
    for (const char* bad : {"", "nonsense", "[1]", R"({"version":"x"})", R"({"version":{}})"}) {
        EXPECT_FALSE(JsonToProto(bad, header)) << bad;
        EXPECT_EQ(take_log(), LogLines{error_line("Failed to convert JSON to protobuf message")});
    }
}

}  // namespace
}  // namespace vyn_test
