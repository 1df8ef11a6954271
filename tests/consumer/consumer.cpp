// A service in C++: the generated classes, the transcoders and the version.
#include <iostream>
#include <string>

#include "heartbeat.pb.h"
#include "proto_helper.h"
#include "vyn_version.h"

int main() {
    DeviceInfoHB sent;
    sent.add_apps()->set_app_name(VYN_PROTO_VERSION);
    DeviceInfoHB received;
    std::string json;
    if (!ProtoToJson(json, sent) || !JsonToProto(json, received) ||
        received.SerializeAsString() != sent.SerializeAsString()) {
        std::cerr << "consumer: not the same after " << json << "\n";
        return 1;
    }
    std::cout << sent.SerializeAsString();
    return VYN_PROTO_VERSION_NUMBER >= 1000000 ? 0 : 1;
}
