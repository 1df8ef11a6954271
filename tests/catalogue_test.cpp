// The catalogue: what is registered when the library is loaded, and every message there and back.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "proto_helper.h"
#include "support/log_trap.h"
#include "vyn_header_v3.pb.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::Message;
using google::protobuf::MessageFactory;
using google::protobuf::TextFormat;
using google::protobuf::util::MessageDifferencer;

// The schemas and the lengths of their descriptors. One that keeps its length keeps its names,
// numbers and types, or nearly.
const char kFiles[] = R"(
    vyn_header_v3 478 telemetry 624 geofence 359 telemetry_svc_a2a 445 cm_update_request 471
    cm_update_response 236 cm_periodic_request 152 cm_periodic_response 126 trip 1444
    command_resp 358 command_req 431 notification 1177 vyn_digi_pin_hdr 78 digi_pin_req 138
    onboarding 3227 enums 97 ota_trigger 1103 ota_event 501 pull_ota 456
    ota_consent_request 223 ota_consent_response 143 ota_ecu_status 662 ota_manifest_ecu 388
    ota_meta_request 135 ota_token_resp 389 ota_update_resp 242 ota_token_req 217 pm_hdr 71
    pm_keep_alive_req 67 pm_state_update_noti 175 edge_a2a_req 72 edge_a2a_res 609
    pm_wakeup_noti 158 dtc_log_file 1038 heartbeat 681
)";

struct File {
    std::string name;
    std::size_t length;
    const FileDescriptor* descriptor;
};

std::vector<File> all_files() {
    std::istringstream list(kFiles);
    std::vector<File> files;
    for (File file{}; list >> file.name >> file.length;) {
        file.descriptor = DescriptorPool::generated_pool()->FindFileByName(file.name + ".proto");
        files.push_back(file);
    }
    return files;
}

// The message and all that are nested in it, but for map entries.
void collect(const Descriptor* type, std::vector<const Descriptor*>& all) {
    if (type->options().map_entry()) {
        return;
    }
    all.push_back(type);
    for (int i = 0; i < type->nested_type_count(); ++i) {
        collect(type->nested_type(i), all);
    }
}

std::vector<const Descriptor*> all_messages() {
    std::vector<const Descriptor*> all;
    for (const File& file : all_files()) {
        for (int i = 0; i < file.descriptor->message_type_count(); ++i) {
            collect(file.descriptor->message_type(i), all);
        }
    }
    return all;
}

std::unique_ptr<Message> new_message(const Descriptor* type) {
    return std::unique_ptr<Message>(MessageFactory::generated_factory()->GetPrototype(type)->New());
}

// A program may hold a copy of the library's data, which must be the library's too.
TEST(Catalogue, DefaultInstancesAreOneInProgramAndLibrary) {
    EXPECT_EQ(MessageFactory::generated_factory()->GetPrototype(Header::descriptor()),
              &Header::default_instance());
    EXPECT_EQ(&Header().property_bag(), &Header_Property_bag::default_instance());
}

TEST(Catalogue, IsRegisteredWhole) {
    int enums = 0;
    EXPECT_EQ(all_files().size(), 35U);
    for (const File& file : all_files()) {
        SCOPED_TRACE(file.name);
        ASSERT_NE(file.descriptor, nullptr);
        google::protobuf::FileDescriptorProto descriptor;
        file.descriptor->CopyTo(&descriptor);
        EXPECT_EQ(descriptor.ByteSizeLong(), file.length);
        EXPECT_EQ(file.descriptor->package(),
                  file.name == "ota_manifest_ecu" ? "com.vyn.protobuf.common.ota" : "");
        enums += file.descriptor->enum_type_count();
    }
    int fields = 0;
    int wrappers = 0;
    for (const Descriptor* type : all_messages()) {
        fields += type->field_count();
        for (int i = 0; i < type->field_count(); ++i) {
            const Descriptor* of = type->field(i)->message_type();
            wrappers += of != nullptr && of->file()->name() == "google/protobuf/wrappers.proto";
        }
    }
    EXPECT_EQ(all_messages().size(), 122U);
    EXPECT_EQ(fields, 588);
    EXPECT_EQ(enums, 5);
    EXPECT_EQ(wrappers, 21);
}

