// The word "trace" of the control socket.
#include "servers/control_test.h"

#include "explain/stream.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

class Trace {
public:
    Trace(const std::string &path, const std::string &line) : end_(path, SOCK_STREAM) {
        end_.put(line + "\n");
        while (!trace_redirect_wanted() && line.find('x') == std::string::npos)
            std::this_thread::yield();
    }
    void go_away() {
        end_.close();
        while (trace_redirect_wanted())
            std::this_thread::yield();
    }
    // All lines, when it has ended; the last one says how.
    std::vector<std::string> lines() {
        std::string text = end_.read_all();
        std::vector<std::string> all;
        for (std::size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos;
             at = end + 1)
            all.push_back(text.substr(at, end - at));
        if (!all.empty()) {
            how = all.back();
            all.pop_back();
        }
        return all;
    }
    std::string how;

private:
    UnixEnd end_;
};

class Stream : public ControlTest {};

TEST_F(Stream, tells_events_until_its_count) {
    Trace trace(path, "trace count 2");
    receive(Frame().ipv4({}));
    receive(Frame());
    receive(Frame());
    EXPECT_THAT(trace.lines(), ElementsAre(HasSubstr("ipv4: stop, post to the IP stack; reason 4"),
                                           HasSubstr("pipeline: nobody stopped it")));
    EXPECT_EQ(trace.how, "ok");
}

TEST_F(Stream, tells_what_was_asked_for_alone) {
    add_port(2);
    Trace trace(path, "trace count 1 drops port port2 redirect l2drop");
    receive(Frame().ipv4({}), {.port = 2});
    receive(Frame().from("ff:ff:ff:ff:ff:ff"));
    receive(Frame().ipv4({}), {.port = 2, .vid = 9});
    receive(Frame().from("03:00:00:00:00:01"), {.port = 2});
    EXPECT_THAT(trace.lines(), ElementsAre(HasSubstr("port2 vid 1")));
}

TEST_F(Stream, speaks_json) {
    Trace trace(path, "trace json count 1");
    receive(Frame());
    EXPECT_THAT(trace.lines(), ElementsAre(HasSubstr("\"rule\":\"nobody stopped it\"")));
}

TEST_F(Stream, ends_after_its_time) {
    Trace trace(path, "trace seconds 1");
    receive(Frame());
    EXPECT_THAT(trace.lines(), SizeIs(1));
    EXPECT_FALSE(trace_redirect_wanted());
}

TEST_F(Stream, ends_when_its_client_goes) {
    Trace trace(path, "trace");
    receive(Frame());
    trace.go_away();
    EXPECT_FALSE(trace_redirect_wanted());
}

TEST_F(Stream, a_slow_client_is_told_what_it_lost) {
    Trace trace(path, "trace seconds 2");
    constexpr std::size_t frames = 30000;
    for (std::size_t i = 0; i < frames; i++)
        receive(Frame()); // nobody reads: sockets and queue fill
    std::size_t events = 0, lost = 0;
    for (const std::string &line : trace.lines())
        if (line.find("events were lost") == std::string::npos)
            events++;
        else
            lost += std::stoul(line.substr(1));
    EXPECT_GT(events, 4096u);
    EXPECT_GT(lost, 0u);
    EXPECT_LE(events + lost, frames);
}

TEST_F(Stream, says_what_is_wrong_with_an_order) {
    struct Row {
        const char *line, *says;
    };
    for (Row row : {Row{"trace x", "unknown word 'x'"}, Row{"trace count x", "wants a number"},
                    Row{"trace count 0 x", "wants a number"}, Row{"trace seconds -1x", "number"},
                    Row{"trace x port", "unknown word"}}) {
        Trace trace(path, row.line);
        EXPECT_THAT(trace.lines(), ElementsAre(HasSubstr(row.says))) << row.line;
        EXPECT_EQ(trace.how, "error");
    }
    EXPECT_TRUE(explain::trace_is_order("trace"));
    EXPECT_TRUE(explain::trace_is_order("trace drops"));
    EXPECT_FALSE(explain::trace_is_order("tracer"));
}

} // namespace
