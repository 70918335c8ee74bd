/* The follower's header is plain C. */
#include <tarn/rxtx_follow.h>

_Static_assert(sizeof(((struct rxtx_follow_port *)0)->mac) == 6, "an Ethernet address");
_Static_assert(sizeof(struct rxtx_follow_vlans) == 12, "three words of 32 VLANs");
