// quillfence explain: one transaction, the decision about it, and why each rule did what it did.
#include <cstdio>
#include <memory>

#include "answers.h"
#include "command_line.h"
#include "configured_engine.h"
#include "engine_messages.h"
#include "explain.h"
#include "explain_facts.h"
#include "explain_html.h"
#include "explain_text.h"
#include "file_output.h"
#include "open_file.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/process.h"
#include "quillfence_program.h"
#include "record_writer.h"
#include "text.h"
#include "utc_text.h"
#include "vc_w32.h"

namespace quillfence::programs {

namespace {

struct explain_arguments {
    named_facts facts;
    std::vector<std::string> values; // the replayer's
    std::string input;               // a file with transactions; "-" for standard input
    std::string from;                // its format; "" for what it looks like
    uint64_t number = 0;             // which of them
    configuration_arguments configuration;
    answer_options answers;
    bool all = false;
    std::string rule;
    bool json = false;
    std::string html;
    bool verdict_exit = false;
};

} // namespace

// --- the transaction ----------------------------------------------------------------------------

static std::string all_of(const std::string &path) {
    std::string bytes;
    if (path != "-") {
        if (const uint32_t error = data_files::read_file(path, &bytes)) {
            throw failure(file_error(path, error));
        }
        return bytes;
    }
    char piece[4096];
    while (const size_t got = std::fread(piece, 1, sizeof piece, stdin)) {
        bytes.append(piece, got);
    }
    return bytes;
}

static std::string time_now() {
    platform::time_of_day now;
    return platform::clock_now(&now) ? decision::utc_text(now.seconds, now.microseconds / 1000)
                                     : "";
}

static decision::input_transaction transaction_of(const explain_arguments &arguments) {
    const int ways = !arguments.values.empty() + !arguments.input.empty() + arguments.facts.any();
    if (ways > 1) {
        throw failure("give the transaction in one way: by name (--ip, --sender ...), as the "
                      "replayer's nine values, or by --input");
    }
    if (ways == 0) {
        throw failure("there is no transaction; try \"quillfence explain --help\"");
    }
    if (!arguments.input.empty()) {
        const std::string name = arguments.input == "-" ? "standard input" : arguments.input;
        return transaction_of_text(all_of(arguments.input), name, arguments.from, arguments.number);
    }
    decision::input_transaction read;
    read.transaction = arguments.values.empty() ? transaction_of_facts(arguments.facts)
                                                : transaction_of_values(arguments.values);
    return read;
}

// --- the decision -------------------------------------------------------------------------------

// The engine's lines go into the record; what it says at its start goes to standard error.
static decision::decision_record explained(const explain_arguments &arguments) {
    decision::input_transaction input = transaction_of(arguments);
    configured_engine engine(arguments.configuration);
    answer_stack answers(arguments.answers, input.transaction.ip.value_or(""));
    decision::explain_options options;
    options.user_dir = arguments.configuration.user_dir;
    options.all = arguments.all;
    options.dns = answers.slots();
    options.substitutes = engine.substitutes();
    options.id = input.id.empty() ? "1" : input.id;
    options.time = input.time.empty() ? time_now() : input.time;
    data_files::engine_messages::require_memory(); // else the engine's tables lack something
    vc_set_log_function(nullptr);
    decision::explain_result result = decision::explain(input.transaction, options);
    vc_set_log_function(log_to_standard_error);
    if (result.failed || answers.failed()) {
        throw failure(std::string("the transaction could not be explained: ") +
                      (result.failed ? result.failed : "out of memory"));
    }
    result.record.extra = std::move(input.extra);
    for (const std::string &change : engine.changes()) {
        result.record.notes.push_back({"info", change});
    }
    for (const std::string &remark : answers.remarks()) {
        result.record.notes.push_back({"info", remark});
    }
    return std::move(result.record);
}

// --- the output ---------------------------------------------------------------------------------

static void print(const std::string &text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

static bool wants_colour() {
    return platform::stream_is_terminal(stdout) && !platform::environment_has("NO_COLOR");
}

static void write_page(const std::string &path, const decision::decision_record &record) {
    file_output out(path);
    const std::string page = explain_html(record);
    out.write(page.data(), page.size());
    out.commit();
}

static void show(const explain_arguments &arguments, const decision::decision_record &record) {
    if (!arguments.html.empty()) {
        write_page(arguments.html, record);
    }
    text_options options;
    options.colour = wants_colour();
    if (arguments.json) {
        std::string json;
        write_record(json, record, decision::record_form::whole,
                     platform::stream_is_terminal(stdout) ? decision::json_layout::indented
                                                          : decision::json_layout::one_line);
        print(json + "\n");
    } else if (arguments.rule.empty()) {
        print(explain_text(record, options));
    } else if (const auto text = explain_rule_text(record, arguments.rule, options)) {
        print(*text);
    } else {
        throw failure("there is no rule " + data_files::quoted(arguments.rule));
    }
}

static exit_status status_of(const decision::decision_record &record, bool verdict_exit) {
    if (record.decision.is == decision::verdict::undecided) {
        return exit_status::partly;
    }
    const bool rejected = record.decision.is == decision::verdict::reject;
    return verdict_exit && rejected ? exit_status::no : exit_status::done;
}

static exit_status explain(const explain_arguments &arguments) {
    const decision::decision_record record = explained(arguments);
    show(arguments, record);
    return status_of(record, arguments.verdict_exit);
}

// --- the command line ---------------------------------------------------------------------------

static option_group transaction_options(explain_arguments *to) {
    named_facts &facts = to->facts;
    return {
        "The transaction",
        {{"--ip", &facts.ip, "The client's address, IPv4 or IPv6", {.value = "ADDRESS"}},
         {"--port", &facts.port, "The client's port (25)", {.value = "PORT"}},
         {"--tls", &facts.tls, "Whether the session is under TLS (no)", {.value = "yes|no"}},
         {"--authuser", &facts.authuser, "The authenticated user (none)", {.value = "USER"}},
         {"--mua",
          &facts.mua,
          "Whether a mail user agent submits to its own server (no)",
          {.value = "yes|no"}},
         {"--helo", &facts.helo, "What the client says in HELO or EHLO", {.value = "NAME"}},
         {"--sender", &facts.sender, "The envelope sender; <> for a bounce", {.value = "ADDRESS"}},
         {"--recipient", &facts.recipient, "The envelope recipient", {.value = "ADDRESS"}},
         {"--input",
          &to->input,
          "A file with the transaction, - for standard input: a decision record, a policy request "
          "of Postfix, tab-separated values, a line of a mail log",
          {.value = "FILE"}},
         {"--from",
          &to->from,
          "The input's format, when its look does not tell: json, policy, tsv, qflog, postfix, "
          "exim",
          {.value = "FORMAT"}},
         {"--number",
          &to->number,
          "Which of several transactions, from 1",
          {.value = "N", .check = at_least(1)}}},
    };
}

static option_group dns_options(answer_options *to) {
    return {
        "The DNS",
        {{"--dns",
          &to->dns,
          "live asks the DNS, off asks nobody (live)",
          {.value = "live|off", .check = one_of({"live", "off"})}},
         {"--server",
          &to->server,
          "Another DNS server to ask, as address or address:port",
          {.value = "ADDRESS"}},
         {"--deadline",
          &to->deadline,
          "Seconds for all DNS questions together (10)",
          {.value = "SECONDS", .check = between(0.001, 3600)}},
         {"--guards", &to->guards,
          "Take answers of block lists that list nobody, and refused questions, for failures, as "
          "the live service does"},
         {"--ptr",
          &to->ptr,
          "A PTR name of the client, in place of the DNS's",
          {.value = "NAME", .values_at_once = 1}},
         {"--answer",
          &to->answers,
          "An answer in place of the DNS's; as VALUE also NXDOMAIN, SERVFAIL, REFUSED, TIMEOUT, "
          "NODATA",
          {.value = "NAME TYPE VALUE", .values_at_once = 3}}},
    };
}

static option_group output_options(explain_arguments *to) {
    return {
        "The answer",
        {{"--all", &to->all,
          "Also what the rules behind the decision, and those that are not enabled, would have "
          "done"},
         {"--rule", &to->rule, "Everything about one rule", {.value = "NAME"}},
         {"--json", &to->json, "The decision record as JSON"},
         {"--html",
          &to->html,
          "Also write the answer to this file, as a page to be mailed with a ticket",
          {.value = "FILE"}},
         {"--verdict-exit", &to->verdict_exit, "Exit with 1 for a reject"}},
    };
}

command explain_command() {
    auto to = std::make_shared<explain_arguments>();
    return {
        .name = "explain",
        .description = "Explain one transaction: the decision, and why each rule did what it did",
        .options = {{"VALUES",
                     &to->values,
                     "The replayer's nine values, taken as it takes them: R ip port tls authuser "
                     "mua helo sender recipient",
                     {.required = false}}},
        .groups = {transaction_options(to.get()), configuration_options(&to->configuration),
                   dns_options(&to->answers), output_options(to.get())},
        .footer =
            R"(A fact that is not given is unknown, but for those with a value in parentheses;
a rule that needs an unknown fact is undecided.

Exit status:
  0  explained (with --verdict-exit: and not rejected)
  1  with --verdict-exit: rejected
  2  could not be explained
  3  undecided: a fact or an answer is missing, or something could not be looked
     at)",
        .run = [to] { return explain(*to); },
    };
}

} // namespace quillfence::programs
