// quillfence policyd: answers mail servers while a transaction goes on.
#include "policyd_command.h"

#include <memory>

#include "command_line.h"
#include "quillfence_program.h"

namespace quillfence::programs {

static option_group connection_options(policyd_arguments *to) {
    return {
        "Mail servers",
        {{"--listen",
          &to->listen,
          "Where to listen: unix:PATH or inet:127.0.0.1:PORT; may be given several times",
          {.value = "PLACE", .values_at_once = 1}},
         {"--socket-mode",
          &to->socket_mode,
          "The rights of Unix sockets (0660)",
          {.value = "OCTAL"}},
         {"--stdio",
          &to->on_standard_streams,
          "One connection on standard input and output",
          {.excludes = {"--listen"}}},
         {"--connections",
          &to->connections,
          "How many at once (1000); one more is closed",
          {.value = "N", .check = between(1, 100'000)}},
         {"--idle",
          &to->idle,
          "Close a connection without a request for so long (600)",
          {.value = "SECONDS", .check = between(1, 86'400)}}},
    };
}

command policyd_command() {
    auto to = std::make_shared<policyd_arguments>();
    return {
        .name = "policyd",
        .description = "Answer mail servers by Postfix's policy delegation protocol",
        .groups = {connection_options(to.get())},
        .footer =
            R"(Sockets that systemd has opened need no --listen. SIGHUP reopens the log and
reads the configuration anew; SIGTERM and SIGINT end it when what is being
judged has been answered.

Exit status:
  0  ended as asked
  2  could not run: what is wrong is named)",
        .run = [to] { return policyd(*to); },
    };
}

} // namespace quillfence::programs
