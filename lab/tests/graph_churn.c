/* See graph_churn.h. */
#define _GNU_SOURCE
#include "graph_churn.h"

#include <fcntl.h>
#include <stdatomic.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "genl.h"
#include "lab.h"

#include "../../tests/control/nl_churn.h"

#define CHURNERS 3

static struct {
	atomic_int stop, working;
	atomic_long commands, lost, frames;
} *shared;

static void give_commands(unsigned int number, unsigned int rounds)
{
	unsigned int last = number + rounds * NL_CHURN_MESSAGES;
	struct nl_message message;

	for (; !shared->stop && number != last; number++) {
		if (nl_churn_build(&message, genl_family, number) != 0 ||
		    genl_ask(&message) == GENL_NO_ANSWER)
			shared->lost++;
		shared->commands++;
	}
	shared->working--;
}

/* Of its port and its VLANs, which are there or not; and what the files say of them. */
static void send_frames(void)
{
	char text[4096];
	unsigned int vid = 0;

	for (; !shared->stop; vid = (vid + 1) % NL_CHURN_VIDS) {
		int file = open("/proc/tarn/ifdb", O_RDONLY | O_CLOEXEC);

		lab_command("frames 20 5401 %u 0 ffffffffffff020000000099" "0806" "0001080006040001"
			    "020000000099c0000201000000000000c00002fe", 64 + vid);
		lab_command("frames 20 5402 %u 0 020000000001020000000099" "88b5" "00", 64 + vid);
		while (file >= 0 && read(file, text, sizeof(text)) > 0)
			;
		close(file);
		shared->frames += 40;
	}
}

static void end(void)
{
	struct nl_message message;

	/* A round of one alone ends with nothing. */
	for (unsigned int number = 0; number < NL_CHURN_MESSAGES; number++)
		if (nl_churn_build(&message, genl_family, number) == 0)
			genl_ask(&message);
}

void graph_churn(int seconds, unsigned int rounds)
{
	struct lab_if left;
	int there = 0;

	genl_find();
	CHECK(genl_family != 0, "the family is there");
	shared = mmap(NULL, sizeof(*shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
	shared->working = CHURNERS;
	for (int k = 0; k <= CHURNERS; k++) {
		if (fork() != 0)
			continue;
		if (k == CHURNERS)
			send_frames();
		else
			give_commands((unsigned int)k * NL_CHURN_MESSAGES / CHURNERS, rounds);
		_exit(0);
	}
	for (int k = 0; k < 10 * seconds && shared->working > 0; k++)
		usleep(100000);
	shared->stop = 1;
	while (wait(NULL) > 0)
		;
	CHECK(shared->commands > CHURNERS && shared->lost == 0,
	      "%ld commands, %ld without an answer; %ld frames beside them", shared->commands, shared->lost,
	      shared->frames);
	end();
	for (unsigned int vid = 0; vid < NL_CHURN_VIDS; vid++)
		there += lab_show(364 + vid, &left) == 0;
	there += (lab_show(5401, &left) == 0) + (lab_show(5402, &left) == 0) + (lab_show(4701, &left) == 0);
	CHECK(there == 0, "%d interfaces are left", there);
}
