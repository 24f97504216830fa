#include "qfd-packet.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "byte_cursor.h"
#include "vc_dns.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "qfd-packet";

namespace {

// What a mode letter and a packet state stand for.
struct packet_kind {
    char letter;
    uint8_t state;
    int argument_count; // the program's name counts
    uint32_t stage;     // of the session; 0 for none
};

} // namespace

static constexpr packet_kind packet_kinds[] = {
    {'C', QFD_STATE_CONNECT, 5, stage_init},
    {'A', QFD_STATE_AUTH, 6, stage_auth},
    {'M', QFD_STATE_MAIL, 9, stage_mail},
    {'R', QFD_STATE_RCPT, 10, stage_rcpt},
    {'T', QFD_STATE_TEST, 2, 0},
};

namespace {

struct packet_deleter {
    void operator()(qfd_request_packet *packet) const {
        qfd_request_packet_free(packet);
    }
    void operator()(qfd_response_packet *packet) const {
        qfd_response_packet_free(packet);
    }
    void operator()(smtp_state *state) const {
        free_smtp_state(state);
    }
};
template <class T>
using owned = std::unique_ptr<T, packet_deleter>;

} // namespace

template <class T>
static owned<T> zeroed_record() {
    return owned<T>(static_cast<T *>(calloc(1, sizeof(T))));
}

void qfd_request_packet_free(qfd_request_packet *packet) {
    if (!packet) {
        return;
    }
    for (char *text :
         {packet->ip, packet->port, packet->auth, packet->helo, packet->from, packet->to}) {
        free(text);
    }
    free(packet);
}

void qfd_response_packet_free(qfd_response_packet *packet) {
    if (!packet) {
        return;
    }
    free(packet->message);
    free(packet->spam_hit);
    free(packet);
}

// --- Conversions ---

// Copies text; false when it is absent or there is no memory.
static bool copy_text(char **field, const char *text) {
    *field = text ? strdup(text) : nullptr;
    return *field;
}

// The same with the length, of which only the low 16 bits are kept.
static bool copy_text(char **field, uint16_t *length, const char *text) {
    if (!copy_text(field, text)) {
        return false;
    }
    *length = static_cast<uint16_t>(strlen(text));
    return true;
}

// The same for a text that stays absent when it is absent or empty.
static bool copy_optional_text(char **field, uint16_t *length, const char *text) {
    return is_empty(text) || copy_text(field, length, text);
}

uint8_t __process_state_arg(const char *arg, int *expected_argc) {
    if (is_empty(arg) || !expected_argc) {
        QF_EINVAL();
        return 0;
    }
    for (const packet_kind &kind : packet_kinds) {
        if (kind.letter == arg[0]) {
            *expected_argc = kind.argument_count;
            return kind.state;
        }
    }
    return 0;
}

// The IPv4 address that an IPv6 address in its short form stands for, as the client of an IPv4
// mail server; null for none. The tails of tunnelled (ISATAP) and translated addresses don't count:
// the owner of a network must not choose which IPv4 client he is taken for.
static const char *ipv4_of(const char *compressed) {
    for (const char *const prefix : {"::ffff:", "::"}) {
        const size_t length = strlen(prefix);
        const char *const tail = compressed + length;
        if (strncmp(compressed, prefix, length) == 0 && *tail && vc_is_ip(tail) == vc_family_ipv4) {
            return tail;
        }
    }
    return nullptr;
}

char *__process_ip_arg(const char *arg) {
    if (is_empty(arg)) {
        QF_EINVAL();
        return nullptr;
    }
    if (!vc_is_ipv6(arg)) {
        return strdup(arg);
    }
    char compressed[64] = "";
    if (vc_compress_ipv6(arg, compressed) <= 0) {
        return nullptr;
    }
    if (!strchr(compressed, ':')) {
        QF_ERROR("Unknown error compressing IPv6 [%s] to [%s]", arg, compressed);
        return nullptr;
    }
    const char *const ipv4 = ipv4_of(compressed);
    return strdup(ipv4 ? ipv4 : compressed);
}

