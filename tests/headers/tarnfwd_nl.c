/* The control family's header is plain C; its numbers and the layout of its records are the wire's. */
#include <stddef.h>
#include <tarn/tarnfwd_nl.h>

_Static_assert(TARNFWD_ATTR_MAX == TARNFWD_ATTR_FDB_EVENT, "no attribute behind the last");
_Static_assert(TARNFWD_CMD_MAX == TARNFWD_CMD_PORT_SET_L3, "no command behind the last");

_Static_assert(sizeof(struct tarnfwd_upstream) == 12, "three words");
_Static_assert(offsetof(struct tarnfwd_upstream, vid) == 4, "in order");
_Static_assert(offsetof(struct tarnfwd_upstream, ifindex) == 8, "in order");

_Static_assert(sizeof(struct tarnfwd_fwd_rule) == 32, "no gap");
_Static_assert(offsetof(struct tarnfwd_fwd_rule, prefix_len) == 4, "behind the family");
_Static_assert(offsetof(struct tarnfwd_fwd_rule, address) == 12, "behind a word of the switch's own");
_Static_assert(offsetof(struct tarnfwd_fwd_rule, port) == 28, "behind the address");
_Static_assert(offsetof(struct tarnfwd_fwd_rule, protocol) == 30, "last");
