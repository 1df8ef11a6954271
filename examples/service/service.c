/*
 * A model of a service in C: take it as the start of your own.
 *
 *   vyn_service [-v] SOCKET PEER STORE
 *
 * Packets arrive at the Unix datagram socket SOCKET, one compressed packet a datagram. The service
 * turns each into a JSON envelope, answers it with the SHA-256 of its body, and sends the answer,
 * a plain packet, to the Unix datagram socket PEER. An answer that cannot be sent waits in the
 * packet file STORE. What waits is sent in its order, before anything new: tried at the start and
 * once a second. On SIGTERM and SIGINT the service accepts nothing more, answers what it has
 * accepted, stores what it cannot send, and ends with 0. With -v, log lines go to standard error
 * too.
 *
 * An answer can reach the peer twice, when the service ends between sending and forgetting it; its
 * message_id tells. One that can be neither sent nor stored is lost, and the log says so.
 */
#define _GNU_SOURCE          /* for ppoll() */
#define _FILE_OFFSET_BITS 64 /* On 32 bits too, stat() knows every file. */
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "json_helper.h"
#include "logger.h"
#include "proto_helper.h"
#include "vyn_header.h"

enum {
    PACKET_SIZE = 32768,                        /* A packet that zstd could not make shorter. */
    JSON_SIZE = 6 * VYN_PACKET_CAPACITY + 1024, /* All of it control characters, and the keys. */
    ANSWER_SIZE = 1024,                         /* The texts of a header and our short body. */
    STORE_MAX_ANSWERS = 64,                     /* More than that would wait too long anyway. */
    STORE_SIZE = STORE_MAX_ANSWERS * (ANSWER_SIZE + 2) /* Each entry has its length in front. */
};

struct service {
    int socket;
    struct sockaddr_un peer;
    const char* store;
    uint32_t stored;     /* How many answers the store holds, */
    uint32_t sent;       /* and how many of them the peer has got. */
    time_t last_attempt; /* When sending them was last tried, by the monotonic clock. */
};

/* These are large for a stack, and the service has one thread. */
static uint8_t packet[PACKET_SIZE];
static char json[JSON_SIZE];
static char body[JSON_SIZE];

static volatile sig_atomic_t stopping;

static void stop(int signal_number) {
    (void)signal_number;
    stopping = 1;
}

/* ---- The store ------------------------------------------------------------------------------- */

/* Keeps a store for people to look at, and starts with a new one. */
static void set_store_aside(struct service* service) {
    char name[4096];
    service->stored = service->sent = 0;
    (void)snprintf(name, sizeof name, "%s.damaged", service->store);
    if (rename(service->store, name) == 0) {
        LOG(LOG_LEVEL_ERROR, "%s is damaged or too large; vynpkt recover reads it", name);
    } else {
        LOG(LOG_LEVEL_ERROR, "%s is damaged and not renamed: %s", service->store, strerror(errno));
    }
}

/* The bytes of an entry in a packet file: a varint of the packet's length, and the packet. */
static size_t entry_size(uint32_t length) {
    size_t size = (size_t)length + 1;
    for (uint32_t rest = length >> 7; rest != 0; rest >>= 7) {
        size++;
    }
    return size;
}

/* 1 when the peer got it. One that reads slowly is waited for, as long as the socket allows. */
static int send_to_peer(const struct service* service, const uint8_t* bytes, uint32_t length) {
    return sendto(service->socket, bytes, length, 0, (const struct sockaddr*)&service->peer,
                  sizeof service->peer) >= 0;
}

/* Sends the entries of the store that the peer does not have yet. */
static void send_entries(struct service* service, uint8_t** entries, size_t file_size) {
    uint32_t lengths[STORE_MAX_ANSWERS + 1];
    uint32_t count = 0;
    size_t read_size = 0;
    uint32_t result = read_proto_msg_from_file(entries, &count, lengths, service->store);
    if (result != VYN_OK) {
        LOG(LOG_LEVEL_ERROR, "%s not read: code %u", service->store, (unsigned)result);
        set_store_aside(service);
        return;
    }
    for (uint32_t i = 0; i < count; i++) {
        read_size += entry_size(lengths[i]);
    }
    while (service->sent < count &&
           send_to_peer(service, entries[service->sent], lengths[service->sent])) {
        service->sent++;
    }
    service->stored = count;
    if (service->sent < count) {
        return;
    }
    LOG(LOG_LEVEL_INFO, "%u stored answers sent", (unsigned)count);
    /* Reading stops in front of damage, and after as many entries as there are buffers. */
    if (read_size != file_size) {
        set_store_aside(service);
    } else if (unlink(service->store) != 0) {
        LOG(LOG_LEVEL_ERROR, "%s is sent but not removed: %s", service->store, strerror(errno));
    }
    service->stored = service->sent = 0;
}