// 1 when the decimal number at the start of the argument is not 0.
static uint8_t flag_of_arg(const char *arg) {
    return !is_empty(arg) && text_to_int(arg) != 0;
}

// Fills what the packet's state carries; false when a copy fails.
static bool fill_from_args(qfd_request_packet *packet, char **argv) {
    packet->ip = __process_ip_arg(argv[2]);
    if (!packet->ip) {
        return false;
    }
    packet->iplen = static_cast<uint16_t>(strlen(packet->ip));
    if (!copy_text(&packet->port, &packet->portlen, argv[3])) {
        return false;
    }
    packet->tls = flag_of_arg(argv[4]);
    if (packet->state == QFD_STATE_CONNECT) {
        return true;
    }
    if (!copy_optional_text(&packet->auth, &packet->authlen, argv[5])) {
        return false;
    }
    if (packet->state == QFD_STATE_AUTH) {
        return true;
    }
    packet->mua = flag_of_arg(argv[6]);
    if (!copy_text(&packet->helo, &packet->helolen, argv[7]) ||
        !copy_text(&packet->from, &packet->fromlen, argv[8])) {
        return false;
    }
    return packet->state == QFD_STATE_MAIL || copy_text(&packet->to, &packet->tolen, argv[9]);
}

qfd_request_packet *qfd_request_packet_from_args(int argc, char **argv) {
    if (argc < 2 || !argv) {
        QF_EINVAL();
        return nullptr;
    }
    auto packet = zeroed_record<qfd_request_packet>();
    if (!packet) {
        QF_ENOMEM();
        return nullptr;
    }
    packet->id = QFD_PACKET_ID;
    int expected_argc = 0;
    packet->state = __process_state_arg(argv[1], &expected_argc);
    if (!packet->state || argc != expected_argc) {
        QF_EINVAL();
        return nullptr;
    }
    if (packet->state != QFD_STATE_TEST && !fill_from_args(packet.get(), argv)) {
        QF_ERROR("%s", strerror(ENOMEM)); // kept on purpose, whatever the cause
        return nullptr;
    }
    return packet.release();
}

// Fills what the packet's state carries; false when a copy fails.
static bool fill_from_session(qfd_request_packet *packet, const smtp_state *state) {
    if (!copy_text(&packet->ip, &packet->iplen, state->ip) ||
        (state->port && !copy_text(&packet->port, &packet->portlen, state->port))) {
        return false;
    }
    packet->tls = state->tls;
    if (packet->state == QFD_STATE_CONNECT) {
        return true;
    }
    if (!copy_optional_text(&packet->auth, &packet->authlen, state->auth_user)) {
        return false;
    }
    if (packet->state == QFD_STATE_AUTH) {
        return true;
    }
    packet->mua = state->mua;
    if (!copy_optional_text(&packet->helo, &packet->helolen, state->helo) ||
        !copy_optional_text(&packet->from, &packet->fromlen, state->mail_from)) {
        return false;
    }
    return packet->state == QFD_STATE_MAIL ||
           copy_optional_text(&packet->to, &packet->tolen, state->rcpt_to);
}

// The packet state of a session stage, 0 when it has none.
static uint8_t packet_state_of_stage(uint32_t stage) {
    for (const packet_kind &kind : packet_kinds) {
        if (kind.stage && kind.stage == stage) {
            return kind.state;
        }
    }
    return 0;
}

qfd_request_packet *qfd_request_packet_from_smtp_state(const smtp_state *state) {
    if (!state || is_empty(state->ip)) {
        QF_EINVAL();
        return nullptr;
    }
    auto packet = zeroed_record<qfd_request_packet>();
    if (!packet) {
        QF_ENOMEM();
        return nullptr;
    }
    packet->id = QFD_PACKET_ID;
    packet->state = packet_state_of_stage(state->state);
    if (!packet->state) {
        QF_EINVAL();
        return nullptr;
    }
    if (!fill_from_session(packet.get(), state)) {
        QF_ENOMEM();
        return nullptr;
    }
    return packet.release();
}

