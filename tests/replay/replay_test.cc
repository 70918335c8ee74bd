// tarn-replay, run as people run it. Each run is a process of its own.
#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;
using json = nlohmann::json;

Bytes operator+(Bytes left, const Bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct Result {
    int status;
    std::string output, errors;
};

std::string contents(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class Replay : public ::testing::Test {
protected:
    Replay() : folder_(fs::temp_directory_path() / ("tarn-replay-" + std::to_string(getpid()))) {
        fs::create_directories(folder_);
    }
    ~Replay() override { fs::remove_all(folder_); }

    Result run_tool(const std::string &tool, const std::string &arguments) {
        fs::path out = folder_ / "out", err = folder_ / "err";
        std::string command = tool + " " + arguments + " >" + out.string() + " 2>" + err.string();
        int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128, contents(out), contents(err)};
    }
    Result replay(const fs::path &file, const std::string &options = "") {
        return run_tool(TARN_REPLAY, options + " '" + file.string() + "'");
    }
    std::vector<json> replay_json(const fs::path &file, const std::string &options = "") {
        Result result = replay(file, "--json " + options);
        EXPECT_EQ(result.status, 0) << result.errors;
        std::vector<json> lines;
        std::istringstream text(result.output);
        for (std::string line; std::getline(text, line);)
            lines.push_back(json::parse(line));
        return lines;
    }
    fs::path file(const Bytes &bytes, const std::string &name = "capture") {
        fs::path path = folder_ / name;
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        return path;
    }
    static Bytes compressed(const Bytes &bytes, int filter) {
        Bytes small(bytes.size() + 65536);
        std::size_t used = 0;
        archive *writer = archive_write_new();
        EXPECT_EQ(archive_write_add_filter(writer, filter), ARCHIVE_OK);
        archive_write_set_format_raw(writer);
        archive_write_set_bytes_per_block(writer, 0);
        archive_write_open_memory(writer, small.data(), small.size(), &used);
        archive_entry *entry = archive_entry_new();
        archive_entry_set_filetype(entry, AE_IFREG);
        EXPECT_EQ(archive_write_header(writer, entry), ARCHIVE_OK);
        EXPECT_EQ(archive_write_data(writer, bytes.data(), bytes.size()),
                  static_cast<la_ssize_t>(bytes.size()));
        archive_entry_free(entry);
        EXPECT_EQ(archive_write_free(writer), ARCHIVE_OK);
        small.resize(used);
        return small;
    }

    fs::path batch(const std::string &words) {
        return file(Bytes(words.begin(), words.end()), "config");
    }

    // Fields in either byte order.
    Bytes u32(std::uint32_t value) const {
        Bytes bytes{static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
                    static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
        if (big_endian)
            std::reverse(bytes.begin(), bytes.end());
        return bytes;
    }
    Bytes u16(std::uint16_t value) const {
        Bytes bytes{static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8)};
        if (big_endian)
            std::reverse(bytes.begin(), bytes.end());
        return bytes;
    }
    Bytes pcap_header(std::uint32_t magic = 0xA1B2C3D4, std::uint32_t link = 1) const {
        return u32(magic) + u16(2) + u16(4) + u32(0) + u32(0) + u32(65535) + u32(link);
    }
    Bytes pcap_packet(const Bytes &frame, std::uint32_t wire = 0) const {
        auto length = static_cast<std::uint32_t>(frame.size());
        return u32(0) + u32(0) + u32(length) + u32(wire ? wire : length) + frame;
    }
    Bytes pcap(const std::vector<Bytes> &frames) const {
        Bytes all = pcap_header();
        for (const Bytes &frame : frames)
            all = all + pcap_packet(frame);
        return all;
    }
    Bytes block(std::uint32_t type, Bytes body) const {
        body.resize((body.size() + 3) & ~std::size_t{3});
        auto length = static_cast<std::uint32_t>(body.size() + 12);
        return u32(type) + u32(length) + body + u32(length);
    }
    Bytes section() const {
        return block(0x0A0D0D0A, u32(0x1A2B3C4D) + u16(1) + u16(0) + u32(~0u) + u32(~0u));
    }
    Bytes interface(std::uint16_t link = 1) const { return block(1, u16(link) + u16(0) + u32(0)); }
    Bytes packet(std::uint32_t interface, const Bytes &frame) const {
        auto length = static_cast<std::uint32_t>(frame.size());
        return block(6, u32(interface) + u32(0) + u32(0) + u32(length) + u32(length) + frame);
    }
    static Bytes frame(Bytes source, std::uint16_t type, std::size_t length = 60) {
        Bytes bytes{2, 0, 0, 0, 0, 1};
        bytes = bytes + source;
        bytes.push_back(static_cast<std::uint8_t>(type >> 8));
        bytes.push_back(static_cast<std::uint8_t>(type));
        bytes.resize(length);
        return bytes;
    }

    // IPv4 to 239.1.2.3.
    Bytes multicast() const {
        Bytes bytes{0x01, 0x00, 0x5E, 0x01, 0x02, 0x03};
        bytes = bytes + host + Bytes{8, 0, 0x45, 0, 0, 40, 0, 0, 0, 0, 64, 17, 0, 0};
        bytes = bytes + Bytes{192, 0, 2, 1, 239, 1, 2, 3};
        bytes.resize(60);
        return bytes;
    }

    bool big_endian = false;
    const Bytes host{2, 0, 0, 0, 0, 0x99};
    const Bytes zero = Bytes(6);

private:
    fs::path folder_;
};

TEST_F(Replay, prints_one_json_object_a_line) {
    Result result = replay(file(pcap({frame(zero, 0x8809)})), "--json");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output,
              R"({"frame":1,"len":60,"port":"port1","vid":1,"src":"00:00:00:00:00:00",)"
              R"("dst":"02:00:00:00:00:01","ethertype":"0x8809","type":"slow protocols",)"
              R"("fate":"stopped","by":"l2drop","slot":7,"reason":3,"words":"source MAC is zero",)"
              R"("chain":[{"slot":7,"name":"l2drop","flags":4,"reason":3,)"
              R"("words":"source MAC is zero"}],"off":[],)"
              R"("sent":[],"kernel":[],"sockets":[]})"
              "\n");
}

