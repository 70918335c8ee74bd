#include "stp.h"

enum { HOLD_TIME = 1000, MESSAGE_AGE_INCREMENT = 1000 }; /* tables 8-3, 8-2 */
enum { TYPE_CONFIG = 0x00, TYPE_TCN = 0x80, FLAG_TC = 0x01, FLAG_TCA = 0x80 };

struct config { /* 8.5.1 */
    struct stp_priority priority;
    stp_time message_age;
    struct stp_times times;
    bool topology_change, topology_change_acknowledgment;
};

/* --- BPDUs (9.3) -------------------------------------------------------------------------------- */

static uint8_t *put(uint8_t *at, uint64_t value, int bytes)
{
    for (int i = bytes - 1; i >= 0; i--)
        *at++ = (uint8_t)(value >> 8 * i);
    return at;
}

static uint64_t take(const uint8_t **at, int bytes)
{
    uint64_t value = 0;

    for (; bytes > 0; bytes--)
        value = value << 8 | *(*at)++;
    return value;
}

/* In units of 1/256 second (9.2.8). */
static uint8_t *put_time(uint8_t *at, stp_time time)
{
    return put(at, (uint64_t)time * 256 / 1000, 2);
}

static stp_time take_time(const uint8_t **at)
{
    return (stp_time)take(at, 2) * 1000 / 256;
}

static void encode_config(const struct config *config, uint8_t bpdu[STP_CONFIG_LENGTH])
{
    uint8_t *at = put(bpdu, TYPE_CONFIG, 4); /* protocol, version and type */

    *at++ = (config->topology_change ? FLAG_TC : 0) |
            (config->topology_change_acknowledgment ? FLAG_TCA : 0);
    at = put(at, config->priority.root, 8);
    at = put(at, config->priority.cost, 4);
    at = put(at, config->priority.bridge, 8);
    at = put(at, config->priority.port, 2);
    at = put_time(at, config->message_age);
    at = put_time(at, config->times.max_age);
    at = put_time(at, config->times.hello_time);
    put_time(at, config->times.forward_delay);
}

static struct config decode_config(const uint8_t *bpdu)
{
    const uint8_t *at = bpdu + 4;
    struct config config;
    uint8_t flags = *at++;

    config.topology_change = flags & FLAG_TC;
    config.topology_change_acknowledgment = flags & FLAG_TCA;
    config.priority.root = take(&at, 8);
    config.priority.cost = (uint32_t)take(&at, 4);
    config.priority.bridge = take(&at, 8);
    config.priority.port = (uint16_t)take(&at, 2);
    config.message_age = take_time(&at);
    config.times.max_age = take_time(&at);
    config.times.hello_time = take_time(&at);
    config.times.forward_delay = take_time(&at);
    return config;
}

/* --- timers and comparisons --------------------------------------------------------------------- */

static void start(const struct stp_bridge *bridge, struct stp_timer *timer, stp_time value)
{
    timer->is_active = true;
    timer->zero = bridge->now - value;
}

static void stop(struct stp_timer *timer)
{
    timer->is_active = false;
}

/* An expired timer is stopped. */
static bool has_expired(const struct stp_bridge *bridge, struct stp_timer *timer, stp_time limit)
{
    bool expired = timer->is_active && bridge->now - timer->zero >= limit;

    if (expired)
        stop(timer);
    return expired;
}

/* Below, at or above zero; without the port, which is of use between different ports alone. */
static int compare(const struct stp_priority *a, const struct stp_priority *b)
{
    if (a->root != b->root)
        return a->root < b->root ? -1 : 1;
    if (a->cost != b->cost)
        return a->cost < b->cost ? -1 : 1;
    if (a->bridge != b->bridge)
        return a->bridge < b->bridge ? -1 : 1;
    return 0;
}

static bool is_root(const struct stp_bridge *bridge)
{
    return bridge->designated_root == bridge->id;
}

static bool is_designated(const struct stp_bridge *bridge, const struct stp_port *port)
{
    return port->designated.bridge == bridge->id && port->designated.port == port->id;
}

