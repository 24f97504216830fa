// Packets as they come from strangers: the samples of the format page, every cut of a packet,
// random bytes.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "drive_c.h"
#include "owned_packets.h"
#include "owned_session.h"
#include "qfd-packet.h"

namespace quillfence::testing {
namespace {

constexpr char path[] = "c:/quillfence/stream";

// The hex dumps of the format page: a new one begins with offset 0.
std::vector<std::string> samples_of_the_page() {
    std::ifstream page(QF_FORMAT_PAGE);
    EXPECT_TRUE(page.is_open()) << QF_FORMAT_PAGE;
    std::vector<std::string> samples;
    for (std::string line; std::getline(page, line);) {
        if (!line.starts_with("    0000")) {
            continue;
        }
        if (line.starts_with("    000000")) {
            samples.emplace_back();
        }
        std::istringstream hex(line.substr(12));
        for (std::string byte; hex >> byte;) {
            samples.back() += static_cast<char>(std::stoi(byte, nullptr, 16));
        }
    }
    return samples;
}

class packet_stream : public drive_test {
  protected:
    vc_handle open_with(const std::string &bytes) {
        drive.write(path, bytes);
        return vc_open_ex(path, 0, 0, 0);
    }
    // Reads a whole request, as a daemon does; null when it is refused.
    request receive_request(const std::string &bytes) {
        const vc_handle stream = open_with(bytes);
        const uint8_t state = qfd_request_packet_receive_state(stream);
        request received(state ? qfd_request_packet_receive(stream) : nullptr);
        vc_close(stream);
        if (received) {
            received->id = QFD_PACKET_ID;
            received->state = state;
        }
        return received;
    }
    std::string sent(const qfd_request_packet *packet) {
        drive.write(path, "");
        const vc_handle stream = vc_open_ex(path, 0, 1, 0);
        EXPECT_EQ(qfd_request_packet_send(stream, packet), 1);
        vc_close(stream);
        return drive.read(path);
    }
};

TEST_F(packet_stream, the_samples_of_the_format_page) {
    const std::vector<std::string> samples = samples_of_the_page();
    ASSERT_EQ(samples.size(), 2u);
    ASSERT_EQ(samples[0].size(), 28u);
    ASSERT_EQ(samples[1].size(), 22u);

    const request received = receive_request(samples[0]);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->state, 1);
    EXPECT_STREQ(received->ip, "192.0.2.1");
    EXPECT_STREQ(received->port, "25");
    EXPECT_EQ(received->helo, nullptr);
    EXPECT_EQ(sent(received.get()), samples[0]);

    vc_handle stream = open_with(samples[1]);
    const response answer(qfd_response_packet_receive(stream));
    vc_close(stream);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->result, 7u);
    EXPECT_EQ(answer->message, nullptr);
    EXPECT_STREQ(answer->spam_hit, "require_helo");
    drive.write(path, "");
    stream = vc_open_ex(path, 0, 1, 0);
    EXPECT_EQ(qfd_response_packet_send(stream, 7, nullptr, "require_helo"), 1);
    vc_close(stream);
    EXPECT_EQ(drive.read(path), samples[1]);
}

TEST_F(packet_stream, every_cut_of_a_response) {
    const std::string whole = samples_of_the_page()[1];
    for (size_t size = 0; size < whole.size(); ++size) {
        const vc_handle stream = open_with(whole.substr(0, size));
        const response received(qfd_response_packet_receive(stream));
        vc_close(stream);
        // Without an id, or without the only byte of the result that is not 0, it is refused.
        EXPECT_EQ(received != nullptr, size > 2) << size;
        EXPECT_EQ(log.errors().size(), size > 2 ? 0u : 1u) << size;
    }
}

std::string shown(const char *text) {
    return text ? text : "(absent)";
}

// What a record holds, for comparisons. An absent text is not an empty one.
std::string account_of(const qfd_request_packet *packet) {
    std::ostringstream out;
    const auto tell = [&out](uint16_t length, const char *text) {
        out << length << ' ' << shown(text) << '|';
    };
    out << packet->id << '|' << int{packet->state} << '|' << int{packet->tls} << '|'
        << int{packet->mua} << '|';
    tell(packet->iplen, packet->ip);
    tell(packet->portlen, packet->port);
    tell(packet->authlen, packet->auth);
    tell(packet->helolen, packet->helo);
    tell(packet->fromlen, packet->from);
    tell(packet->tolen, packet->to);
    return out.str();
}