/* Sends what waits in the store, as far as the peer takes it. */
static void replay(struct service* service) {
    uint8_t* entries[STORE_MAX_ANSWERS + 1] = {NULL}; /* The last one stays null: the end. */
    struct stat file;
    if (stat(service->store, &file) != 0 || !S_ISREG(file.st_mode) || file.st_size == 0) {
        service->stored = service->sent = 0;
        return;
    }
    if (file.st_size > STORE_SIZE) {
        set_store_aside(service);
        return;
    }
    /* No entry is larger than its file and 5 bytes, which is what reading asks for. */
    size_t room = (size_t)file.st_size + 5;
    uint8_t* memory = malloc(STORE_MAX_ANSWERS * room);
    if (memory == NULL) {
        LOG(LOG_LEVEL_ERROR, "no memory to read %s", service->store);
        service->stored += service->stored == 0; /* Tried again, before anything new is sent. */
        return;
    }
    for (size_t i = 0; i < STORE_MAX_ANSWERS; i++) {
        entries[i] = memory + i * room;
    }
    send_entries(service, entries, (size_t)file.st_size);
    free(memory);
}

static void replay_each_second(struct service* service) {
    struct timespec now;
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    if (service->stored > 0 && now.tv_sec != service->last_attempt) {
        service->last_attempt = now.tv_sec;
        replay(service);
    }
}

/* What is stored survives the end of the process anyway, and after this also a power cut. */
static void sync_store(const struct service* service) {
    int fd = open(service->store, O_RDONLY | O_CLOEXEC);
    if (fd < 0 || fsync(fd) != 0 || fsync_parent_dir(service->store) != 0) {
        LOG(LOG_LEVEL_ERROR, "%s not synced: %s", service->store, strerror(errno));
    }
    if (fd >= 0) {
        (void)close(fd);
    }
}

/* ---- Packets --------------------------------------------------------------------------------- */

/* Sends an answer, or stores it behind those that wait already. */
static void deliver(struct service* service, const uint8_t* answer, uint32_t length) {
    if (service->stored == 0 && send_to_peer(service, answer, length)) {
        return;
    }
    if (service->stored == STORE_MAX_ANSWERS) {
        LOG(LOG_LEVEL_ERROR, "answer lost: %s is full", service->store);
        return;
    }
    uint32_t result = store_proto_msg_to_file(answer, (int32_t)length, service->store);
    if (result != VYN_OK) {
        LOG(LOG_LEVEL_ERROR, "answer lost: not stored in %s, code %u", service->store,
            (unsigned)result);
        return;
    }
    service->stored++;
    LOG(LOG_LEVEL_INFO, "answer stored in %s", service->store);
}

/* The work of this service: the body of the answer, as JSON. Yours goes here. */
static int work(const char* request_body, char* reply, uint32_t reply_size) {
    char digest[65] = "";
    return calculate_checksum((const uint8_t*)request_body, (uint32_t)strlen(request_body), digest,
                              sizeof digest) == 1 &&
           set_generic_key_json(reply, "sha256", digest, VYN_JSON_STRING, reply_size) == 1;
}

/* Makes the answer to the envelope in `json`. Returns its length, 0 when there is none. */
static uint32_t make_answer(uint8_t* answer, uint32_t answer_size) {
    char reply[128] = "{}";
    uint32_t length = 0;
    msg_hdr hdr;
    memset(&hdr, 0, sizeof hdr);
    if (get_msg_hdr(json, &hdr) != 1 || get_body_from_message(json, body, sizeof body) != 1 ||
        !work(body, reply, sizeof reply)) {
        return 0;
    }
    memcpy(hdr.correlation_id, hdr.message_id, sizeof hdr.correlation_id);
    get_new_message_uuid(hdr.message_id, sizeof hdr.message_id);
    memcpy(hdr.target_id, hdr.device_id, sizeof hdr.target_id);
    memset(hdr.device_id, 0, sizeof hdr.device_id);
    memset(hdr.property_bag, 0, sizeof hdr.property_bag);
    hdr.encoding_type = 0; /* The body is text. */
    hdr.time = (int64_t)get_current_timestamp_();
    uint32_t result = cnvrt_hdr_to_protobuf(&hdr, answer, answer_size, &length,
                                            (const uint8_t*)reply, (uint32_t)strlen(reply));
    return result == VYN_OK ? length : 0;
}

