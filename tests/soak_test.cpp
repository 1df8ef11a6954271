// Mixed calls of all exported functions with whole and damaged inputs: vyn_soak [SEED [CALLS]].
// The second pass of the same calls gives what the first gave, and leaves no memory and no
// descriptor behind that the first had not taken.
#include <google/protobuf/stubs/logging.h>
#include <json-c/json.h>
#include <malloc.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <random>
#include <string>

#include "json_helper.h"
#include "logger.h"
#include "proto_helper.h"
#include "support/log_trap.h"
#include "support/packets.h"
#include "vyn_header.h"

using vyn_test::bytes_of;
using vyn_test::length_of;

namespace {

constexpr uint32_t kSize = 1500;
constexpr uint32_t kFileLimit = 20000;  // and the room for a record, which damage can join

const std::string kPacket = vyn_test::full_header().SerializeAsString();
const std::string kEnvelope =
    R"({"system_id":"s","message_id":"m","version":3,"sub_system_id":-1,"message_type":32773,)"
    R"("time":1,"ttl":2,"property_bag":{"error_code":1,"checksum":"c"},"body":"QUJD"})";
const std::string kTexts[] = {
    R"({"t":"text","n":12,"d":-2.5e3,"o":{"a":[1,"b\/"]},"l":[1,null],"b":true})",
    R"([{"a":"x"},"two",3,null])",
    "null",
    "",
    R"("t")",
    kEnvelope,
    R"({"message_type":5,"property_bag":{"error_code":1e},"body":{"a":[1,2,{"b":"c"}]}})"};
const std::string kKeys[] = {"t", "n", "d", "o", "l", "b", "body", "none", ""};

class Pass {
public:
    explicit Pass(uint32_t seed) : random_(seed) {
        update_log_level(LOG_LEVEL_INFO);
        for (const char* name : {"packets", "json"}) {
            (void)std::filesystem::remove(name);
        }
    }
    uint64_t run(uint32_t calls) {
        while (calls-- > 0) {
            call();
        }
        return digest_;
    }

private:
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_() % limit); }

    std::string damaged(std::string bytes) {
        for (uint32_t times = below(6); times > 3 && !bytes.empty(); --times) {
            const uint32_t at = below(length_of(bytes));
            switch (below(3)) {
                case 0:
                    bytes[at] = static_cast<char>(below(256));
                    break;
                case 1:
                    bytes.resize(at);
                    break;
                default:
                    bytes.insert(at, bytes.substr(below(at + 1), below(9)));
                    break;
            }
        }
        return bytes;
    }
    template <std::size_t Count>
    std::string one_of(const std::string (&choices)[Count]) {
        return choices[below(Count)];
    }

    void note(const void* data, std::size_t length) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        for (std::size_t i = 0; i < length; ++i) {
            digest_ = (digest_ ^ bytes[i]) * 0x100000001B3;
        }
    }
    void note(int64_t code) { note(&code, sizeof code); }
    void note_new(char* text) {
        note(text, text != nullptr ? std::strlen(text) : 0);
        free(text);
    }
    // The text, in the buffer that is noted after each call.
    char* edited() {
        std::memcpy(out_, text_.c_str(), text_.size() + 1);
        return out_;
    }
    uint8_t* bytes() { return reinterpret_cast<uint8_t*>(out_); }

    void read_records() {
        static std::string room(8 * kFileLimit, '#');
        uint8_t* bufs[9] = {};
        uint32_t lens[9] = {};
        for (uint32_t i = 0; i < below(8) + 1; ++i) {
            bufs[i] = bytes_of(room) + std::size_t{i} * kFileLimit;
        }
        uint32_t count = 0;
        note(read_proto_msg_from_file(bufs, &count, lens, "packets"));
        note(lens, sizeof lens);
        for (uint32_t i = 0; i < count; ++i) {
            note(bufs[i], lens[i]);
        }
    }
    void store_record() {
        const char* path = "packets";
        std::error_code none;
        if (std::filesystem::file_size(path, none) > kFileLimit - 2 * kSize || below(200) == 0) {
            (void)std::filesystem::remove(path, none);
        } else if (below(20) == 0) {
            std::ofstream(path, std::ios::app) << static_cast<char>(below(64));
        }
        note(
            store_proto_msg_to_file(bytes_of(packet_), static_cast<int32_t>(packet_.size()), path));
    }
    void write_files() {
        const uint32_t kind = below(40);  // most are slow
        const char* path = kind % 8 == 0 ? "none/json" : "json";
        if (kind < 20) {
            note(write_to_file(path, text_.c_str()));
        } else if (kind < 22) {
            note(write_to_file_using_fop(path, text_.data(), length_of(text_)));
        } else if (kind < 24) {
            note(write_to_file_using_mmap_atomic(path, text_.data(), length_of(text_)));
        } else if (kind < 25) {
            note(fsync_parent_dir(path));
        }
        note(get_json_file("json", out_, below(kSize)));
    }
    void value_of_tree() {
        json_object* tree = json_tokener_parse(text_.c_str());
        json_val value{};
        note(get_json_value(tree, key_.c_str(), &value));
        note(value.str_val, value.str_val != nullptr ? std::strlen(value.str_val) : 0);
        json_object_put(tree);
    }
    void set_array() {
        json_object* value = json_tokener_parse("[1,{\"a\":2}]");
        json_object* document = json_tokener_parse(edited());
        note(set_array_key_json(out_, key_.c_str(), value, size_));
        if (document == nullptr) {
            json_object_put(value);  // left with us
        }
        json_object_put(document);
    }
    void transcode() {
        std::string json;
        Header header;
        if (JsonToProto(text_, header) && ProtoToJson(json, header)) {
            note(json.data(), json.size());
        }
    }
    void records() {
        msg_hdr hdr{};
        note(get_msg_hdr(text_.c_str(), &hdr));
        note(&hdr, sizeof hdr);
        note_new(convert_hdr_to_json(&hdr, 0, 0));
        note(cnvrt_hdr_to_protobuf(&hdr, bytes(), below(kSize), &length_, bytes_of(text_),
                                   length_of(text_)));
        const msg_property_bag bag = {below(2), below(2), below(2), "c", "e", "t", "f", ""};
        note_new(construct_property_bag(below(9) != 0 ? &bag : nullptr));
    }
    void logging() {
        note(log_file_init("soak", 0, below(4)));
        update_log_level(below(4));
        LOG(below(5), "%s %u", text_.c_str(), get_log_level());
        notify_IVI_(text_.c_str(), number_);
        log_file_cleanup();
        note(is_param_not_empty(text_.c_str()) +
             2 * compare_config_data_values(other_.c_str(), "t|n|text") +
             4 * find_key_regex(text_.c_str(), other_.c_str()));
    }
    void set_generic() {
        const double real = number_ * 1e7;
        const bool is_text = number_ == VYN_JSON_STRING;
        note(set_generic_key_json(edited(), key_.c_str(),
                                  is_text ? static_cast<const void*>(text_.c_str()) : &real,
                                  number_, size_));
    }
    void checksum() {
        out_[below(kSize)] = '\0';
        note(calculate_checksum(bytes_of(text_), length_of(text_), out_, kSize));
    }
    void receive() {
        const std::string frame = damaged(vyn_test::compressed(packet_));
        note(cnvrt_protobuf_to_json_hdr(bytes_of(frame), out_, length_of(frame), size_));
    }
    void random_ids() {  // nothing of them is the same twice
        char uuid[MSG_UUID_SIZE];
        get_new_message_uuid(uuid, below(2) * MSG_UUID_SIZE);
        (void)(get_new_message_id() + get_current_message_id() + generate_unique_trans_id());
        (void)get_current_timestamp_();
    }

    void call() {
        std::memset(out_, '#', sizeof out_);
        length_ = vyn_test::kUntouched;
        text_ = damaged(one_of(kTexts));
        other_ = damaged(below(2) == 0 ? one_of(kTexts) : one_of(kKeys));
        key_ = one_of(kKeys);
        packet_ = damaged(kPacket);
        size_ = below(8) == 0 ? below(100) : kSize;
        number_ = static_cast<int>(below(9)) - 1;
        const char* json = text_.c_str();
        const char* other = other_.c_str();
        const char* key = key_.c_str();
        uint32_t type = 0;
        const std::function<void()> steps[] = {
            [&] { set_generic(); },
            [&] { note(set_key_json(edited(), key, other, size_)); },
            [&] { note(array_add_json(other, edited(), size_)); },
            [&] { note(replace_array_index_json(edited(), number_, other, size_)); },
            [&] { set_array(); },
            [&] { note(del_json_key(json, key, out_, size_)); },
            [&] { note(get_key_json(json, key, out_, size_)); },
            [&] { note(get_generic_key_json(json, key, out_, number_, size_)); },
            [&] { note(get_key_json_int64(json, key, reinterpret_cast<int64_t*>(out_))); },
            [&] { note(get_json_type(json, key, reinterpret_cast<int*>(out_))); },
            [&] { note(get_json_array_length(json)); },
            [&] { note(copy_array_json(json, number_, out_, size_)); },
            [&] { value_of_tree(); },
            [&] { note_new(add_body_to_message(json, other)); },
            [&] { note(get_body_from_message(json, out_, size_)); },
            [&] { note(cnvrt_json_hdr_to_protobuf(json, bytes(), size_, &length_)); },
            [&] { receive(); },
            [&] {
                note(deser_nd_alter_pkt_st(bytes_of(packet_), length_of(packet_), bytes(), size_,
                                           &length_, 2, &type));
            },
            [&] { checksum(); },
            [&] { note(memscpy(out_, size_, json, length_of(text_))); },
            [&] { store_record(); },
            [&] { read_records(); },
            [&] { write_files(); },
            [&] { transcode(); },
            [&] { records(); },
            [&] { logging(); }};
        steps[below(std::size(steps))]();
        random_ids();
        note(out_, sizeof out_);
        note(length_);
        note(type);
        for (const std::string& line : vyn_test::take_log()) {
            note(line.data(), line.size());
        }
    }

    std::mt19937 random_;
    uint64_t digest_ = 0xCBF29CE484222325;
    alignas(8) char out_[kSize];
    uint32_t length_ = 0;
    // What the next call works on.
    std::string text_, other_, key_, packet_;
    uint32_t size_ = 0;
    int number_ = 0;
};

