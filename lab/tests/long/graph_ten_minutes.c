/* The bind graph, changed by several processes at once, for ten minutes or as long as a soak is to last. */
#include "../graph_churn.h"
#include "../lab.h"

int main(void)
{
	FILE *file = fopen("/lab/soak_seconds", "r");
	int seconds = 600;

	if (file && fscanf(file, "%d", &seconds) != 1)
		seconds = 600;
	if (file)
		fclose(file);
	lab_setup();
	graph_churn(seconds, ~0u);
	return lab_result();
}
