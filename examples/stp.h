/*
 * The Spanning Tree Algorithm and Protocol of IEEE Std 802.1D-1998, clause 8, and its BPDUs, clause 9.
 * Names and numbers are the standard's. Nothing is known here of sockets or of a switch: whoever runs
 * it gives it the BPDUs that come in, the time, and two calls.
 */
#ifndef EXAMPLES_STP_H
#define EXAMPLES_STP_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

enum { STP_PORTS_MAX = 64 };
enum { STP_CONFIG_LENGTH = 35, STP_TCN_LENGTH = 4 }; /* 9.3.1, 9.3.2 */

enum stp_port_state { STP_DISABLED, STP_LISTENING, STP_LEARNING, STP_FORWARDING, STP_BLOCKING }; /* 8.4 */

/* Times are milliseconds, of any clock that runs on. */
typedef int64_t stp_time;

/* It counts up, from a value that is not always zero. */
struct stp_timer {
    bool is_active;
    stp_time zero; /* when its value was 0 */
};

/* What a Configuration BPDU says of a way to the Root; the less, the better (8.6.2.2). */
struct stp_priority {
    uint64_t root; /* Bridge Identifier: priority, and the MAC address behind it (9.2.5) */
    uint32_t cost;
    uint64_t bridge;
    uint16_t port; /* Port Identifier: priority, and its number behind it (9.2.7) */
};

struct stp_times {
    stp_time max_age, hello_time, forward_delay;
};

struct stp_port { /* 8.5.5 */
    unsigned ifindex; /* the switch's name for it */
    uint16_t id;
    uint32_t path_cost;
    enum stp_port_state state;
    struct stp_priority designated;
    bool topology_change_acknowledge, config_pending;
    struct stp_timer message_age, forward_delay, hold; /* 8.5.6 */
};

struct stp_bridge { /* 8.5.3 */
    uint64_t id, designated_root;
    uint32_t root_path_cost;
    struct stp_port *root_port;    /* none: this Bridge is the Root */
    struct stp_times times, own;   /* the Root's, and those this Bridge would give as the Root */
    bool topology_change_detected, topology_change;
    struct stp_timer hello, tcn, topology_change_timer; /* 8.5.4 */
    struct stp_port ports[STP_PORTS_MAX];
    size_t port_count;
    stp_time now;
    void (*send)(const struct stp_port *port, const uint8_t *bpdu, size_t length);
    void (*set_state)(const struct stp_port *port);
};

/* The bridge's id, own times, ports (ifindex, id, path_cost) and calls are filled in; all its ports are
 * Disabled until they are enabled. */
void stp_start(struct stp_bridge *bridge, stp_time now);                                 /* 8.8.1 */
void stp_enable_port(struct stp_bridge *bridge, struct stp_port *port, stp_time now);    /* 8.8.2 */
void stp_disable_port(struct stp_bridge *bridge, struct stp_port *port, stp_time now);   /* 8.8.3 */
/* What is no valid BPDU is passed over. */
void stp_receive(struct stp_bridge *bridge, struct stp_port *port, const uint8_t *bpdu, size_t length,
                 stp_time now);                                                          /* 8.7.1, 8.7.2 */
/* Whenever time has gone on: often against the shortest timer, a second. */
void stp_tick(struct stp_bridge *bridge, stp_time now);                                  /* 8.7.3 to 8.7.8 */

#endif