// On the wire an empty text is an absent one.
void drop_empty_texts(qfd_request_packet *packet) {
    for (char **text : {&packet->port, &packet->auth, &packet->helo, &packet->from, &packet->to}) {
        if (*text && !**text) {
            free(*text);
            *text = nullptr;
        }
    }
}

// From a command line over the stream into a session and back, nothing changes.
TEST_F(packet_stream, random_requests_come_through) {
    std::mt19937 random(20240501);
    const auto text = [&random] {
        std::string made(random() % 4 ? random() % 20 : 0, ' ');
        for (char &c : made) {
            c = static_cast<char>(1 + random() % 255);
        }
        return made;
    };
    const auto bit = [&random] { return std::to_string(random() % 2); };
    static const struct {
        const char *letter;
        int count;
    } modes[] = {{"C", 5}, {"A", 6}, {"M", 9}, {"R", 10}};
    unsigned sessions = 0;
    for (int round = 0; round < 200; ++round) {
        const auto &[letter, count] = modes[random() % std::size(modes)];
        const std::string ip = "192.0.2." + std::to_string(random() % 256);
        std::string values[] = {"program", letter, ip,     text(), bit(),
                                text(),    bit(),  text(), text(), text()};
        char *arguments[std::size(values)];
        std::transform(std::begin(values), std::end(values), arguments,
                       [](std::string &value) { return value.data(); });
        const request made(qfd_request_packet_from_args(count, arguments));
        ASSERT_TRUE(made) << round;
        if (!qfd_request_packet_validate(made.get())) { // the step that must name a user
            EXPECT_TRUE(*letter == 'A' && values[5].empty()) << round;
            log.errors();
            continue;
        }
        const std::string bytes = sent(made.get());
        const request received = receive_request(bytes);
        ASSERT_TRUE(received) << round;
        drop_empty_texts(made.get());
        EXPECT_EQ(account_of(received.get()), account_of(made.get())) << round;
        EXPECT_EQ(sent(received.get()), bytes) << round;

        const owned_session state(qfd_request_packet_to_smtp_state(received.get()));
        EXPECT_EQ(state != nullptr, received->state != QFD_STATE_RCPT || received->to) << round;
        log.errors(); // of a recipient that is missing
        if (state) {
            ++sessions;
            const request back(qfd_request_packet_from_smtp_state(state.get()));
            ASSERT_TRUE(back) << round;
            EXPECT_EQ(account_of(back.get()), account_of(received.get())) << round;
        }
    }
    EXPECT_GT(sessions, 100u);
}

// Whatever comes is refused, or is a packet that is sent as the bytes that were read.
TEST_F(packet_stream, random_bytes) {
    std::mt19937 random(20230501);
    size_t accepted = 0;
    for (int round = 0; round < 1000; ++round) {
        std::string bytes = "\xEA\xF3"
                            "\x04";
        const size_t size = random() % 200;
        while (bytes.size() < size) {
            // Mostly small numbers, so that lengths often fit.
            bytes += static_cast<char>(random() % 4 ? random() % 6 : random());
        }
        const request received = receive_request(bytes);
        if (!received || !qfd_request_packet_validate(received.get())) {
            log.errors();
            continue;
        }
        ++accepted;
        // A text may hold a NUL, behind which nothing is a text any more: then it is not sent.
        drive.write(path, "");
        const vc_handle stream = vc_open_ex(path, 0, 1, 0);
        if (qfd_request_packet_send(stream, received.get())) {
            vc_close(stream);
            const std::string again = drive.read(path);
            const size_t common = std::min(again.size(), bytes.size());
            EXPECT_EQ(again.substr(0, common), bytes.substr(0, common)) << round;
        } else {
            vc_close(stream);
        }
        log.errors();
    }
    EXPECT_GT(accepted, 30u) << "the bytes are too wild to say much";
}

} // namespace
} // namespace quillfence::testing