static void set_state(const struct stp_bridge *bridge, struct stp_port *port, enum stp_port_state state)
{
    port->state = state;
    bridge->set_state(port);
}

/* --- elements of procedure (8.6), in the standard's order ---------------------------------------- */

static void transmit_config(struct stp_bridge *bridge, struct stp_port *port) /* 8.6.1 */
{
    struct config config = {
        .priority = {bridge->designated_root, bridge->root_path_cost, bridge->id, port->id},
        .times = bridge->times,
        .topology_change = bridge->topology_change,
        .topology_change_acknowledgment = port->topology_change_acknowledge,
    };
    uint8_t bpdu[STP_CONFIG_LENGTH];

    if (port->hold.is_active) {
        port->config_pending = true;
        return;
    }
    if (bridge->root_port)
        config.message_age = bridge->now - bridge->root_port->message_age.zero + MESSAGE_AGE_INCREMENT;
    if (config.message_age >= config.times.max_age)
        return;
    port->topology_change_acknowledge = false;
    port->config_pending = false;
    encode_config(&config, bpdu);
    bridge->send(port, bpdu, sizeof(bpdu));
    start(bridge, &port->hold, 0);
}

static bool supersedes(const struct stp_bridge *bridge, const struct stp_port *port,
                       const struct stp_priority *said) /* 8.6.2.2 */
{
    int order = compare(said, &port->designated);

    if (order != 0)
        return order < 0;
    return said->bridge != bridge->id || said->port <= port->designated.port;
}

static void config_generation(struct stp_bridge *bridge) /* 8.6.4 */
{
    for (size_t i = 0; i < bridge->port_count; i++) {
        struct stp_port *port = &bridge->ports[i];

        if (port->state != STP_DISABLED && is_designated(bridge, port))
            transmit_config(bridge, port);
    }
}

static void transmit_tcn(const struct stp_bridge *bridge) /* 8.6.6 */
{
    uint8_t bpdu[STP_TCN_LENGTH];

    put(bpdu, TYPE_TCN, sizeof(bpdu));
    bridge->send(bridge->root_port, bpdu, sizeof(bpdu));
}

/* Whether the Root is nearer through port a than through b. */
static bool is_nearer(const struct stp_port *a, const struct stp_port *b)
{
    struct stp_priority by_a = a->designated, by_b = b->designated;
    int order;

    by_a.cost += a->path_cost;
    by_b.cost += b->path_cost;
    order = compare(&by_a, &by_b);
    if (order != 0)
        return order < 0;
    return by_a.port != by_b.port ? by_a.port < by_b.port : a->id < b->id;
}

static void root_selection(struct stp_bridge *bridge) /* 8.6.8 */
{
    struct stp_port *best = NULL;

    for (size_t i = 0; i < bridge->port_count; i++) {
        struct stp_port *port = &bridge->ports[i];

        if (port->state != STP_DISABLED && !is_designated(bridge, port) &&
            port->designated.root < bridge->id && (!best || is_nearer(port, best)))
            best = port;
    }
    bridge->root_port = best;
    bridge->designated_root = best ? best->designated.root : bridge->id;
    bridge->root_path_cost = best ? best->designated.cost + best->path_cost : 0;
}

static void become_designated(const struct stp_bridge *bridge, struct stp_port *port) /* 8.6.10 */
{
    port->designated = (struct stp_priority){bridge->designated_root, bridge->root_path_cost,
                                             bridge->id, port->id};
}

static void designated_port_selection(struct stp_bridge *bridge) /* 8.6.9 */
{
    for (size_t i = 0; i < bridge->port_count; i++) {
        struct stp_port *port = &bridge->ports[i];
        struct stp_priority own = {bridge->designated_root, bridge->root_path_cost, bridge->id, port->id};
        int order = compare(&own, &port->designated);

        if (is_designated(bridge, port) || port->designated.root != bridge->designated_root ||
            order < 0 || (order == 0 && port->id <= port->designated.port))
            become_designated(bridge, port);
    }
}

