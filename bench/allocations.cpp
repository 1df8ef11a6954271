// Counts allocations: these functions replace those of the C library and call them.
#include "allocations.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {
std::size_t taken;
}  // namespace

std::size_t bench::allocations() { return taken; }

extern "C" {

void* malloc(std::size_t size) {
    ++taken;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    ++taken;
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    ++taken;
    return __libc_realloc(block, size);
}

}  // extern "C"