TEST_F(Replay, names_who_stopped_a_frame_only_where_somebody_did) {
    Result result = replay(file(pcap({frame(host, 0x88B5)})), "--json");
    EXPECT_EQ(result.output,
              R"({"frame":1,"len":60,"port":"port1","vid":1,"src":"02:00:00:00:00:99",)"
              R"("dst":"02:00:00:00:00:01","ethertype":"0x88b5","type":"","fate":"unclaimed",)"
              R"("chain":[],"off":[],"sent":[],"kernel":[],"sockets":[]})"
              "\n");
}

TEST_F(Replay, tells_what_went_to_the_ip_stack) {
    std::string path = file(pcap({frame(host, 0x8863)})); // PPPoE discovery
    auto lines = replay_json(path);
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(lines[0]["kernel"], nlohmann::json::parse(R"([{"device":"vlan1","len":60}])"));
    EXPECT_TRUE(lines[0]["sent"].empty());
    EXPECT_THAT(replay(path).output, HasSubstr("      to the IP stack on vlan1, 60 bytes\n"));
}

TEST_F(Replay, explains_a_frame_in_words) {
    Result result = replay(file(pcap({frame(zero, 0x8809)})));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("frame 1: 60 bytes on port1, VLAN 1\n"));
    EXPECT_THAT(result.output,
                HasSubstr("00:00:00:00:00:00 -> 02:00:00:00:00:01  type 0x8809 slow protocols\n"));
    EXPECT_THAT(result.output,
                HasSubstr("slot  7 l2drop               stop; reason 3: source MAC is zero\n"));
    EXPECT_THAT(result.output,
                HasSubstr("= stopped by l2drop, reason 3: source MAC is zero; freed\n"));
    EXPECT_THAT(result.output, HasSubstr("1 frame, 1 stopped\n"));
    EXPECT_THAT(result.output, HasSubstr("l2drop                    1      1"));
}

TEST_F(Replay, reads_pcap_in_both_byte_orders_and_resolutions) {
    for (bool big : {false, true})
        for (std::uint32_t magic : {0xA1B2C3D4u, 0xA1B23C4Du}) {
            big_endian = big;
            auto lines = replay_json(file(pcap_header(magic) + pcap_packet(frame(zero, 0x8809))));
            ASSERT_THAT(lines, SizeIs(1));
            EXPECT_EQ(lines[0]["by"], "l2drop");
        }
}

TEST_F(Replay, reads_pcapng_in_both_byte_orders) {
    for (bool big : {false, true}) {
        big_endian = big;
        auto lines =
            replay_json(file(section() + interface() + interface() + packet(0, frame(host, 1)) +
                             packet(1, frame(zero, 2)) + block(5, u32(0))));
        ASSERT_THAT(lines, SizeIs(2));
        EXPECT_EQ(lines[0]["port"], "port1");
        EXPECT_EQ(lines[1]["port"], "port2");
        EXPECT_EQ(lines[1]["fate"], "stopped");
    }
}

TEST_F(Replay, reads_simple_and_old_packet_blocks) {
    Bytes old = block(2, u16(1) + u16(0) + u32(0) + u32(0) + u32(60) + u32(60) + frame(host, 7));
    Bytes simple = block(3, u32(60) + frame(host, 8));
    auto lines = replay_json(file(section() + interface() + interface() + old + simple));
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0]["port"], "port2");
    EXPECT_EQ(lines[0]["ethertype"], "0x0007");
    EXPECT_EQ(lines[1]["port"], "port1");
    EXPECT_EQ(lines[1]["len"], 60);
}

TEST_F(Replay, a_second_section_numbers_its_interfaces_on) {
    auto lines = replay_json(file(section() + interface() + packet(0, frame(host, 1)) + section() +
                                  interface() + packet(0, frame(host, 1))));
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[1]["port"], "port2");
}

TEST_F(Replay, prints_the_comment_of_a_frame) {
    Bytes options = u16(1) + u16(5) + Bytes{'h', 'e', 'l', 'l', 'o', 0, 0, 0} + u16(0) + u16(0);
    Bytes commented =
        block(6, u32(0) + u32(0) + u32(0) + u32(60) + u32(60) + frame(host, 1) + options);
    EXPECT_THAT(replay(file(section() + interface() + commented)).output, HasSubstr("  # hello\n"));
}

TEST_F(Replay, the_vlan_is_that_of_the_tag) {
    Bytes tagged = frame(host, 0x8100);
    tagged[14] = 0xE0; // priority 7
    tagged[15] = 20;
    tagged[16] = 0x08;
    auto lines = replay_json(file(pcap({tagged, frame(host, 0x0800)})));
    EXPECT_EQ(lines[0]["vid"], 20);
    EXPECT_EQ(lines[0]["ethertype"], "0x0800");
    EXPECT_EQ(lines[1]["vid"], 1);
    EXPECT_THAT(replay(file(pcap({tagged}))).output, HasSubstr(", tag VID 20 priority 7\n"));
}

TEST_F(Replay, a_priority_tag_names_no_vlan) {
    Bytes tagged = frame(host, 0x8100);
    tagged[14] = 0xE0;
    EXPECT_EQ(replay_json(file(pcap({tagged})))[0]["vid"], 1);
}

TEST_F(Replay, looks_behind_two_tags) {
    Bytes tagged = frame(host, 0x8100);
    tagged[15] = 20;
    tagged[16] = 0x81;
    tagged[19] = 30;
    tagged[20] = 0x88;
    tagged[21] = 0xCC;
    auto lines = replay_json(file(pcap({tagged})));
    EXPECT_EQ(lines[0]["vid"], 20);
    EXPECT_EQ(lines[0]["ethertype"], "0x88cc");
}

