#include "machine/unix_server.h"

#include "kernel/log.h"

#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace machine {

namespace {

constexpr int ACCEPTED_AT_ONCE = 64;
constexpr std::chrono::milliseconds SHORTAGE{200};

bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

} // namespace

unix_client::~unix_client() {
    close(fd_);
}

void unix_clients::add(int fd) {
    unsigned long number = ++last_;
    clients_[number] = make_(loop_, fd, [this, number] { clients_.erase(clients_.find(number)); });
}

class unix_server::service {
public:
    service(std::string path, int listener, make_client make)
        : path_(std::move(path)), listener_(listener), clients_(loop_, std::move(make)),
          arrival_(loop_, listener, event_watch::READABLE, [this] { accept_some(); }),
          retry_(loop_, [this] { accept_some(); }) {
        arrival_.on();
    }
    ~service() {
        close(listener_);
        unlink(path_.c_str());
    }
    service(const service &) = delete;
    service &operator=(const service &) = delete;

    event_loop &loop() { return loop_; }

private:
    void accept_some() {
        for (int i = 0; i < ACCEPTED_AT_ONCE; i++) {
            int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (fd >= 0) {
                clients_.add(fd);
                continue;
            }
            if (is_shortage(errno))
                return wait();
            if (errno == EAGAIN) { // nobody is waiting any more
                is_short_ = false;
                break;
            }
        }
        arrival_.on();
    }

    // The listener would be ready again at once, and as often as it is looked at.
    void wait() {
        arrival_.off();
        retry_.on_after(SHORTAGE);
        if (!std::exchange(is_short_, true))
            pr_warn("%s: no descriptor is left for another client; who connects waits\n",
                    path_.c_str());
    }

    std::string path_;
    int listener_;
    event_loop loop_;
    unix_clients clients_;
    event_watch arrival_, retry_;
    bool is_short_ = false;
};

unix_server::unix_server(int type) : type_(type) {}

unix_server::~unix_server() {
    end();
}

std::string unix_server::serve(const std::string &path, make_client make) {
    int listener = -1;
    if (std::string wrong = listen_at(path, type_, listener); !wrong.empty())
        return wrong;
    service_ = std::make_unique<service>(path, listener, std::move(make));
    thread_ = std::thread([this] { service_->loop().run(); });
    return "";
}

void unix_server::end() {
    if (!service_)
        return;
    service_->loop().stop();
    thread_.join();
    service_.reset();
}

} // namespace machine
