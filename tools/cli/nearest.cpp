#include "cli/nearest.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace vynpkt {
namespace {

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// How many letters to insert, remove or replace to make one word of another.
std::size_t edit_distance(const std::string& from, const std::string& to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char letter : from) {
        std::size_t diagonal = row[0]++;
        for (std::size_t i = 0; i < to.size(); ++i) {
            const std::size_t replaced = diagonal + (letter == to[i] ? 0 : 1);
            diagonal = row[i + 1];
            row[i + 1] = std::min({replaced, row[i] + 1, row[i + 1] + 1});
        }
    }
    return row[to.size()];
}

}  // namespace

std::string nearest(const std::string& word, const std::vector<std::string>& names) {
    const std::string wanted = lowercase(word);
    std::string best;
    // An abbreviation may stand for many names. Of names that are equally near, take the shortest.
    std::pair<std::size_t, std::size_t> least{word.size() / 2 + 1, 0};
    for (const std::string& name : names) {
        const std::string candidate = lowercase(name);
        const bool abbreviated = !word.empty() && candidate.compare(0, wanted.size(), wanted) == 0;
        const std::size_t distance = abbreviated ? 0 : edit_distance(wanted, candidate);
        if (std::make_pair(distance, name.size()) < least) {
            least = {distance, name.size()};
            best = name;
        }
    }
    return best;
}

}  // namespace vynpkt
