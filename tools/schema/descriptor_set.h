// The descriptor set of all schemas, with their comments, as the build embeds it.
#ifndef VYN_TOOLS_SCHEMA_DESCRIPTOR_SET_H
#define VYN_TOOLS_SCHEMA_DESCRIPTOR_SET_H

#include <cstddef>

namespace vynpkt {

extern const unsigned char kDescriptorSet[];
extern const std::size_t kDescriptorSetSize;

}  // namespace vynpkt

#endif  // VYN_TOOLS_SCHEMA_DESCRIPTOR_SET_H