static void configuration_update(struct stp_bridge *bridge) /* 8.6.7 */
{
    root_selection(bridge);
    designated_port_selection(bridge);
}

static void topology_change_detection(struct stp_bridge *bridge) /* 8.6.14 */
{
    if (is_root(bridge)) {
        bridge->topology_change = true;
        start(bridge, &bridge->topology_change_timer, 0);
    } else if (!bridge->topology_change_detected) {
        transmit_tcn(bridge);
        start(bridge, &bridge->tcn, 0);
    }
    bridge->topology_change_detected = true;
}

static void make_forwarding(struct stp_bridge *bridge, struct stp_port *port) /* 8.6.12 */
{
    if (port->state != STP_BLOCKING)
        return;
    set_state(bridge, port, STP_LISTENING);
    start(bridge, &port->forward_delay, 0);
}

static void make_blocking(struct stp_bridge *bridge, struct stp_port *port) /* 8.6.13 */
{
    enum stp_port_state before = port->state;

    if (before == STP_DISABLED || before == STP_BLOCKING)
        return;
    set_state(bridge, port, STP_BLOCKING); /* first: nothing that follows may be late for a loop */
    stop(&port->forward_delay);
    if (before == STP_FORWARDING || before == STP_LEARNING)
        topology_change_detection(bridge);
}

static void port_state_selection(struct stp_bridge *bridge) /* 8.6.11 */
{
    for (size_t i = 0; i < bridge->port_count; i++) {
        struct stp_port *port = &bridge->ports[i];

        if (port != bridge->root_port && is_designated(bridge, port)) {
            stop(&port->message_age);
            make_forwarding(bridge, port);
            continue;
        }
        port->config_pending = false;
        port->topology_change_acknowledge = false;
        if (port == bridge->root_port)
            make_forwarding(bridge, port);
        else
            make_blocking(bridge, port);
    }
}

/* --- operation of the protocol (8.7) -------------------------------------------------------------- */

/* It has lost its way to the Root, and takes itself for it: the end of 8.7.4 and of 8.8.3. */
static void become_root(struct stp_bridge *bridge)
{
    bridge->times = bridge->own;
    topology_change_detection(bridge);
    stop(&bridge->tcn);
    config_generation(bridge);
    start(bridge, &bridge->hello, 0);
}

/* It has heard of a better one: the middle of 8.7.1. */
static void cease_to_be_root(struct stp_bridge *bridge)
{
    stop(&bridge->hello);
    if (!bridge->topology_change_detected)
        return;
    stop(&bridge->topology_change_timer);
    transmit_tcn(bridge);
    start(bridge, &bridge->tcn, 0);
}

static void received_config(struct stp_bridge *bridge, struct stp_port *port,
                            const struct config *config) /* 8.7.1 */
{
    bool was_root = is_root(bridge);

    if (!supersedes(bridge, port, &config->priority)) {
        if (is_designated(bridge, port))
            transmit_config(bridge, port); /* 8.6.5 */
        return;
    }
    port->designated = config->priority; /* 8.6.2 */
    start(bridge, &port->message_age, config->message_age);
    configuration_update(bridge);
    port_state_selection(bridge);
    if (was_root && !is_root(bridge))
        cease_to_be_root(bridge);
    if (port != bridge->root_port)
        return;
    bridge->times = config->times; /* 8.6.3 */
    bridge->topology_change = config->topology_change;
    config_generation(bridge);
    if (config->topology_change_acknowledgment) { /* 8.6.15 */
        bridge->topology_change_detected = false;
        stop(&bridge->tcn);
    }
}

static void received_tcn(struct stp_bridge *bridge, struct stp_port *port) /* 8.7.2 */
{
    if (!is_designated(bridge, port))
        return;
    topology_change_detection(bridge);
    port->topology_change_acknowledge = true; /* 8.6.16 */
    transmit_config(bridge, port);
}

