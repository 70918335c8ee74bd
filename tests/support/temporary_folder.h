// A folder of a test's own, where $TMPDIR says; it goes with what is in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class TemporaryFolder {
public:
    TemporaryFolder() : path_(std::filesystem::temp_directory_path() / "tarn-XXXXXX") {
        if (!mkdtemp(path_.data()))
            std::abort();
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};
