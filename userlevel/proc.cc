#include "proc.h"

#include "control.h"
#include "kernel/bug.h"
#include "kernel/log.h"
#include "memory.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <map>
#include <sys/stat.h>

// A file or a directory. Whoever reads or writes a file is inside it, and a removal waits for them,
// as a kernel's does.
struct proc_dir_entry {
    std::string name;
    u32 mode = S_IFDIR | 0555;
    const proc_file *file = nullptr; // null: a directory
    proc_dir_entry *parent = nullptr;
    std::map<std::string, std::shared_ptr<proc_dir_entry>> children;
    void *memory = nullptr; // what the tests count
    u32 inside = 0;
    bool removed = false;

    bool is_dir() const { return !file; }
};

namespace {

using Entry = std::shared_ptr<proc_dir_entry>;

std::mutex tree_mutex;
std::condition_variable somebody_left;
thread_local const proc_dir_entry *inside_of = nullptr;

const Entry &root() {
    static const Entry the_root = std::make_shared<proc_dir_entry>();
    return the_root;
}

bool is_name(const std::string &name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// What a kernel warns of.
bool is_free_name(const proc_dir_entry &parent, const std::string &name) {
    if (!is_name(name)) {
        pr_warn("name '%s' is none for a proc_dir_entry\n", name.c_str());
        return false;
    }
    if (parent.children.contains(name)) {
        pr_warn("proc_dir_entry '%s/%s' already registered\n", parent.name.c_str(), name.c_str());
        return false;
    }
    return true;
}

proc_dir_entry *add(const char *name, u32 mode, proc_dir_entry *parent, const proc_file *file,
                    const void *site) {
    std::lock_guard guard(tree_mutex);
    if (!parent)
        parent = root().get();
    if (!is_free_name(*parent, name))
        return nullptr;
    void *memory = userlevel::allocate("proc_dir_entry", sizeof(proc_dir_entry), GFP_KERNEL, site);
    if (!memory)
        return nullptr;
    auto entry = std::make_shared<proc_dir_entry>();
    entry->name = name;
    entry->mode = mode;
    entry->parent = parent;
    entry->file = file;
    entry->memory = memory;
    parent->children[name] = entry;
    return entry.get();
}

void remove_below(const Entry &entry, std::unique_lock<std::mutex> &lock) {
    while (!entry->children.empty())
        remove_below(Entry(entry->children.begin()->second), lock);
    if (inside_of == entry.get())
        BUG(); // it would wait for itself
    entry->parent->children.erase(entry->name);
    entry->removed = true;
    somebody_left.wait(lock, [&] { return entry->inside == 0; });
    userlevel::release(entry->memory);
}

Entry find(const std::string &path) {
    std::lock_guard guard(tree_mutex);
    Entry entry = root();
    for (std::size_t from = 0; from < path.size();) {
        std::size_t to = std::min(path.find('/', from), path.size());
        auto child = entry->children.find(path.substr(from, to - from));
        if (child == entry->children.end())
            return nullptr;
        entry = child->second;
        from = to + 1;
    }
    return entry;
}

// Runs it inside the file, or gives -EIO when the file has been removed.
template <typename Run>
long inside(proc_dir_entry &entry, Run run) {
    {
        std::lock_guard guard(tree_mutex);
        if (entry.removed)
            return -EIO;
        entry.inside++;
    }
    const proc_dir_entry *outer = inside_of;
    inside_of = &entry;
    long result = run();
    inside_of = outer;
    std::lock_guard guard(tree_mutex);
    entry.inside--;
    somebody_left.notify_all();
    return result;
}

long print(proc_dir_entry &entry, std::string &text) {
    if (entry.is_dir())
        return -EISDIR;
    return inside(entry, [&]() -> long {
        if (!entry.file->row->show)
            return -EIO;
        userlevel::view view;
        long result = entry.file->row->show(view.file(), entry.file->data);
        text = view.text();
        return result;
    });
}

long store(proc_dir_entry &entry, const void *from, unsigned long count) {
    if (entry.is_dir())
        return -EISDIR;
    return inside(entry, [&]() -> long {
        return entry.file->row->store ? proc_file_write(entry.file, from, count) : -EIO;
    });
}

} // namespace

proc_dir_entry *proc_mkdir(const char *name, proc_dir_entry *parent) {
    return add(name, S_IFDIR | 0555, parent, nullptr, __builtin_return_address(0));
}

proc_dir_entry *proc_create_file(const char *name, u32 mode, proc_dir_entry *parent,
                                 const proc_file *file) {
    return add(name, S_IFREG | mode, parent, file, __builtin_return_address(0));
}

// It was there before the module.
proc_dir_entry *proc_net() {
    static proc_dir_entry *directory = [] {
        auto entry = std::make_shared<proc_dir_entry>();
        entry->name = "net";
        entry->parent = root().get();
        std::lock_guard guard(tree_mutex);
        root()->children["net"] = entry;
        return entry.get();
    }();
    return directory;
}

void proc_remove(proc_dir_entry *entry) {
    if (!entry)
        return;
    std::unique_lock lock(tree_mutex);
    remove_below(Entry(entry->parent->children.at(entry->name)), lock);
}

namespace userlevel {

proc_result proc_read(const std::string &path) {
    Entry entry = find(path);
    if (!entry)
        return {-ENOENT, ""};
    proc_result result{};
    result.result = print(*entry, result.text);
    return result;
}

long proc_write(const std::string &path, const void *from, unsigned long count) {
    Entry entry = find(path);
    return entry ? store(*entry, from, count) : -ENOENT;
}

long proc_write(const std::string &path, const std::string &text) {
    return proc_write(path, text.data(), text.size());
}

std::vector<proc_name> proc_list(const std::string &path) {
    Entry entry = find(path);
    std::vector<proc_name> names;
    if (!entry)
        return names;
    std::lock_guard guard(tree_mutex);
    for (const auto &[name, child] : entry->children)
        names.push_back({name, child->mode});
    return names;
}

std::optional<proc_status> proc_stat(const std::string &path) {
    Entry entry = find(path);
    if (!entry)
        return std::nullopt;
    std::lock_guard guard(tree_mutex);
    u32 links = entry->is_dir() ? 2 : 1;
    for (const auto &[name, child] : entry->children)
        links += child->is_dir();
    return proc_status{entry->mode, links};
}

std::unique_ptr<proc_open_file> proc_open_file::open(const std::string &path) {
    Entry entry = find(path);
    if (!entry || entry->is_dir())
        return nullptr;
    return std::unique_ptr<proc_open_file>(new proc_open_file(std::move(entry)));
}

long proc_open_file::read(char *to, std::size_t size, std::size_t offset) {
    std::lock_guard guard(mutex_);
    bool goes_on = printed_ && offset == at_;
    long result = goes_on ? inside(*entry_, [] { return 0L; }) : print(*entry_, text_);
    if (result < 0)
        return result;
    printed_ = true;
    if (offset >= text_.size()) {
        at_ = offset;
        return 0;
    }
    std::size_t length = text_.copy(to, size, offset);
    at_ = offset + length;
    return static_cast<long>(length);
}

long proc_open_file::write(const void *from, unsigned long count) {
    return store(*entry_, from, count);
}

} // namespace userlevel
