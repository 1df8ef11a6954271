#include "packets/packet_filter.h"

#include <glib.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <optional>

#include "cli/nearest.h"
#include "cli/report.h"

namespace vynpkt {
namespace {

using google::protobuf::EnumDescriptor;

int order(bool less, bool greater) { return static_cast<int>(greater) - static_cast<int>(less); }

// ---- What a text means ---------------------------------------------------------------------------

template <typename Type>
bool read_all(const std::string& text, Type& number) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end;
}

std::optional<Number> read_number(const std::string& text) {
    int64_t negative = 0;
    uint64_t whole = 0;
    double real = 0;
    if (read_all(text, whole)) {
        return Number(whole);
    }
    if (read_all(text, negative)) {
        return Number(negative);
    }
    return read_all(text, real) ? std::optional<Number>(real) : std::nullopt;
}

// RFC 3339, as milliseconds since the epoch.
std::optional<Number> read_time(const std::string& text) {
    constexpr int64_t kPerSecond = 1000;
    if (text.size() < sizeof "2026-11-01T00:00:00" || text[4] != '-') {
        return {};
    }
    const std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> time(
        g_date_time_new_from_iso8601(text.c_str(), nullptr), g_date_time_unref);
    if (time == nullptr) {
        return {};
    }
    const int64_t whole = g_date_time_to_unix(time.get()) * kPerSecond;
    const int64_t micro = g_date_time_get_microsecond(time.get());
    return micro % kPerSecond == 0
               ? Number(whole + micro / kPerSecond)
               : Number(static_cast<double>(whole) + static_cast<double>(micro) / kPerSecond);
}

std::string changed(std::string text, int (*change)(int)) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [change](unsigned char c) { return static_cast<char>(change(c)); });
    return text;
}

bool holds_time(const FieldDescriptor& field) {
    const std::string name = changed(field.name(), &std::tolower);
    return field.cpp_type() == FieldDescriptor::CPPTYPE_INT64 &&
           name.find("time") != std::string::npos;
}

std::optional<Number> read_enum(const EnumDescriptor& type, const std::string& text) {
    const auto* value = type.FindValueByName(text);
    if (value == nullptr) {
        value = type.FindValueByName(changed(text, &std::toupper));
    }
    return value != nullptr ? Number(int64_t{value->number()}) : read_number(text);
}

std::optional<Number> read_bool(const std::string& text) {
    return text == "true"    ? Number(int64_t{1})
           : text == "false" ? Number(int64_t{0})
                             : read_number(text);
}

std::optional<Number> read_for(const FieldDescriptor* field, const std::string& text) {
    if (field == nullptr) {
        return read_number(text);
    }
    if (field->enum_type() != nullptr) {
        return read_enum(*field->enum_type(), text);
    }
    if (field->cpp_type() == FieldDescriptor::CPPTYPE_BOOL) {
        return read_bool(text);
    }
    std::optional<Number> number = read_number(text);
    if (!number && holds_time(*field)) {
        number = read_time(text);
    }
    return number && field->cpp_type() == FieldDescriptor::CPPTYPE_FLOAT ? number->as_float()
                                                                         : number;
}

std::string why_no_value(const FieldDescriptor* field, const std::string& text) {
    if (field != nullptr && field->enum_type() != nullptr) {
        std::vector<std::string> names;
        names.reserve(static_cast<std::size_t>(field->enum_type()->value_count()));
        for (int i = 0; i < field->enum_type()->value_count(); ++i) {
            names.emplace_back(field->enum_type()->value(i)->name());
        }
        const std::string meant = nearest(text, names);
        return "no value of " + std::string(field->enum_type()->full_name()) +
               (meant.empty() ? "" : "; did you mean \"" + meant + "\"?");
    }
    return field != nullptr && holds_time(*field)
               ? "neither a number nor a time such as 2026-11-01T00:00:00Z"
               : "not a number";
}

// The envelope shows the largest of these numbers as negative ones.
bool is_signed_in_envelope(const FieldDescriptor* field) {
    return field != nullptr && field->containing_type()->file() == Header::descriptor()->file() &&
           field->cpp_type() == FieldDescriptor::CPPTYPE_UINT32;
}

