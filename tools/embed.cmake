# Writes the source TO with the bytes of the file FROM, which schema/schema_text.cpp reads.
file(READ ${FROM} digits HEX)
string(REGEX REPLACE "(..)" "0x\\1," bytes "${digits}")
string(REGEX REPLACE "(................................................................................)"
    "\\1\n" bytes "${bytes}")
file(WRITE ${TO} "#include \"schema/descriptor_set.h\"

namespace vynpkt {

const unsigned char kDescriptorSet[] = {
${bytes}};
const std::size_t kDescriptorSetSize = sizeof kDescriptorSet;

}  // namespace vynpkt
")
