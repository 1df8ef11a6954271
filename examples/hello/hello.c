/* Reads a received packet from standard input and prints its JSON envelope. */
#include <stdio.h>

#include "logger.h"
#include "proto_helper.h"

int main(void) {
    static uint8_t packet[32768];
    static char json[6 * VYN_PACKET_CAPACITY + 1024];
    size_t length = fread(packet, 1, sizeof packet, stdin);
    uint32_t result = cnvrt_protobuf_to_json_hdr(packet, json, (uint32_t)length, sizeof json);
    if (json[0] == 0) {
        LOG(LOG_LEVEL_ERROR, "packet not read: code %u", (unsigned)result);
        return 1;
    }
    puts(json); /* All of it with VYN_OK; with a soft result something is missing. */
    return 0;
}
