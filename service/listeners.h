// The sockets that the service listens on: those that a command line names and those that the
// service manager has opened.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/listening.h"

namespace quillfence::service {

struct listener {
    platform::socket_handle socket;
    std::string path; // of a Unix socket of our own, to be removed at the end; else ""
    bool is_inherited;
};

class listeners {
  public:
    listeners() = default;
    ~listeners();
    listeners(const listeners &) = delete;
    listeners &operator=(const listeners &) = delete;

    // "unix:PATH" or "inet:ADDRESS:PORT", as in inet:127.0.0.1:10040 and inet:[::1]:10040.
    //   mode  the rights of a Unix socket
    // What is wrong, as a sentence that names the place; nothing when it listens.
    std::optional<std::string> open(const std::string &place, uint32_t mode);
    // Those of the service manager, if there are any. Likewise.
    std::optional<std::string> inherit();

    const std::vector<listener> &all() const {
        return all_;
    }
    // Closes them and removes their paths.
    void close();

  private:
    std::optional<std::string> open_local(const std::string &place, uint32_t mode);
    std::optional<std::string> open_tcp(const std::string &place);

    std::vector<listener> all_;
};

} // namespace quillfence::service
