// Any message of the catalogue as JSON and back. The input: a line of the message's name, then its
// JSON, or its bytes when they do not begin as JSON does.
#include <google/protobuf/message.h>
#include <google/protobuf/util/field_comparator.h>
#include <google/protobuf/util/message_differencer.h>

#include "fuzz.h"
#include "proto_helper.h"

using google::protobuf::Message, google::protobuf::util::MessageDifferencer;
using vyn_fuzz::require;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)vyn_test::take_log();
    std::string input(reinterpret_cast<const char*>(data), size);
    const auto* type = google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(
        vyn_fuzz::take_line(input));
    // protobuf's own types come along with it; the JSON of some is no object, and that of an empty
    // google.protobuf.Value is no text at all.
    if (type == nullptr || type->full_name().compare(0, 16, "google.protobuf.") == 0) {
        return 0;
    }
    const std::unique_ptr<Message> sent(
        google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
    const std::unique_ptr<Message> received(sent->New());
    if (input[0] == '{' ? JsonToProto(input, *sent) : sent->ParseFromString(input)) {
        sent->DiscardUnknownFields();  // of which protobuf would write some into wrappers
        std::string json = "kept";
        require(ProtoToJson(json, *sent) && json.compare(0, 5, "kept{") == 0, "JSON, appended");
        require(JsonToProto(json.substr(4), *received), "JSON of ours is read");
        // protobuf writes -0.0 as -0, which it reads as an integer, and any NaN as the same one.
        google::protobuf::util::DefaultFieldComparator numbers;
        numbers.set_treat_nan_as_equal(true);
        MessageDifferencer difference;
        difference.set_field_comparator(&numbers);
        difference.set_message_field_comparison(MessageDifferencer::EQUIVALENT);
        require(difference.Compare(*sent, *received), "a message comes back");
    }
    return 0;
}
