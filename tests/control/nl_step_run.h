/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Makes the steps of nl_steps.h, one at a time, with what a home does: nl_step_send() sends the
 * command and holds the answer, nl_step_sights() looks at what can be seen.
 *
 * Plain C that is C++ as well.
 */
#ifndef TARN_TESTS_NL_STEP_RUN_H
#define TARN_TESTS_NL_STEP_RUN_H

#include <stdlib.h>

#include "nl_steps.h"

/* --- messages ------------------------------------------------------------------------------- */

/* The words of the attributes, by number. */
// clang-format off
static const char *const nl_attribute_names[] = {
    "", "ifindex", "agg_ifindex", "port_ifindex", "vid", "id", "state", "tagged", "vid_bitmap",
    "mac", "family", "ipv4_addr", "prefix_len", "xlate_vid", "xlate_new_vid", "xlate_miss_action",
    "stack_rule_vid_a", "stack_rule_vid_b", "pvlan_type", "pvlan_primary_vid",
    "pvlan_secondary_vid", "pvlan_port_mode", "pvlan_forwarding", "pvlan_upstream_list",
    "dhcpsn_lease_op", "dhcpsn_kind", "dhcpsn_global", "arpsec_action", "arpsec_reason",
    "mirror_target", "mirror_source", "mirror_direction", "stp_instance", "stp_state",
    "auth_port_state", "auth_method", "auth_web_port", "auth_web_port2", "auth_http_ports",
    "auth_https_ports", "auth_guest_fwd_rules", "auth_fwd_rules", "mc_rate_limit", "mc_router_op",
    "mc_router_value", "flags", "speed", "duplex", "vid_start", "vid_end", "vlan_options",
    "vxlan_local_addr", "vxlan_remote_addr", "vxlan_vni", "reserved", "if_name", "if_kind",
    "port_kind", "stack_member", "dos_reason", "ethertype", "dos_header", "fdb_event",
};
// clang-format on

/* The number of the attribute with that name, or 0. */
static inline unsigned nl_attribute_named(const char *name, size_t length) {
    for (unsigned number = 1; number <= TARNFWD_ATTR_MAX; number++)
        if (strlen(nl_attribute_names[number]) == length &&
            memcmp(nl_attribute_names[number], name, length) == 0)
            return number;
    return 0;
}

/* How many bytes. */
static inline unsigned nl_hex(const char *digits, size_t count, uint8_t *bytes) {
    unsigned length = 0;
    for (; 2 * (length + 1u) <= count; length++) {
        char two[3] = {digits[2 * length], digits[2 * length + 1], '\0'};
        bytes[length] = (uint8_t)strtoul(two, NULL, 16);
    }
    return length;
}

static inline void nl_step_put(struct nl_message *message, unsigned number, const char *value,
                               size_t length) {
    struct nl_attribute attribute = nl_attribute_of(number);
    uint8_t bytes[NL_CASE_BYTES / 2];
    uint32_t word = (uint32_t)strtoul(value, NULL, 0);
    uint16_t half = (uint16_t)word;
    uint8_t byte = (uint8_t)word;

    if (attribute.kind == NL_INTEGER)
        nl_message_put(message, number,
                       attribute.length == sizeof(word)   ? (const void *)&word
                       : attribute.length == sizeof(half) ? (const void *)&half
                                                          : (const void *)&byte,
                       attribute.length);
    else if (attribute.kind == NL_TEXT) {
        memcpy(bytes, value, length);
        bytes[length] = '\0';
        nl_message_put(message, number, bytes, (unsigned)length + 1);
    } else {
        nl_message_put(message, number, bytes, nl_hex(value, length, bytes));
    }
}

/* 0, or -1 where a word is no attribute. */
static inline int nl_step_build(struct nl_message *message, uint16_t family, uint8_t command,
                                const char *with) {
    nl_message_start(message, family, command, NLM_F_ACK, 1);
    while (*with) {
        size_t name = strcspn(with, " ");
        const char *value = with + name + 1;
        size_t length = strcspn(value, " ");
        unsigned number = nl_attribute_named(with, name);
        if (!number || !length)
            return -1;
        nl_step_put(message, number, value, length);
        with = value + length + (value[length] == ' ');
    }
    message->u.header.nlmsg_len = message->length;
    return 0;
}

/* --- looking -------------------------------------------------------------------------------- */

/* What a home does. Texts are good until the next call. */
struct nl_home {
    /* the answer to the message, whose family it fills in */
    int (*command)(struct nl_message *message);
    /* of /proc/tarn; "" where there is no such file */
    const char *(*file)(const char *name);
    void (*arrive)(unsigned port, unsigned vid, int subnet, const uint8_t *frame, unsigned length);
    /* looks beyond the files: "up", "device", "chip", "sends", "stack", "meets" and "knows" with
     * the words behind */
    const char *(*look)(const char *what, const char *rest);
    /* how often a look is repeated until it shows what it has to; the home waits in between */
    int tries;
    void (*wait)(void);
};

/* Whether the text begins as the pattern says. */
static inline int nl_begins(const char *text, const char *pattern) {
    for (; *pattern; pattern++) {
        if (*pattern == ' ') {
            if (*text != ' ')
                return 0;
            while (*text == ' ')
                text++;
        } else if (*pattern == '*') {
            do
                if (nl_begins(text, pattern + 1))
                    return 1;
            while (*text && *text != ' ' && *text++ != '\n');
            return 0;
        } else if (*text++ != *pattern) {
            return 0;
        }
    }
    return 1;
}