// The session stage of a packet state, 0 when it has none.
static uint32_t stage_of_packet_state(uint8_t packet_state) {
    for (const packet_kind &kind : packet_kinds) {
        if (kind.state == packet_state) {
            return kind.stage;
        }
    }
    return 0;
}

// Fills what the session's stage carries; false when a copy fails.
static bool fill_session(smtp_state *state, const qfd_request_packet *packet) {
    if (!copy_text(&state->ip, packet->ip) ||
        (packet->port && !copy_text(&state->port, packet->port))) {
        return false;
    }
    state->tls = packet->tls;
    if (state->state == stage_init) {
        return true;
    }
    if (packet->auth && !copy_text(&state->auth_user, packet->auth)) {
        return false;
    }
    if (state->state == stage_auth) {
        return true;
    }
    state->mua = packet->mua;
    if ((packet->helo && !copy_text(&state->helo, packet->helo)) ||
        (packet->from && !copy_text(&state->mail_from, packet->from))) {
        return false;
    }
    // No test for presence: an absent recipient fails the copy. Kept on purpose.
    return state->state == stage_mail || copy_text(&state->rcpt_to, packet->to);
}

smtp_state *qfd_request_packet_to_smtp_state(const qfd_request_packet *packet) {
    if (qfd_request_packet_validate(packet) <= 0) {
        QF_EINVAL();
        return nullptr;
    }
    owned<smtp_state> state(new_smtp_state());
    if (!state) {
        QF_ENOMEM();
        return nullptr;
    }
    state->state = stage_of_packet_state(packet->state);
    if (!state->state) {
        QF_EINVAL();
        return nullptr;
    }
    if (!fill_session(state.get(), packet)) {
        QF_ENOMEM();
        return nullptr;
    }
    return state.release();
}

int qfd_request_packet_validate(const qfd_request_packet *packet) {
    if (!packet) {
        QF_EINVAL();
        return 0;
    }
    if (packet->id != QFD_PACKET_ID) {
        QF_ERROR("invalid packet id detected!");
        return 0;
    }
    if (packet->state == QFD_STATE_TEST) {
        return 1;
    }
    if (packet->state < QFD_STATE_CONNECT || packet->state > QFD_STATE_RCPT) {
        QF_ERROR("invalid state type detected");
        return 0;
    }
    if (is_empty(packet->ip)) {
        QF_ERROR("invalid IP address detected");
        return 0;
    }
    if (packet->state == QFD_STATE_AUTH && (!packet->auth || !packet->authlen)) {
        QF_ERROR("invalid authentication argument detected!");
        return 0;
    }
    return 1;
}

// --- Dumps ---

static const char *text_or_empty(const char *text) {
    return text ? text : "empty";
}

static const char *text_or_none(const char *text) {
    return text ? text : "none";
}

void qfd_request_packet_dump(const qfd_request_packet *packet) {
    if (!packet) {
        return;
    }
    vc_log_info("===========");
    vc_log_info("id:      %d", packet->id);
    vc_log_info("state:   %d", packet->state);
    vc_log_info("iplen:   %d", packet->iplen);
    vc_log_info("ip:      %s", text_or_null(packet->ip));
    vc_log_info("portlen: %d", packet->portlen);
    vc_log_info("port:    %s", text_or_empty(packet->port));
    vc_log_info("tls:     %s", yes_or_no(packet->tls));
    vc_log_info("authlen: %d", packet->authlen);
    vc_log_info("auth:    %s", text_or_empty(packet->auth));
    vc_log_info("mua:     %s", yes_or_no(packet->mua));
    vc_log_info("helolen: %d", packet->helolen);
    vc_log_info("helo:    %s", text_or_empty(packet->helo));
    vc_log_info("fromlen: %d", packet->fromlen);
    vc_log_info("from:    %s", text_or_empty(packet->from));
    vc_log_info("tolen:   %d", packet->tolen);
    vc_log_info("to:      %s", text_or_empty(packet->to));
    vc_log_info("===========");
}

