#include "connection.h"

#include <exception>
#include <utility>

namespace quillfence::service {

// What is read at once. Another request's worth can be held besides.
static constexpr uint32_t piece_size = 16 << 10;

// --- attention ----------------------------------------------------------------------------------

void attention_list::add(std::shared_ptr<connection> one) noexcept {
    const std::lock_guard guard(lock_);
    try {
        if (wakened_) {
            waiting_.push_back(std::move(one));
        }
    } catch (const std::bad_alloc &) { // it ends when it has been idle for too long
    }
    if (wakened_) {
        platform::watcher_wake(wakened_);
    }
}

std::vector<std::shared_ptr<connection>> attention_list::take() {
    const std::lock_guard guard(lock_);
    return std::exchange(waiting_, {});
}

void attention_list::leave() {
    const std::lock_guard guard(lock_);
    wakened_ = nullptr;
    waiting_.clear();
}

// --- the server's thread ------------------------------------------------------------------------

connection::connection(platform::socket_handle socket, std::shared_ptr<attention_list> attention)
    : attention_(std::move(attention)), socket_(socket) {}

connection::~connection() {
    platform::socket_close(socket_);
}

void connection::close() {
    const std::lock_guard guard(lock_);
    platform::socket_close(std::exchange(socket_, platform::invalid_socket));
}

connection::clock::time_point connection::last_active() const {
    const std::lock_guard guard(lock_);
    return last_active_;
}

bool connection::has_unsent() const {
    const std::lock_guard guard(lock_);
    return !unsent_.empty();
}

bool connection::ask_for_attention() {
    const std::lock_guard guard(lock_);
    wants_attention_ = is_judged_;
    return is_judged_;
}

const char *connection::why() const {
    switch (split_) {
    case split::line_too_long:
        return "a line of a request is too long";
    case split::text_too_long:
        return "a request is too long";
    default:
        return "a request has too many lines";
    }
}

// What is to be done is settled with the lock held, so that an answer that comes meanwhile is
// either seen here or asks for attention.
connection_state connection::begin_step() {
    const std::lock_guard guard(lock_);
    if (!is_judged_ && !is_broken_ && !unsent_.empty()) {
        send({});
    }
    in_step_ = !is_judged_;
    return is_judged_ ? connection_state::busy : next_state();
}

// With the lock held, when nothing is judged.
connection_state connection::next_state() const {
    return is_broken_         ? connection_state::bad_end
           : !unsent_.empty() ? connection_state::room
                              : connection_state::bytes;
}

connection_state connection::after_request() {
    const std::lock_guard guard(lock_);
    if (is_judged_) {
        in_step_ = false;
        wants_attention_ = splitter_.held() > 0;
        return connection_state::answer;
    }
    return next_state();
}

// Hands over requests as long as the answers come at once.
connection_state connection::hand_over(const request_handler &handler) {
    std::string request;
    while ((split_ = splitter_.next(&request)) == split::request) {
        uint64_t number = 0;
        {
            const std::lock_guard guard(lock_);
            is_judged_ = true;
            number = ++number_;
            last_active_ = clock::now();
        }
        handler(std::move(request), [self = shared_from_this(), number](std::string_view reply) {
            self->answer(number, reply);
        });
        request.clear();
        if (const auto state = after_request(); state != connection_state::bytes) {
            return state;
        }
    }
    return split_ == split::none ? connection_state::bytes : connection_state::too_long;
}

// Reads once: there may be a request, and go_on() looks for it, when it says `answer`.
connection_state connection::receive() {
    was_read = true;
    char piece[piece_size];
    uint32_t got = 0;
    const uint32_t error = platform::socket_receive(socket_, piece, sizeof piece, &got);
    if (error == platform::error_would_wait) {
        return connection_state::bytes;
    }
    if (error || got == 0) {
        return error || splitter_.is_within() ? connection_state::bad_end : connection_state::ended;
    }
    splitter_.add({piece, got});
    return connection_state::answer;
}

connection_state connection::go_on(bool readable, const request_handler &handler) try {
    connection_state state = begin_step();
    if (state == connection_state::bytes) {
        state = hand_over(handler);
    }
    if (state == connection_state::bytes && readable) {
        state = receive();
        if (state == connection_state::answer) {
            state = hand_over(handler);
        }
    }
    return state;
} catch (const std::exception &) {
    return connection_state::failed;
}

// --- answers ------------------------------------------------------------------------------------

// With the lock held. The rest of an earlier reply goes first.
void connection::send(std::string_view reply) try {
    if (!unsent_.empty()) {
        unsent_ += reply;
        reply = unsent_;
    }
    uint32_t put = 0;
    const uint32_t error =
        platform::socket_send(socket_, reply.data(), static_cast<uint32_t>(reply.size()), &put);
    is_broken_ = error && error != platform::error_would_wait;
    unsent_ = std::string(reply.substr(put));
} catch (const std::exception &) {
    is_broken_ = true;
}

void connection::answer(uint64_t number, std::string_view reply) noexcept {
    {
        const std::lock_guard guard(lock_);
        if (socket_ == platform::invalid_socket || !is_judged_ || number != number_) {
            return;
        }
        is_judged_ = false;
        last_active_ = clock::now();
        send(reply);
        wants_attention_ |= is_broken_ || !unsent_.empty();
        if (in_step_ || !std::exchange(wants_attention_, false)) {
            return;
        }
    }
    attention_->add(shared_from_this());
}

} // namespace quillfence::service
