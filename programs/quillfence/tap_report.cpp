#include "tap_report.h"

namespace quillfence::programs {

std::string tap_plan(size_t cases) {
    return "TAP version 13\n1.." + std::to_string(cases) + '\n';
}

// A test's name: "#" begins a directive, and a backslash takes that from it.
static std::string tap_name(const std::string &text) {
    std::string name;
    for (const char c : report_text(text)) {
        name += c == '#' || c == '\\' ? "\\" : "";
        name += c;
    }
    return name;
}

// In double quotes, as YAML and JSON have them alike. Nothing in it is a control character.
static std::string yaml_text(const std::string &text) {
    std::string quoted = "\"";
    for (const char c : report_text(text)) {
        quoted += c == '"' || c == '\\' ? "\\" : "";
        quoted += c;
    }
    return quoted + '"';
}

static std::string yaml_member(const char *name, const std::string &text) {
    return text.empty() ? "" : std::string("  ") + name + ": " + yaml_text(text) + '\n';
}

static std::string yaml_list(const char *name, const std::vector<std::string> &texts) {
    std::string list = texts.empty() ? "" : std::string("  ") + name + ":\n";
    for (const std::string &text : texts) {
        list += "    - " + yaml_text(text) + '\n';
    }
    return list;
}

static std::string yaml_differences(const std::vector<decision::mismatch> &wrong) {
    std::string list = wrong.empty() ? "" : "  differences:\n";
    for (const decision::mismatch &one : wrong) {
        list += "    - member: " + yaml_text(one.what) +
                "\n      expected: " + yaml_text(one.expected) +
                "\n      came: " + yaml_text(one.came) + '\n';
    }
    return list;
}

static std::string diagnostics(const case_result &result) {
    const bool failed = result.is == case_outcome::not_as_expected;
    return "  ---\n" + yaml_member("message", in_short(result)) +
           yaml_member("severity", failed ? "fail" : "error") +
           (result.line ? "  line: " + std::to_string(result.line) + '\n' : "") +
           yaml_differences(result.wrong) + yaml_member("decided", result.decided) +
           yaml_member("entry", result.entry) + yaml_member("reason", result.reason) +
           yaml_list("missing", result.missing) + yaml_list("notes", result.notes) +
           yaml_list("errors", result.errors) + "  ...\n";
}

static std::string comment(const std::string &text) {
    return "# " + report_text(text) + '\n';
}

std::string tap_case(size_t number, const case_result &result) {
    const bool good = result.is == case_outcome::as_expected;
    std::string text =
        (good ? "ok " : "not ok ") + std::to_string(number) + " - " + tap_name(result.path) +
        (result.description.empty() ? "" : ": " + tap_name(result.description)) + '\n';
    if (!good) {
        return text + diagnostics(result);
    }
    for (const std::string &file : result.changed) {
        text += comment(result.path + ": not as captured: " + file);
    }
    return text;
}

std::string tap_update(const case_result &result) {
    std::string text;
    for (const decision::mismatch &one : result.wrong) {
        text +=
            comment(result.path + ": " + one.what + ": " + one.expected + " becomes " + one.came);
    }
    return text;
}

std::string tap_end(const case_counts &counts) {
    return comment(in_short(counts));
}

} // namespace quillfence::programs
