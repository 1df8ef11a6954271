#include "cli/arguments.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <vector>

#include "cli/nearest.h"

namespace vynpkt {
namespace {

// What options that take a count call it in their help.
constexpr char kCount[] = "N";

// As an option stands on the command line, or as an argument stands in the help.
std::string name_of(const CLI::Option& option) {
    return option.get_positional() ? option.get_name(true) : option.get_name();
}

std::string with_value(const CLI::Option& option) {
    const std::string value = option.get_type_name();
    return name_of(option) + (option.get_positional() || value.empty() ? "" : " " + value);
}

// Why an argument has no place.
std::string why_left_over(const CLI::App& command, const std::string& argument) {
    if (argument.size() < 2 || argument.front() != '-') {
        return argument + ": one argument too many";
    }
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    const std::string word = argument.substr(0, argument.find('='));
    const std::string meant = word.size() > 2 ? nearest(word, names) : "";
    return word + ": no such option" + (meant.empty() ? "" : "; did you mean \"" + meant + "\"?");
}

// The first option for which this holds, or null.
template <typename Condition>
const CLI::Option* find_option(const CLI::App& command, Condition condition) {
    for (const CLI::Option* option : command.get_options()) {
        if (condition(*option)) {
            return option;
        }
    }
    return nullptr;
}

// The option that CLI11 names at the begin of its message.
const CLI::Option* named_option(const CLI::App& command, const std::string& message) {
    const std::string name = message.substr(0, message.find(':'));
    return find_option(command,
                       [&name](const CLI::Option& option) { return option.check_name(name); });
}

bool is_given_twice(const CLI::Option& option) {
    return option.get_multi_option_policy() == CLI::MultiOptionPolicy::Throw &&
           static_cast<int>(option.count()) > option.get_items_expected_max();
}

bool is_missing(const CLI::Option& option) { return option.get_required() && option.empty(); }

bool is_count(const std::string& text) {
    uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && (text == "0" || text.front() != '0');
}

}  // namespace

std::string wrong_value(const CLI::App& command) {
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& text : option->results()) {
            if (option->get_items_expected_max() == 0 && text != "true" && text != "false") {
                return name_of(*option) + ": takes no value";
            }
            if (option->get_type_name() == kCount && !is_count(text)) {
                return name_of(*option) + " " + text + ": not a count; give 0, 1, 2, ...";
            }
        }
    }
    return "";
}

std::string why_refused(const CLI::App& command, const CLI::ParseError& error) {
    const std::vector<std::string> left_over = command.remaining();
    if (!left_over.empty()) {
        return why_left_over(command, left_over.front());
    }
    if (const CLI::Option* option = find_option(command, is_given_twice)) {
        return name_of(*option) + ": given " + std::to_string(option->count()) +
               " times; give it once";
    }
    std::string wrong = wrong_value(command);
    if (!wrong.empty()) {
        return wrong;
    }
    if (const CLI::Option* option = named_option(command, error.what())) {
        return with_value(*option) + ": the value is missing";
    }
    if (const CLI::Option* option = find_option(command, is_missing)) {
        return with_value(*option) + ": missing";
    }
    return error.what();
}

}  // namespace vynpkt
