# protoc and the protobuf headers must be of one release, or the generated sources do not compile,
# with errors that do not tell why. When cross-building, protoc is this machine's and the headers are
# the target's, so the two can easily differ.
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
