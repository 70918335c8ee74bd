#include "replay/input.h"

#include "replay/capture.h"

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace replay {

namespace {

constexpr std::size_t BLOCK = 65536;

class Descriptor {
public:
    explicit Descriptor(const std::string &path)
        : fd_(path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (fd_ < 0)
            throw CaptureError(std::strerror(errno));
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { close(fd_); }
    operator int() const { return fd_; }

private:
    int fd_;
};

void refuse_folder(int fd) {
    struct stat what {};
    if (fstat(fd, &what) == 0 && S_ISDIR(what.st_mode))
        throw CaptureError(std::strerror(EISDIR));
}

struct Free {
    void operator()(archive *reader) const { archive_read_free(reader); }
};
using Reader = std::unique_ptr<archive, Free>;

// One stream of bytes, behind any number of compressors, and no archive.
Reader make_reader() {
    Reader reader(archive_read_new());
    for (auto support : {archive_read_support_filter_gzip, archive_read_support_filter_bzip2,
                         archive_read_support_filter_xz, archive_read_support_filter_zstd,
                         archive_read_support_filter_lz4, archive_read_support_format_raw,
                         archive_read_support_format_empty})
        support(reader.get());
    return reader;
}

std::string complaint(archive *reader) {
    const char *text = archive_error_string(reader);
    return fmt::format("it cannot be read on: {}", text ? text : "unknown error");
}

} // namespace

Input read_input(const std::string &path) {
    Input input{.name = path == "-" ? "standard input" : path, .bytes = {}};
    Descriptor fd(path);
    refuse_folder(fd);
    Reader reader = make_reader();
    archive_entry *entry = nullptr;
    int result = archive_read_open_fd(reader.get(), fd, BLOCK);
    if (result == ARCHIVE_OK)
        result = archive_read_next_header(reader.get(), &entry);
    while (result == ARCHIVE_OK || result == ARCHIVE_WARN) {
        const std::size_t there = input.bytes.size();
        input.bytes.resize(there + BLOCK);
        la_ssize_t got = archive_read_data(reader.get(), input.bytes.data() + there, BLOCK);
        input.bytes.resize(there + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got <= 0)
            result = got == 0 ? ARCHIVE_EOF : ARCHIVE_FATAL;
    }
    if (result != ARCHIVE_EOF)
        input.damage = complaint(reader.get());
    return input;
}

} // namespace replay
