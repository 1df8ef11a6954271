// Stands in for libFuzzer in the tests: replay_TARGET SEEDS ROUNDS gives a target each seed of the
// folder as it is, and then so many that are damaged, the same ones in each run. The input that
// breaks a promise is left in the file replay_TARGET.broken.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fuzz.h"

static std::mt19937 random_number(1);

static std::size_t below(std::size_t limit) { return random_number() % limit; }

static std::string part_of(const std::string& text) {
    const std::size_t from = below(text.size() + 1);
    return text.substr(from, below(2) == 0 ? below(16) : text.size());
}

// Of a seed, with parts of another one in it.
static std::string damaged(std::string seed, const std::string& other) {
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

static std::string program, input;

static void keep_input(int /*signal*/) { std::ofstream(program + ".broken") << input; }

static void run(std::string next) {
    input = std::move(next);
    (void)LLVMFuzzerTestOneInput(vyn_test::bytes_of(input), input.size());
}

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    program = argv[0];
    (void)std::signal(SIGABRT, keep_input);
    std::vector<std::string> seeds;
    const std::filesystem::directory_iterator folder(argv[1]);
    for (const auto& path : std::set<std::filesystem::path>(begin(folder), end(folder))) {
        std::ifstream file(path, std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        run(seeds.back());
    }
    const std::size_t rounds = std::stoul(argv[2]);
    for (std::size_t round = 0; round < rounds; ++round) {
        const std::string& seed = seeds.at(round % seeds.size());
        run(damaged(seed, seeds.at(below(seeds.size()))));
    }
    std::cout << seeds.size() << " seeds, " << rounds << " damaged ones\n";
    return 0;
}
