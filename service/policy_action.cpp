#include "policy_action.h"

#include <algorithm>

#include "near_names.h"
#include "rule_facts.h"

namespace quillfence::service {

using decision::decided_by;
using decision::known_rule;
using decision::verdict;

// --- texts --------------------------------------------------------------------------------------

// A text as one line of printable ASCII: what is no letter there is a question mark, and any white
// space and control bytes are one blank.
static std::string as_line(std::string_view text) {
    std::string line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 0x7E && byte != 0x7F) {
            line += '?';
        } else if (byte > ' ' && byte != 0x7F) {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    while (line.ends_with(' ')) {
        line.pop_back();
    }
    return line;
}

// A client must be told something, and a reply without a text is none.
static std::string notice_of(const decision::decision &made) {
    std::string notice = as_line(made.notice);
    return notice.empty() ? "Refused by the rule " + as_line(made.rule) : notice;
}

static std::string cut(std::string text) {
    text.resize(std::min(text.size(), longest_action));
    while (text.ends_with(' ')) {
        text.pop_back();
    }
    return text;
}

// --- the action ---------------------------------------------------------------------------------

static bool holds(const std::vector<std::string> &names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

policy_action action_of(const decision::decision &made, const enforcement &how) {
    if (made.is == verdict::accept && made.by == decided_by::exempt && how.exempt_passes) {
        return {policy_answer::ok, "OK"};
    }
    if (made.is != verdict::reject) {
        return {};
    }
    if (holds(how.warn, made.rule)) {
        return {policy_answer::warn, cut("WARN " + as_line(made.rule) + ": " + notice_of(made))};
    }
    if (how.all || holds(how.reject, made.rule)) {
        return {policy_answer::reject, cut("550 5.7.1 " + notice_of(made))};
    }
    return {};
}

// --- names of rules -----------------------------------------------------------------------------

static bool can_refuse(const known_rule &rule) {
    return !rule.whitelist;
}

static std::string near_rules(std::string_view given) {
    std::vector<std::string> names;
    for (const known_rule &rule : decision::known_rules()) {
        if (can_refuse(rule)) {
            names.emplace_back(rule.row->name);
        }
    }
    const std::string near = data_files::did_you_mean(data_files::near_names(given, names));
    return near.empty() ? "; docs/rules.md lists them" : near;
}

static std::optional<std::string> problem_of(std::string_view name) {
    if (name.empty()) {
        return "a name is missing: write RULE,RULE";
    }
    const std::span<const known_rule> rules = decision::known_rules();
    const size_t at = decision::rule_number(std::string(name).c_str());
    if (at == rules.size()) {
        return '"' + as_line(name) + "\" is no rule" + near_rules(name);
    }
    if (!can_refuse(rules[at])) {
        return std::string(name) + " is a whitelist's rule: it exempts and refuses nobody";
    }
    return std::nullopt;
}

std::optional<std::string> read_rule_names(std::string_view text, std::vector<std::string> *names) {
    for (;;) {
        const size_t end = std::min(text.find(','), text.size());
        const std::string_view name = text.substr(0, end);
        if (auto why = problem_of(name)) {
            return why;
        }
        if (!holds(*names, name)) {
            names->emplace_back(name);
        }
        if (end == text.size()) {
            return std::nullopt;
        }
        text.remove_prefix(end + 1);
    }
}

std::optional<std::string> contradiction(const enforcement &how) {
    for (const std::string &name : how.reject) {
        if (holds(how.warn, name)) {
            return name + " can't both refuse and warn";
        }
    }
    return std::nullopt;
}

} // namespace quillfence::service
