// A request of Postfix's policy delegation protocol. Every request has all attributes; what the
// SMTP session has not come to yet stands there as an empty text, so that the stage tells which of
// them are facts.
#include <algorithm>

#include "input_formats.h"

namespace quillfence::decision {

namespace {

struct attribute {
    std::string_view name;
    std::string_view value;
};

// Postfix names no recipient where there are several. One that stands beside a count of others is
// not judged alone.
enum class recipient_told : uint8_t { never, if_only, always };

// What a request of a stage tells.
struct stage_facts {
    std::string_view stage;
    bool has_sender;
    recipient_told recipient;
    // Whether an empty HELO, user or encryption is one that the client did without. Earlier it may
    // still give them.
    bool is_settled;
};

constexpr stage_facts stages[] = {
    {"CONNECT", false, recipient_told::never, false},
    {"HELO", false, recipient_told::never, false},
    {"EHLO", false, recipient_told::never, false},
    {"VRFY", false, recipient_told::never, false}, // its address is not one that mail is sent to
    {"ETRN", false, recipient_told::never, false},
    {"MAIL", true, recipient_told::never, true},
    {"RCPT", true, recipient_told::always, true},
    {"DATA", true, recipient_told::if_only, true},
    {"END-OF-MESSAGE", true, recipient_told::if_only, true},
};
// Of a stage that is not known, what is not empty.
constexpr stage_facts unknown_stage = {"", true, recipient_told::always, false};

const stage_facts &facts_of_stage(std::string_view stage) {
    const auto *const found =
        std::find_if(std::begin(stages), std::end(stages),
                     [stage](const stage_facts &one) { return one.stage == stage; });
    return found == std::end(stages) ? unknown_stage : *found;
}

class policy_request {
  public:
    input_result read(std::string_view unit);

  private:
    bool split(std::string_view unit);
    bool add(std::string_view line);
    bool refuse(std::string why);
    const attribute *find(std::string_view name) const;
    std::optional<std::string> text(std::string_view name) const;
    std::optional<std::string> known_text(std::string_view name) const;
    std::optional<std::string> text_or_none(std::string_view name, bool empty_is_a_fact) const;
    std::optional<bool> is_submission(const std::optional<std::string> &user) const;
    std::optional<std::string> recipient(recipient_told told) const;
    void take_facts(transaction *of) const;
    void take_others(std::vector<extra_member> *extra) const;

    std::vector<attribute> attributes_;
    uint32_t line_ = 0;
    json_problem problem_;
};

bool policy_request::refuse(std::string why) {
    problem_ = {line_, std::move(why)};
    return false;
}

const attribute *policy_request::find(std::string_view name) const {
    const auto found = std::find_if(attributes_.begin(), attributes_.end(),
                                    [name](const attribute &one) { return one.name == name; });
    return found == attributes_.end() ? nullptr : &*found;
}

bool policy_request::add(std::string_view line) {
    const size_t equals = line.find('=');
    if (line.size() > longest_policy_line) {
        return refuse("the line is too long");
    }
    if (equals == 0 || equals == std::string_view::npos) {
        return refuse("the line is not of the form name=value");
    }
    const attribute one = {line.substr(0, equals), line.substr(equals + 1)};
    if (line.find('\0') != std::string_view::npos) {
        return refuse(std::string(one.name) + ": holds a NUL");
    }
    if (find(one.name)) {
        return refuse(std::string(one.name) + ": stands there twice");
    }
    attributes_.push_back(one);
    return true;
}

bool policy_request::split(std::string_view unit) {
    if (unit.size() > longest_policy_request) {
        line_ = 1;
        return refuse("the request is too long");
    }
    while (!unit.empty()) {
        const size_t end = std::min(unit.find('\n'), unit.size());
        std::string_view line = unit.substr(0, end);
        unit.remove_prefix(std::min(end + 1, unit.size()));
        line.remove_suffix(line.ends_with('\r'));
        if (++line_ > most_policy_lines) {
            return refuse("the request has too many lines");
        }
        if (line.empty()) {
            break;
        }
        if (!add(line)) {
            return false;
        }
    }
    return true;
}

std::optional<std::string> policy_request::text(std::string_view name) const {
    const attribute *const one = find(name);
    return one ? std::optional(std::string(one->value)) : std::nullopt;
}

// Postfix says "unknown" of an address or port that it does not know, or nothing at all.
std::optional<std::string> policy_request::known_text(std::string_view name) const {
    const attribute *const one = find(name);
    return one && !one->value.empty() && one->value != "unknown"
               ? std::optional(std::string(one->value))
               : std::nullopt;
}

std::optional<std::string> policy_request::text_or_none(std::string_view name,
                                                        bool empty_is_a_fact) const {
    std::optional<std::string> value = text(name);
    return value && value->empty() && !empty_is_a_fact ? std::nullopt : value;
}

// Users of this server are judged as its own: whoever authenticated, or came in by the submission
// service.
std::optional<bool> policy_request::is_submission(const std::optional<std::string> &user) const {
    const attribute *const context = find("policy_context");
    if ((context && context->value == "submission") || (user && !user->empty())) {
        return true;
    }
    return user ? std::optional(false) : std::nullopt;
}

// No mail goes to an empty one.
std::optional<std::string> policy_request::recipient(recipient_told told) const {
    const std::string count = text("recipient_count").value_or("");
    const bool is_alone = told == recipient_told::always || count.empty() || count == "1";
    return told != recipient_told::never && is_alone ? text_or_none("recipient", false)
                                                     : std::nullopt;
}

void policy_request::take_facts(transaction *of) const {
    of->stage = text("protocol_state").value_or(of->stage);
    const stage_facts &facts = facts_of_stage(of->stage);
    of->ip = known_text("client_address");
    of->port = known_text("client_port");
    if (const auto protocol = text_or_none("encryption_protocol", facts.is_settled)) {
        of->tls = !protocol->empty();
    }
    of->authuser = text_or_none("sasl_username", facts.is_settled);
    of->mua = is_submission(of->authuser);
    of->helo = text_or_none("helo_name", facts.is_settled);
    if (facts.has_sender) {
        of->sender = text_or_none("sender", facts.is_settled);
    }
    of->recipient = recipient(facts.recipient);
}

void policy_request::take_others(std::vector<extra_member> *extra) const {
    static constexpr std::string_view ours[] = {
        "client_address", "client_port", "encryption_protocol", "sasl_username",
        "helo_name",      "sender",      "recipient",           "instance",
        "protocol_state", "request"};
    for (const attribute &one : attributes_) {
        const bool is_ours =
            std::find(std::begin(ours), std::end(ours), one.name) != std::end(ours);
        if (!is_ours && !one.value.empty()) {
            add_extra(extra, one.name, one.value);
        }
    }
}

input_result policy_request::read(std::string_view unit) {
    if (!split(unit)) {
        return {std::nullopt, problem_};
    }
    input_transaction read;
    take_facts(&read.transaction);
    if (!read.transaction.ip && !find("sender") && !find("recipient")) {
        return refused("the request names neither client_address nor sender nor recipient");
    }
    read.id = text("instance").value_or("");
    take_others(&read.extra);
    return {std::move(read), {}};
}

} // namespace

input_result read_policy_input(std::string_view unit) {
    return policy_request().read(unit);
}

} // namespace quillfence::decision