// ---- Every field of every message ---------------------------------------------------------------

void fill(Message& message, int variant);

// Lowest values, highest, or some in between.
template <typename Value>
Value pick(int variant) {
    using Limits = std::numeric_limits<Value>;
    return variant % 3 == 0 ? Limits::lowest() : variant % 3 == 1 ? Limits::max() : Value{1};
}

void put_value(Message& message, const FieldDescriptor* field, int variant) {
    const google::protobuf::Reflection* reflection = message.GetReflection();
#define PUT(TYPE, Name, value)                             \
    case FieldDescriptor::CPPTYPE_##TYPE:                  \
        if (field->is_repeated()) {                        \
            reflection->Add##Name(&message, field, value); \
        } else {                                           \
            reflection->Set##Name(&message, field, value); \
        }                                                  \
        break;
    switch (field->cpp_type()) {
        PUT(INT32, Int32, pick<int32_t>(variant))
        PUT(INT64, Int64, pick<int64_t>(variant))
        PUT(UINT32, UInt32, pick<uint32_t>(variant))
        PUT(UINT64, UInt64, pick<uint64_t>(variant))
        PUT(FLOAT, Float, pick<float>(variant) / 2)
        PUT(DOUBLE, Double, pick<double>(variant) / 2)
        PUT(BOOL, Bool, true)
        PUT(ENUM, EnumValue, field->enum_type()->value_count() - 1)
        PUT(STRING, String,
            field->type() == FieldDescriptor::TYPE_BYTES
                ? std::string("\0\xFF/\"", 4)
                : "\xC3\xA4/\"\\\n\x01" + std::to_string(variant))
        case FieldDescriptor::CPPTYPE_MESSAGE:
            fill(field->is_repeated() ? *reflection->AddMessage(&message, field)
                                      : *reflection->MutableMessage(&message, field),
                 variant);
            break;
    }
#undef PUT
}

// Of a oneof, the member whose turn it is.
void fill(Message& message, int variant) {
    const Descriptor* type = message.GetDescriptor();
    for (int i = 0; i < type->field_count(); ++i) {
        const FieldDescriptor* field = type->field(i);
        const auto* oneof = field->containing_oneof();
        if (oneof != nullptr && field->index_in_oneof() != variant % oneof->field_count()) {
            continue;
        }
        for (int element = 0; element < (field->is_repeated() ? 3 : 1); ++element) {
            put_value(message, field, variant + element);
        }
    }
}

TEST(Catalogue, EveryMessageGoesThroughWireAndJson) {
    for (const Descriptor* type : all_messages()) {
        for (int variant = 0; variant < 6; ++variant) {
            SCOPED_TRACE(type->full_name() + " " + std::to_string(variant));
            const std::unique_ptr<Message> sent = new_message(type);
            const std::unique_ptr<Message> received = new_message(type);
            EXPECT_EQ(sent->ByteSizeLong(), 0U);
            fill(*sent, variant);
            ASSERT_TRUE(received->ParseFromString(sent->SerializeAsString()));
            EXPECT_TRUE(MessageDifferencer::Equals(*sent, *received));

            std::string json = "kept";
            ASSERT_TRUE(ProtoToJson(json, *sent));
            ASSERT_EQ(json.compare(0, 5, "kept{"), 0);
            received->Clear();
            ASSERT_TRUE(JsonToProto(json.substr(4), *received)) << json;
            EXPECT_TRUE(MessageDifferencer::Equals(*sent, *received)) << json;
        }
    }
}

// ---- The wire, byte by byte ---------------------------------------------------------------------

