/* Every file of /proc/tarn is read and written as in the process. */
#include "lab.h"

#include "proc_run.h"

#define ROOT "/proc/tarn"

static void an_open_view_is_printed_anew_from_its_start(void)
{
	char first[8] = "", second[8] = "";
	int file = open(ROOT "/pktdebugvlan", O_RDONLY | O_CLOEXEC);

	CHECK(read(file, first, 1) == 1 && first[0] == '0', "the first byte of a view");
	proc_write_file(ROOT "/pktdebugvlan", "45\n");
	CHECK(read(file, second, sizeof(second)) == 1 && second[0] == '\n',
	      "the rest is of the same text");
	CHECK(read(file, second, sizeof(second)) == 0, "its end");
	CHECK(lseek(file, 0, SEEK_SET) == 0 && read(file, second, sizeof(second)) == 3 &&
		      memcmp(second, "45\n", 3) == 0,
	      "from the start again it is printed anew");
	CHECK(pread(file, second, 1, 1) == 1 && second[0] == '5', "and from its middle");
	close(file);
	proc_write_file(ROOT "/pktdebugvlan", "0\n");
}

static void bytes_that_cannot_be_copied_are_refused(void)
{
	static const struct {
		const char *file;
		int error;
	} rows[] = { { "pktdebug", EPERM },	  { "pktdebugvlan", EPERM },
		     { "arpseccnt", EPERM },	  { "pktdebuglowmem", EFAULT },
		     { "hidecounter", EFAULT },	  { "redirectprotocolenable", EFAULT },
		     { "authglobal", EFAULT },	  { "pktdebugratelimitburst", EFAULT },
		     { "if5011/auth", EFAULT },	  { "if5011/openflow", EFAULT } };

	const char *volatile nowhere = (const char *)8;

	for (size_t i = 0; i < sizeof(rows) / sizeof(rows[0]); i++) {
		char path[64];
		int file;

		snprintf(path, sizeof(path), ROOT "/%s", rows[i].file);
		file = open(path, O_WRONLY | O_CLOEXEC);
		CHECK(write(file, nowhere, 2) == -1 && errno == rows[i].error,
		      "%s: error %d", rows[i].file, rows[i].error);
		close(file);
	}
}

int main(void)
{
	struct stat status;

	lab_setup();
	/* With a name and an address where the lab takes them. */
	CHECK(lab_command("port 5011 if5011 02:00:00:00:01:0b") == 0, "a port is declared");
	CHECK(stat(ROOT, &status) == 0 && status.st_mode == (S_IFDIR | 0555), "the directory");
	CHECK(stat(ROOT "/if5011", &status) == 0 && status.st_mode == (S_IFDIR | 0555),
	      "the directory of the port");
	CHECK(access(ROOT "/if5011/members", F_OK) != 0, "a port has no members");
	CHECK(proc_run_all(ROOT) == 0, "all files print and take what they must");
	/* A mounted tree of a process is not told of such. */
	CHECK(proc_write_file(ROOT "/if5011/auth", "") == -EFAULT, "a write of no bytes is parsed");
	an_open_view_is_printed_anew_from_its_start();
	bytes_that_cannot_be_copied_are_refused();
	return lab_result();
}
