/* A service in C99: includes all of the public headers and calls into each. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "json_helper.h"
#include "logger.h"
#include "proto_helper.h"
#include "vyn_header.h"

int main(void) {
    msg_hdr hdr;
    uint8_t packet[256];
    uint32_t length = 0;
    uint32_t type = 0;
    char id[MSG_HDR_ID_SIZE] = "";
    char* json;

    memset(&hdr, 0, sizeof hdr);
    (void)log_file_init("consumer", 0, LOG_LEVEL_NONE);
    hdr.msg_type = 5;
    json = convert_hdr_to_json(&hdr, 1, 1);
    if (json == NULL || get_key_json(json, "message_id", id, sizeof id) != 1 ||
        strcmp(id, hdr.message_id) != 0) {
        fprintf(stderr, "consumer: no envelope\n");
        return 1;
    }
    free(json);
    if (cnvrt_hdr_to_protobuf(&hdr, packet, sizeof packet, &length, (const uint8_t*)"hi", 2) !=
            VYN_OK ||
        deser_nd_alter_pkt_st(packet, length, packet, sizeof packet, &length, 3, &type) != VYN_OK ||
        type != 5) {
        fprintf(stderr, "consumer: no packet\n");
        return 1;
    }
    return 0;
}
