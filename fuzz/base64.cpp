// Base64 of the unit's utility library. The input: a text, and bytes.
#include <glib.h>

#include "fuzz.h"
#include "vynutils.h"

using vyn_fuzz::at_exact_fit, vyn_fuzz::Buffer, vyn_fuzz::require;

static std::string encoded(const std::string& bytes) {
    const Buffer in(bytes);
    g_autofree char* expected = g_base64_encode(in.bytes(), in.size);
    std::string text = at_exact_fit(std::strlen(expected) + 1, 0, 1, [&](const Buffer& out) {
        return base64_encode(in.bytes(), in.size, out.text.get(), out.size) != 0;
    });
    require(vyn_fuzz::up_to_nul(text) == expected, "the text that another library makes");
    return text;
}

// A text that is accepted is the only one for its bytes.
static bool decodes(const std::string& text) {
    const Buffer in(text);
    const Buffer out(text.size());
    uint32_t length = vyn_test::kUntouched;
    const auto decode = [&](const Buffer& to) {
        return base64_decode(in.text.get(), in.size, to.bytes(), &length, to.size) == 0;
    };
    if (!decode(out)) {
        require(length == vyn_test::kUntouched, "a failure tells no length");
        return false;
    }
    const Buffer exact(length);
    require(decode(exact) && encoded(exact.contents()) == text + '\0', "one text for some bytes");
    require(length == 0 || !decode(Buffer(length - 1)), "bytes that do not fit are refused");
    return true;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    (void)decodes(input);
    require(decodes(vyn_fuzz::up_to_nul(encoded(input))), "what was encoded is decoded");
    return 0;
}
