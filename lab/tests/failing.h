/* Allocations that fail by chance, in a kernel that lets them (lab/run ARCH-debug). */
#ifndef LAB_TESTS_FAILING_H
#define LAB_TESTS_FAILING_H

#define FAIL_DEBUG "/sys/kernel/debug"

/* Whether this kernel can; mounts what it needs. */
int failing_can(void);

/*
 * From now on one allocation in so many fails, of slabs and of pages, also of those that may sleep, in
 * processes that ask for it; 0: none. Whether that could be set.
 */
int failing_one_in(unsigned int how_many);

/* The calling process asks for it, and those that it makes from now on; or no longer. */
void failing_me(int on);
/* Whether it has, by whomever. */
int failing_is_me(void);

#endif
