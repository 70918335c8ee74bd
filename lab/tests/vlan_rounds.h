/* VLAN interfaces that come and go, many at once, and what is left of them. */
#ifndef LAB_TESTS_VLAN_ROUNDS_H
#define LAB_TESTS_VLAN_ROUNDS_H

/* Creates VLANs `first` to `last`, each with a running port, some with addresses, and deletes them; that
 * often. Checks every round; then, in a kernel that looks for leaks, that nothing is left. */
void vlan_rounds(int rounds, unsigned int first, unsigned int last);

#endif