static inline int nl_has(const char *text, const char *pattern) {
    do
        if (nl_begins(text, pattern))
            return 1;
    while (*text++);
    return 0;
}

#define NL_TEXT_BYTES (1 << 16)

/* The number behind a word at the start of a line, or 0. */
static inline long nl_counter(const char *text, const char *line_start, size_t length) {
    char start[64];
    const char *at;
    snprintf(start, sizeof(start), "\n%.*s", (int)length, line_start);
    at = strstr(text, start);
    return at ? atol(at + strlen(start)) : 0;
}

/* Of a line "arp_stops: 3 2:1 12:2" the reasons whose numbers were others before: "arp:12 ". */
static inline void nl_moved_reasons(const char *before, const char *line, size_t name,
                                    char *moved) {
    char start[64], pair[16];
    const char *end = strchr(line, '\n'), *was, *was_end, *was_pair;

    snprintf(start, sizeof(start), "\n%.*s_stops:", (int)name, line);
    was = strstr(before, start);
    was_end = was ? strchr(was + 1, '\n') : NULL;
    for (const char *at = strchr(line, ' '); at && at < end; at = strchr(at + 1, ' ')) {
        size_t digits = strspn(at + 1, "0123456789");
        if (at[1 + digits] != ':')
            continue;
        snprintf(pair, sizeof(pair), " %.*s:", (int)digits, at + 1);
        was_pair = was ? strstr(was, pair) : NULL;
        if (!was_pair || was_pair > was_end ||
            atol(was_pair + strlen(pair)) != atol(at + digits + 2))
            sprintf(moved + strlen(moved), "%.*s:%.*s ", (int)name, line, (int)digits, at + 1);
    }
}

/* Which counters differ in two texts of "pktcounts". How often a redirect was asked is left out. */
static inline const char *nl_moved(const char *before, const char *after) {
    static char moved[4096];

    moved[0] = '\0';
    for (const char *line = strchr(after, '\n'); line && line[1]; line = strchr(line + 1, '\n')) {
        size_t name = strcspn(line + 1, ":\n");
        const char *what = line + 1 + name;
        while (what > line && *what != '_')
            what--;
        if (line[1 + name] != ':' || strncmp(what, "_inspects", 9) == 0)
            continue;
        if (strncmp(what, "_stops", 6) == 0)
            nl_moved_reasons(before, line + 1, (size_t)(what - line - 1), moved);
        else if (nl_counter(before, line + 1, name + 1) != nl_counter(after, line + 1, name + 1))
            sprintf(moved + strlen(moved), "%.*s ", (int)name, line + 1);
    }
    return moved;
}

static inline const char *nl_frame(const struct nl_home *home, const char *what) {
    static char before[NL_TEXT_BYTES];
    uint8_t frame[256] = {0};
    unsigned port, vid, length;
    int hex = 0, subnet = 0;

    sscanf(what, "%u %u %n", &port, &vid, &hex);
    if (strncmp(what + hex, "subnet ", 7) == 0)
        subnet = 7;
    length = nl_hex(what + hex + subnet, strlen(what + hex + subnet), frame);
    snprintf(before, sizeof(before), "%s", home->file("pktcounts"));
    home->arrive(port, vid, subnet != 0, frame, length < 60 ? 60 : length);
    return nl_moved(before, home->file("pktcounts"));
}

static inline const char *nl_look(const struct nl_home *home, const char *what) {
    static const char *const beyond[] = {"up",    "device", "chip", "sends",
                                         "stack", "meets",  "knows"};
    size_t word = strcspn(what, " ");

    if (strncmp(what, "frame ", 6) == 0)
        return nl_frame(home, what + 6);
    for (size_t i = 0; i < sizeof(beyond) / sizeof(beyond[0]); i++)
        if (strlen(beyond[i]) == word && strncmp(what, beyond[i], word) == 0)
            return home->look(beyond[i], what + word + (what[word] == ' '));
    return home->file(what);
}

/* --- making a step -------------------------------------------------------------------------- */

/* What is wrong with what can be seen, in words; null when nothing is. */
static inline const char *nl_step_sights(const struct nl_step *step, const struct nl_home *home) {
    static char words[NL_TEXT_BYTES];

    for (int i = 0; i < NL_SIGHTS && step->sights[i].what; i++) {
        const struct nl_sight *sight = &step->sights[i];
        for (int tries = home->tries;; home->wait()) {
            const char *text = nl_look(home, sight->what);
            if (nl_has(text, sight->text) != sight->absent)
                break;
            if (--tries > 0)
                continue;
            snprintf(words, sizeof(words), "'%.60s' %s '%s': '%.2000s'", sight->what,
                     sight->absent ? "should not show" : "should show", sight->text, text);
            return words;
        }
    }
    return NULL;
}

/* Sends it: what is wrong, or null. */
static inline const char *nl_step_send(const struct nl_step *step, const struct nl_home *home) {
    static char words[128];
    struct nl_message message;
    int answer;

    if (nl_step_build(&message, 0, step->command, step->with) != 0)
        return "its attributes cannot be read";
    answer = home->command(&message);
    if (answer == step->answer)
        return NULL;
    snprintf(words, sizeof(words), "the answer is %d instead of %d", answer, step->answer);
    return words;
}

#endif
