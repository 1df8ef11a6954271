# How everything is compiled. The warnings, in target vyn_own_code, are for our own sources only; the
# rest holds for the generated ones too.

# Only what is marked is exported: functions in their header, generated classes by protoc.
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_link_options(-Wl,--as-needed,-z,relro,-z,now)
if(VYN_SANITIZE)
    add_compile_options(-fsanitize=${VYN_SANITIZE} -fno-omit-frame-pointer
        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${VYN_SANITIZE})
else()
    # A symbol that nothing provides fails this link, not the start of a program on the unit.
    string(APPEND CMAKE_SHARED_LINKER_FLAGS " -Wl,-z,defs")
endif()

add_library(vyn_own_code INTERFACE)
target_compile_options(vyn_own_code INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wformat=2
    -Wconversion $<$<BOOL:${VYN_WARNINGS_AS_ERRORS}>:-Werror>)

# Relocations of addresses in a compact form, which the dynamic linker of glibc 2.36 and later reads.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_LINK_OPTIONS -Wl,--fatal-warnings,-z,pack-relative-relocs)
check_cxx_source_compiles("
    #include <features.h>
    #if !__GLIBC_PREREQ(2, 36)
    #error too old
    #endif
    int main() {}" VYN_HAVE_PACKED_RELOCATIONS)
unset(CMAKE_REQUIRED_LINK_OPTIONS)
option(VYN_PACK_RELOCATIONS "Needs glibc 2.36 where the library runs"
    ${VYN_HAVE_PACKED_RELOCATIONS})

# What the library is linked with for loading fast.
set(VYN_FAST_LOADING "-Wl,--dynamic-list=${CMAKE_CURRENT_LIST_DIR}/preemptible.list")
if(VYN_PACK_RELOCATIONS)
    list(APPEND VYN_FAST_LOADING -Wl,-z,pack-relative-relocs)
endif()