TEST_F(Replay, every_port_is_a_member_of_every_vlan) {
    Bytes tagged = frame(host, 0x8100);
    tagged[15] = 20;
    Result result = replay(file(pcap({tagged, frame(host, 1)})));
    EXPECT_THAT(result.output, Not(HasSubstr("no member")));
}

TEST_F(Replay, takes_runts_and_jumbo_frames) {
    std::vector<Bytes> frames;
    for (std::size_t length : {1u, 6u, 12u, 13u, 14u, 9216u})
        frames.push_back(frame(host, 0x0800, length));
    auto lines = replay_json(file(pcap(frames)));
    ASSERT_THAT(lines, SizeIs(6));
    EXPECT_EQ(lines[1]["by"], "l2drop"); // no source: zero
    EXPECT_EQ(lines[5]["len"], 9216);
}

TEST_F(Replay, takes_frames_of_no_length) {
    auto lines = replay_json(file(section() + interface() + packet(0, {})));
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(lines[0]["reason"], 3);
}

TEST_F(Replay, a_frame_captured_in_part_is_offered_in_part) {
    Result result = replay(file(pcap_header() + pcap_packet(frame(host, 0x0800, 20), 1000)));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output,
                HasSubstr("frame 1: 20 bytes on port1, VLAN 1 (cut short: 1000 on the wire)"));
}

TEST_F(Replay, a_capture_without_frames_is_replayed) {
    for (const Bytes &empty : {pcap({}), section(), section() + interface()}) {
        Result result = replay(file(empty));
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_THAT(result.output, StartsWith("0 frames\n"));
        EXPECT_THAT(replay_json(file(empty)), IsEmpty());
    }
}

TEST_F(Replay, what_is_no_capture_is_refused) {
    Result result = replay(file({'h', 'e', 'l', 'l', 'o'}, "text"));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errors,
                AllOf(StartsWith("tarn-replay: "),
                      HasSubstr("text: not a capture file (first bytes 68 65 6c 6c); "
                                "pcap and pcapng are read\n")));
}

TEST_F(Replay, files_without_bytes_and_files_that_are_not_there_are_refused) {
    Result result = replay(file({}));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("not a capture file: it has no bytes at all"));
    EXPECT_THAT(replay(file({1, 2})).errors, HasSubstr("it ends after a few bytes"));
    result = replay("/nowhere/at/all");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("/nowhere/at/all: No such file or directory"));
    EXPECT_EQ(replay("/").status, 1);
}

TEST_F(Replay, other_link_types_are_refused_by_name) {
    Result result = replay(file(pcap_header(0xA1B2C3D4, 105)));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("link type 105 (802.11"), HasSubstr("only Ethernet is read")));
    result = replay(file(section() + interface(105) + packet(0, frame(host, 1))));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.errors, HasSubstr("interface 0 has link type 105; only Ethernet is read"));
}

TEST_F(Replay, frames_before_the_damage_are_replayed) {
    Bytes good = pcap({frame(zero, 1), frame(zero, 1)});
    good.resize(good.size() - 10);
    Result result = replay(file(good), "--json");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, AllOf(HasSubstr("\"frame\":1"), Not(HasSubstr("\"frame\":2"))));
    EXPECT_THAT(result.errors, HasSubstr("truncated"));

    good = section() + interface() + packet(0, frame(zero, 1)) + packet(0, frame(zero, 1));
    good.resize(good.size() - 10);
    result = replay(file(good));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("1 frame, 1 stopped\n"));
    EXPECT_THAT(result.errors, HasSubstr("damaged at byte 140: the file ends within a block"));
}

TEST_F(Replay, damage_is_told_where_it_is) {
    struct Row {
        Bytes bytes;
        const char *says;
    };
    Bytes no_order = section();
    no_order[8] = 0;
    Bytes odd = section() + interface();
    odd[28 + 4] = 21;
    Bytes differs = section() + interface();
    differs[differs.size() - 4] = 99;
    Bytes tiny = section() + u32(1) + u32(8) + u32(8);
    for (const Row &row :
         {Row{no_order, "the section has no byte order"},
          Row{odd, "a block cannot be 21 bytes long"}, Row{tiny, "a block cannot be 8 bytes long"},
          Row{differs, "the two lengths of a block differ"},
          Row{section() + packet(0, frame(host, 1)), "names interface 0, which is not described"},
          Row{section() + block(1, u16(1)), "an interface description is too short"},
          Row{section() + interface() + block(6, u32(0)), "a packet is too short for its header"},
          Row{section() + interface() + block(3, {}), "a packet is too short for its header"},
          Row{section() + interface() + block(6, u32(0) + u32(0) + u32(0) + u32(999) + u32(999)),
              "a packet of 999 bytes in a block of 20"}}) {
        Result result = replay(file(row.bytes));
        EXPECT_EQ(result.status, 1) << row.says;
        EXPECT_THAT(result.errors, AllOf(HasSubstr("damaged at byte "), HasSubstr(row.says)));
    }
}

// --- where captures come from
// ------------------------------------------------------------------------------------

TEST_F(Replay, reads_standard_input_and_pipes) {
    fs::path path = file(pcap({frame(zero, 0x8809)}));
    Result expected = replay(path, "--json");
    EXPECT_THAT(expected.output, HasSubstr("l2drop"));
    Result piped = run_tool("cat " + path.string() + " | " TARN_REPLAY, "--json -");
    EXPECT_EQ(piped.status, 0) << piped.errors;
    EXPECT_EQ(piped.output, expected.output);
    EXPECT_EQ(run_tool("cat " + path.string() + " | " TARN_REPLAY, "--json /dev/stdin").output,
              expected.output);
    EXPECT_THAT(run_tool(TARN_REPLAY, "- </dev/null").errors,
                HasSubstr("tarn-replay: standard input: not a capture file"));
}