void stp_receive(struct stp_bridge *bridge, struct stp_port *port, const uint8_t *bpdu, size_t length,
                 stp_time now)
{
    struct config config;

    bridge->now = now;
    if (port->state == STP_DISABLED || length < STP_TCN_LENGTH || bpdu[0] != 0 || bpdu[1] != 0)
        return; /* 9.3.4 */
    if (bpdu[3] == TYPE_TCN)
        received_tcn(bridge, port);
    if (bpdu[3] != TYPE_CONFIG || length < STP_CONFIG_LENGTH)
        return;
    config = decode_config(bpdu);
    if (config.message_age < config.times.max_age &&
        (config.priority.bridge != bridge->id || config.priority.port != port->id))
        received_config(bridge, port, &config);
}

static void message_age_expired(struct stp_bridge *bridge, struct stp_port *port) /* 8.7.4 */
{
    bool was_root = is_root(bridge);

    become_designated(bridge, port);
    configuration_update(bridge);
    port_state_selection(bridge);
    if (!was_root && is_root(bridge))
        become_root(bridge);
}

static void forward_delay_expired(struct stp_bridge *bridge, struct stp_port *port) /* 8.7.5 */
{
    if (port->state == STP_LISTENING) {
        set_state(bridge, port, STP_LEARNING);
        start(bridge, &port->forward_delay, 0);
        return;
    }
    set_state(bridge, port, STP_FORWARDING);
    for (size_t i = 0; i < bridge->port_count; i++)
        if (is_designated(bridge, &bridge->ports[i]))
            return topology_change_detection(bridge);
}

static void tick_port(struct stp_bridge *bridge, struct stp_port *port)
{
    if (has_expired(bridge, &port->message_age, bridge->times.max_age))
        message_age_expired(bridge, port);
    if (has_expired(bridge, &port->forward_delay, bridge->times.forward_delay))
        forward_delay_expired(bridge, port);
    if (has_expired(bridge, &port->hold, HOLD_TIME) && port->config_pending) /* 8.7.8 */
        transmit_config(bridge, port);
}

void stp_tick(struct stp_bridge *bridge, stp_time now)
{
    bridge->now = now;
    if (has_expired(bridge, &bridge->hello, bridge->times.hello_time)) { /* 8.7.3 */
        config_generation(bridge);
        start(bridge, &bridge->hello, 0);
    }
    if (has_expired(bridge, &bridge->tcn, bridge->own.hello_time)) { /* 8.7.6 */
        transmit_tcn(bridge);
        start(bridge, &bridge->tcn, 0);
    }
    if (has_expired(bridge, &bridge->topology_change_timer, bridge->own.max_age + bridge->own.forward_delay))
        bridge->topology_change_detected = bridge->topology_change = false; /* 8.7.7 */
    for (size_t i = 0; i < bridge->port_count; i++)
        tick_port(bridge, &bridge->ports[i]);
}

/* --- management (8.8) ------------------------------------------------------------------------------ */

static void reset_port(const struct stp_bridge *bridge, struct stp_port *port, enum stp_port_state state)
{
    become_designated(bridge, port);
    set_state(bridge, port, state);
    port->topology_change_acknowledge = false;
    port->config_pending = false;
    stop(&port->message_age);
    stop(&port->forward_delay);
    stop(&port->hold);
}

void stp_start(struct stp_bridge *bridge, stp_time now)
{
    bridge->now = now;
    bridge->designated_root = bridge->id;
    bridge->times = bridge->own;
    for (size_t i = 0; i < bridge->port_count; i++)
        reset_port(bridge, &bridge->ports[i], STP_DISABLED);
    start(bridge, &bridge->hello, 0);
}

void stp_enable_port(struct stp_bridge *bridge, struct stp_port *port, stp_time now)
{
    bridge->now = now;
    reset_port(bridge, port, STP_BLOCKING);
    port_state_selection(bridge);
}

void stp_disable_port(struct stp_bridge *bridge, struct stp_port *port, stp_time now)
{
    bool was_root = is_root(bridge);

    bridge->now = now;
    reset_port(bridge, port, STP_DISABLED);
    configuration_update(bridge);
    port_state_selection(bridge);
    if (!was_root && is_root(bridge))
        become_root(bridge);
}
