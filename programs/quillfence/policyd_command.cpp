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
          {.value = "PLACE", .check = not_empty(), .values_at_once = 1}},
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

static option_group places_options(policyd_arguments *to) {
    return {
        "The configuration",
        {{"--drive-c",
          &to->configuration.drive_c,
          "The folder that holds the server's quillfence/",
          {.value = "DIR", .check = not_empty()}},
         {"--registry",
          &to->configuration.registry,
          "An export of the server's registry (.reg)",
          {.value = "FILE", .check = not_empty()}},
         {"--user-dir",
          &to->configuration.user_dir,
          "A folder of lists for all recipients; below c: it is looked for in --drive-c",
          {.value = "DIR", .check = not_empty()}}},
    };
}

static option_group question_options(policyd_arguments *to) {
    return {
        "The DNS",
        {{"--dns",
          &to->dns,
          "live (the default), or off: every answer is missing then",
          {.value = "HOW", .check = one_of({"live", "off"})}},
         {"--server",
          &to->server,
          "Another DNS server to ask, as in 192.0.2.53 or [2001:db8::53]:5353",
          {.value = "ADDRESS", .check = not_empty()}},
         {"--rbl-any-answer", &to->any_answer_lists,
          "Any address from a DNS block list is a listing, also one that says it won't answer"},
         {"--refused-is-missing", &to->refused_is_missing,
          "REFUSED says that there is no such name, as for the mail server"}},
    };
}

static option_group judgement_options(policyd_arguments *to) {
    return {
        "The answers",
        {{"--enforce",
          &to->enforce,
          "Refuse what all rules object to, or only what these do; else all mail passes. RULE is "
          "a rule's name, block_lists or block_rbl_lists",
          {.value = "RULE,...", .alone = "all"}},
         {"--warn",
          &to->warn,
          "Pass what these rules object to with a warning in the mail server's log",
          {.value = "RULE,..."}},
         {"--exempt-action",
          &to->exempt_action,
          "DUNNO (the default), or OK: what a whitelist exempts passes all other restrictions",
          {.value = "ACTION", .check = one_of({"DUNNO", "OK"})}},
         {"--deadline",
          &to->deadline,
          "Answer each request within so long, decided or not (8)",
          {.value = "SECONDS", .check = between(0.1, 600)}},
         {"--jobs",
          &to->jobs,
          "Judge so many at once; as many as there are processors",
          {.value = "N", .check = between(1, 256)}}},
    };
}

static option_group watching_options(policyd_arguments *to) {
    return {
        "What it writes",
        {{"--log",
          &to->log,
          "A decision record for each request, one a line; this or --no-log must be given",
          {.value = "FILE", .check = not_empty(), .excludes = {"--no-log"}}},
         {"--no-log", &to->no_log, "No decision records"},
         {"--counters", &to->counters, "The engine's own mail log and counters as well"},
         {"--metrics",
          &to->metrics,
          "Counters for Prometheus, every 15 seconds",
          {.value = "FILE", .check = not_empty()}},
         {"--check", &to->check,
          "Look over what such a run depends on, and say what to do about it; serve nobody"}},
    };
}

command policyd_command() {
    auto to = std::make_shared<policyd_arguments>();
    return {
        .name = "policyd",
        .description = "Answer mail servers by Postfix's policy delegation protocol",
        .groups = {connection_options(to.get()), places_options(to.get()),
                   judgement_options(to.get()), question_options(to.get()),
                   watching_options(to.get())},
        .footer =
            R"(Sockets that systemd has opened need no --listen. SIGHUP reopens the log and
reads the configuration anew; SIGTERM and SIGINT end it when what is being
judged has been answered.

Exit status:
  0  ended as asked; with --check, all is in order
  1  with --check: something is not in order
  2  could not run: what is wrong is named)",
        .run = [to] { return policyd(*to); },
    };
}

} // namespace quillfence::programs