TEST_F(Replay, reads_compressed_files) {
    Bytes old = pcap({frame(zero, 0x8809)}),
          ng = section() + interface() + packet(0, frame(zero, 0x8809));
    for (int filter : {ARCHIVE_FILTER_GZIP, ARCHIVE_FILTER_BZIP2, ARCHIVE_FILTER_XZ,
                       ARCHIVE_FILTER_ZSTD, ARCHIVE_FILTER_LZ4})
        for (const Bytes &capture : {old, ng}) {
            auto lines = replay_json(file(compressed(capture, filter)));
            ASSERT_THAT(lines, SizeIs(1)) << filter;
            EXPECT_EQ(lines[0]["by"], "l2drop");
        }
}

TEST_F(Replay, a_compressed_file_that_ends_too_soon_is_told) {
    Bytes many = pcap_header();
    for (std::uint32_t k = 0; k < 5000; k++) { // more than is uncompressed at once
        Bytes one = frame(zero, 0x8809);
        for (std::size_t at = 14; at < 60; at++)
            one[at] = static_cast<std::uint8_t>(k * 2654435761u >> at % 24);
        many = many + pcap_packet(one);
    }
    Bytes small = compressed(many, ARCHIVE_FILTER_GZIP);
    small.resize(small.size() - 100);
    Result result = replay(file(small), "--json");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("\"frame\":1000,"));
    EXPECT_THAT(result.errors, HasSubstr("it cannot be read on: truncated gzip input"));
    small.resize(10);
    EXPECT_THAT(replay(file(small)).errors, HasSubstr("it cannot be read on: "));
}

TEST_F(Replay, several_files_are_one_run) {
    fs::path first = file(pcap({frame(zero, 1), frame(host, 2)}), "first"),
             second = file(section() + interface() + interface() + packet(1, frame(zero, 3)));
    auto lines = replay_json(second, first.string());
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(lines[1]["file"], first.string());
    EXPECT_EQ(lines[2]["file"], second.string());
    EXPECT_EQ(lines[2]["frame"], 3);
    EXPECT_EQ(lines[2]["port"], "port2");
    Result result = replay(second, first.string());
    EXPECT_THAT(result.output, AllOf(HasSubstr("--- " + first.string() + "\nframe 1: "),
                                     HasSubstr("--- " + second.string() + "\nframe 3: "),
                                     HasSubstr("3 frames, 2 stopped, 1 unclaimed\n")));
    EXPECT_THAT(replay(first).output, Not(HasSubstr("---")));
    // Nothing is replayed when one of them is not there.
    result = replay("/nowhere", first.string());
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "");
}

TEST_F(Replay, frames_of_other_interfaces_are_skipped_and_counted) {
    Result result = replay(file(section() + interface(105) + interface() +
                                packet(0, frame(zero, 1)) + packet(1, frame(zero, 2)) +
                                packet(0, frame(zero, 3)) + packet(1, frame(zero, 4))));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output,
                AllOf(HasSubstr("frame 2: 60 bytes on port2"), HasSubstr("frame 4: "),
                      HasSubstr("2 frames, 2 stopped\n"), Not(HasSubstr("frame 3: "))));
    EXPECT_THAT(result.errors, HasSubstr("capture: 2 frames of interface 1 skipped: link type "
                                         "105; only Ethernet is read\n"));
}

// --- which frames
// ------------------------------------------------------------------------------------

TEST_F(Replay, a_filter_says_what_is_offered) {
    fs::path path = file(pcap({frame(zero, 0x8809), frame(zero, 0x88CC), frame(zero, 0x88CC)}));
    auto lines = replay_json(path, "--filter 'ether proto 0x88cc'");
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0]["frame"], 2); // as the file numbers them
    EXPECT_THAT(replay(path, "-f 'ether proto 0x88cc'").output, HasSubstr("2 frames, 2 stopped\n"));
    Result result = replay(path, "--filter 'no such words'");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.errors, HasSubstr("tarn-replay: 'no such words' is no filter: "));
}

TEST_F(Replay, the_frames_that_are_wanted_are_told_alone) {
    std::vector<Bytes> twenty(20, frame(zero, 1));
    fs::path path = file(pcap(twenty));
    auto numbers = [&](const std::string &ranges) {
        std::vector<unsigned> all;
        for (const json &line : replay_json(path, "--frames " + ranges))
            all.push_back(line["frame"]);
        return all;
    };
    EXPECT_THAT(numbers("7"), ElementsAre(7));
    EXPECT_THAT(numbers("2,5-7,19-"), ElementsAre(2, 5, 6, 7, 19, 20));
    EXPECT_THAT(numbers("21-"), IsEmpty());
    // The others are offered all the same, as far as is wanted.
    EXPECT_THAT(replay(path, "--frames 5,7").output,
                HasSubstr("7 frames, 2 of them told, 7 stopped\n"));
    for (const char *wrong : {"x", "0", "1-2-3", "1,,2", "-5"}) {
        Result result = replay(path, std::string("--frames=") + wrong);
        EXPECT_EQ(result.status, 2) << wrong;
        EXPECT_THAT(result.errors, HasSubstr("are no frames: write them as 7, 10-20, 100- or"));
    }
    EXPECT_THAT(replay(path, "--frames 5-3").errors, HasSubstr("'5-3' ends before it begins"));
}

// --- what is told
// ------------------------------------------------------------------------------------

TEST_F(Replay, tells_when_a_frame_came) {
    Bytes frames = pcap_header();
    for (std::uint32_t micros : {500000u, 690001u})
        frames = frames + u32(1700000000) + u32(micros) + u32(60) + u32(60) + frame(zero, 1);
    fs::path path = file(frames);
    EXPECT_EQ(replay_json(path)[1]["time"], 1700000000.690001);
    EXPECT_THAT(replay(path).output,
                AllOf(HasSubstr("frame 1: 60 bytes on port1, VLAN 1, 0.000000 s\n"),
                      HasSubstr("frame 2: 60 bytes on port1, VLAN 1, 0.190001 s\n")));
    EXPECT_THAT(replay(path, "--dates").output,
                HasSubstr("frame 2: 60 bytes on port1, VLAN 1, 2023-11-14T22:13:20.690001Z\n"));
}

