/* VLAN interfaces that come and go, many at once, and what is left of them. */
#ifndef LAB_TESTS_VLAN_ROUNDS_H
#define LAB_TESTS_VLAN_ROUNDS_H

/* First of all: loads what is needed, and plants what a search for leaks must find. */
void vlan_start(void);
/* Last of all: in a kernel that looks for leaks, checks that nothing is lost. */
void vlan_end(void);

/* Creates VLANs `first` to `last`, each with a running port, some with addresses, and deletes them; that
 * often. Checks that nothing is left. */
void vlan_rounds(int rounds, unsigned int first, unsigned int last);

/* Deletes and creates the same VLANs that often without a pause, while what the one before has left to do
 * is still under way. */
void vlan_returns(int times, unsigned int first, unsigned int last);

#endif
