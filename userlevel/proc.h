// Open files of the process's own proc tree, for whoever serves it to others.
#pragma once

#include "kernel/proc.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace userlevel {

struct proc_status {
    u32 mode;  // with the file type, as stat gives it
    u32 links; // as the kernel counts them
};
std::optional<proc_status> proc_stat(const std::string &path);

// One open file. Reads and writes give a number of bytes or a negative errno, also when the file
// has been removed since.
class proc_open_file {
public:
    // Null when there is no such file.
    static std::unique_ptr<proc_open_file> open(const std::string &path);

    // As seq_file does: prints the view anew unless the read goes on where the last one ended.
    long read(char *to, std::size_t size, std::size_t offset);
    long write(const void *from, unsigned long count);

private:
    explicit proc_open_file(std::shared_ptr<proc_dir_entry> entry) : entry_(std::move(entry)) {}

    std::shared_ptr<proc_dir_entry> entry_;
    std::mutex mutex_;
    std::string text_;
    std::size_t at_ = 0;
    bool printed_ = false;
};

} // namespace userlevel
