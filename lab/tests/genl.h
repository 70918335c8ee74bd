/* Commands of the control family, over the kernel's own generic netlink. */
#ifndef LAB_TESTS_GENL_H
#define LAB_TESTS_GENL_H

#include "../../tests/control/nl_cases.h"

/* Found by genl_find(); 0 where it is not. */
extern uint16_t genl_family;
extern uint32_t genl_group;
void genl_find(void);

/* Sends the message on a socket of its own: 0, or the error of the acknowledgement; GENL_NO_ANSWER where
 * none comes. */
#define GENL_NO_ANSWER (-4095)
int genl_ask(struct nl_message *message);

#endif
