#include "live_asker.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "live_source.h"
#include "platform/error_numbers.h"
#include "pool_asker.h"

namespace quillfence::dns_sources {

// Threads for what needs one each.
static constexpr unsigned most_threads = 64;

struct live_asker::parts {
    parts(std::string with_server, unsigned at_once)
        : source(with_server.empty() ? std::nullopt : std::optional(std::move(with_server))),
          pool(source, std::min(at_once, most_threads)) {}

    live_source source;
    pool_asker pool;
    bool started = false;
};

live_asker::live_asker(std::string server, unsigned most)
    : parts_(std::make_unique<parts>(std::move(server), most)) {}

live_asker::~live_asker() {
    stop();
}

uint32_t live_asker::start() {
    try {
        if (const uint32_t error = parts_->source.usable()) {
            return error;
        }
    } catch (const std::bad_alloc &) {
        return platform::error_not_enough_memory;
    }
    parts_->started = parts_->pool.start();
    return parts_->started ? platform::error_none : platform::error_not_enough_memory;
}

void live_asker::ask(const question &asked, listener then) noexcept {
    if (!parts_->started) {
        then(answer_of_status(status_missing));
        return;
    }
    parts_->pool.ask(asked, std::move(then));
}

void live_asker::stop() {
    parts_->pool.stop();
}

} // namespace quillfence::dns_sources
