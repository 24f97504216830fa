// A request of Postfix's policy delegation protocol.
#include <algorithm>

#include "input_formats.h"

namespace quillfence::decision {

namespace {

struct attribute {
    std::string_view name;
    std::string_view value;
};

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
    std::optional<bool> is_submission() const;
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

// Users of this server are judged as its own: whoever authenticated, or came in by the submission
// service.
std::optional<bool> policy_request::is_submission() const {
    const attribute *const context = find("policy_context");
    const attribute *const user = find("sasl_username");
    if ((context && context->value == "submission") || (user && !user->value.empty())) {
        return true;
    }
    return user ? std::optional(false) : std::nullopt;
}

void policy_request::take_facts(transaction *of) const {
    of->ip = known_text("client_address");
    of->port = known_text("client_port");
    if (const attribute *const protocol = find("encryption_protocol")) {
        of->tls = !protocol->value.empty();
    }
    of->authuser = text("sasl_username");
    of->mua = is_submission();
    of->helo = text("helo_name");
    of->sender = text("sender");
    of->recipient = text("recipient");
    if (const attribute *const state = find("protocol_state")) {
        of->stage = state->value;
    }
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
    if (!read.transaction.ip && !read.transaction.sender && !read.transaction.recipient) {
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
