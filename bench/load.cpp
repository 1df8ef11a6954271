// What libraries with the catalogue cost a process that has their dependencies already: medians
// over processes that load one library each.
//
// Usage: vyn_load LIBRARY...   prints a line for each: microseconds of CPU time and kilobytes of
//                              private memory that loading takes, microseconds that serializing
//                              one of each message takes
#include <dlfcn.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace pb = google::protobuf;

struct Cost {
    double load_time;
    double kilobytes;
    double serialize_time;
};

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

// Sets one field, or adds to it.
void fill(pb::Message& message, const pb::FieldDescriptor& field, int depth);

// Every field of a message, and of those in it down to a depth.
void fill(pb::Message& message, int depth) {
    for (int i = 0; i < message.GetDescriptor()->field_count(); ++i) {
        fill(message, *message.GetDescriptor()->field(i), depth);
    }
}

void fill(pb::Message& message, const pb::FieldDescriptor& field, int depth) {
    constexpr int kDeepest = 4;
    const pb::Reflection& in = *message.GetReflection();
    const bool many = field.is_repeated();
    switch (field.cpp_type()) {
        case pb::FieldDescriptor::CPPTYPE_MESSAGE:
            if (depth < kDeepest) {
                fill(
                    *(many ? in.AddMessage(&message, &field) : in.MutableMessage(&message, &field)),
                    depth + 1);
            }
            break;
        case pb::FieldDescriptor::CPPTYPE_STRING:
            many ? in.AddString(&message, &field, "text") : in.SetString(&message, &field, "text");
            break;
        case pb::FieldDescriptor::CPPTYPE_ENUM:
            many ? in.AddEnumValue(&message, &field, 1) : in.SetEnumValue(&message, &field, 1);
            break;
        case pb::FieldDescriptor::CPPTYPE_BOOL:
            many ? in.AddBool(&message, &field, true) : in.SetBool(&message, &field, true);
            break;
        case pb::FieldDescriptor::CPPTYPE_INT32:
            many ? in.AddInt32(&message, &field, 300) : in.SetInt32(&message, &field, 300);
            break;
        case pb::FieldDescriptor::CPPTYPE_UINT32:
            many ? in.AddUInt32(&message, &field, 300) : in.SetUInt32(&message, &field, 300);
            break;
        case pb::FieldDescriptor::CPPTYPE_INT64:
            many ? in.AddInt64(&message, &field, 1 << 30) : in.SetInt64(&message, &field, 1 << 30);
            break;
        case pb::FieldDescriptor::CPPTYPE_UINT64:
            many ? in.AddUInt64(&message, &field, 1 << 30)
                 : in.SetUInt64(&message, &field, 1 << 30);
            break;
        case pb::FieldDescriptor::CPPTYPE_FLOAT:
            many ? in.AddFloat(&message, &field, 1.5F) : in.SetFloat(&message, &field, 1.5F);
            break;
        case pb::FieldDescriptor::CPPTYPE_DOUBLE:
            many ? in.AddDouble(&message, &field, 1.5) : in.SetDouble(&message, &field, 1.5);
            break;
    }
}

// One of each message of a file, with every field set.
void make_messages(const std::string& file, std::vector<std::unique_ptr<pb::Message>>& messages) {
    const pb::FileDescriptor* found =
        pb::DescriptorPool::generated_pool()->FindFileByName(file + ".proto");
    for (int i = 0; found != nullptr && i < found->message_type_count(); ++i) {
        messages.emplace_back(
            pb::MessageFactory::generated_factory()->GetPrototype(found->message_type(i))->New());
        fill(*messages.back(), 0);
    }
}

double serialize_time() {
    constexpr int kRounds = 200;
    std::vector<std::unique_ptr<pb::Message>> messages;
    for (const char* file : {VYN_SCHEMAS}) {
        make_messages(file, messages);
    }
    std::vector<uint8_t> out(1 << 16);
    std::size_t bytes = 0;
    const double start = cpu_microseconds();
    for (int round = 0; round < kRounds; ++round) {
        for (const std::unique_ptr<pb::Message>& message : messages) {
            const std::size_t length = message->ByteSizeLong();
            (void)message->SerializeWithCachedSizesToArray(out.data());
            bytes += length;
        }
    }
    const double time = (cpu_microseconds() - start) / kRounds;
    return bytes > 0 ? time : std::nan("");
}

// Prints the costs of this process.
int load(const char* library) {
    const double memory = private_kilobytes();
    const double start = cpu_microseconds();
    if (dlopen(library, RTLD_NOW) == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    const double time = cpu_microseconds() - start;
    const double memory_after = private_kilobytes();
    std::printf("%f %f %f\n", time, memory_after - memory, serialize_time());
    return 0;
}

// In a fresh process of this program.
bool load_apart(const std::string& program, const std::string& library, Cost& cost) {
    std::FILE* child = popen(("'" + program + "' --once '" + library + "'").c_str(), "r");
    if (child == nullptr) {
        return false;
    }
    const int read =
        std::fscanf(child, "%lf %lf %lf", &cost.load_time, &cost.kilobytes, &cost.serialize_time);
    return pclose(child) == 0 && read == 3;
}

double median(const std::vector<Cost>& costs, double Cost::*member) {
    std::vector<double> values;
    for (const Cost& cost : costs) {
        values.push_back(cost.*member);
    }
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int kRounds = 51;
    GOOGLE_PROTOBUF_VERIFY_VERSION;  // keeps the runtime among what is loaded before
    const std::vector<std::string> arguments(argv, argv + argc);
    if (argc == 3 && arguments[1] == "--once") {
        return load(argv[2]);
    }
    std::vector<std::vector<Cost>> costs(arguments.size());
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t i = 1; i < arguments.size(); ++i) {
            Cost cost{};
            if (!load_apart(arguments[0], arguments[i], cost)) {
                return 1;
            }
            costs[i].push_back(cost);
        }
    }
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        std::printf("%.0f %.0f %.1f\n", median(costs[i], &Cost::load_time),
                    median(costs[i], &Cost::kilobytes), median(costs[i], &Cost::serialize_time));
    }
}