/* Takes one packet from the socket. Returns 0 when none waits there. */
static int receive(struct service* service) {
    uint8_t answer[ANSWER_SIZE];
    /* With MSG_TRUNC the length is the datagram's own, however large the buffer is. */
    ssize_t length = recv(service->socket, packet, sizeof packet, MSG_DONTWAIT | MSG_TRUNC);
    if (length < 0) {
        return 0;
    }
    if ((size_t)length > sizeof packet) {
        LOG(LOG_LEVEL_ERROR, "packet refused: %ld bytes", (long)length);
        return 1;
    }
    json[0] = '\0';
    uint32_t result = cnvrt_protobuf_to_json_hdr(packet, json, (uint32_t)length, sizeof json);
    if (json[0] == '\0') {
        LOG(LOG_LEVEL_ERROR, "packet refused: code %u", (unsigned)result);
        return 1;
    }
    if (result != VYN_OK) { /* A soft result: there is an envelope, but it lacks something. */
        LOG(LOG_LEVEL_ERROR, "a part of a packet is lost: code %u", (unsigned)result);
    }
    uint32_t answer_length = make_answer(answer, sizeof answer);
    if (answer_length == 0) {
        LOG(LOG_LEVEL_ERROR, "no answer could be made");
    } else {
        deliver(service, answer, answer_length);
    }
    return 1;
}

/* ---- The process ----------------------------------------------------------------------------- */

static int set_address(struct sockaddr_un* address, const char* path) {
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    int length = snprintf(address->sun_path, sizeof address->sun_path, "%s", path);
    return length > 0 && (size_t)length < sizeof address->sun_path;
}

static int open_socket(const struct sockaddr_un* address) {
    /* A peer that stopped holds the service up for so long, once a second. */
    const struct timeval patience = {.tv_usec = 100000};
    struct stat old;
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    /* A run that was killed left its socket behind; at that of one that lives bind fails. */
    if (fd >= 0 && lstat(address->sun_path, &old) == 0 && S_ISSOCK(old.st_mode) &&
        connect(fd, (const struct sockaddr*)address, sizeof *address) != 0 &&
        errno == ECONNREFUSED) {
        (void)unlink(address->sun_path);
    }
    if (fd >= 0 && (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) != 0 ||
                    bind(fd, (const struct sockaddr*)address, sizeof *address) != 0)) {
        (void)close(fd);
        fd = -1;
    }
    return fd;
}

/* Signals arrive only while the service waits for packets. Stores the mask to wait with. */
static void catch_signals(sigset_t* while_waiting) {
    struct sigaction action;
    sigset_t stops;
    memset(&action, 0, sizeof action);
    action.sa_handler = stop;
    (void)sigemptyset(&stops);
    (void)sigaddset(&stops, SIGTERM);
    (void)sigaddset(&stops, SIGINT);
    (void)sigprocmask(SIG_BLOCK, &stops, while_waiting);
    (void)sigdelset(while_waiting, SIGTERM);
    (void)sigdelset(while_waiting, SIGINT);
    (void)sigaction(SIGTERM, &action, NULL);
    (void)sigaction(SIGINT, &action, NULL);
}

static void serve(struct service* service, const sigset_t* while_waiting) {
    const struct timespec second = {1, 0};
    struct pollfd input = {service->socket, POLLIN, 0};
    replay(service);
    while (!stopping) {
        if (ppoll(&input, 1, service->stored > 0 ? &second : NULL, while_waiting) > 0) {
            (void)receive(service);
        }
        replay_each_second(service);
    }
    /* From here on senders get an error, so what is accepted has an end. */
    (void)shutdown(service->socket, SHUT_RD);
    while (receive(service)) {
    }
    if (service->stored > 0) {
        sync_store(service);
    }
}

int main(int argc, char** argv) {
    struct service service = {.store = argc > 3 ? argv[argc - 1] : NULL};
    struct sockaddr_un address;
    sigset_t while_waiting;
    int verbose = argc == 5 && strcmp(argv[1], "-v") == 0;
    if (argc != 4 + verbose || !set_address(&address, argv[argc - 3]) ||
        !set_address(&service.peer, argv[argc - 2])) {
        fprintf(stderr, "usage: vyn_service [-v] SOCKET PEER STORE\n");
        return 2;
    }
    (void)log_file_init("vyn_service", 0, LOG_LEVEL_INFO);
    if (verbose) {
        openlog("vyn_service", LOG_PID | LOG_PERROR, LOG_USER);
    }
    catch_signals(&while_waiting);
    service.socket = open_socket(&address);
    if (service.socket < 0) {
        fprintf(stderr, "vyn_service: %s: %s\n", address.sun_path, strerror(errno));
        return 1;
    }
    LOG(LOG_LEVEL_INFO, "ready at %s", address.sun_path);
    serve(&service, &while_waiting);
    LOG(LOG_LEVEL_INFO, "stopped, %u answers stored", (unsigned)(service.stored - service.sent));
    (void)unlink(address.sun_path);
    (void)close(service.socket);
    return 0;
}
