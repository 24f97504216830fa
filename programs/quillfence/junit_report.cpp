#include "junit_report.h"

#include <cstdio>

#include "text.h"

namespace quillfence::programs {

static std::string escaped(const std::string &text) {
    std::string xml;
    for (const char c : report_text(text)) {
        switch (c) {
        case '&':
            xml += "&amp;";
            break;
        case '<':
            xml += "&lt;";
            break;
        case '>':
            xml += "&gt;";
            break;
        case '"':
            xml += "&quot;";
            break;
        default:
            xml += c;
        }
    }
    return xml;
}

static std::string attribute(const char *name, const std::string &text) {
    return std::string(" ") + name + "=\"" + escaped(text) + '"';
}

static std::string seconds_text(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

static std::string counts_of(const std::vector<case_result> &results) {
    const case_counts counts = count_of(results);
    double seconds = 0;
    for (const case_result &result : results) {
        seconds += result.seconds;
    }
    return attribute("tests", std::to_string(counts.all())) +
           attribute("failures", std::to_string(counts.not_as_expected)) +
           attribute("errors", std::to_string(counts.not_run)) +
           attribute("time", seconds_text(seconds));
}

// All that is known, a line each.
static std::vector<std::string> details_of(const case_result &result) {
    std::vector<std::string> lines;
    for (const decision::mismatch &one : result.wrong) {
        lines.push_back(one.what + ": expected " + one.expected + ", came " + one.came);
    }
    const auto add = [&lines](const char *what, const std::string &text) {
        if (!text.empty()) {
            lines.push_back(std::string(what) + ": " + text);
        }
    };
    add("decided", result.decided);
    add("entry", result.entry);
    add("reason", result.reason);
    for (const std::string &question : result.missing) {
        add("missing", question);
    }
    for (const std::string &note : result.notes) {
        add("note", note);
    }
    for (const std::string &error : result.errors) {
        add("error", error);
    }
    return lines;
}

// The element that says what is wrong; "" for a case that is as expected.
static std::string trouble(const case_result &result) {
    if (result.is == case_outcome::as_expected) {
        return "";
    }
    const std::string name = result.is == case_outcome::not_run ? "error" : "failure";
    std::string text = "      <" + name + attribute("message", in_short(result)) +
                       attribute("type", name == "error" ? "not run" : "not as expected") + '>';
    for (const std::string &line : details_of(result)) {
        text += '\n' + escaped(line);
    }
    return text + "</" + name + ">\n";
}

// Without the separator that a folder's name may end in.
static std::string folder_of(const data_files::path_parts &parts) {
    std::string folder = parts.directory;
    if (folder.size() > 1) {
        folder.resize(folder.find_last_not_of("/\\") + 1);
    }
    return folder;
}

static std::string testcase(const case_result &result) {
    const data_files::path_parts parts = data_files::parts_of(result.path);
    std::string text = "    <testcase" + attribute("classname", folder_of(parts)) +
                       attribute("name", parts.name) +
                       attribute("time", seconds_text(result.seconds));
    std::string inside = trouble(result);
    if (!result.description.empty()) {
        inside += "      <system-out>" + escaped(result.description) + "</system-out>\n";
    }
    return text + (inside.empty() ? "/>\n" : ">\n" + inside + "    </testcase>\n");
}

std::string junit_report(const std::vector<case_result> &results, const std::string &time) {
    const std::string head = attribute("name", "quillfence test") + counts_of(results);
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites" + head +
                      ">\n  <testsuite" + head + attribute("timestamp", time) + ">\n";
    for (const case_result &result : results) {
        xml += testcase(result);
    }
    return xml + "  </testsuite>\n</testsuites>\n";
}

} // namespace quillfence::programs
