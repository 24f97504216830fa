#include "policy_stream.h"

#include <future>
#include <memory>
#include <optional>
#include <string>

#include "event.h"
#include "platform/error_numbers.h"
#include "platform/interruption.h"
#include "platform/service_signals.h"

namespace quillfence::service {

using platform::awaited;

static uint32_t write_all(platform::file_handle out, std::string_view reply) {
    while (!reply.empty()) {
        uint32_t put = 0;
        if (const uint32_t error = platform::file_write(
                out, reply.data(), static_cast<uint32_t>(reply.size()), &put)) {
            return error;
        }
        reply.remove_prefix(put);
    }
    return 0;
}

static std::string reply_to(std::string request, const request_handler &judge) {
    const auto reply = std::make_shared<std::promise<std::string>>();
    std::future<std::string> waiting = reply->get_future();
    judge(std::move(request),
          [reply](std::string_view text) { reply->set_value(std::string(text)); });
    return waiting.get();
}

static stream_end refuse(const char *what) {
    tell(event_severity::warning, std::string("The stream was ended: ") + what);
    return stream_end::too_long;
}

// Replies to all requests that are whole. Nothing when the stream goes on.
static std::optional<stream_end> reply_to_all(request_splitter *splitter, platform::file_handle out,
                                              const request_handler &judge, uint32_t *error) {
    for (std::string request;;) {
        switch (splitter->next(&request)) {
        case split::none:
            return std::nullopt;
        case split::request:
            if ((*error = write_all(out, reply_to(std::move(request), judge)))) {
                return stream_end::write_failed;
            }
            if (platform::interruption_noted()) {
                return stream_end::done;
            }
            break;
        case split::line_too_long:
            return refuse("a line of a request is too long");
        case split::text_too_long:
            return refuse("a request is too long");
        case split::too_many_lines:
            return refuse("a request has too many lines");
        }
    }
}

stream_end serve_stream(platform::file_handle in, platform::file_handle out,
                        const request_handler &judge, const std::function<void()> &reopen,
                        uint32_t *error) {
    request_splitter splitter;
    char piece[16 << 10];
    for (;;) {
        const awaited what = platform::await_input(in);
        if (what == awaited::interruption) {
            return stream_end::done;
        }
        if (what == awaited::hang_up) {
            if (platform::hang_up_taken() && reopen) {
                reopen();
            }
            continue;
        }
        uint32_t got = 0;
        if ((*error = platform::file_read(in, piece, sizeof piece, &got))) {
            return stream_end::read_failed;
        }
        if (got == 0) {
            return splitter.is_within() ? stream_end::within : stream_end::done;
        }
        splitter.add({piece, got});
        if (const auto end = reply_to_all(&splitter, out, judge, error)) {
            return *end;
        }
    }
}

} // namespace quillfence::service
