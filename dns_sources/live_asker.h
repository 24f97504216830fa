// The DNS itself, with many questions on their way at once.
//
// On Linux one thread has thousands of them, those over TCP in a few connections to each server
// (platform/dns_channel.h), with the limits, tries and statuses of platform/dns.h. Windows has no
// such client; there, and for what the channel does not carry, each question has a thread of its
// own while it is on its way, as many as 64.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "asker.h"

namespace quillfence::dns_sources {

class live_asker : public asker {
  public:
    static constexpr unsigned most_at_once = 16'384;

    // server as in live_source; "" for those of the system's settings. No more questions than
    // `most` (1 to most_at_once) are on their way at once; the others wait, and their limit runs.
    explicit live_asker(std::string server = {}, unsigned most = 4096);
    ~live_asker() override; // as stop()

    // Begins. 0, or why no question can be asked: 87 for a server's name that is none, 50 for one
    // on Windows, 8 when there is no memory or no thread.
    uint32_t start();
    // The same without a thread of its own, for one that waits for other things as well. On Linux
    // it sends, waits until the descriptor is readable or the time is over, takes, and so on;
    // elsewhere there is no descriptor (-1), and nothing to do. Not behind stop().
    uint32_t start_here();
    intptr_t descriptor() const;
    int send();  // how many milliseconds the wait may last; -1: however long
    void take(); // what has come: listeners are called

    // Before it has begun everything is missing. Listeners are called on the thread that has the
    // answer.
    void ask(const question &asked, listener then) noexcept override;
    // All that is not answered yet is missing, and so is what is asked from now on. On Linux what
    // is on its way is ended at once; what has a thread of its own is waited for. No listener is
    // told any more when this has returned; it must not be called by one.
    void stop();

  private:
    uint32_t start(bool has_thread);

    struct parts;
    std::unique_ptr<parts> parts_;
};

} // namespace quillfence::dns_sources
