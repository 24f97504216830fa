#include "findings_output.h"

#include <algorithm>
#include <array>

#include "json_writer.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::verification {

using decision::json_layout;
using decision::json_writer;

namespace {

using level_names = std::array<const char *, 3>; // of error, warning, info

} // namespace

static const char *name_of(severity level, const level_names &names) {
    return names[static_cast<size_t>(level)];
}

static constexpr level_names severity_names = {"error", "warning", "info"};

// A text that may hold any bytes, such as a path.
static std::string shown(const std::string &text) {
    return decision::is_plain_text(text) ? text : printable(text);
}

// --- lines ---

void write_lines(const tree &in, std::ostream &out) {
    for (const finding &found : in.findings) {
        out << printable(in.path(found.file)) << ':';
        if (found.line) {
            out << found.line << ':';
        }
        out << ' ' << name_of(found.level(), severity_names) << ": " << found.text << '\n';
    }
}

// --- JSON ---

// The elements of an array, each on a line of its own.
template <class Element>
static void write_elements(const tree &in, std::ostream &out, Element element) {
    const char *separator = "\n";
    for (const finding &found : in.findings) {
        std::string text;
        json_writer json(text, json_layout::one_line);
        element(json, found);
        json.finish();
        out << separator << text;
        separator = ",\n";
    }
    out << (in.findings.empty() ? "]" : "\n]");
}

static void text_or_null(json_writer &json, const char *text) {
    if (text) {
        json.text(text);
    } else {
        json.null();
    }
}

static void finding_object(json_writer &json, const finding &found) {
    json.begin_object();
    json.name("id");
    json.word(found.id.kind().id);
    json.name("severity");
    json.word(name_of(found.level(), severity_names));
    json.name("path");
    json.text(found.file.empty() ? "." : shown(found.file));
    json.name("line");
    if (found.line) {
        json.number(uint64_t{found.line});
    } else {
        json.null();
    }
    json.name("text");
    json.text(found.text);
    json.name("mend");
    text_or_null(json, found.id.kind().mend);
    json.end_object();
}

void write_json(const tree &in, std::ostream &out) {
    std::string head;
    json_writer json(head, json_layout::one_line);
    json.begin_object();
    json.name("base");
    json.text(shown(in.base));
    const auto count = [&](const char *name, uint32_t number) {
        json.name(name);
        json.number(uint64_t{number});
    };
    count("files", in.files);
    count("errors", count_of(in, severity::error));
    count("warnings", count_of(in, severity::warning));
    count("infos", count_of(in, severity::info));
    json.name("findings");
    json.begin_array();
    json.finish();
    out << head;
    write_elements(in, out, finding_object);
    out << "}\n";
}

// --- SARIF ---

static constexpr level_names sarif_levels = {"error", "warning", "note"};
static constexpr char base_id[] = "BASEDIR";

static bool stays_in_uri(char c) {
    return is_alphanumeric(c) || std::string_view("-._~/").find(c) != std::string_view::npos;
}

// The bytes of a path in a URI; slashes stay.
static std::string percent_encoded(std::string_view path) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : path) {
        if (stays_in_uri(c)) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', digits[byte >> 4], digits[byte & 15]};
        }
    }
    return encoded;
}

// As a URI wants it: slashes alone, and one at the end.
static std::string folder_with_slashes(std::string folder) {
    std::replace(folder.begin(), folder.end(), '\\', '/');
    if (!folder.ends_with('/')) {
        folder += '/';
    }
    return folder;
}

// The URI of a folder that does not depend on where the program runs; "" for a relative one.
static std::string absolute_uri(const std::string &base) {
    const std::string folder = folder_with_slashes(base);
    if (folder.starts_with("//")) { // a share of a server
        return "file:" + percent_encoded(folder);
    }
    if (folder.starts_with('/')) {
        return "file://" + percent_encoded(folder);
    }
    if (folder[1] == ':') {
        return "file:///" + folder.substr(0, 2) + percent_encoded(folder.substr(2));
    }
    return {};
}

// What stands in front of names below a relative base.
static std::string relative_uri(const std::string &base) {
    std::string folder = folder_with_slashes(base);
    while (folder.starts_with("./")) {
        folder.erase(0, 2);
    }
    return percent_encoded(folder);
}

static void text_object(json_writer &json, const char *name, const char *text) {
    json.name(name);
    json.begin_object();
    json.name("text");
    json.text(text);
    json.end_object();
}