bool is_message(const FieldDescriptor* field) {
    return field != nullptr && field->message_type() != nullptr;
}

std::string why_not_as_a_whole(const std::string& key, const FieldDescriptor* field) {
    const std::string part = field == nullptr || field->message_type()->field_count() == 0 ? "FIELD"
                             : field->is_map()
                                 ? "KEY"
                                 : std::string(field->message_type()->field(0)->name());
    return "a message as a whole: name a field of it, as in \"" + key + "." + part + "\"";
}

bool is_text(const FieldDescriptor* field) {
    return field != nullptr && field->cpp_type() == FieldDescriptor::CPPTYPE_STRING;
}

Number number_of(const Value& value) {
    switch (value.kind) {
        case Value::Kind::kUnsigned:
            return {value.unsigned_number};
        case Value::Kind::kReal:
            return {value.real};
        default:
            return {value.signed_number};
    }
}

}  // namespace

// ---- Numbers -------------------------------------------------------------------------------------

int Number::compare(const Number& other) const {
    if (is_real_ && other.is_real_) {
        return order(real_ < other.real_, other.real_ < real_);
    }
    if (other.is_real_) {
        return compare_with_real(other.real_);
    }
    return is_real_ ? -other.compare_with_real(real_) : compare_whole(other);
}

int Number::compare_whole(const Number& other) const {
    return negative_ != other.negative_ ? order(negative_, other.negative_)
                                        : order(whole_ < other.whole_, other.whole_ < whole_);
}

// A double does not hold every number of 64 bits, but each double of that size without its fraction
// is such a number.
int Number::compare_with_real(double other) const {
    constexpr double kBeyondUnsigned = 18446744073709551616.0;  // 2^64
    constexpr double kLeastSigned = -9223372036854775808.0;     // -2^63
    if (other >= kBeyondUnsigned) {
        return -1;
    }
    if (other < kLeastSigned) {
        return 1;
    }
    const double cut = std::trunc(other);
    const int whole = compare_whole(cut < 0 ? Number(static_cast<int64_t>(cut))
                                            : Number(static_cast<uint64_t>(cut)));
    return whole != 0 ? whole : order(other > cut, other < cut);
}

Number Number::of_32_bits() const {
    const auto low = static_cast<int64_t>(whole_);
    return negative_ && low >= INT32_MIN ? Number(whole_ & UINT32_MAX) : *this;
}

Number Number::as_float() const {
    if (is_real_) {
        return {static_cast<double>(static_cast<float>(real_))};
    }
    return {static_cast<double>(negative_ ? static_cast<float>(static_cast<int64_t>(whole_))
                                          : static_cast<float>(whole_))};
}

// ---- Filters -------------------------------------------------------------------------------------

void PacketFilter::FreeRegex::operator()(regex_t* regex) const {
    ::regfree(regex);
    delete regex;
}

PacketFilter::Parts PacketFilter::split(const std::string& text) {
    constexpr std::pair<const char*, Operator> kOperators[] = {
        {"!=", Operator::kNotEqual}, {"<=", Operator::kLessEqual}, {">=", Operator::kGreaterEqual},
        {"=", Operator::kEqual},     {"<", Operator::kLess},       {">", Operator::kGreater},
        {"~", Operator::kMatch},
    };
    const std::size_t at = text.find_first_of("=!<>~");
    for (const auto& [sign, op] : kOperators) {
        const std::size_t length = std::string_view(sign).size();
        if (at != 0 && at != std::string::npos && text.compare(at, length, sign) == 0) {
            return {text.substr(0, at), op, text.substr(at + length)};
        }
    }
    throw Failure(ExitCode::kUsage, "--only " + text,
                  "not KEY=VALUE; in place of \"=\" may stand != < <= > >= ~");
}

void PacketFilter::check(const std::string& text) { (void)split(text); }

PacketFilter::PacketFilter(const std::string& text, const MessageTypes& types)
    : PacketFilter(split(text), types) {}

