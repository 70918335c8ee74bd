// live-send DEVICE COUNT HEX: sends a frame, byte by byte as it is told, that many times at once.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <net/if.h>
#include <netpacket/packet.h>
#include <string>
#include <sys/socket.h>
#include <vector>

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: live-send DEVICE COUNT HEX\n");
        return 2;
    }
    const std::string hex = argv[3];
    std::vector<unsigned char> frame;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2)
        frame.push_back(
            static_cast<unsigned char>(std::strtoul(hex.substr(at, 2).c_str(), nullptr, 16)));
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = static_cast<int>(if_nametoindex(argv[1]));
    int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (fd < 0 || to.sll_ifindex == 0) {
        std::perror(argv[1]);
        return 1;
    }
    for (long count = std::atol(argv[2]); count > 0; count--)
        if (sendto(fd, frame.data(), frame.size(), 0, reinterpret_cast<const sockaddr *>(&to),
                   sizeof(to)) < 0) {
            std::perror("sendto");
            return 1;
        }
    return 0;
}
