/* The bind graph, changed by several processes at once: a taste of lab/tests/long/graph_ten_minutes.c. */
#include "graph_churn.h"
#include "lab.h"

int main(void)
{
	lab_setup();
	graph_churn(60, 2);
	return lab_result();
}
