// Request and response packets: received from a file, judged, turned into a session and back, and
// sent again.
//
//     the stream
#include "fuzz_support.h"
#include "owned_packets.h"
#include "owned_session.h"

namespace quillfence::testing {

namespace {

constexpr char given[] = "c:/quillfence/given.packet";
constexpr char sent[] = "c:/quillfence/sent.packet";

// An open file, closed with its scope.
struct stream {
    explicit stream(const char *path, bool write = false) : handle(vc_open_ex(path, 0, write, 0)) {
        QF_PROMISE(handle != vc_invalid_handle);
    }
    ~stream() {
        vc_close(handle);
    }
    stream(const stream &) = delete;
    stream &operator=(const stream &) = delete;
    const vc_handle handle;
};

request receive_request(const char *path) {
    const stream in(path);
    const uint8_t state = qfd_request_packet_receive_state(in.handle);
    if (!state) {
        return nullptr;
    }
    request packet(qfd_request_packet_receive(in.handle));
    if (packet) {
        QF_PROMISE(packet->id == 0 && packet->state == 0);
        packet->id = QFD_PACKET_ID;
        packet->state = state;
    }
    return packet;
}

response receive_response(const char *path) {
    const stream in(path);
    return response(qfd_response_packet_receive(in.handle));
}

// An empty text is sent as an absent one.
bool same(const char *a, const char *b) {
    return std::string(a ? a : "") == (b ? b : "");
}

bool same_request(const qfd_request_packet *a, const qfd_request_packet *b) {
    return a->state == b->state && a->tls == b->tls && a->mua == b->mua && same(a->ip, b->ip) &&
           same(a->port, b->port) && same(a->auth, b->auth) && same(a->helo, b->helo) &&
           same(a->from, b->from) && same(a->to, b->to);
}

// Texts with a NUL inside are longer on the wire than as strings.
bool has_nul(const char *text, uint16_t length) {
    return text && strlen(text) != length;
}

bool has_nul(const qfd_request_packet *p) {
    return has_nul(p->ip, p->iplen) || has_nul(p->port, p->portlen) ||
           has_nul(p->auth, p->authlen) || has_nul(p->helo, p->helolen) ||
           has_nul(p->from, p->fromlen) || has_nul(p->to, p->tolen);
}

void send_request(const qfd_request_packet *packet) {
    fuzz_drive().write(sent, "");
    {
        const stream out(sent, true);
        if (!qfd_request_packet_send(out.handle, packet)) {
            return;
        }
    }
    const request again = receive_request(sent);
    QF_PROMISE(again && same_request(packet, again.get()));
}

void use_request() {
    const request packet = receive_request(given);
    if (!packet) {
        return;
    }
    qfd_request_packet_dump(packet.get());
    const int valid = qfd_request_packet_validate(packet.get());
    if (!has_nul(packet.get())) {
        send_request(packet.get());
    }
    const owned_session session(qfd_request_packet_to_smtp_state(packet.get()));
    QF_PROMISE(!session || valid);
    if (!session) {
        return;
    }
    print_state(drop_line, 6, session.get(), 1);
    const request back(qfd_request_packet_from_smtp_state(session.get()));
    if (back) {
        QF_PROMISE(same(back->ip, packet->ip));
        qfd_request_packet_validate(back.get());
        send_request(back.get());
    }
}

void use_response() {
    const response packet = receive_response(given);
    if (!packet) {
        return;
    }
    QF_PROMISE(packet->result != 0);
    qfd_response_packet_dump(packet.get());
    fuzz_drive().write(sent, "");
    {
        const stream out(sent, true);
        QF_PROMISE(qfd_response_packet_send(out.handle, packet->result, packet->message,
                                            packet->spam_hit));
    }
    const response again = receive_response(sent);
    QF_PROMISE(again && again->result == packet->result);
    QF_PROMISE(same(again->message, packet->message));
    QF_PROMISE(same(again->spam_hit, packet->spam_hit));
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string bytes = input.rest();
    fuzz_drive().write(given, bytes);
    use_request();
    use_response();
    QF_PROMISE(file_bytes(given) == bytes);
}

} // namespace quillfence::testing
