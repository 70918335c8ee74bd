/* The addresses of the sockets are plain C, and laid out as daemons expect them. */
#include <stddef.h>
#include <tarn/skaddr.h>

_Static_assert(sizeof(struct l2_skaddr) == 16, "as long as it is");
_Static_assert(offsetof(struct l2_skaddr, dest_mac) == 0, "first");
_Static_assert(offsetof(struct l2_skaddr, src_mac) == 6, "behind it");
_Static_assert(offsetof(struct l2_skaddr, ifindex) == 12, "behind the addresses");

_Static_assert(sizeof(struct vlan_skaddr) == 36, "as long as it is");
_Static_assert(offsetof(struct vlan_skaddr, dest_mac) == 0, "first");
_Static_assert(offsetof(struct vlan_skaddr, src_mac) == 6, "behind it");
_Static_assert(offsetof(struct vlan_skaddr, type) == 12, "as in the frame");
_Static_assert(offsetof(struct vlan_skaddr, ifindex) == 16, "a word");
_Static_assert(offsetof(struct vlan_skaddr, vid) == 20, "behind it");
_Static_assert(offsetof(struct vlan_skaddr, except_ifindex) == 24, "a word");
_Static_assert(offsetof(struct vlan_skaddr, xmit_flag) == 30, "a byte");

_Static_assert(sizeof(struct mld_skaddr) == 56, "as long as it is");
_Static_assert(offsetof(struct mld_skaddr, dst_ip) == 16, "behind the source");
_Static_assert(offsetof(struct mld_skaddr, dest_mac) == 32, "behind it");
_Static_assert(offsetof(struct mld_skaddr, src_mac) == 38, "behind it");
_Static_assert(offsetof(struct mld_skaddr, ifindex) == 44, "a word");
_Static_assert(offsetof(struct mld_skaddr, vid) == 48, "behind it");
_Static_assert(offsetof(struct mld_skaddr, vrf) == 50, "behind it");
_Static_assert(offsetof(struct mld_skaddr, except_ifindex) == 52, "a word");

_Static_assert(sizeof(struct dhcpsn_skaddr) == 24, "as long as it is");
_Static_assert(offsetof(struct dhcpsn_skaddr, vid) == 4, "behind the port");
_Static_assert(offsetof(struct dhcpsn_skaddr, to_stack) == 6, "behind it");
_Static_assert(offsetof(struct dhcpsn_skaddr, target_ifindex) == 8, "a word");
_Static_assert(offsetof(struct dhcpsn_skaddr, client_ip) == 12, "a word");
_Static_assert(offsetof(struct dhcpsn_skaddr, client_mac) == 16, "behind it");

_Static_assert(sizeof(struct openflow_skaddr) == 12, "as long as it is");
_Static_assert(offsetof(struct openflow_skaddr, vid) == 2, "behind the family");
_Static_assert(offsetof(struct openflow_skaddr, ifindex) == 4, "a word");

_Static_assert(TARN_AF_LACP == 46 && TARN_AF_PROFINET == 70, "first and last");
