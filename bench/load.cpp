// Measures what loading the library costs a process that has its dependencies already. Prints the
// microseconds of CPU time and the kilobytes of private memory that loading takes, and the
// microseconds that serializing one of each message takes.
//
// Usage: vyn_load LIBRARY
#include <dlfcn.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace pb = google::protobuf;
using pb::internal::WireFormatLite;

double cpu_microseconds() {
    timespec now{};
    (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return 1e6 * static_cast<double>(now.tv_sec) + 1e-3 * static_cast<double>(now.tv_nsec);
}

// Of this process.
double private_kilobytes() {
    std::ifstream rollup("/proc/self/smaps_rollup");
    double sum = 0;
    for (std::string word; rollup >> word;) {
        if (word == "Private_Clean:" || word == "Private_Dirty:") {
            double amount = 0;
            rollup >> amount;
            sum += amount;
        }
    }
    return sum;
}

// The bytes of a field that is set; a message in it is empty.
std::string wire_of(const pb::FieldDescriptor& field) {
    const auto type = static_cast<WireFormatLite::FieldType>(field.type());
    const auto wire_type = WireFormatLite::WireTypeForFieldType(type);
    uint8_t tag[10];
    const uint8_t* end = WireFormatLite::WriteTagToArray(field.number(), wire_type, tag);
    std::string wire(reinterpret_cast<const char*>(tag), static_cast<std::size_t>(end - tag));
    switch (wire_type) {
        case WireFormatLite::WIRETYPE_VARINT:
            return wire + "\x01";
        case WireFormatLite::WIRETYPE_FIXED64:
            return wire + "12345678";
        case WireFormatLite::WIRETYPE_FIXED32:
            return wire + "1234";
        default:
            return type == WireFormatLite::TYPE_MESSAGE ? wire + '\0' : wire + "\x04text";
    }
}

using Messages = std::vector<std::unique_ptr<pb::Message>>;

// One of each message of a file and of those declared in them, with every field set.
bool make_messages(const std::string& file, Messages& messages) {
    const pb::FileDescriptor* found =
        pb::DescriptorPool::generated_pool()->FindFileByName(file + ".proto");
    std::vector<const pb::Descriptor*> types;
    for (int i = 0; found != nullptr && i < found->message_type_count(); ++i) {
        types.push_back(found->message_type(i));
    }
    for (std::size_t next = 0; next < types.size(); ++next) {
        const pb::Descriptor& type = *types[next];
        std::string wire;
        for (int i = 0; i < type.field_count(); ++i) {
            wire += wire_of(*type.field(i));
        }
        for (int i = 0; i < type.nested_type_count(); ++i) {
            types.push_back(type.nested_type(i));
        }
        messages.emplace_back(pb::MessageFactory::generated_factory()->GetPrototype(&type)->New());
        if (!messages.back()->ParseFromString(wire)) {
            return false;
        }
    }
    return found != nullptr;
}

double serialize_time(const Messages& messages) {
    constexpr int kRounds = 200;
    std::vector<uint8_t> out(1 << 16);
    const double start = cpu_microseconds();
    for (int round = 0; round < kRounds; ++round) {
        for (const std::unique_ptr<pb::Message>& message : messages) {
            (void)message->ByteSizeLong();
            (void)message->SerializeWithCachedSizesToArray(out.data());
        }
    }
    return (cpu_microseconds() - start) / kRounds;
}

}  // namespace

int main(int argc, char** argv) {
    GOOGLE_PROTOBUF_VERIFY_VERSION;  // keeps the runtime among what is loaded before
    const double memory = private_kilobytes();
    const double start = cpu_microseconds();
    if (argc != 2 || dlopen(argv[1], RTLD_NOW) == nullptr) {
        std::fprintf(stderr, "Usage: vyn_load LIBRARY\n");
        return 1;
    }
    const double time = cpu_microseconds() - start;
    const double memory_after = private_kilobytes();
    Messages messages;
    for (const char* file : {VYN_SCHEMAS}) {
        if (!make_messages(file, messages)) {
            std::fprintf(stderr, "%s.proto is not as it was\n", file);
            return 1;
        }
    }
    std::printf("%.0f %.0f %.1f\n", time, memory_after - memory, serialize_time(messages));
}
