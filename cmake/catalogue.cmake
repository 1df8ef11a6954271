# The message classes, made of the schema files by the installed protoc.
#
# The schema files in the order in which their descriptors are registered when the library is
# loaded: the order in which their objects are linked. Do not sort.
set(VYN_SCHEMAS
    vyn_header_v3
    telemetry
    geofence
    telemetry_svc_a2a
    cm_update_request
    cm_update_response
    cm_periodic_request
    cm_periodic_response
    trip
    command_resp
    command_req
    notification
    vyn_digi_pin_hdr
    digi_pin_req
    onboarding
    enums
    ota_trigger
    ota_event
    pull_ota
    ota_consent_request
    ota_consent_response
    ota_ecu_status
    ota_manifest_ecu
    ota_meta_request
    ota_token_resp
    ota_update_resp
    ota_token_req
    pm_hdr
    pm_keep_alive_req
    pm_state_update_noti
    edge_a2a_req
    edge_a2a_res
    pm_wakeup_noti
    dtc_log_file
    heartbeat)

set(VYN_PROTO_DIR ${PROJECT_SOURCE_DIR}/common/protobuf/protos)
set(VYN_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${VYN_GENERATED_DIR})

# A schema is generated anew when any changes, since it may import it.
set(vyn_schema_files ${VYN_SCHEMAS})
list(TRANSFORM vyn_schema_files PREPEND ${VYN_PROTO_DIR}/)
list(TRANSFORM vyn_schema_files APPEND .proto)
set(vyn_generated_sources)
foreach(schema IN LISTS VYN_SCHEMAS)
    list(APPEND vyn_generated_sources ${VYN_GENERATED_DIR}/${schema}.pb.cc)
    set(header ${VYN_GENERATED_DIR}/${schema}.pb.h)
    # protoc puts the text of the attribute in front of every class: no macro header is needed.
    add_custom_command(
        OUTPUT ${VYN_GENERATED_DIR}/${schema}.pb.cc ${header}
        COMMAND protobuf::protoc
            "--cpp_out=dllexport_decl=__attribute__((visibility(\"default\"))):${VYN_GENERATED_DIR}"
            -I ${VYN_PROTO_DIR} ${VYN_PROTO_DIR}/${schema}.proto
        DEPENDS ${vyn_schema_files} protobuf::protoc
        COMMENT "protoc ${schema}.proto"
        VERBATIM)
endforeach()

# The one class that protoc gives no attribute.
set_source_files_properties(${VYN_GENERATED_DIR}/onboarding.pb.cc PROPERTIES
    COMPILE_OPTIONS "-include;${CMAKE_CURRENT_LIST_DIR}/map_entry_export.h")

add_library(vyn_catalogue OBJECT ${vyn_generated_sources})
target_include_directories(vyn_catalogue SYSTEM PUBLIC ${VYN_GENERATED_DIR})
target_link_libraries(vyn_catalogue PUBLIC protobuf::libprotobuf)
# Not instrumented: sanitizers are to find faults in our own code, and take minutes for this. So the
# compile options are the same for all of them, and ccache compiles once for asan and tsan. Without
# debug information, since nobody debugs generated code.
set_target_properties(vyn_catalogue PROPERTIES COMPILE_OPTIONS "-w;-g0")
if(VYN_SANITIZE)
    target_compile_options(vyn_catalogue PRIVATE -fno-omit-frame-pointer)
endif()
# Small, but for the messages that are sent all the time.
set(VYN_FREQUENT_SCHEMAS vyn_header_v3 telemetry telemetry_svc_a2a trip notification heartbeat
    command_req command_resp)
target_compile_options(vyn_catalogue PRIVATE $<$<CONFIG:Release,RelWithDebInfo>:-Os>)
foreach(schema IN LISTS VYN_FREQUENT_SCHEMAS)
    set_source_files_properties(${VYN_GENERATED_DIR}/${schema}.pb.cc PROPERTIES
        COMPILE_OPTIONS $<$<CONFIG:Release,RelWithDebInfo>:-O2>)
endforeach()
add_custom_target(vyn_generated DEPENDS ${vyn_generated_sources})

# All schemas in one file, with what they import and their comments: protoc, Python and others read
# packets with it and need no schema file; "vynpkt describe" has it inside.
set(VYN_DESCRIPTOR_SET ${PROJECT_BINARY_DIR}/vyn_proto.desc)
add_custom_command(OUTPUT ${VYN_DESCRIPTOR_SET}
    COMMAND protobuf::protoc --include_imports --include_source_info -I ${VYN_PROTO_DIR}
        --descriptor_set_out=${VYN_DESCRIPTOR_SET} ${vyn_schema_files}
    DEPENDS ${vyn_schema_files} protobuf::protoc
    COMMENT "protoc vyn_proto.desc"
    VERBATIM)
add_custom_target(vyn_descriptor_set ALL DEPENDS ${VYN_DESCRIPTOR_SET})
