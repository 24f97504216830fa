// The DNS itself, by the seam's client. Each question has a client of its own while it is asked;
// between questions they wait for the next one, so that there are as many as threads ask at once,
// and their connections stay (platform::dns_client).
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "source.h"

namespace quillfence::dns_sources {

struct client_closer {
    void operator()(platform::dns_client *client) const {
        platform::dns_client_close(client);
    }
};
using client_ptr = std::unique_ptr<platform::dns_client, client_closer>;

class live_source : public source {
  public:
    // The servers of the system's settings.
    live_source() = default;
    // One other server, in the form of QUILLFENCE_DNS_SERVER; Linux only; nothing: the servers of
    // the system's settings. Whether that can be done tells usable().
    explicit live_source(std::optional<std::string> server);

    // 0, or why no question can be asked: 87 for a server's name that is none, 50 for one on
    // Windows. Every question then has this status.
    uint32_t usable();

    answer ask(const question &asked) override;

  private:
    uint32_t take_client(client_ptr *taken);
    void give_back(client_ptr client);

    std::optional<std::string> server_;
    std::mutex lock_; // of what follows
    std::vector<client_ptr> idle_;
};

} // namespace quillfence::dns_sources
