/* Reads a received packet from standard input and prints its JSON envelope. */
#include <stdio.h>

#include "proto_helper.h"

int main(void) {
    static uint8_t packet[32768];
    static char json[6 * VYN_PACKET_CAPACITY + 1024];
    size_t length = fread(packet, 1, sizeof packet, stdin);
    uint32_t result = cnvrt_protobuf_to_json_hdr(packet, json, (uint32_t)length, sizeof json);
    if (result != VYN_OK) { /* The numbers are explained in proto_helper.h. */
        fprintf(stderr, "hello: %s: result %u\n",
                json[0] == 0 ? "no packet could be read" : "a part of the packet is lost",
                (unsigned)result);
    }
    if (json[0] == 0) {
        return 1;
    }
    puts(json);
    return 0;
}
