// quillfence explain: one transaction, the decision about it, and why each rule did what it did.
#include <cstdio>
#include <memory>

#include "command_line.h"
#include "explain_html.h"
#include "explain_text.h"
#include "explained.h"
#include "file_output.h"
#include "platform/file.h"
#include "platform/process.h"
#include "quillfence_program.h"
#include "record_writer.h"
#include "text.h"

namespace quillfence::programs {

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

// Nobody shall read a decision without knowing that it is made with other files.
static void print_differences(const explained &answer) {
    if (answer.differences.empty()) {
        return;
    }
    std::string text = "Not as it was when the case was captured:\n";
    for (const decision::file_difference &file : answer.differences) {
        text += "  " + data_files::printable(file.path) + ' ' + file.what + '\n';
    }
    print(text + '\n');
}

static void show(const explain_arguments &arguments, const explained &answer) {
    const decision::decision_record &record = answer.record;
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
        print_differences(answer);
        print(explain_text(record, options)); // its notes name them again
    } else if (const auto text = explain_rule_text(record, arguments.rule, options)) {
        print_differences(answer);
        print(*text);
        print_differences(answer);
    } else {
        throw failure("there is no rule " + data_files::quoted(arguments.rule));
    }
}

// Questions that the case has no answer to, of which the decision may know nothing otherwise.
static void name_unanswered(const explained &answer) {
    for (const decision::missing_item &item : answer.unanswered) {
        complain("the case has no answer for " + item.name + ' ' + item.type +
                 "; --dns record-missing asks for it");
    }
}

static exit_status status_of(const explained &answer, bool verdict_exit) {
    const decision::verdict is = answer.record.decision.is;
    if (is == decision::verdict::undecided || !answer.unanswered.empty()) {
        return exit_status::partly;
    }
    return verdict_exit && is == decision::verdict::reject ? exit_status::no : exit_status::done;
}

static exit_status explain(const explain_arguments &arguments) {
    const explained answer = explain_what_was_asked(arguments);
    show(arguments, answer);
    name_unanswered(answer);
    return status_of(answer, arguments.verdict_exit);
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
          {.value = "FILE", .check = not_empty()}},
         {"--from",
          &to->from,
          "The input's format, when its look does not tell: json, policy, tsv, qflog, postfix, "
          "exim",
          {.value = "FORMAT", .check = not_empty(), .needs = {"--input"}}},
         {"--number",
          &to->number,
          "Which of several transactions, from 1",
          {.value = "N", .check = at_least(1), .needs = {"--input"}}},
         {"--case",
          &to->case_file,
          "A captured case or bundle, to be judged again; nobody is asked",
          {.value = "FILE", .check = not_empty()}}},
    };
}

static option_group dns_options(answer_options *to) {
    return {
        "The DNS",
        {{"--dns",
          &to->dns,
          "live asks the DNS, off asks nobody (live). Of a case (recorded): recorded takes its "
          "answers, record-missing also asks for those that it has not, live asks for all",
          {.value = "HOW", .check = one_of({"live", "off", "recorded", "record-missing"})}},
         {"--server",
          &to->server,
          "Another DNS server to ask, as address or address:port",
          {.value = "ADDRESS", .check = not_empty()}},
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
         {"--rule",
          &to->rule,
          "Everything about one rule",
          {.value = "NAME", .check = not_empty(), .excludes = {"--json"}}},
         {"--json", &to->json, "The decision record as JSON"},
         {"--html",
          &to->html,
          "Also write the answer to this file, as a page to be mailed with a ticket",
          {.value = "FILE", .check = not_empty()}},
         {"--verdict-exit", &to->verdict_exit, "Exit with 1 for a reject"}},
    };
}

static option_group capture_options(explain_arguments *to) {
    return {
        "The case",
        {{"--capture",
          &to->capture,
          "Also write the decision to this file with all that it rests on, for --case",
          {.value = "FILE", .check = not_empty()}},
         {"--with-config",
          &to->with_config,
          "Make that a bundle (.tar) with the consulted files in it",
          {.needs = {"--capture"}}},
         {"--cut-maps",
          &to->cut_maps,
          "Of block maps put in only what they answered",
          {.needs = {"--with-config"}}},
         {"--redact",
          &to->redact,
          "Put pseudonyms in place of people's names; the file holds a key for them",
          {.value = "KEYFILE",
           .check = not_empty(),
           .excludes = {"--with-config"},
           .needs = {"--capture"}}},
         {"--redact-domains",
          &to->redact_domains,
          "And in place of domains",
          {.needs = {"--redact"}}}},
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
        .groups = {transaction_options(to.get()), configuration_options(to.get()),
                   dns_options(&to->answers), output_options(to.get()), capture_options(to.get())},
        .footer =
            R"(A fact that is not given is unknown, but for those with a value in parentheses;
a rule that needs an unknown fact is undecided.

Exit status:
  0  explained (with --verdict-exit: and not rejected)
  1  with --verdict-exit: rejected
  2  could not be explained
  3  undecided: a fact or an answer is missing, or something could not be looked
     at; or a case has no answer to a question)",
        .run = [to] { return explain(*to); },
    };
}

} // namespace quillfence::programs
