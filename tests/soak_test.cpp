// Mixed calls of all exported functions with whole and damaged inputs: vyn_soak [SEED [CALLS]].
// The same calls give the same again, and leave no memory and no descriptor behind that the first
// time had not taken. In several threads at once each gives what it gave alone.
#include <google/protobuf/stubs/logging.h>
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/calls.h"
#include "support/log_trap.h"
#include "support/packets.h"

namespace fs = std::filesystem;

namespace {

const std::string kPacket = vyn_test::full_header().SerializeAsString();

class Pass {
public:
    // Works in files of its own.
    Pass(const fs::path& folder, uint32_t seed)
        : random_(seed),
          json_path_(folder / ("json" + std::to_string(seed))),
          packets_path_(folder / ("packets" + std::to_string(seed))) {
        (void)fs::remove(json_path_);
        (void)fs::remove(packets_path_);
    }
    std::size_t run(uint32_t calls) {
        while (calls-- > 0) {
            damage_file();
            call();
        }
        return digest_;
    }

private:
    uint32_t below(std::size_t limit) { return static_cast<uint32_t>(random_() % limit); }

    const vyn_test::Call& any() { return vyn_test::kCalls[below(vyn_test::kCalls.size())]; }

    std::string damaged(std::string bytes) {
        for (uint32_t times = below(6); times > 3 && !bytes.empty(); --times) {
            const uint32_t at = below(bytes.size());
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
    void damage_file() {
        std::error_code none;
        const auto size = fs::file_size(packets_path_, none);
        if (!none && (size > vyn_test::kPacketFileRoom / 2 || below(5000) == 0)) {
            (void)fs::remove(packets_path_);
        } else if (!none && below(1000) == 0) {
            std::ofstream(packets_path_, std::ios::app) << static_cast<char>(below(64));
        }
    }

    void note(std::string_view bytes) {
        digest_ = digest_ * 31 + std::hash<std::string_view>()(bytes);
    }
    void call() {
        const vyn_test::Call& call = any();
        if (call.slow && below(16) != 0) {
            return;
        }
        vyn_test::Sample sample = call.sample;
        if (below(2) == 0) {
            sample = {any().sample.text, any().sample.key, static_cast<int>(below(9)) - 1,
                      any().sample.other};
        }
        sample.text = damaged(sample.text);
        sample.other = damaged(sample.other);
        vyn_test::Input in(sample, damaged(kPacket));
        in.frame = damaged(in.frame);
        in.size = below(8) == 0 ? below(100) : vyn_test::kCallRoom;
        in.json_path = json_path_.c_str();
        in.packets_path = packets_path_.c_str();
        vyn_test::Output out(in);
        const int64_t code = call.run(in, out);
        note(std::to_string(code) + ' ' + std::to_string(out.length) + ' ' +
             std::to_string(out.number));
        note({out.document, sizeof out.document});
        note({out.buffer, sizeof out.buffer});
        note(out.made != nullptr ? out.made.get() : "");
        (void)vyn_test::take_log();
    }

    std::mt19937 random_;
    std::string json_path_, packets_path_;
    std::size_t digest_ = 0;
};

struct Held {
    std::size_t memory;
    std::size_t pages;
    std::ptrdiff_t files;
};
Held held() {
    const fs::directory_iterator descriptors("/proc/self/fd");
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return {mallinfo2().uordblks, pages, std::distance(begin(descriptors), end(descriptors))};
}

}  // namespace

int main(int argc, char** argv) {
    constexpr uint32_t kThreads = 4;
    const auto seed = static_cast<uint32_t>(argc > 1 ? std::stoul(argv[1]) : 1);
    const auto calls = static_cast<uint32_t>(argc > 2 ? std::stoul(argv[2]) : 50000);
    google::protobuf::SetLogHandler(nullptr);  // of text that is not UTF-8
    std::string folder = fs::temp_directory_path() / "vyn_soak_XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        return 2;
    }
    std::vector<std::size_t> digests[3];
    Held after[3];
    for (int i = 0; i < 3; ++i) {
        const auto when = i < 2 ? std::launch::deferred : std::launch::async;
        std::vector<std::future<std::size_t>> passes;
        for (uint32_t thread = 0; thread < kThreads; ++thread) {
            passes.push_back(std::async(
                when, [=] { return Pass(folder, seed + thread).run(calls / kThreads); }));
        }
        std::cout << (i < 2 ? "alone:   " : "together:") << std::hex;
        for (std::future<std::size_t>& pass : passes) {
            digests[i].push_back(pass.get());
            std::cout << ' ' << digests[i].back();
        }
        after[i] = held();
        std::cout << std::dec << ", " << after[i].memory << " bytes, " << after[i].pages
                  << " pages resident, " << after[i].files << " descriptors\n";
    }
    fs::remove_all(folder);
    constexpr std::size_t kSlack = 4096;
    // A sanitizer counts no memory, and keeps what is released to find its later use.
    constexpr std::size_t kSlackPages = 128;
    const bool flat = after[1].memory <= after[0].memory + kSlack &&
                      (after[0].memory == 0 || after[1].pages <= after[0].pages + kSlackPages) &&
                      after[1].files == after[0].files && after[2].files == after[0].files;
    return digests[1] == digests[0] && digests[2] == digests[0] && flat ? 0 : 1;
}
