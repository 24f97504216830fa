// A client of the policy server: what he has sent and not been answered, and what he has not taken
// of the answers. One request at a time is judged, so that replies go out in order and a client
// that sends many at once waits for himself alone.
//
//     bytes --receive--> request_splitter --hand over--> handler --answer--> socket
//
// One thread at a time, the server's, calls what stands below "the server's thread". An answer may
// come on any thread, at any time, also when the connection or the server has gone. It is sent by
// the thread it comes on; the server's is woken only when there is more to do.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/listening.h"
#include "platform/watcher.h"
#include "request_splitter.h"

namespace quillfence::service {

// Is given the text of one request as it came, without the empty line that ends it. `answer` is
// called once, on any thread, perhaps before this returns, with the whole reply
// ("action=DUNNO\n\n").
using request_handler =
    std::function<void(std::string request, std::function<void(std::string_view reply)> answer)>;

class connection;

// Where connections wait that want the server's thread. Outlives the server as long as an answer is
// on its way.
class attention_list {
  public:
    explicit attention_list(platform::watcher *wakened) : wakened_(wakened) {}
    void add(std::shared_ptr<connection> one) noexcept;
    std::vector<std::shared_ptr<connection>> take();
    // Nobody is woken any more.
    void leave();

  private:
    std::mutex lock_; // of what follows
    platform::watcher *wakened_;
    std::vector<std::shared_ptr<connection>> waiting_;
};

// What a connection waits for.
enum class connection_state : uint8_t {
    bytes,    // of the client
    answer,   // of the handler, to which a request was just handed over
    busy,     // the same, to which one was handed over earlier
    room,     // the client does not take the replies
    ended,    // the client has ended, as he may
    bad_end,  // he has gone within a request, or without his reply
    too_long, // a request was beyond the bounds: why() tells
    failed,   // there was no memory, or the handler threw
};

class connection : public std::enable_shared_from_this<connection> {
  public:
    using clock = std::chrono::steady_clock;
    connection(platform::socket_handle socket, std::shared_ptr<attention_list> attention);
    ~connection();
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    // --- the server's thread ---

    // Does what there is to do: sends, hands over requests, and reads once if there are bytes.
    connection_state go_on(bool readable, const request_handler &handler);
    // While an answer is waited for: the server's thread wants to hear of it. False when the answer
    // has come by now.
    bool ask_for_attention();
    // Nothing is sent or read any more.
    void close();
    // When the last request was handed over or answered, or the connection began.
    clock::time_point last_active() const;
    // Whether the client has not taken all of the last reply.
    bool has_unsent() const;
    const char *why() const;
    platform::socket_handle socket() const {
        return socket_;
    }

    bool is_watched = false; // the server's own
    bool for_room = false;   // likewise: what it is watched for
    bool was_read = false;   // since the server last said that it was not

  private:
    connection_state begin_step();
    connection_state after_request();
    connection_state hand_over(const request_handler &handler);
    connection_state next_state() const;
    connection_state receive();
    void answer(uint64_t number, std::string_view reply) noexcept;
    void send(std::string_view reply);

    const std::shared_ptr<attention_list> attention_;
    request_splitter splitter_; // the server's thread alone, as is what follows
    split split_ = split::none;

    mutable std::mutex lock_; // of what follows
    platform::socket_handle socket_;
    clock::time_point last_active_ = clock::now();
    std::string unsent_;
    uint64_t number_ = 0; // of the request that is judged, or was last
    bool is_judged_ = false;
    bool is_broken_ = false;       // the client has gone
    bool in_step_ = true;          // the server's thread will look at it anyway
    bool wants_attention_ = false; // it will not, but wants to
};

} // namespace quillfence::service
