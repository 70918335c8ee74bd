/* SPDX-License-Identifier: GPL-2.0 */
/* What the lab asks of the loaded core. Results are 0 or a negative errno. */
#ifndef TARN_LAB_SWITCH_CONTROL_H
#define TARN_LAB_SWITCH_CONTROL_H

#ifdef __cplusplus
extern "C" {
#endif

struct seq_file;

/* Addresses of functions of tarnfwd. */
struct lab_core {
	unsigned long alloc;
	unsigned long install;
	unsigned long lookup;
	unsigned long put;
	unsigned long print;
	unsigned long enable;
};
extern struct lab_core lab_core;

int lab_port(unsigned int ifindex);
int lab_vlan(unsigned int vid);
int lab_member(unsigned int ifindex, unsigned int vid);
int lab_enable(const char *name, int value);
void lab_counters(struct seq_file *view);

#ifdef __cplusplus
}
#endif

#endif
