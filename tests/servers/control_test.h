// A switch whose control socket is served. It answers "echo WORDS" with the words, "big" with more
// than a socket's buffer takes, and anything else with an error.
#pragma once

#include "servers/unix_end.h"
#include "support/temporary_folder.h"

#include "switch/control_socket.h"

class ControlTest : public SwitchTest {
protected:
    static constexpr std::size_t BIG = 400000;

    ControlTest() { EXPECT_EQ(live::control_serve(path, answer), ""); }
    ~ControlTest() override { live::control_end(); }

    std::string ask(std::string_view line) const {
        UnixEnd client(path, SOCK_STREAM);
        client.put(line);
        return client.read_all();
    }

    const TemporaryFolder folder;
    const std::string path = folder / "control";

private:
    static std::string answer(const std::string &line, bool *ok) {
        *ok = true;
        if (line.starts_with("echo "))
            return line.substr(5);
        if (line == "big")
            return std::string(BIG, '.');
        *ok = false;
        return "what is '" + line + "'?\n";
    }
};
