/* The bind graph, changed by several processes at once, beside frames. */
#ifndef LAB_TESTS_GRAPH_CHURN_H
#define LAB_TESTS_GRAPH_CHURN_H

/* For so many seconds, or until each has given so many rounds of commands; checks that nothing is left.
 * What a kernel that checks itself has to say of it stands in its log. */
void graph_churn(int seconds, unsigned int rounds);

#endif