TEST_F(Replay, tells_what_is_behind_a_length) {
    Bytes bpdu = frame(host, 38), tagged = frame(host, 0x8100);
    bpdu[14] = bpdu[15] = 0x42;
    tagged[15] = 20;
    tagged[17] = 38;
    for (std::size_t i : {18u, 19u})
        tagged[i] = 0xAA;
    tagged[20] = 3;
    tagged[23] = 0x0C;
    tagged[24] = 0x01;
    tagged[25] = 0x11;
    fs::path path = file(pcap({bpdu, tagged}));
    EXPECT_THAT(replay(path).output,
                AllOf(HasSubstr("type 0x0026 802.3 length, LLC 0x42 spanning tree\n"),
                      HasSubstr("type 0x0026 802.3 length, SNAP 00:00:0c 0x0111 UDLD, tag VID")));
    EXPECT_EQ(replay_json(path)[0]["type"], "802.3 length, LLC 0x42 spanning tree");
}

TEST_F(Replay, names_a_protocol_that_is_off) {
    Bytes hello = frame(host, 38);
    const Bytes to{1, 0x80, 0xC2, 0, 0, 0x14};
    std::copy(to.begin(), to.end(), hello.begin());
    fs::path path = file(pcap({hello, frame(host, 0x88B5)}));
    auto lines = replay_json(path);
    EXPECT_EQ(lines[0]["by"], "mcdrop");
    ASSERT_THAT(lines[0]["off"], SizeIs(1));
    EXPECT_EQ(lines[0]["off"][0]["name"], "isis");
    EXPECT_EQ(lines[0]["off"][0]["words"], "delivered");
    EXPECT_THAT(lines[1]["off"], IsEmpty());
    EXPECT_THAT(replay(path).output,
                HasSubstr("slot 25 isis                 is off; on, it would say: stop, replicate "
                          "to the stack, post to the IP stack\n"));
    lines = replay_json(path, "--enable isis");
    EXPECT_EQ(lines[0]["by"], "isis");
    EXPECT_THAT(lines[0]["off"], IsEmpty());
    // It is not shown IPv4, whoever that is for.
    hello[12] = 8;
    hello[13] = 0;
    EXPECT_THAT(replay_json(file(pcap({hello})))[0]["off"], IsEmpty());
}

TEST_F(Replay, paints_where_that_is_wanted) {
    fs::path path = file(pcap({frame(zero, 1)}));
    EXPECT_THAT(replay(path).output, Not(HasSubstr("\x1b["))); // a file
    EXPECT_THAT(replay(path, "--color=always").output,
                AllOf(HasSubstr("\x1b[36mport1\x1b[0m"), HasSubstr("\x1b[33m00:00:00:00:00:00\x1b"),
                      HasSubstr("\x1b[31mstopped by l2drop")));
    EXPECT_EQ(replay(path, "-c").output, replay(path, "--color=always").output);
    EXPECT_THAT(replay(path, "-c --json").output, Not(HasSubstr("\x1b[")));
    EXPECT_EQ(replay(path, "--color=green").status, 2);
    auto on_terminal = [&](const std::string &environment, const std::string &when) {
        return run_tool(environment + " script -qec '" TARN_REPLAY " --color=" + when,
                        path.string() + "' /dev/null")
            .output;
    };
    EXPECT_THAT(on_terminal("TERM=xterm", "auto"), HasSubstr("\x1b[36mport1"));
    EXPECT_THAT(on_terminal("TERM=xterm", "never"), Not(HasSubstr("\x1b[")));
    EXPECT_THAT(on_terminal("TERM=xterm NO_COLOR=1", "auto"), Not(HasSubstr("\x1b[")));
    EXPECT_THAT(on_terminal("TERM=dumb", "auto"), Not(HasSubstr("\x1b[")));
}

// Of a frame that ends within its tag the missing bytes are zero.
TEST_F(Replay, frames_that_end_within_a_tag_are_tagged_for_everybody) {
    const Bytes to{0x00, 0x0C, 0x25, 0x0A, 0x8C, 0x01};
    std::vector<Bytes> frames;
    for (std::size_t length : {13u, 14u, 15u, 16u, 60u}) {
        frames.push_back(frame(host, 0x8100, length));
        std::copy(to.begin(), to.end(), frames.back().begin());
    }
    for (const json &line : replay_json(file(pcap(frames)))) {
        EXPECT_EQ(line["by"], "befd") << line;
        EXPECT_EQ(line["words"], "the frame carried a tag") << line;
    }
}

TEST_F(Replay, redirects_are_turned_on_and_off_by_name) {
    fs::path path = file(pcap({frame(zero, 0x88F7)}));
    EXPECT_EQ(replay_json(path)[0]["by"], "l2drop");
    EXPECT_EQ(replay_json(path, "--disable l2drop")[0]["fate"], "unclaimed");
    auto lines = replay_json(path, "--enable ptp --disable l2drop");
    EXPECT_EQ(lines[0]["by"], "ptp");
    EXPECT_EQ(lines[0]["chain"][0]["flags"], 0x44);
}

TEST_F(Replay, an_unknown_redirect_is_refused_with_those_that_exist) {
    Result result = replay(file(pcap({})), "--enable nobody");
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("there is no redirect 'nobody'; there are:"),
                                     HasSubstr(" l2drop")));
}

// Interface 1 of the file is the second port, and the only one that the VLAN has.
TEST_F(Replay, a_batch_of_tarnctl_makes_the_switch) {
    fs::path config = batch("link add port left ifindex 5001 mac 02:00:00:00:01:01 up running\n"
                            "link add port right ifindex 5002 mac 02:00:00:00:01:02 up running\n"
                            "vlan filter left on\n"
                            "vlan add 1\n"
                            "vlan member add right 1\n"
                            "stp state right forwarding instance all\n");
    fs::path path = file(section() + interface() + interface() + packet(0, frame(host, 0x8863)) +
                         packet(1, frame(host, 0x8863)));
    auto lines = replay_json(path, "--config " + config.string());
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0]["port"], "left");
    EXPECT_TRUE(lines[0]["kernel"].empty());
    EXPECT_EQ(lines[1]["port"], "right");
    EXPECT_EQ(lines[1]["kernel"], nlohmann::json::parse(R"([{"device":"vlan1","len":60}])"));
}

