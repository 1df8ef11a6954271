// Any message of the catalogue as JSON and back. The input: a line of a number, half of which is
// the message's, then its JSON; when the number is odd, its bytes.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/util/field_comparator.h>
#include <google/protobuf/util/message_differencer.h>

#include <vector>

#include "fuzz.h"
#include "proto_helper.h"

using google::protobuf::Message;
using vyn_fuzz::require;

static std::vector<const Message*> messages() {
    std::vector<const Message*> all;
    for (const char* schema : {VYN_SCHEMA_FILES}) {
        const auto* file =
            google::protobuf::DescriptorPool::generated_pool()->FindFileByName(schema);
        for (int i = 0; i < file->message_type_count(); ++i) {
            all.push_back(google::protobuf::MessageFactory::generated_factory()->GetPrototype(
                file->message_type(i)));
        }
    }
    return all;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<const Message*> all = messages();
    (void)vyn_test::take_log();
    std::string input(reinterpret_cast<const char*>(data), size);
    const uint32_t number = vyn_fuzz::take_number(input);
    const std::unique_ptr<Message> sent(all[number / 2 % all.size()]->New());
    const std::unique_ptr<Message> received(sent->New());
    if (number % 2 != 0 ? sent->ParseFromString(input) : JsonToProto(input, *sent)) {
        std::string json = "kept";
        require(ProtoToJson(json, *sent) && json.compare(0, 5, "kept{") == 0, "JSON, appended");
        require(JsonToProto(json.substr(4), *received), "JSON of ours is read");
        sent->DiscardUnknownFields();
        // protobuf writes -0.0 as -0, which it reads as an integer, and any NaN as the same one.
        google::protobuf::util::DefaultFieldComparator numbers;
        numbers.set_treat_nan_as_equal(true);
        google::protobuf::util::MessageDifferencer difference;
        difference.set_field_comparator(&numbers);
        difference.set_message_field_comparison(
            google::protobuf::util::MessageDifferencer::EQUIVALENT);
        require(difference.Compare(*sent, *received), "a message comes back");
    }
    return 0;
}