void qfd_response_packet_dump(const qfd_response_packet *packet) {
    if (!packet) {
        return;
    }
    vc_log_info("================");
    vc_log_info("id:           %d", packet->id);
    vc_log_info("result:       %lu", static_cast<unsigned long>(packet->result));
    vc_log_info("message len:  %d", packet->message_len);
    vc_log_info("message:      %s", text_or_none(packet->message));
    vc_log_info("spam hit len: %d", packet->spam_hit_len);
    vc_log_info("spam hit:     %s", text_or_none(packet->spam_hit));
    vc_log_info("================");
}

// --- The bytes ---

static bool write_u8(vc_handle stream, uint8_t value) {
    return vc_write(stream, &value, sizeof value);
}
static bool write_u16(vc_handle stream, uint16_t value) {
    unsigned char bytes[2];
    store_le16(bytes, value);
    return vc_write(stream, bytes, sizeof bytes);
}
static bool write_u32(vc_handle stream, uint32_t value) {
    unsigned char bytes[4];
    store_le32(bytes, value);
    return vc_write(stream, bytes, sizeof bytes);
}

// Size bytes, as far as the stream has them: a pipe or a socket delivers in pieces, and only a read
// of nothing is its end. The buffers are zeroed: what an ended stream did not deliver reads as
// zeros.
static bool read_whole(vc_handle stream, void *buffer, uint32_t size) {
    auto *place = static_cast<unsigned char *>(buffer);
    uint32_t delivered = 1;
    while (size && delivered) {
        if (!vc_read_nonblock(stream, place, size, 1, 0, &delivered)) {
            return false;
        }
        place += delivered;
        size -= delivered;
    }
    return true;
}

static bool read_u8(vc_handle stream, uint8_t *value) {
    *value = 0;
    return read_whole(stream, value, sizeof *value);
}
static bool read_u16(vc_handle stream, uint16_t *value) {
    unsigned char bytes[2] = {};
    const bool read = read_whole(stream, bytes, sizeof bytes);
    *value = load_le16(bytes);
    return read;
}
static bool read_u32(vc_handle stream, uint32_t *value) {
    unsigned char bytes[4] = {};
    const bool read = read_whole(stream, bytes, sizeof bytes);
    *value = load_le32(bytes);
    return read;
}

int qfd_packet_write_string(vc_handle stream, uint16_t length, const char *text) {
    if (stream == vc_invalid_handle || (length && (!text || strlen(text) < length))) {
        QF_EINVAL();
        return 0;
    }
    return write_u16(stream, length) && (!length || vc_write(stream, text, length));
}

int qfd_packet_read_string(vc_handle stream, uint16_t *length, char **text) {
    if (stream == vc_invalid_handle || !length || !text) {
        QF_EINVAL();
        return 0;
    }
    errno = 0;
    free(*text);
    *text = nullptr;
    *length = 0;
    uint16_t count = 0;
    if (!read_u16(stream, &count)) {
        QF_ERROR("Error reading packet string length: %s", strerror(errno));
        return 0;
    }
    if (!count) {
        return 1;
    }
    heap_string received(static_cast<char *>(calloc(size_t{count} + 1, 1)));
    if (!received) {
        QF_ENOMEM();
        return 0;
    }
    if (!read_whole(stream, received.get(), count)) {
        QF_ERROR("Error reading packet string: %s", strerror(errno));
        return 0;
    }
    *length = count;
    *text = received.release();
    return 1;
}

int qfd_request_packet_send(vc_handle stream, const qfd_request_packet *packet) {
    if (stream == vc_invalid_handle || !packet) {
        QF_EINVAL();
        return 0;
    }
    errno = 0;
    if (qfd_request_packet_validate(packet) <= 0) {
        QF_ERROR("Invalid daemon request packet");
        return 0;
    }
    if (!write_u16(stream, packet->id) || !write_u8(stream, packet->state) ||
        !qfd_packet_write_string(stream, packet->iplen, packet->ip) ||
        !qfd_packet_write_string(stream, packet->portlen, packet->port) ||
        !write_u8(stream, packet->tls) ||
        !qfd_packet_write_string(stream, packet->authlen, packet->auth) ||
        !write_u8(stream, packet->mua) ||
        !qfd_packet_write_string(stream, packet->helolen, packet->helo) ||
        !qfd_packet_write_string(stream, packet->fromlen, packet->from) ||
        !qfd_packet_write_string(stream, packet->tolen, packet->to)) {
        QF_ERROR("Failed to write daemon request packet: %s", strerror(errno));
        return 0;
    }
    return 1;
}