// What a VLAN leaves behind is cleared away by a work item, which the next line finds done.
TEST_F(Replay, a_vlan_that_is_made_anew_has_no_members) {
    fs::path config = batch("link add port left ifindex 5001 mac 02:00:00:00:01:01 up running\n"
                            "vlan filter left on\n"
                            "vlan add 1\n"
                            "vlan member add left 1\n"
                            "stp state left forwarding instance all\n"
                            "vlan del 1\n"
                            "vlan add 1\n");
    Result result = replay(file(pcap({frame(host, 0x8863)})), "--config " + config.string());
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("port is no member of the VLAN"));
}

TEST_F(Replay, a_wrong_line_of_the_batch_is_told_by_its_number) {
    fs::path config = batch("vlan add 1\nvlan ad 2\n");
    Result result = replay(file(pcap({})), "--config " + config.string());
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.errors, HasSubstr(config.string() + ":2: unknown word 'ad' after 'vlan'"));
}

TEST_F(Replay, the_metadata_can_be_set) {
    fs::path path = file(pcap({frame(host, 0x88B5)}));
    EXPECT_THAT(replay_json(path, "--flags 8")[0]["chain"], IsEmpty());
    auto lines = replay_json(path, "--flags 8 --code 10");
    EXPECT_EQ(lines[0]["by"], "filterMatchCpuCode");
    lines = replay_json(path, "--flags 0x40 --extra 3");
    EXPECT_EQ(lines[0]["chain"][0]["name"], "dos");
    EXPECT_EQ(lines[0]["fate"], "unclaimed");
    Result result = replay(path, "--queue 6 --rx-flags 1 --debug");
    EXPECT_THAT(result.output, HasSubstr("log RxPkt(00001) Q:6 vid:1 port1 cpuC:0 len:60\n"));
}

TEST_F(Replay, shows_all_who_were_asked) {
    Result result = replay(file(pcap({frame(host, 0x88B5)})), "--verbose");
    EXPECT_THAT(result.output,
                AllOf(HasSubstr("slot 49 vlan_local           no\n"),
                      HasSubstr("slot 47 pppoe                no\n"), Not(HasSubstr("ptp"))));
}

TEST_F(Replay, explains_each_decision) {
    // Of a frame with the switch's own source address, and of neighbour discovery over its limit.
    fs::path path = file(pcap({frame(Bytes{2, 0, 0, 0, 0, 1}, 0x0800)}));
    EXPECT_THAT(replay(path, "--explain").output,
                HasSubstr("why: gate: the source MAC is the switch's own\n"));
    EXPECT_THAT(replay(path, "").output, Not(HasSubstr("why:")));
    auto lines = replay_json(path, "--explain");
    EXPECT_EQ(lines[0]["chain"][0]["why"], "gate: the source MAC is the switch's own");
    EXPECT_TRUE(lines[0]["notes"].empty());
}

TEST_F(Replay, lists_the_redirects_in_the_order_they_are_asked) {
    Result result = run_tool(TARN_REPLAY, "--list");
    EXPECT_EQ(result.status, 0);
    EXPECT_LT(result.output.find("vlan_local"), result.output.find("ptp"));
    EXPECT_THAT(result.output,
                HasSubstr("   46  pppoe                   47  yes       ARP IPv4 IPv6\n"));
}

