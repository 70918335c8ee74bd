/* The module is loaded once and stays. */
#include "lab.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

static int is_loaded(void)
{
	FILE *modules = fopen("/proc/modules", "r");
	char line[256];
	int found = 0;

	while (modules && fgets(line, sizeof(line), modules))
		found |= strncmp(line, "tarnfwd ", 8) == 0;
	if (modules)
		fclose(modules);
	return found;
}

int main(void)
{
	int file = open("/lab/tarnfwd.ko", O_RDONLY | O_CLOEXEC);

	CHECK(is_loaded(), "tarnfwd is loaded");
	CHECK(syscall(SYS_finit_module, file, "", 0) != 0 && errno == EEXIST, "it loads once");
	/* EWOULDBLOCK where tarn_lab, which a test before this one may have loaded, uses it. */
	CHECK(syscall(SYS_delete_module, "tarnfwd", O_NONBLOCK) != 0 &&
		      (errno == EBUSY || errno == EWOULDBLOCK),
	      "it cannot be removed");
	CHECK(is_loaded(), "it is still there");
	close(file);
	return lab_result();
}
