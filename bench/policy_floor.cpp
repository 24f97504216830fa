// The least that a policy service can cost: it answers "action=DUNNO" to every request at once,
// looks at nothing and keeps nothing. A thread a connection, a read and a send a request.
//
//   policy_floor PATH
//
//   PATH  a Unix socket that it makes; what is there is removed
//
// Serves until it is killed.
#include <cstdio>
#include <string_view>
#include <thread>

#include "bare_calls.h"

namespace bare = quillfence::bare;

static constexpr std::string_view reply = "action=DUNNO\n\n";

static void serve(int connection) {
    char bytes[16384];
    for (size_t held = 0;;) {
        const ptrdiff_t got = bare::receive_some(connection, bytes + held, sizeof bytes - held);
        if (got <= 0) {
            break;
        }
        held += static_cast<size_t>(got);
        if (std::string_view(bytes, held).ends_with("\n\n")) {
            held = 0;
            if (!bare::send_all(connection, reply.data(), reply.size())) {
                break;
            }
        }
    }
    bare::close_file(connection);
}

int main(int argc, char **argv) {
    const int listening = argc == 2 ? bare::listen_at_path(argv[1]) : -1;
    if (listening < 0) {
        std::fputs("usage: policy_floor PATH\n", stderr);
        return 2;
    }
    for (int connection; (connection = bare::accept_from(listening)) >= 0;) {
        std::thread(serve, connection).detach();
    }
    return 1;
}
