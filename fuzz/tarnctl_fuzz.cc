// Batches of any bytes, to a switch that answers with any bytes: words never crash, hang or send
// what is no whole message.
#include "tarnctl/fake_switch.h"
#include "tarnctl/help.h"

#include <cstdlib>
#include <sstream>

namespace {

// The first byte says how many bytes are the switch's answer to every command; the rest is the
// batch.
struct Input {
    std::string batch;
    fake::Bytes answer;
};

Input split_input(const std::uint8_t *data, std::size_t size) {
    std::size_t length = size == 0 ? 0 : std::min<std::size_t>(data[0], size - 1);
    const std::uint8_t *behind = size == 0 ? data : data + 1;
    return {{reinterpret_cast<const char *>(behind) + length, size == 0 ? 0 : size - 1 - length},
            {behind, behind + length}};
}

void must_be_whole(client::View message) {
    auto all = client::messages_of(message);
    if (all.size() != 1 || all[0].payload.size() + 16 != message.size())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    Input input = split_input(data, size);
    fake::Switch tarn;
    const std::string told(input.answer.begin(), input.answer.end());
    tarn.proc.files["ifdb"] = (size % 4 < 2 ? "Interface \n" : "") + told; // can be asked, or not
    tarn.session.chip = [&told](const std::string &) { return told; };
    tarn.session.json = size % 2;
    tarn.client = std::make_unique<client::Client>(
        client::in_process([&](client::View message) -> client::Bytes {
            must_be_whole(message);
            std::uint16_t type;
            std::memcpy(&type, message.data() + 4, 2);
            if (type == 16)
                return fake::introduce(message);
            client::Bytes reply = input.answer;
            client::Bytes end = fake::acknowledge(message, {-22, "no", 24});
            reply.resize((reply.size() + 3) & ~std::size_t{3});
            reply.insert(reply.end(), end.begin(), end.end());
            return reply;
        }));
    std::istringstream lines(input.batch);
    tarnctl::run_batch(tarn.session, lines, "fuzz", true, [](const std::string &) {});
    for (const client::Received &received : client::messages_of(input.answer))
        client::answer_of(received, input.answer);
    try {
        tarnctl::complete(tarnctl::words_of(input.batch), {});
    } catch (const tarnctl::WordError &) {
    }
    return 0;
}
