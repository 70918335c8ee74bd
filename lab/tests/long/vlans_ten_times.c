/* All 4094 VLAN interfaces come and go, ten times, and nothing is left. */
#include "lab.h"
#include "vlan_rounds.h"

int main(void)
{
	vlan_rounds(10, 1, 4094);
	return lab_result();
}
