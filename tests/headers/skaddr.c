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

_Static_assert(TARN_AF_LACP == 46 && TARN_AF_PROFINET == 70, "first and last");
