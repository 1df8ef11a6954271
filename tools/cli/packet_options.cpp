#include "cli/packet_options.h"

#include <CLI/CLI.hpp>

namespace vynpkt {

void PacketOptions::add_types_to(CLI::App& command) {
    command.add_option("--types", types_, "Name bodies by this file of message types")
        ->type_name("FILE")
        ->envname("VYNPKT_TYPES");
}

void PacketOptions::add_to(CLI::App& command, bool printing) {
    add_types_to(command);
    command.add_flag("--header", style_.header, "JSON of Header itself, which loses nothing");
    if (printing) {
        command.add_flag("--keep-body", style_.keep_body, "Keep \"body\" beside \"message\"");
        command.add_flag("--enum-names", style_.enum_names, "Print enums in \"message\" by name");
    }
}

MessageTypes PacketOptions::read_types() const {
    return has_types() ? MessageTypes(types_) : MessageTypes();
}

bool PacketOptions::has_types() const { return !types_.empty(); }

JsonStyle PacketOptions::style() const {
    JsonStyle style = style_;
    style.types = has_types();
    return style;
}

}  // namespace vynpkt
