// The fuzz targets as a test, without libFuzzer: vyn_replay CORPUS ROUNDS [NUMBER] gives each target
// its seeds as they are and then so many that are damaged, the same ones for the same number; once
// more, when no memory and no descriptor may be left behind that the first time had not taken; then
// all at once in threads. The input that breaks a promise is left in the file broken_promise.
#include <malloc.h>

#include <clocale>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "fuzz.h"
#include "logger.h"

namespace fs = std::filesystem;

using Target = decltype(LLVMFuzzerTestOneInput);
extern "C" Target fuzz_receive, fuzz_envelope, fuzz_json_helpers, fuzz_packet_file, fuzz_base64,
    fuzz_json_to_proto;

static const std::map<std::string, Target*> targets = {{"receive", fuzz_receive},
                                                       {"envelope", fuzz_envelope},
                                                       {"json_helpers", fuzz_json_helpers},
                                                       {"packet_file", fuzz_packet_file},
                                                       {"base64", fuzz_base64},
                                                       {"json_to_proto", fuzz_json_to_proto}};

static thread_local std::string input;

static void keep_input(int number) {
    std::ofstream("broken_promise") << input;
    (void)std::signal(number, SIG_DFL);
}

class Replay {
public:
    Replay(Target& target, const fs::path& folder, uint32_t number)
        : target_(target), random_(number) {
        const fs::directory_iterator entries(folder);
        for (const fs::path& path : std::set<fs::path>(begin(entries), end(entries))) {
            std::ifstream file(path, std::ios::binary);
            seeds_.emplace_back(std::istreambuf_iterator<char>(file),
                                std::istreambuf_iterator<char>());
        }
    }
    void operator()(std::size_t rounds) {
        for (const std::string& seed : seeds_) {
            run(seed);
        }
        for (std::size_t round = 0; round < rounds; ++round) {
            run(damaged(seeds_.at(round % seeds_.size()), seeds_.at(below(seeds_.size()))));
        }
    }

private:
    std::size_t below(std::size_t limit) { return random_() % limit; }
    std::string part_of(const std::string& text) {
        const std::size_t from = below(text.size() + 1);
        return text.substr(from, below(2) == 0 ? below(16) : text.size());
    }
    // Of a seed, with parts of another one in it.
    std::string damaged(std::string seed, const std::string& other) {
        for (std::size_t times = 1 + below(4); times > 0; --times) {
            const std::size_t at = below(seed.size() + 1);
            switch (below(4)) {
                case 0:
                    seed.replace(at, below(4), 1, static_cast<char>(below(256)));
                    break;
                case 1:
                    seed.replace(at, below(16), part_of(other));
                    break;
                case 2:
                    seed.insert(at, part_of(seed));
                    break;
                default:
                    seed.erase(at, below(2) == 0 ? 1 + below(8) : seed.size());
                    break;
            }
        }
        return seed;
    }
    void run(std::string next) {
        input = std::move(next);
        update_log_level(get_log_level());  // while other threads log
        (void)target_(vyn_test::bytes_of(input), input.size());
    }

    Target& target_;
    std::vector<std::string> seeds_;
    std::mt19937 random_;
};

// Bytes that are allocated (none are counted under a sanitizer), and descriptors. What the C library
// keeps for a thread counts too; GLIBC_TUNABLES=glibc.malloc.tcache_count=0 stops that.
static std::pair<std::size_t, std::ptrdiff_t> held() {
    const fs::directory_iterator descriptors("/proc/self/fd");
    return {mallinfo2().uordblks, std::distance(begin(descriptors), end(descriptors))};
}

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    (void)std::setlocale(LC_ALL, "");
    for (const int number : {SIGABRT, SIGSEGV}) {
        auto* const of_a_sanitizer = std::signal(number, keep_input);
        if (of_a_sanitizer != SIG_DFL) {
            (void)std::signal(number, of_a_sanitizer);
        }
    }
    const fs::path corpus = argv[1];
    const std::size_t rounds = std::stoul(argv[2]);
    const auto number = static_cast<uint32_t>(argc > 3 ? std::stoul(argv[3]) : 1);
    std::cout << targets.size() << " targets, damaged seeds for each: " << rounds << std::endl;
    std::pair<std::size_t, std::ptrdiff_t> before;
    for (const auto& [name, target] : targets) {
        for (const bool first : {true, false}) {
            std::thread(Replay(*target, corpus / name, number), rounds).join();
            const auto after = held();
            std::cout << name << ": " << after.first << " bytes, " << after.second
                      << " descriptors\n";
            // The C library loses the bytes of LOCPATH each time json-c asks for a locale.
            const std::size_t slack = std::getenv("LOCPATH") == nullptr ? 4096 : 4096 * rounds;
            vyn_fuzz::require(
                first || (after.first <= before.first + slack && after.second == before.second),
                "nothing is left behind");
            before = after;
        }
    }
    std::vector<std::thread> threads;
    for (const auto& [name, target] : targets) {
        threads.emplace_back(Replay(*target, corpus / name, number), rounds);
        threads.emplace_back(Replay(*target, corpus / name, number), rounds);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}