TEST_F(Replay, usage_errors_say_so) {
    EXPECT_EQ(run_tool(TARN_REPLAY, "").status, 2);
    EXPECT_EQ(run_tool(TARN_REPLAY, "--flags x file").status, 2);
    EXPECT_EQ(run_tool(TARN_REPLAY, "--rx-flags 256 file").status, 2);
    EXPECT_EQ(run_tool(TARN_REPLAY, "--nonsense file").status, 2);
    Result help = run_tool(TARN_REPLAY, "--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("--disable NAME"));
}

TEST_F(Replay, the_projects_own_capture_shows_every_kind_of_frame) {
    fs::path path = fs::temp_directory_path() / ("tarn-demo-" + std::to_string(getpid()));
    ASSERT_EQ(run_tool(TARN_MAKE_DEMO, path.string()).status, 0);
    auto lines = replay_json(path);
    std::vector<std::string> fates;
    for (const json &line : lines)
        fates.push_back(line.contains("by") ? line["by"].get<std::string>() : "-");
    EXPECT_THAT(fates, ElementsAre("ipv4", "l2drop", "l2drop", "l2drop", "ipv4", "ipv4", "ipv4",
                                   "vrrp", "pppoe", "grasp", "ipv6", "ipv4", "mcdrop", "lacp", "-",
                                   "ipv4", "ipv4"));
    EXPECT_EQ(lines[6]["chain"][0]["name"], "pim");
    EXPECT_EQ(lines[11]["chain"][0]["name"], "dos");
    EXPECT_EQ(lines[4]["vid"], 10);
    EXPECT_EQ(lines[16]["len"], 9216);
    fs::remove(path);
    EXPECT_EQ(run_tool(TARN_MAKE_DEMO, "/nowhere/file").status, 1);
    EXPECT_EQ(run_tool(TARN_MAKE_DEMO, "").status, 2);
}

// --- one made-up frame
// ------------------------------------------------------------------------------------

TEST_F(Replay, one_frame_goes_through_chip_and_core) {
    struct Row {
        const char *what, *frame;
        std::vector<std::string> says;
    };
    const Row rows[] = {
        {"a protocol of the link",
         "01:80:c2:00:00:02 02:00:00:00:00:99 88 09 01",
         {"15 bytes on port1: 02:00:00:00:00:99 -> 01:80:c2:00:00:02  type 0x8809 slow protocols\n",
          "chip: to the CPU by the trap 'lacp' (code 1, queue 7)\n", "core: on port1, VLAN 1\n",
          "      slot 18 lacp                 stop, replicate to the stack, post to user space; "
          "reason 3: given to the LACP daemon\n",
          "  => nowhere\n"}},
        {"a station that nobody knows",
         "0200000000550200000000990800",
         {"chip: forwarded in hardware; the CPU does not see it\n",
          "chip: its source is learned on port1\n", "  => out of port2, 14 bytes, untagged\n",
          "  => out of port4, 14 bytes, untagged\n"}},
        {"the switch itself, on a VLAN",
         "020000000001 020000000099 81000014 8863",
         {"tag VID 20 priority 0\n", "chip: to the CPU by the trap 'own-other'",
          "core: on port1, VLAN 20\n", "  => to the IP stack on vlan20, 14 bytes\n"}},
        {"a runt",
         "0102",
         {"chip: dropped, runt: no whole Ethernet header, or no whole tag\n", "  => nowhere\n"}},
        {"a source that is a group",
         "020000000001 010000000099 0800",
         {"chip: dropped, source: the source is a group address\n"}},
    };
    for (const Row &row : rows) {
        Result result = run_tool(TARN_REPLAY, std::string("--frame '") + row.frame + "'");
        EXPECT_EQ(result.status, 0) << row.what << result.errors;
        for (const std::string &text : row.says)
            EXPECT_THAT(result.output, HasSubstr(text)) << row.what;
    }
}

TEST_F(Replay, one_frame_is_told_in_json_too) {
    Result result = run_tool(TARN_REPLAY, "--json --frame 0180c20000020200000000998809");
    json told = json::parse(result.output);
    EXPECT_EQ(told["chip"]["traps"][0]["trap"], "lacp");
    EXPECT_EQ(told["core"][0]["redirect"], "lacp");
    EXPECT_EQ(told["core"][0]["words"], "given to the LACP daemon");
    EXPECT_FALSE(told["core"][0].contains("frame"));
    EXPECT_EQ(run_tool(TARN_REPLAY, "--json --frame 0180c20000020200000000998809").output,
              result.output);
    told = json::parse(run_tool(TARN_REPLAY, "--json --frame 0200000000550200000000990800").output);
    EXPECT_EQ(told["sent"], json::parse(R"([{"port":"port2","len":14,"vid":0},)"
                                        R"({"port":"port3","len":14,"vid":0},)"
                                        R"({"port":"port4","len":14,"vid":0}])"));
}

// Lines for the chip are good, too: a live switch is made by the same words.
TEST_F(Replay, one_frame_meets_the_switch_of_a_batch) {
    fs::path config = batch("link add port left ifindex 5001 mac 02:00:00:00:01:01 up running\n"
                            "link add port right ifindex 5002 mac 02:00:00:00:01:02 up running\n"
                            "vlan add 10\n"
                            "vlan member add left 10\n"
                            "vlan member add right 10 tagged\n"
                            "vlan pvid left 10\n"
                            "stp state left forwarding instance all\n"
                            "stp state right forwarding instance all\n"
                            "chip port 5001 veth1\n"
                            "chip trap arp off\n");
    const std::string arp = " --frame 'ffffffffffff 020000000099 0806'";
    Result result = run_tool(TARN_REPLAY, "--config " + config.string() + arp);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output, AllOf(HasSubstr("14 bytes on left: "), HasSubstr("trap 'broadcast'"),
                                     HasSubstr("  => out of right, 18 bytes, tag VID 10\n")));
    result = run_tool(TARN_REPLAY, "--port right --config " + config.string() + arp);
    EXPECT_THAT(result.output, HasSubstr("chip: dropped, untagged: it has no tag, and the port no "
                                         "PVID\n"));
    result = run_tool(TARN_REPLAY, "--port middle --config " + config.string() + arp);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.errors, HasSubstr("tarn-replay: there is no port 'middle'\n"));
    // A capture meets it as well.
    EXPECT_EQ(replay_json(file(pcap({frame(zero, 1)})), "--config " + config.string())[0]["port"],
              "left");
}

TEST_F(Replay, what_is_no_frame_is_refused) {
    for (const char *wrong : {"0", "123", "01zz", "x"}) {
        Result result = run_tool(TARN_REPLAY, std::string("--frame ") + wrong);
        EXPECT_EQ(result.status, 2) << wrong;
        EXPECT_THAT(result.errors, HasSubstr("is no byte of a frame: write two hexadecimal"));
    }
    EXPECT_THAT(run_tool(TARN_REPLAY, "--frame :").errors, HasSubstr("a frame has 1 to 10240"));
    EXPECT_EQ(run_tool(TARN_REPLAY, "--frame 01 " + file(pcap({})).string()).status, 2);
    EXPECT_EQ(run_tool(TARN_REPLAY, "--frame 01 --code 3").status, 2);
    EXPECT_EQ(run_tool(TARN_REPLAY, "--frame 01 --filter arp").status, 2);
    EXPECT_EQ(run_tool(TARN_REPLAY, "--port port1 " + file(pcap({})).string()).status, 2);
}

// --- time
// --------------------------------------------------------------------------------------------

