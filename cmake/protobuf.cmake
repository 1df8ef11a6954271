# protobuf: protoc and headers of one release, else the generated sources do not compile, with an
# error that tells nothing. When cross-building, protoc is the machine's and the headers are not.
find_package(Protobuf REQUIRED)

execute_process(COMMAND ${Protobuf_PROTOC_EXECUTABLE} --version
    OUTPUT_VARIABLE protoc_version OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE protoc_result)
if(NOT protoc_result EQUAL 0)
    message(FATAL_ERROR "Protobuf_PROTOC_EXECUTABLE=${Protobuf_PROTOC_EXECUTABLE} does not run "
        "on this machine: ${protoc_result}")
endif()
string(REGEX REPLACE "^libprotoc " "" protoc_version "${protoc_version}")
if(NOT protoc_version VERSION_EQUAL Protobuf_VERSION)
    message(FATAL_ERROR "protoc is ${protoc_version} (${Protobuf_PROTOC_EXECUTABLE}), "
        "the protobuf headers are ${Protobuf_VERSION} (${Protobuf_INCLUDE_DIRS}). "
        "Set Protobuf_PROTOC_EXECUTABLE to a protoc of release ${Protobuf_VERSION}.")
endif()
