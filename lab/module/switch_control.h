/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the lab asks of the loaded core, as a control daemon will. Results are 0, or what the core says:
 * a negative errno or an error of its interface manager. An interface that is not there is -203.
 */
#ifndef TARN_LAB_SWITCH_CONTROL_H
#define TARN_LAB_SWITCH_CONTROL_H

#include "core_functions.h"

#ifdef __cplusplus
extern "C" {
#endif

struct seq_file;

/* Addresses of functions of tarnfwd. */
struct lab_core {
#define LAB_CORE_FIELD(name, symbol) unsigned long name;
	LAB_CORE_FUNCTIONS(LAB_CORE_FIELD)
#undef LAB_CORE_FIELD
};
extern struct lab_core lab_core;

/* Addresses are 6 bytes. */
int lab_port(unsigned int ifindex, const char *name, const unsigned char *address, int routed);
int lab_ethernet(unsigned int ifindex, const char *name, const unsigned char *address);
int lab_aggregator(unsigned int ifindex, const char *name, const unsigned char *address,
		   unsigned int type);
int lab_vlan(unsigned int vid, const unsigned char *address, unsigned int options);
int lab_delete(unsigned int ifindex);
int lab_attach(unsigned int aggregator, unsigned int port);
int lab_member(unsigned int vid, unsigned int ifindex, int tagged);
int lab_no_member(unsigned int vid, unsigned int ifindex);
int lab_stp(unsigned int ifindex, unsigned int state); /* in every instance */
int lab_link(unsigned int ifindex, int up);
int lab_flags(unsigned int ifindex, unsigned int flags); /* IFF_UP, IFF_RUNNING */
int lab_filter(unsigned int ifindex, int on);
int lab_shut(unsigned int ifindex, unsigned int vid, int on);
int lab_ring(unsigned int vid, int on);
int lab_enable(const char *name, int value);
int lab_udld(unsigned int ifindex, int on, unsigned int filter);

void lab_counters(struct seq_file *view);
void lab_show(struct seq_file *view, unsigned int ifindex);

#ifdef __cplusplus
}
#endif

#endif