TEST_F(Replay, limits_go_by_the_time_of_the_capture) {
    // One multicast flow, which may go on every 20 hundredths of a second.
    Bytes stream = multicast();
    auto reasons = [&](const std::vector<json> &lines) {
        std::vector<std::string> all;
        for (const json &line : lines)
            all.push_back(line["by"]);
        return all;
    };
    const std::vector<std::string> expected{"ipv4", "mcdrop", "ipv4", "mcdrop", "ipv4", "mcdrop"};
    const std::vector<std::uint32_t> hundredths{0, 19, 20, 10, 40, 59}; // one goes back
    Bytes old = pcap_header();
    for (std::uint32_t at : hundredths)
        old = old + u32(1700000000) + u32(at * 10000) + u32(60) + u32(60) + stream;
    EXPECT_EQ(reasons(replay_json(file(old))), expected);

    struct Row {
        Bytes resolution;
        std::uint64_t units;
    };
    for (const Row &row : {Row{{}, 1000000}, Row{{3}, 1000}, Row{{9}, 1000000000}, Row{{2}, 100},
                           Row{{0x80 | 30}, 1u << 30}}) {
        Bytes options;
        if (!row.resolution.empty())
            options = u16(9) + u16(1) + row.resolution + Bytes(3);
        Bytes all = section() + block(1, u16(1) + u16(0) + u32(0) + options);
        for (std::uint32_t at : hundredths) {
            // In those units, and a little more where they are finer.
            std::uint64_t time = 1700000000 * row.units + (at * row.units + 99) / 100;
            all = all +
                  block(6, u32(0) + u32(static_cast<std::uint32_t>(time >> 32)) +
                               u32(static_cast<std::uint32_t>(time)) + u32(60) + u32(60) + stream);
        }
        EXPECT_EQ(reasons(replay_json(file(all))), expected) << row.units;
    }
}

TEST_F(Replay, times_of_no_sense_stand_still) {
    for (std::uint8_t resolution : {20, 100, 0xFF}) {
        Bytes all = section() + block(1, u16(1) + u16(0) + u32(0) + u16(9) + u16(1) +
                                             Bytes{resolution, 0, 0, 0});
        for (std::uint32_t at : {0u, 1000000000u})
            all = all + block(6, u32(0) + u32(at) + u32(0) + u32(60) + u32(60) + multicast());
        auto lines = replay_json(file(all));
        ASSERT_THAT(lines, SizeIs(2));
        EXPECT_EQ(lines[1]["by"], "mcdrop");
    }
}

// The rest of the division that fills the throttles' buckets is as old as the switch's clock.
TEST_F(Replay, the_answer_does_not_depend_on_how_long_setting_up_takes) {
    fs::path config = batch("link add port left ifindex 5001 mac 02:00:00:00:01:01 up running\n"
                            "vlan add 1\n"
                            "vlan member add left 1\n"
                            "stp state left forwarding instance all\n");
    Bytes flows = pcap_header();
    for (std::uint32_t k = 0; k < 60; k++) {
        Bytes flow = multicast();
        flow[5] = flow[33] = static_cast<std::uint8_t>(k);
        flows = flows + u32(1700000000) + u32(k * 30000) + u32(60) + u32(60) + flow;
    }
    fs::path path = file(flows);
    std::set<std::string> answers;
    for (const char *delay :
         {"0", "0.01", "0.02", "0.03", "0.04", "0.05", "0.06", "0.07", "0.08"}) {
        Result result = run_tool(std::string("(sleep ") + delay + "; cat " + config.string() +
                                     ") | " TARN_REPLAY,
                                 "--config /dev/stdin --explain " + path.string());
        EXPECT_EQ(result.status, 0) << result.errors;
        answers.insert(result.output);
    }
    EXPECT_THAT(answers, SizeIs(1));
}

// --- captures of real control traffic
// ----------------------------------------------------------------
//
// Not part of the project: the variable TARN_CAPTURES names the folder.

const char *captures() {
    return std::getenv("TARN_CAPTURES");
}

TEST_F(Replay, real_captures_are_accounted_for_frame_by_frame) {
    if (!captures())
        GTEST_SKIP() << "TARN_CAPTURES names no folder of captures";
    std::size_t files = 0;
    for (const auto &entry : fs::directory_iterator(captures())) {
        if (entry.path().extension() != ".pcap")
            continue;
        files++;
        auto lines = replay_json(entry.path());
        EXPECT_FALSE(lines.empty()) << entry.path();
        for (const json &line : lines)
            EXPECT_THAT((std::vector<std::string>{"stopped", "unclaimed"}),
                        ::testing::Contains(line["fate"].get<std::string>()));
    }
    EXPECT_GT(files, 0u);
}

// Every frame: who stopped it, and why; nobody: "-".
TEST_F(Replay, real_captures_end_where_they_belong) {
    if (!captures())
        GTEST_SKIP() << "TARN_CAPTURES names no folder of captures";
    using Ends = std::map<std::string, unsigned>;
    const std::map<std::string, Ends> expected{
        {"802.1ad_QinQ.pcap", {{"-", 2}}},
        {"802.1w_rapid_STP.pcap", {{"stp 2", 30}}},
        {"IGMP_V1.pcap", {{"ipv4 4", 27}}},
        {"ISIS_level1_adjacency.pcap", {{"mcdrop 1", 22}}},
        {"LACP.pcap", {{"lacp 3", 20}}},
        {"LLDP_and_CDP.pcap", {{"lldp 3", 8}, {"udld 3", 4}}},
        {"MSTP_Intra-Region_BPDUs.pcap", {{"stp 2", 10}}},
        {"PIMv2_hellos.pcap", {{"ipv4 4", 6}}},
        {"UDLD.pcap", {{"udld 3", 29}}},
        {"dhcp-rfc3004.pcap", {{"ipv4 4", 4}}},
        {"dhcpv6-ia-na.pcap", {{"ipv6 6", 4}}},
        {"eapon1.pcap", {{"-", 41}, {"arp 12", 5}, {"ipv4 4", 68}}},
        {"icmpv6-ra-pref64.pcap", {{"ipv6 6", 4}}},
    };
    for (const auto &[name, ends] : expected) {
        Ends got;
        for (const json &line : replay_json(fs::path(captures()) / name))
            got[line.contains("by") ? line["by"].get<std::string>() + " " +
                                          std::to_string(line["reason"].get<unsigned>())
                                    : "-"]++;
        EXPECT_EQ(got, ends) << name;
    }
}

TEST_F(Replay, hellos_of_real_routers_are_replicated_before_they_go_up) {
    if (!captures())
        GTEST_SKIP() << "TARN_CAPTURES names no folder of captures";
    for (const json &line : replay_json(fs::path(captures()) / "PIMv2_hellos.pcap"))
        EXPECT_EQ(line["chain"][0]["name"], "pim");
}

} // namespace