struct Held {
    std::size_t memory;
    std::size_t pages;
    std::ptrdiff_t files;
};
Held held() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return {mallinfo2().uordblks, pages, std::distance(begin(descriptors), end(descriptors))};
}

}  // namespace

int main(int argc, char** argv) {
    const auto seed = static_cast<uint32_t>(argc > 1 ? std::stoul(argv[1]) : 1);
    const auto calls = static_cast<uint32_t>(argc > 2 ? std::stoul(argv[2]) : 50000);
    google::protobuf::SetLogHandler(nullptr);  // of text that is not UTF-8
    std::string folder = std::filesystem::temp_directory_path() / "vyn_soak_XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        return 2;
    }
    std::filesystem::current_path(folder);
    uint64_t digests[2];
    Held after[2];
    for (int i = 0; i < 2; ++i) {
        digests[i] = Pass(seed).run(calls);
        after[i] = held();
    }
    for (int i = 0; i < 2; ++i) {
        std::cout << "seed " << seed << ": " << calls << " calls, digest " << std::hex << digests[i]
                  << std::dec << ", " << after[i].memory << " bytes, " << after[i].pages
                  << " pages resident, " << after[i].files << " descriptors\n";
    }
    std::filesystem::remove_all(folder);
    constexpr std::size_t kSlack = 4096;
    // A sanitizer counts no memory, and keeps what is released to find its later use.
    constexpr std::size_t kSlackPages = 128;
    const bool flat = after[1].memory <= after[0].memory + kSlack &&
                      (after[0].memory == 0 || after[1].pages <= after[0].pages + kSlackPages) &&
                      after[1].files == after[0].files;
    return digests[0] == digests[1] && flat ? 0 : 1;
}