std::string from_hex(const std::string& hex) {
    std::string bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

TEST(Catalogue, WireRules) {
    struct Row {
        const char* rule;
        const char* type;
        const char* wire;   // as it arrives
        const char* text;   // what it reads as; null: refused
        const char* again;  // as it is written; null: as it arrived
    };
    const Row rows[] = {
        {"numbers are packed", "VehicleInfo", "3A020102", "fuel_type: 1 fuel_type: 2", nullptr},
        {"and read unpacked too", "VehicleInfo", "38013802", "fuel_type: 1 fuel_type: 2",
         "3A020102"},
        {"a oneof member at its default", "Update", "3800", "int_value: 0", nullptr},
        {"the last oneof member wins", "Update", "3201783801", "int_value: 1", "3801"},
        {"a wrapper at its default", "Meta", "3200", "sequence_no { }", nullptr},
        {"an enum value without a name", "state_update", "0807", "state: 7", nullptr},
        {"a negative enum value in five bytes", "state_update", "08FFFFFFFF0F", "state: -1",
         "08FFFFFFFFFFFFFFFFFF01"},
        {"unknown fields come last", "keepAlive", "A2060178080A", "currentTime: 10 100: \"x\"",
         "080AA2060178"},
        {"another wire type is unknown", "keepAlive", "0A0178", "1: \"x\"", nullptr},
        {"a later value replaces", "keepAlive", "08010802", "currentTime: 2", "0802"},
        {"invalid UTF-8 in text", "pin_req", "0A01FF", nullptr, nullptr},
        {"anything in bytes", "pm_header", "1201FF", "body: \"\\377\"", nullptr},
        {"cut", "pin_req", "0A0278", nullptr, nullptr},
        {"not a number is written", "Msg_raw_data", "250000C07F", "radius: nan", nullptr},
        {"zero is not", "Msg_raw_data", "2500000000", "", ""},
        {"negative zero, of which releases differ", "Msg_raw_data", "2500000080", "radius: -0",
         GOOGLE_PROTOBUF_VERSION < 3021000 ? "" : nullptr},
        {"an integer of more bits is cut", "pm_header", "08FFFFFFFF7F", "message_type: 4294967295",
         "08FFFFFFFF0F"},
        {"a negative int32 takes ten bytes", "DataItem", "08FFFFFFFFFFFFFFFFFF01", "id: -1",
         nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.rule);
        const Descriptor* type = DescriptorPool::generated_pool()->FindMessageTypeByName(row.type);
        ASSERT_NE(type, nullptr);
        const std::unique_ptr<Message> message = new_message(type);
        EXPECT_EQ(message->ParseFromString(from_hex(row.wire)), row.text != nullptr);
        if (row.text != nullptr) {
            EXPECT_EQ(message->ShortDebugString(), row.text);
            EXPECT_EQ(message->SerializeAsString(), from_hex(row.again ? row.again : row.wire));
        }
    }
}

// ---- JSON ---------------------------------------------------------------------------------------

TEST(Transcoding, HasItsFixedOptions) {
    const std::unique_ptr<Message> message =
        new_message(DescriptorPool::generated_pool()->FindMessageTypeByName("Header"));
    ASSERT_TRUE(TextFormat::ParseFromString("message_id: 'm' packet_status: LIVE", message.get()));
    std::string json;
    ASSERT_TRUE(ProtoToJson(json, *message));
    EXPECT_EQ(json,
              "{\n \"message_id\": \"m\",\n \"correlation_id\": \"\",\n \"version\": 0,\n "
              "\"system_id\": \"\",\n \"sub_system_id\": 0,\n \"device_id\": \"\",\n "
              "\"message_type\": 0,\n \"target_id\": \"\",\n \"ttl\": \"0\",\n \"time\": \"0\",\n "
              "\"body\": \"\",\n \"packet_status\": 3\n}\n");

    (void)vyn_test::take_log();
    EXPECT_TRUE(JsonToProto(R"({"version":7,"no such key":[{}]})", *message));
    EXPECT_EQ(message->ShortDebugString(), "version: 7");
    EXPECT_EQ(vyn_test::take_log(), vyn_test::LogLines{});
    for (const char* bad : {"", "nonsense", "[1]", R"({"version":"x"})", R"({"version":{}})"}) {
        EXPECT_FALSE(JsonToProto(bad, *message)) << bad;
        EXPECT_EQ(
            vyn_test::take_log(),
            vyn_test::LogLines{vyn_test::error_line("Failed to convert JSON to protobuf message")});
    }
}

}  // namespace
