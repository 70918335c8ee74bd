#define FUSE_USE_VERSION 31

#include "machine/proc_fuse.h"

#include "control.h"
#include "machine/event_loop.h"
#include "machine/unix_listener.h"
#include "proc.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fuse3/fuse.h>
#include <fuse3/fuse_lowlevel.h>
#include <memory>
#include <optional>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <unordered_map>

namespace machine {

namespace {

constexpr mode_t FOR_OTHERS = 0007; // of the top folder: it is closed to them, whatever is in it

std::string served;    // path of the mount
std::string directory; // of the tree
bool made_path = false;
fuse *mounted = nullptr;
std::optional<event_loop> loop;
std::thread server;

// The kernel gives back a file some time after it was closed, and never once the connection ended:
// those that are still here then go with the mount.
std::unordered_map<std::uint64_t, std::unique_ptr<userlevel::proc_open_file>> open_files;
std::uint64_t opens = 0;

// --- what is asked -------------------------------------------------------------------------------

std::string in_tree(const char *path) {
    return path[1] == '\0' ? directory : directory + path;
}

int get_status(const char *path, struct stat *status, fuse_file_info *) {
    std::optional<userlevel::proc_status> found = userlevel::proc_stat(in_tree(path));
    if (!found)
        return -ENOENT;
    *status = {};
    status->st_mode = path[1] == '\0' ? found->mode & ~FOR_OTHERS : found->mode;
    status->st_nlink = found->links;
    status->st_uid = geteuid();
    status->st_gid = let_in().value_or(getegid());
    clock_gettime(CLOCK_REALTIME, &status->st_mtim);
    status->st_atim = status->st_ctim = status->st_mtim;
    return 0;
}

int list(const char *path, void *buffer, fuse_fill_dir_t fill, off_t, fuse_file_info *,
         fuse_readdir_flags) {
    for (const char *always : {".", ".."})
        fill(buffer, always, nullptr, 0, fuse_fill_dir_flags{});
    for (const userlevel::proc_name &entry : userlevel::proc_list(in_tree(path))) {
        struct stat status {};
        status.st_mode = entry.mode;
        fill(buffer, entry.name.c_str(), &status, 0, fuse_fill_dir_flags{});
    }
    return 0;
}

userlevel::proc_open_file *opened(fuse_file_info *info) {
    return open_files.at(info->fh).get();
}

int open_file(const char *path, fuse_file_info *info) {
    std::unique_ptr<userlevel::proc_open_file> file =
        userlevel::proc_open_file::open(in_tree(path));
    if (!file)
        return -ENOENT;
    info->fh = ++opens;
    info->direct_io = 1; // it has no size, and is another at every read
    open_files.emplace(info->fh, std::move(file));
    return 0;
}

int close_file(const char *, fuse_file_info *info) {
    open_files.erase(info->fh);
    return 0;
}

int read_file(const char *, char *to, size_t size, off_t offset, fuse_file_info *info) {
    return static_cast<int>(opened(info)->read(to, size, static_cast<std::size_t>(offset)));
}

int write_file(const char *, const char *from, size_t size, off_t, fuse_file_info *info) {
    return static_cast<int>(opened(info)->write(from, size));
}

// Shells truncate what they write to.
int truncate_file(const char *, off_t, fuse_file_info *) {
    return 0;
}

int refuse_file(const char *, mode_t, fuse_file_info *) {
    return -EACCES;
}

void *begin(fuse_conn_info *, fuse_config *config) {
    config->attr_timeout = 0; // interfaces come and go
    config->entry_timeout = 0;
    config->negative_timeout = 0;
    return nullptr;
}

const fuse_operations &operations() {
    static const fuse_operations all = [] {
        fuse_operations made{};
        made.getattr = get_status;
        made.readdir = list;
        made.open = open_file;
        made.release = close_file;
        made.read = read_file;
        made.write = write_file;
        made.truncate = truncate_file;
        made.create = refuse_file;
        made.init = begin;
        return made;
    }();
    return all;
}

// --- serving -------------------------------------------------------------------------------------

void serve(fuse_session *session) {
    fuse_buf buffer{};
    event_watch asked(*loop, fuse_session_fd(session), event_watch::READABLE, [&] {
        int length = fuse_session_receive_buf(session, &buffer);
        if (length > 0)
            fuse_session_process_buf(session, &buffer);
        else if (length != -EINTR && length != -EAGAIN)
            loop->stop(); // somebody has unmounted it
    });
    asked.on();
    loop->run();
    std::free(buffer.mem);
}

fuse *make() {
    std::string options = "default_permissions,fsname=tarn,subtype=tarn";
    if (let_in())
        options += ",allow_other"; // and the top folder says who
    const char *words[] = {"tarn", "-o", options.c_str(), nullptr};
    fuse_args arguments = FUSE_ARGS_INIT(3, const_cast<char **>(words));
    fuse *made = fuse_new(&arguments, &operations(), sizeof(fuse_operations), nullptr);
    fuse_opt_free_args(&arguments);
    return made;
}

std::string start(const std::string &path) {
    mounted = make();
    if (!mounted)
        return "'" + path + "': libfuse refused to start";
    if (fuse_mount(mounted, path.c_str()) != 0) {
        fuse_destroy(mounted);
        mounted = nullptr;
        return "'" + path +
               "': it cannot be mounted; that takes /dev/fuse, and root or the package fuse3" +
               (let_in() ? " (and, for a group, user_allow_other in /etc/fuse.conf)" : "");
    }
    fuse_session *session = fuse_get_session(mounted);
    int fd = fuse_session_fd(session);
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    loop.emplace();
    server = std::thread(serve, session);
    return "";
}

// --- the path ------------------------------------------------------------------------------------

// What a process that was killed has left behind.
void unmount_stale(const std::string &path) {
    if (umount2(path.c_str(), MNT_DETACH) == 0)
        return;
    const char *words[] = {"fusermount3", "-u", "-z", path.c_str(), nullptr};
    pid_t child;
    if (posix_spawnp(&child, words[0], nullptr, nullptr, const_cast<char **>(words), environ) == 0)
        waitpid(child, nullptr, 0);
}

std::string failed(const std::string &path) {
    return "'" + path + "': " + std::strerror(errno);
}

std::string prepare(const std::string &path) {
    struct stat here, above;
    if (stat(path.c_str(), &here) != 0 && errno == ENOTCONN)
        unmount_stale(path);
    made_path = mkdir(path.c_str(), 0755) == 0;
    if (stat(path.c_str(), &here) != 0)
        return failed(path);
    if (!S_ISDIR(here.st_mode))
        return "'" + path + "': it is no directory";
    if (stat((path + "/..").c_str(), &above) != 0)
        return failed(path);
    if (here.st_dev != above.st_dev)
        return "'" + path + "': a file system is mounted there; unmount it, or choose another path";
    return "";
}

void give_back_path() {
    if (made_path)
        rmdir(served.c_str());
    served.clear();
}

} // namespace

std::string proc_mount(const std::string &path, const std::string &of_tree) {
    if (mounted)
        return "'" + path + "': the tree is mounted already";
    std::string wrong = prepare(path);
    if (!wrong.empty())
        return wrong;
    served = path;
    directory = of_tree;
    wrong = start(path);
    if (!wrong.empty())
        give_back_path();
    return wrong;
}

void proc_unmount() {
    if (!mounted)
        return;
    loop->stop();
    server.join();
    loop.reset();
    fuse_unmount(mounted);
    fuse_destroy(mounted);
    mounted = nullptr;
    open_files.clear();
    give_back_path();
}

} // namespace machine