uint8_t qfd_request_packet_receive_state(vc_handle stream) {
    if (stream == vc_invalid_handle) {
        QF_EINVAL();
        return 0;
    }
    errno = 0;
    uint16_t id = 0;
    if (!read_u16(stream, &id)) {
        QF_ERROR("Failed to read in the packet id: %s", strerror(errno));
        return 0;
    }
    if (id != QFD_PACKET_ID) {
        QF_ERROR("The packet id does not have the expected value");
        return 0;
    }
    uint8_t state = 0;
    if (!read_u8(stream, &state)) {
        QF_ERROR("Failed to read in the packet state: %s", strerror(errno));
        return 0;
    }
    for (const packet_kind &kind : packet_kinds) {
        if (kind.state == state) {
            return state;
        }
    }
    QF_ERROR("The packet state is not recognized");
    return 0;
}

qfd_request_packet *qfd_request_packet_receive(vc_handle stream) {
    if (stream == vc_invalid_handle) {
        QF_EINVAL();
        return nullptr;
    }
    errno = 0;
    auto packet = zeroed_record<qfd_request_packet>();
    if (!packet) {
        QF_ENOMEM();
        return nullptr;
    }
    if (!qfd_packet_read_string(stream, &packet->iplen, &packet->ip) ||
        !qfd_packet_read_string(stream, &packet->portlen, &packet->port) ||
        !read_u8(stream, &packet->tls) ||
        !qfd_packet_read_string(stream, &packet->authlen, &packet->auth) ||
        !read_u8(stream, &packet->mua) ||
        !qfd_packet_read_string(stream, &packet->helolen, &packet->helo) ||
        !qfd_packet_read_string(stream, &packet->fromlen, &packet->from) ||
        !qfd_packet_read_string(stream, &packet->tolen, &packet->to)) {
        QF_ERROR("Failed to read daemon request packet: %s", strerror(errno));
        return nullptr;
    }
    return packet.release();
}

// The length under which a response sends a text: the low 16 bits, 0 for null.
static uint16_t response_length(const char *text) {
    return text ? static_cast<uint16_t>(strlen(text)) : uint16_t{0};
}

int qfd_response_packet_send(vc_handle stream, uint32_t result, const char *message,
                             const char *spam_hit) {
    if (stream == vc_invalid_handle || !result) {
        QF_EINVAL();
        return 0;
    }
    errno = 0;
    if (!write_u16(stream, QFD_PACKET_ID) || !write_u32(stream, result) ||
        !qfd_packet_write_string(stream, response_length(message), message) ||
        !qfd_packet_write_string(stream, response_length(spam_hit), spam_hit)) {
        QF_ERROR("Failed to write daemon response packet: %s", strerror(errno));
        return 0;
    }
    return 1;
}

qfd_response_packet *qfd_response_packet_receive(vc_handle stream) {
    if (stream == vc_invalid_handle) {
        QF_EINVAL();
        return nullptr;
    }
    errno = 0;
    auto packet = zeroed_record<qfd_response_packet>();
    if (!packet) {
        QF_ENOMEM();
        return nullptr;
    }
    if (!read_u16(stream, &packet->id) || !read_u32(stream, &packet->result) ||
        !qfd_packet_read_string(stream, &packet->message_len, &packet->message) ||
        !qfd_packet_read_string(stream, &packet->spam_hit_len, &packet->spam_hit)) {
        QF_ERROR("Failed to read daemon response packet: %s", strerror(errno));
        return nullptr;
    }
    if (packet->id != QFD_PACKET_ID || !packet->result) {
        QF_ERROR("Invalid daemon response packet id [%d] or result [%d]", packet->id,
                 static_cast<int>(packet->result));
        return nullptr;
    }
    return packet.release();
}

} // namespace quillfence