static void rule_object(json_writer &json, const finding_kind &kind) {
    json.begin_object();
    json.name("id");
    json.word(kind.id);
    text_object(json, "shortDescription", kind.what);
    if (kind.mend) {
        text_object(json, "help", kind.mend);
    }
    json.name("defaultConfiguration");
    json.begin_object();
    json.name("level");
    json.word(name_of(kind.level, sarif_levels));
    json.end_object();
    json.end_object();
}

static void tool_member(json_writer &json) {
    json.name("tool");
    json.begin_object();
    json.name("driver");
    json.begin_object();
    json.name("name");
    json.word("quillfence-data");
    json.name("version");
    json.word(QUILLFENCE_VERSION);
    json.name("rules");
    json.begin_array();
    for (const finding_kind &kind : finding_kinds) {
        rule_object(json, kind);
    }
    json.end_array();
    json.end_object();
    json.end_object();
}

static void base_member(json_writer &json, const std::string &uri) {
    json.name("originalUriBaseIds");
    json.begin_object();
    json.name(base_id);
    json.begin_object();
    json.name("uri");
    json.text(uri);
    json.end_object();
    json.end_object();
}

namespace {

// How the log tells places.
struct sarif_places {
    std::string base;   // an absolute URI; "" for none
    std::string prefix; // of names without such a base
};

} // namespace

static void place_object(json_writer &json, const finding &found, const sarif_places &places) {
    const std::string uri = places.prefix + percent_encoded(found.file);
    json.begin_object();
    json.name("physicalLocation");
    json.begin_object();
    json.name("artifactLocation");
    json.begin_object();
    json.name("uri");
    json.text(uri.empty() ? "." : uri);
    if (!places.base.empty()) {
        json.name("uriBaseId");
        json.word(base_id);
    }
    json.end_object();
    json.name("region");
    json.begin_object();
    json.name("startLine");
    json.number(uint64_t{std::max(found.line, 1u)});
    json.end_object();
    json.end_object();
    json.end_object();
}

static void result_object(json_writer &json, const finding &found, const sarif_places &places) {
    const finding_kind &kind = found.id.kind();
    json.begin_object();
    json.name("ruleId");
    json.word(kind.id);
    json.name("ruleIndex");
    json.number(static_cast<uint64_t>(&kind - finding_kinds));
    json.name("level");
    json.word(name_of(kind.level, sarif_levels));
    text_object(json, "message", found.text.c_str());
    json.name("locations");
    json.begin_array();
    place_object(json, found, places);
    json.end_array();
    json.end_object();
}

// All up to the results, whose array is begun.
static std::string sarif_head(const sarif_places &places) {
    std::string head;
    json_writer json(head, json_layout::one_line);
    json.begin_object();
    json.name("$schema");
    json.text("https://docs.oasis-open.org/sarif/sarif/v2.1.0/errata01/os/schemas/"
              "sarif-schema-2.1.0.json");
    json.name("version");
    json.word("2.1.0");
    json.name("runs");
    json.begin_array();
    json.begin_object();
    tool_member(json);
    if (!places.base.empty()) {
        base_member(json, places.base);
    }
    json.name("results");
    json.begin_array();
    json.finish();
    return head;
}

void write_sarif(const tree &in, std::ostream &out) {
    const std::string base = absolute_uri(in.base);
    const sarif_places places = {base, base.empty() ? relative_uri(in.base) : ""};
    out << sarif_head(places);
    write_elements(in, out, [&](json_writer &json, const finding &found) {
        result_object(json, found, places);
    });
    out << "}]}\n";
}

// --- workflow commands ---

static constexpr level_names command_names = {"error", "warning", "notice"};

// The bytes that end a part of a command, as they are written in it.
static std::string escaped(const std::string &text, std::string_view ends) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string written;
    for (const char c : text) {
        if (ends.find(c) == std::string_view::npos) {
            written += c;
        } else {
            written += {'%', digits[c >> 4], digits[c & 15]};
        }
    }
    return written;
}

// A path that is no good to show, for an escape sequence in it, is written with \xNN as in lines.
static std::string command_path(const std::string &path) {
    const bool has_controls = std::any_of(path.begin(), path.end(), [](char c) {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\r' && c != '\n') || c == 0x7F;
    });
    return has_controls ? printable(path) : shown(path);
}

void write_commands(const tree &in, std::ostream &out) {
    for (const finding &found : in.findings) {
        out << "::" << name_of(found.level(), command_names)
            << " file=" << escaped(command_path(in.path(found.file)), "%\r\n:,")
            << ",line=" << std::max(found.line, 1u) << ",title=" << found.id.kind().id
            << "::" << escaped(found.text, "%\r\n") << '\n';
    }
}

} // namespace quillfence::verification