PacketFilter::PacketFilter(const Parts& parts, const MessageTypes& types)
    : key_(parts.key, types), op_(parts.op), text_(parts.value) {
    if (op_ == Operator::kMatch) {
        prepare_regex();
    }
    std::vector<const FieldDescriptor*> fields = key_.fields();
    if (fields.empty()) {
        fields.push_back(nullptr);
    }
    // Messages may have fields of one name and several types, so one that takes the value is enough.
    std::string reason;
    bool usable = false;
    for (const FieldDescriptor* field : fields) {
        usable = prepare(field, reason) || usable;
    }
    if (!usable) {
        throw Failure(ExitCode::kUsage, key_.text(), reason);
    }
}

// Says why not, if the field cannot be compared with the value.
bool PacketFilter::prepare(const FieldDescriptor* field, std::string& reason) {
    if (is_message(field) || key_.is_whole_message()) {
        reason = why_not_as_a_whole(key_.text(), field);
        return false;
    }
    if (is_text(field) || key_.is_name() || op_ == Operator::kMatch) {
        return true;
    }
    std::optional<Number> number = read_for(field, text_);
    const bool for_equality = op_ == Operator::kEqual || op_ == Operator::kNotEqual;
    if (number && for_equality && is_signed_in_envelope(field)) {
        number = number->of_32_bits();
    }
    if (number) {
        numbers_.emplace_back(field, *number);
    } else {
        reason = "\"" + text_ + "\" is " + why_no_value(field, text_);
    }
    return number.has_value();
}

void PacketFilter::prepare_regex() {
    // With these, a search takes memory without bound.
    for (std::size_t i = text_.find('\\'); i < text_.size(); i = text_.find('\\', i + 2)) {
        if (i + 1 < text_.size() && text_[i + 1] >= '1' && text_[i + 1] <= '9') {
            throw Failure(
                ExitCode::kUsage, key_.text(),
                "\"" + text_ + "\": a regular expression without back references, please");
        }
    }
    auto regex = std::make_unique<regex_t>();
    const int error = ::regcomp(regex.get(), text_.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error != 0) {
        char words[128];
        (void)::regerror(error, regex.get(), words, sizeof words);
        throw Failure(ExitCode::kUsage, key_.text(),
                      "\"" + text_ + "\" is no regular expression: " + words);
    }
    regex_.reset(regex.release());
}

bool PacketFilter::holds(PacketContents& packet) {
    const std::vector<Value>& values = key_.values(packet);
    const bool one_holds = std::any_of(values.begin(), values.end(),
                                       [this](const Value& value) { return holds(value); });
    return one_holds != (op_ == Operator::kNotEqual);
}

// What "!=" asks is answered as if it were "=".
bool PacketFilter::holds(const Value& value) {
    if (value.kind == Value::Kind::kText) {
        return op_ == Operator::kMatch ? matches(value.text) : is_right(value.text.compare(text_));
    }
    if (value.kind != Value::Kind::kBytes && op_ != Operator::kMatch) {
        return holds_for_number(value);
    }
    room_.clear();
    append_plain(room_, value, true);
    return op_ == Operator::kMatch ? matches(room_) : is_right(room_.compare(text_));
}

bool PacketFilter::holds_for_number(const Value& value) const {
    const auto meant = std::find_if(numbers_.begin(), numbers_.end(), [&](const auto& number) {
        return number.first == value.field;
    });
    const Number number = number_of(value);
    if (meant == numbers_.end() || number.is_nan() || meant->second.is_nan()) {
        return false;
    }
    return is_right(number.compare(meant->second));
}

// A text may hold NUL bytes.
bool PacketFilter::matches(std::string_view text) const {
    regmatch_t part{0, static_cast<regoff_t>(text.size())};
    return ::regexec(regex_.get(), text.data(), 1, &part, REG_STARTEND) == 0;
}

bool PacketFilter::is_right(int order) const {
    switch (op_) {
        case Operator::kLess:
            return order < 0;
        case Operator::kLessEqual:
            return order <= 0;
        case Operator::kGreater:
            return order > 0;
        case Operator::kGreaterEqual:
            return order >= 0;
        default:
            return order == 0;
    }
}

}  // namespace vynpkt
