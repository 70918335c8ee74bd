/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What a home gives the chip: ports on devices, and a lock for its commands. And what the home calls
 * in return.
 *
 * A chip_device is the home's own record of an open device. References keep it while frames leave by
 * it; whoever looks one up in the chip's tables takes one there.
 *
 * Plain C; include it in a kernel module or in a process.
 */
#ifndef TARN_CHIP_PORT_H
#define TARN_CHIP_PORT_H

#ifdef __KERNEL__
#include <linux/types.h>
#else
#include <stddef.h>
#include <stdint.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct chip_device;
struct net_device;
struct sk_buff;

/*
 * What the sender of a frame left to its hardware: to fill in a checksum, to cut a large frame. The chip
 * hands it from port to port as it came, since the far side would cut it again; the CPU has whole frames.
 * The home's own record; a tag may be put in or taken off meanwhile, which shows by the frame's length.
 */
struct chip_work;

/* --- of the home --------------------------------------------------------------------------------- */

/*
 * Opens the device of that name as port `slot` of the chip: 0, or a negative errno. Its frames arrive
 * by chip_receive() from now on. May sleep, as chip_port_close() does.
 */
int chip_port_open(const char *name, uint32_t slot, struct chip_device **device);

/* No more frames, and the reference of chip_port_open() is given back. */
void chip_port_close(struct chip_device *device);

/* From any context. */
void chip_port_get(struct chip_device *device);
void chip_port_put(struct chip_device *device);

/* Sends one frame, which is gone afterwards: 0, or a negative errno when the device refused it. */
int chip_port_send(struct chip_device *device, struct sk_buff *skb);

/* The same with work that was left over. */
int chip_port_send_unfinished(struct chip_device *device, struct sk_buff *skb, const struct chip_work *work);

/* Does the work: `take` has the frame, or each of those that it is cut into. */
void chip_port_finish(struct sk_buff *skb, const struct chip_work *work,
                      void (*take)(void *context, struct sk_buff *skb), void *context);

/* Frames that arrived and were lost before chip_receive(): no room for them, no memory, too long. Does
 * not sleep. */
unsigned long chip_port_lost(struct chip_device *device);

/* Whether the port is open on this very device. */
int chip_port_is(const struct chip_device *device, const struct net_device *netdev);

/* Commands run one at a time, and may sleep. */
void chip_commands_begin(void);
void chip_commands_end(void);

/* --- of the chip ---------------------------------------------------------------------------------- */

/*
 * One frame that arrived on an open device, which is gone afterwards. In process context, from several
 * threads if the home likes. The frame: linear, data at the Ethernet header with any 802.1Q tag in
 * place, checksums filled in, its bytes held by nobody else. Frames of a port that was closed in the
 * meantime are dropped.
 */
void chip_receive(struct chip_device *device, uint32_t slot, struct sk_buff *skb);

/* The same of a frame on which work is left: longer than a frame may be, its checksum not filled in. */
void chip_receive_unfinished(struct chip_device *device, uint32_t slot, struct sk_buff *skb,
                             const struct chip_work *work);

/* About once a second, in process context: forgets addresses that have grown old. */
void chip_tick(void);

/* The device has gone away: closes the port, as the word `noport` does. In process context. */
void chip_device_gone(struct chip_device *device, uint32_t slot);

#ifdef __cplusplus
}
#endif

#endif
