/* All 4094 VLAN interfaces come and go, ten times, and nothing is left. */
#include "lab.h"
#include "vlan_rounds.h"

int main(void)
{
	vlan_start();
	vlan_rounds(10, 1, 4094);
	vlan_end();
	return lab_result();
}
