// The fuzz targets as a test, without libFuzzer: vyn_replay CORPUS ROUNDS. All targets run at once, in
// two threads each, on their seeds and then on so many damaged ones, which are the same each time.
// All of it is done twice: the second time may not leave more memory or descriptors behind than the
// first. The input that breaks a promise is left in the file broken_promise.
#include <malloc.h>

#include <clocale>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <list>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz.h"
#include "logger.h"

namespace fs = std::filesystem;

using Target = decltype(LLVMFuzzerTestOneInput);
extern "C" Target VYN_FUZZ_FUNCTIONS;
static const std::pair<const char*, Target*> targets[] = {VYN_FUZZ_TARGETS};

static thread_local std::string input;

static void keep_input(int number) {
    std::ofstream("broken_promise") << input;
    (void)std::signal(number, SIG_DFL);
}

static std::vector<std::string> seeds_in(const fs::path& folder) {
    std::set<std::string> seeds;  // in an order that does not depend on the disk
    for (const auto& entry : fs::directory_iterator(folder)) {
        seeds.insert(vyn_fuzz::contents_of(entry.path()));
    }
    return {seeds.begin(), seeds.end()};
}

// A seed of which parts are replaced by parts of other seeds, or by any bytes. Parts may be empty.
static std::string damaged(const std::vector<std::string>& seeds, std::string seed,
                           std::mt19937& random) {
    const auto below = [&](std::size_t limit) { return random() % limit; };
    const auto length = [&] { return below(2) == 0 ? below(16) : below(4) * seed.size(); };
    for (std::size_t times = 1 + below(4); times > 0; --times) {
        const std::string& other = below(2) == 0 ? seed : seeds[below(seeds.size())];
        const std::string part = below(3) == 0
                                     ? std::string(below(3), static_cast<char>(below(256)))
                                     : other.substr(below(other.size() + 1), length());
        seed.replace(below(seed.size() + 1), length(), part);
    }
    return seed;
}

static void replay(const std::pair<const char*, Target*>& target, const fs::path& corpus,
                   std::size_t rounds, unsigned number) {
    const std::vector<std::string> seeds = seeds_in(corpus / target.first);
    std::mt19937 random(number);
    for (std::size_t i = 0; i < seeds.size() + rounds; ++i) {
        const std::string& seed = seeds[i % seeds.size()];
        input = i < seeds.size() ? seed : damaged(seeds, seed, random);
        update_log_level(get_log_level());  // while other threads log
        (void)target.second(vyn_test::bytes_of(input), input.size());
    }
}

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
        (void)std::signal(number, keep_input);
    }
    const std::size_t rounds = std::stoul(argv[2]);
    std::cout << std::size(targets) << " targets, damaged seeds for each: " << rounds << std::endl;
    std::pair<std::size_t, std::ptrdiff_t> before;
    for (const bool first : {true, false}) {
        std::list<std::future<void>> running;
        for (const auto& target : targets) {
            for (const unsigned number : {1U, 2U}) {
                running.push_back(
                    std::async(std::launch::async, replay, target, argv[1], rounds / 2, number));
            }
        }
        running.clear();  // waits for them
        const auto after = held();
        std::cout << after.first << " bytes, " << after.second << " descriptors" << std::endl;
        // The C library loses the bytes of LOCPATH each time json-c asks for a locale.
        const std::size_t slack = std::getenv("LOCPATH") == nullptr ? 4096 : 16384 * rounds;
        vyn_fuzz::require(
            first || (after.first <= before.first + slack && after.second == before.second),
            "nothing is left behind");
        before = after;
    }
    return 0;
}
