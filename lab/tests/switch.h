/*
 * The switch at work: tarnfwd, the chip in software, and hosts in namespaces of their own behind its
 * ports. The program is the control daemon.
 *
 * Host k (1 to HOSTS) has the device h<k>; its other end p<k> is port k of the switch, with ifindex
 * SWITCH_PORT(k). Every function checks what it does.
 */
#ifndef LAB_TESTS_SWITCH_H
#define LAB_TESTS_SWITCH_H

#include "lab.h"
#include "net.h"

#define HOSTS 4 /* unless said otherwise before the start */
#define MOST_HOSTS 16
#define SWITCH_PORT(k) (5100 + (k))
#define SWITCH_VLAN(vid) (300 + (vid))

/* The namespaces, from 1. */
extern int host[MOST_HOSTS + 1];
extern int switch_hosts;

/* Loads the modules, makes hosts and ports. The end gives everything back. */
void switch_start(void);
void switch_end(void);

/* A VLAN interface, up, with that address; its device is vlan<vid>. */
void switch_vlan(unsigned int vid, const char *mac);
void switch_member(unsigned int vid, int k, const char *tagged);

/* Tells the module of every port whose link has changed. */
void switch_follow_links(void);

/* Words to the chip, a line each: 0 or -errno, and what it replied. */
int chip(const char *lines);
extern char chip_reply[1 << 20];

/* How often a trap took a frame; -1: there is no such. */
long chip_hits(const char *trap);
/* Frames dropped by the ports of the chip, all of them counted. */
long chip_lost(void);

#endif
