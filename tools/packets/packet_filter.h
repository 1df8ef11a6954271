// Selects packets: "type=21", "time>=2026-11-01T00:00:00Z", "message.meta.vin~^WVN".
#ifndef VYN_TOOLS_PACKETS_PACKET_FILTER_H
#define VYN_TOOLS_PACKETS_PACKET_FILTER_H

#include <regex.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "packets/packet_keys.h"

namespace vynpkt {

// A number of any of the types that fields have; numbers of different types compare exactly.
class Number {
public:
    Number(int64_t number) : negative_(number < 0), whole_(static_cast<uint64_t>(number)) {}
    Number(uint64_t number) : whole_(number) {}
    Number(double number) : is_real_(true), real_(number) {}

    [[nodiscard]] bool is_nan() const { return is_real_ && real_ != real_; }
    // Negative, 0 or positive as this one is less, equal or greater. Neither is NaN.
    [[nodiscard]] int compare(const Number& other) const;
    // What a field of less precision makes of it.
    [[nodiscard]] Number as_float() const;
    // A negative number that 32 bits hold, as the one without a sign that has the same bits.
    [[nodiscard]] Number of_32_bits() const;

private:
    [[nodiscard]] int compare_whole(const Number& other) const;
    [[nodiscard]] int compare_with_real(double other) const;

    bool is_real_ = false;
    bool negative_ = false;
    uint64_t whole_ = 0;  // in two's complement
    double real_ = 0;
};

class PacketFilter {
public:
    // Takes KEY=VALUE, or another operator in place of "=". Throws a usage error.
    PacketFilter(const std::string& text, const MessageTypes& types);

    // Throws a usage error for a text that is not of this form, whatever the key.
    static void check(const std::string& text);

    [[nodiscard]] bool holds(PacketContents& packet);

private:
    enum class Operator { kEqual, kNotEqual, kLess, kLessEqual, kGreater, kGreaterEqual, kMatch };
    struct Parts {
        std::string key;
        Operator op;
        std::string value;
    };
    struct FreeRegex {
        void operator()(regex_t* regex) const;
    };

    PacketFilter(const Parts& parts, const MessageTypes& types);
    static Parts split(const std::string& text);

    [[nodiscard]] bool prepare(const FieldDescriptor* field, std::string& reason);
    void prepare_regex();
    [[nodiscard]] bool holds(const Value& value);
    [[nodiscard]] bool holds_for_number(const Value& value) const;
    [[nodiscard]] bool matches(std::string_view text) const;
    [[nodiscard]] bool is_right(int order) const;

    PacketKey key_;
    Operator op_;
    std::string text_;
    // What the value means for each field that the key may lead to.
    std::vector<std::pair<const FieldDescriptor*, Number>> numbers_;
    std::unique_ptr<regex_t, FreeRegex> regex_;
    std::string room_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_PACKETS_PACKET_FILTER_H
