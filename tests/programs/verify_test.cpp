#include "tiny_rex.h"
#include "verify_command.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <utility>

#include "../matching/range_bytes.h"
#include "call_watch.h"
#include "drive_c.h"
#include "file_digest.h"
#include "findings_output.h"
#include "known_sender_forgery_funcs.h"
#include "output.h"
#include "platform/error_numbers.h"
#include "quillfence-file.h"

namespace quillfence::data_tool {
namespace {

using namespace testing;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

constexpr char base[] = "c:/quillfence";

std::string map_with_entry(unsigned a, uint32_t entry, size_t size) {
    std::string bytes(size, '\0');
    return bytes.replace(4 * a, 4, little_endian(entry));
}

std::string block_of(const std::vector<int32_t> &nodes) {
    std::string bytes = little_endian(static_cast<uint32_t>(nodes.size() / 4));
    for (const int32_t field : nodes) {
        bytes += little_endian(static_cast<uint32_t>(field));
    }
    return bytes;
}
std::string block_of(const char *pattern) {
    const trex_ptr expression(trex_compile_ex(pattern, trex_fold_case));
    std::vector<int32_t> fields;
    for (int32_t i = 0; i < expression->nsize; ++i) {
        const TRexNode &node = expression->nodes[i];
        fields.insert(fields.end(), {node.type, node.left, node.right, node.next});
    }
    return block_of(fields);
}

const std::string pattern_magic("\xB9\xEB\0\0", 4);
// The root, a group over one character.
const std::vector<int32_t> sound_nodes = {258, 1, 0, -1, 'a', -1, -1, -1};

struct planted {
    const char *name;
    std::vector<std::pair<std::string, std::string>> files; // below the base directory
    lines want;                                             // below the base directory, too
};

// A tree in which nothing is wrong, until a case plants something.
class verify_test : public drive_test {
  protected:
    verify_test() {
        put_sound_files();
    }
    void put_sound_files() const {
        put("control/enabled", "1\n");
        put("bms/lists_to_update", "a.bms\n");
        put("bms/a.bms", std::string(1024, '\0'));
    }
    void put(const std::string &file, const std::string &bytes) const {
        drive.write(std::string(base) + "/" + file, bytes);
    }

    outcome verified(const std::string &format = "text",
                     const std::string &error_on = "warning") const {
        CaptureStderr();
        const outcome result = outcome_of(verify, verify_arguments{base, format, error_on});
        GetCapturedStderr();
        return result;
    }
    // The findings, each below the base directory.
    lines findings() const {
        const std::string prefix = std::string(base) + "/";
        lines found;
        std::istringstream out(verified().out);
        for (std::string line; std::getline(out, line);) {
            EXPECT_TRUE(line.starts_with(prefix)) << line;
            found.push_back(line.substr(prefix.size()));
        }
        return found;
    }

    // Path, time of the last change and bytes of everything in the tree.
    using snapshot = std::map<std::string, std::pair<std::filesystem::file_time_type, std::string>>;
    snapshot everything() const {
        snapshot all;
        for (const auto &entry :
             std::filesystem::recursive_directory_iterator(drive.native(base))) {
            std::string bytes;
            if (entry.is_regular_file()) {
                std::ifstream stream(entry.path(), std::ios::binary);
                bytes.assign(std::istreambuf_iterator<char>(stream), {});
            }
            all[entry.path().generic_string()] = {entry.last_write_time(), bytes};
        }
        return all;
    }

    void check(const std::vector<planted> &cases) {
        for (const planted &one : cases) {
            SCOPED_TRACE(one.name);
            for (const auto &[file, bytes] : one.files) {
                put(file, bytes);
            }
            const snapshot before = everything();
            EXPECT_EQ(findings(), one.want);
            EXPECT_TRUE(before == everything()) << "the tree was changed";
            for (const auto &[file, bytes] : one.files) {
                drive.remove(std::string(base) + "/" + file);
            }
        }
    }
};

TEST_F(verify_test, a_sound_tree_has_no_findings) {
    put("control/rules.enabled", "valid_ptr\nrequire_helo\n");
    put("control/bms.enabled", "a.bms\n");
    put("rbl.enabled", "rbl.example.org\n");
    put("control/valid_domain_ips", "# own\r\n\r\n example.org : 192.0.2.0/24, 198.51.100.7\r\n");
    put("from_whitelist",
        "# friends\r\nuser@example.com\r\n\tadded by hand\r\n*@friends.example\r\n");
    put("from_blacklist", "bob@example.org\nbounce message\n[a-c]*@example.org\n");
    put("exempt_ips", "192.0.2.25\n2001:db8::1\n");
    put("blocked_ips.range", header(2, 1) + record({10, 1, 2, 0}, {10, 1, 2, 255}, "lab"));
    put("dynaregex/dyna.cregexes", pattern_magic + block_of(sound_nodes));
    put("log/.counterv2.dat.11", "\x02" + std::string(996, '\0'));
    put("log/.counterv2.dat.hourly", "\x02" + std::string(772, '\0'));
    put("log/qflog", "anything\n");
    EXPECT_EQ(findings(), lines{});
    EXPECT_EQ(verified().status, exit_status::done);
}

TEST_F(verify_test, exit_status_and_summary) {
    put("exempt_users", "somebody\n");
    put("blocked_ips", "nobody\n");
    put("notes.txt", "");
    CaptureStderr();
    const outcome result = outcome_of(verify, verify_arguments{base});
    EXPECT_EQ(GetCapturedStderr(), "quillfence-data: 5 files checked: 1 error, 1 warning\n");
    EXPECT_EQ(result.status, exit_status::no);
    drive.remove("c:/quillfence/blocked_ips");
    drive.remove("c:/quillfence/exempt_users");
    EXPECT_EQ(findings(), lines{"notes.txt: info: the engine reads no file of this name"});
    EXPECT_EQ(verified().status, exit_status::done) << "an info alone is no finding";
}

TEST_F(verify_test, every_kind_of_file_is_counted_once) {
    const auto said = [this] {
        CaptureStderr();
        outcome_of(verify, verify_arguments{base});
        return GetCapturedStderr();
    };
    const auto counted = [](unsigned files) {
        return "quillfence-data: " + std::to_string(files) +
               " files checked: 0 errors, 0 warnings\n";
    };
    EXPECT_EQ(said(), counted(3));
    put("exempt_ips.range", header(2, 0));
    put("blocked_ips.range", "");
    EXPECT_EQ(said(), counted(5));
    put("dynaregex/dyna.cregexes", pattern_magic + block_of(sound_nodes));
    EXPECT_EQ(said(), counted(6));
    put("log/.counterv2.dat.hourly", "\x02" + std::string(772, '\0'));
    EXPECT_EQ(said(), counted(7));
    put("from_whitelist", "a@example.org\n");
    EXPECT_EQ(said(), counted(8));
}

TEST_F(verify_test, a_base_that_is_no_folder) {
    const outcome result = outcome_of(verify, verify_arguments{"c:/quillfence/nowhere"});
    EXPECT_EQ(result.status, exit_status::failed);
    EXPECT_EQ(result.failure, "c:/quillfence/nowhere: is no folder; give the one that holds "
                              "\"control\" and \"bms\"");
    EXPECT_EQ(result.out, "");
}

TEST_F(verify_test, a_native_path) {
    const outcome result = outcome_of(verify, verify_arguments{drive.native(base)});
    EXPECT_EQ(result.status, exit_status::done);
    EXPECT_EQ(result.out, "");
}

// --- ids ---

// The ids of what is found, sorted.
std::set<std::string> ids_in(const std::string &folder) {
    std::set<std::string> ids;
    for (const finding &found : verify_tree(folder).findings) {
        ids.insert(found.id.kind().id);
    }
    return ids;
}

TEST(finding_kinds, ids_are_words_with_dashes) {
    std::set<std::string> ids;
    for (const finding_kind &kind : finding_kinds) {
        const std::string id = kind.id;
        EXPECT_TRUE(ids.insert(id).second) << id << " stands there twice";
        EXPECT_EQ(id.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-"), std::string::npos)
            << id;
        EXPECT_EQ(&finding_kinds[row_of_finding(id)], &kind);
        EXPECT_NE(std::string(kind.what), "") << id;
        EXPECT_EQ(kind.mend == nullptr, kind.level == severity::info)
            << id << ": whoever has an error or a warning is told what to do";
    }
    EXPECT_EQ(row_of_finding("no-such-kind"), std::size(finding_kinds));
}

TEST(finding_kinds, are_those_of_the_page) {
    static constexpr const char *levels[] = {"error", "warning", "info"};
    std::ifstream page(QUILLFENCE_DOCS "/findings.md", std::ios::binary);
    lines rows;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("| `")) {
            rows.push_back(line);
        }
    }
    lines want;
    for (const finding_kind &kind : finding_kinds) {
        want.push_back(std::string("| `") + kind.id + "` | " +
                       levels[static_cast<size_t>(kind.level)] + " | " + kind.what + " | " +
                       (kind.mend ? std::string(kind.mend) + " |" : "|"));
    }
    EXPECT_EQ(rows, want);
}

TEST_F(verify_test, every_kind_is_found) {
    const std::string range = record({10, 1, 2, 0}, {10, 1, 2, 255});
    std::string endless = record({10, 9, 0, 0}, {10, 9, 0, 1});
    std::fill(endless.begin() + 8, endless.end(), 'x');
    std::vector<int32_t> bad_nodes = sound_nodes;
    bad_nodes[1] = 7;
    const std::string rules = "control/rules.enabled";
    const std::string domains = "control/valid_domain_ips";
    const std::string patterns = "dynaregex/dyna.cregexes";
    const std::string lines_file = patterns + ".lines";
    const std::string exempt = "exempt_ips.range";
    const struct {
        const char *id;
        std::vector<std::pair<std::string, std::string>> files;
    } cases[] = {
        {"unreadable-folder", {{"dynaregex", "x"}}},
        {"text-in-utf-16", {{"exempt_users", "\xFF\xFE"}}},
        {"byte-order-mark", {{"exempt_users", "\xEF\xBB\xBF*@example.org\n"}}},
        {"byte-order-mark", {{rules, "\xEF\xBB\xBFvalid_ptr\n"}}},
        {"folder-in-place-of-file", {{"from_whitelist/x", ""}}},
        {"edit-leftover", {{"from_whitelist.tmp", ""}}},
        {"edit-leftover", {{"from_whitelist", ""}, {"from_whitelist.bak", ""}}},
        {"edit-leftover-is-all", {{"from_whitelist.bak", ""}}},
        {"file-in-wrong-folder", {{"rules.enabled", ""}}},
        {"name-taken-in-other-letters", {{"From_Whitelist", ""}}},
        {"unknown-file", {{"notes.txt", ""}}},
        {"engine-off", {{"control/enabled", ""}}}, // and removed
        {"switch-not-0-or-1", {{"control/enabled", "yes"}}},
        {"name-ends-in-cr", {{rules, "valid_ptr\r\n"}}},
        {"name-holds-nul", {{rules, std::string("v\0a\n", 4)}}},
        {"name-is-comment", {{rules, "# x\n"}}},
        {"name-has-white-space", {{rules, " valid_ptr\n"}}},
        {"name-repeated", {{rules, "valid_ptr\nvalid_ptr\n"}}},
        {"names-empty", {{rules, ""}}},
        {"rule-unknown", {{rules, "x\n"}}},
        {"rule-in-other-letters", {{rules, "Valid_PTR\n"}}},
        {"map-name-odd", {{"control/bms.enabled", "a b\n"}}},
        {"map-missing", {{"control/bms.enabled", "b.bms\n"}}},
        {"zone-no-domain", {{"rbl.enabled", "rbl.example.org.\n"}}},
        {"zone-odd", {{"rbl.enabled", "rbl\n"}}},
        {"maps-unlisted", {{"bms/lists_to_update", ""}}},
        {"maps-listed-elsewhere", {{"bms/control/lists_to_update", "a.bms\n"}}},
        {"declaration-malformed", {{domains, "example.org 192.0.2.1\n"}}},
        {"declaration-no-domain", {{domains, "localhost : 192.0.2.1\n"}}},
        {"declaration-no-networks", {{domains, "example.org :\n"}}},
        {"declaration-repeated", {{domains, "a.example : 192.0.2.1\na.example : 192.0.2.2\n"}}},
        {"network-no-address", {{domains, "example.org : 192.0.2\n"}}},
        {"network-no-prefix", {{domains, "example.org : 192.0.2.1/33\n"}}},
        {"network-bits-behind-prefix", {{domains, "example.org : 192.0.2.1/24\n"}}},
        {"network-prefix-0", {{domains, "example.org : 0.0.0.0/0\n"}}},
        {"entry-too-long", {{"exempt_users", std::string(1023, 'a')}}},
        {"entry-holds-nul", {{"exempt_users", std::string("a@b\0c\n", 6)}}},
        {"entry-ends-in-white-space", {{"exempt_users", "a@example.org \n"}}},
        {"entry-ends-in-white-space", {{"exempt_ips", "192.0.2.1 \n"}}},
        {"entry-does-not-compile", {{"exempt_users", "(*@example.org\n"}}},
        {"entry-no-client-address", {{"exempt_ips", "192.0.2.0/24\n"}}},
        {"entry-matches-no-address", {{"from_blacklist", "@example.org\n"}}},
        {"entry-matches-no-address", {{"from_blacklist", "example.org\n"}}},
        {"entry-matches-everybody", {{"from_whitelist", "*\n"}}},
        {"entry-plus-repeats", {{"from_blacklist", "a+b*@example.org\n"}}},
        {"entry-says-otherwise", {{"from_blacklist", "a$b*@example.org\n"}}},
        {"entry-repeated", {{"exempt_users", "a@example.org\na@example.org\n"}}},
        {"entry-covered", {{"exempt_users", "*@example.org\na@example.org\n"}}},
        {"entry-in-opposite-list", {{"exempt_ips", "192.0.2.1"}, {"blocked_ips", "192.0.2.1"}}},
        {"entry-covered-by-opposite-list",
         {{"from_whitelist", "*@a.example"}, {"from_blacklist", "b@a.example"}}},
        {"entry-in-range-file", {{exempt, header(2, 1) + range}, {"exempt_ips", "10.1.2.3"}}},
        {"entry-in-opposite-range-file",
         {{exempt, header(2, 1) + range}, {"blocked_ips", "10.1.2.3"}}},
        {"comment-matches", {{"exempt_users", "a@example.org\n\tb@example.org\n"}}},
        {"range-file-corrupt", {{exempt, "x"}}},
        {"range-file-legacy", {{exempt, header(1, 0)}}},
        {"range-file-longer", {{exempt, header(2, 0) + "x"}}},
        {"range-invalid", {{exempt, header(2, 1) + record({10, 1, 0, 0}, {10, 2, 0, 0})}}},
        {"range-comment-endless", {{exempt, header(2, 1) + endless}}},
        {"range-covered", {{exempt, header(2, 2) + range + range}}},
        {"range-covered-by-opposite",
         {{exempt, header(2, 1) + range}, {"blocked_ips.range", header(2, 1) + range}}},
        {"patterns-no-such-file", {{patterns, "x"}}},
        {"pattern-damaged", {{patterns, pattern_magic + little_endian(0)}}},
        {"pattern-can-fail", {{patterns, pattern_magic + block_of(bad_nodes)}}},
        {"pattern-says-otherwise", {{patterns, pattern_magic + block_of("foo|bar")}}},
        {"patterns-not-asked", {{"dynaregex/mine.cregexes", pattern_magic}}},
        {"pattern-lines-stale",
         {{patterns, pattern_magic},
          {lines_file, "# quillfence pattern lines 1\n# sha256 " + std::string(64, '0') + "\n"}}},
        {"pattern-lines-wrong", {{patterns, pattern_magic}, {lines_file, "x\n"}}},
        {"map-corrupt", {{"bms/a.bms", "x"}}},
        {"map-unlisted", {{"bms/c.bms", std::string(1024, '\0')}}},
        {"counter-size", {{"log/.counterv2.dat.hourly", ""}}},
        {"counter-header", {{"log/.counterv2.dat.hourly", std::string(773, '\x01')}}},
    };
    std::set<std::string> found;
    for (const auto &one : cases) {
        SCOPED_TRACE(one.id);
        for (const auto &[file, bytes] : one.files) {
            put(file, bytes);
        }
        if (one.id == std::string("engine-off")) {
            drive.remove("c:/quillfence/control/enabled");
        }
        const std::set<std::string> ids = ids_in(base);
        EXPECT_TRUE(ids.contains(one.id)) << ::testing::PrintToString(ids);
        found.insert(ids.begin(), ids.end());
        for (const auto &[file, bytes] : one.files) {
            drive.remove(std::string(base) + "/" + file.substr(0, file.find("/x")));
        }
        put_sound_files();
    }
    call_watch failing;
    failing.fail("file_read", 1, platform::error_io_device);
    EXPECT_TRUE(ids_in(base).contains("unreadable-file"));
    found.insert("unreadable-file");
    found.insert("name-in-other-letters"); // the system's own test, as Windows has no such files
    for (const finding_kind &kind : finding_kinds) {
        EXPECT_TRUE(found.contains(kind.id)) << kind.id << " is never told";
    }
}

// --- formats ---

// A tree of findings, whose files have names that only some systems have.
tree tree_with(const std::string &where, std::vector<finding> findings) {
    tree in{.base = where, .findings = std::move(findings)};
    in.files = 7;
    return in;
}

std::string written(void (*write)(const tree &, std::ostream &), const tree &in) {
    std::ostringstream out;
    write(in, out);
    return out.str();
}

TEST_F(verify_test, json) {
    put("exempt_users", "a\"b\xE9\n");
    put("notes.txt", "");
    EXPECT_EQ(verified("json").out,
              "{\"base\":\"c:/quillfence\",\"files\":4,\"errors\":0,\"warnings\":1,\"infos\":1,"
              "\"findings\":[\n"
              "{\"id\":\"entry-matches-no-address\",\"severity\":\"warning\","
              "\"path\":\"exempt_users\",\"line\":1,"
              "\"text\":\"\\\"a\\\"b\\\\xe9\\\" holds neither @ nor *, so it matches no mail "
              "address; for a whole domain write *@domain\","
              "\"mend\":\"Write user@domain, one a line and without brackets, or *@domain for a "
              "whole domain.\"},\n"
              "{\"id\":\"unknown-file\",\"severity\":\"info\",\"path\":\"notes.txt\","
              "\"line\":null,\"text\":\"the engine reads no file of this name\",\"mend\":null}\n"
              "]}\n");
}

TEST_F(verify_test, json_without_findings) {
    EXPECT_EQ(verified("json").out, "{\"base\":\"c:/quillfence\",\"files\":3,\"errors\":0,"
                                    "\"warnings\":0,\"infos\":0,\"findings\":[]}\n");
}

TEST(findings_output, json_of_odd_names) {
    const tree in = tree_with("b\xC3\xA4se\xFF", {{"\xC3\xBC\n\"\x1B", 0, "unknown-file", "x"},
                                                  {"y\xE9", 3, "unknown-file", "x"},
                                                  {"", 0, "unreadable-folder", "x"}});
    const std::string text = written(write_json, in);
    EXPECT_NE(text.find("{\"base\":\"b\\\\xc3\\\\xa4se\\\\xff\",\"files\":7,"), std::string::npos)
        << text;
    EXPECT_NE(text.find("\"path\":\"\xC3\xBC\\n\\\"\\u001b\",\"line\":null,"), std::string::npos)
        << "well-formed UTF-8 stands as it is: " << text;
    EXPECT_NE(text.find("\"path\":\"y\\\\xe9\",\"line\":3,"), std::string::npos) << text;
    EXPECT_NE(text.find("\"path\":\".\","), std::string::npos) << "the base itself: " << text;
}

// The results of a SARIF log, each on a line of its own.
lines sarif_results(const tree &in) {
    lines results;
    std::istringstream text(written(write_sarif, in));
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("{\"ruleId\"")) {
            results.push_back(line.substr(0, line.find_last_of('}') + 1));
        }
    }
    return results;
}

TEST(findings_output, sarif) {
    const tree in = tree_with("c:\\quill fence", {{"a,b%:\xFF", 0, "unknown-file", "x \"y\""},
                                                  {"from_whitelist", 7, "entry-repeated", "z"}});
    const std::string text = written(write_sarif, in);
    EXPECT_TRUE(text.starts_with("{\"$schema\":\"https://docs.oasis-open.org/sarif/sarif/v2.1.0/"
                                 "errata01/os/schemas/sarif-schema-2.1.0.json\","
                                 "\"version\":\"2.1.0\",\"runs\":[{\"tool\":{\"driver\":{"
                                 "\"name\":\"quillfence-data\",\"version\":\""))
        << text;
    EXPECT_NE(text.find("\"originalUriBaseIds\":{\"BASEDIR\":{\"uri\":"
                        "\"file:///c:/quill%20fence/\"}},\"results\":["),
              std::string::npos)
        << text;
    const auto index = [](const char *id) { return std::to_string(row_of_finding(id)); };
    EXPECT_EQ(sarif_results(in),
              (lines{"{\"ruleId\":\"unknown-file\",\"ruleIndex\":" + index("unknown-file") +
                         ",\"level\":\"note\",\"message\":{\"text\":\"x \\\"y\\\"\"},"
                         "\"locations\":[{\"physicalLocation\":{\"artifactLocation\":{\"uri\":"
                         "\"a%2Cb%25%3A%FF\",\"uriBaseId\":\"BASEDIR\"},"
                         "\"region\":{\"startLine\":1}}}]}",
                     "{\"ruleId\":\"entry-repeated\",\"ruleIndex\":" + index("entry-repeated") +
                         ",\"level\":\"warning\",\"message\":{\"text\":\"z\"},"
                         "\"locations\":[{\"physicalLocation\":{\"artifactLocation\":{\"uri\":"
                         "\"from_whitelist\",\"uriBaseId\":\"BASEDIR\"},"
                         "\"region\":{\"startLine\":7}}}]}"}));
}

TEST(findings_output, sarif_places) {
    const struct {
        const char *base, *root, *uri;
    } cases[] = {
        {"/srv/q", "file:///srv/q/", "a"},
        {"/", "file:///", "a"},
        {"c:/quillfence/", "file:///c:/quillfence/", "a"},
        {"\\\\server\\share\\q", "file://server/share/q/", "a"},
        {"conf", "", "conf/a"},
        {"conf\\sub dir", "", "conf/sub%20dir/a"},
        {"./conf/", "", "conf/a"},
        {".", "", "a"},
        {"../conf", "", "../conf/a"},
    };
    for (const auto &one : cases) {
        const tree in = tree_with(one.base, {{"a", 0, "unknown-file", "x"}});
        const std::string text = written(write_sarif, in);
        const std::string root = one.root;
        if (root.empty()) {
            EXPECT_EQ(text.find("originalUriBaseIds"), std::string::npos) << one.base;
        } else {
            EXPECT_NE(text.find("{\"BASEDIR\":{\"uri\":\"" + root + "\"}}"), std::string::npos)
                << text;
        }
        EXPECT_NE(text.find("{\"artifactLocation\":{\"uri\":\"" + std::string(one.uri) + "\"" +
                            (root.empty() ? "}" : ",\"uriBaseId\":\"BASEDIR\"}")),
                  std::string::npos)
            << text;
    }
    const tree base_itself = tree_with(".", {{"", 0, "unreadable-folder", "x"}});
    EXPECT_NE(written(write_sarif, base_itself).find("\"uri\":\".\""), std::string::npos);
}

TEST(findings_output, workflow_commands) {
    const tree in = tree_with("c:/q", {{"a,b%:\xC3\xBC\r\n", 0, "unknown-file", "100%, a:b"},
                                       {"exempt_ips", 2, "entry-no-client-address", "x"},
                                       {"exempt_users", 3, "entry-repeated", "y"},
                                       {"e\x1B[2J", 0, "unknown-file", "z"},
                                       {"f\xFF", 0, "unknown-file", "z"}});
    EXPECT_EQ(written(write_commands, in),
              "::notice file=c%3A/q/a%2Cb%25%3A\xC3\xBC%0D%0A,line=1,title=unknown-file"
              "::100%25, a:b\n"
              "::error file=c%3A/q/exempt_ips,line=2,title=entry-no-client-address::x\n"
              "::warning file=c%3A/q/exempt_users,line=3,title=entry-repeated::y\n"
              "::notice file=c%3A/q/e\\x1b[2J,line=1,title=unknown-file::z\n"
              "::notice file=c%3A/q/f\\xff,line=1,title=unknown-file::z\n");
}

TEST_F(verify_test, what_ends_with_no) {
    const auto statuses = [this] {
        std::vector<exit_status> all;
        for (const char *const least : {"error", "warning", "info"}) {
            all.push_back(verified("text", least).status);
        }
        return all;
    };
    using enum exit_status;
    EXPECT_EQ(statuses(), (std::vector{done, done, done}));
    put("notes.txt", "");
    EXPECT_EQ(statuses(), (std::vector{done, done, no}));
    put("exempt_users", "somebody\n");
    EXPECT_EQ(statuses(), (std::vector{done, no, no}));
    put("blocked_ips", "nobody\n");
    EXPECT_EQ(statuses(), (std::vector{no, no, no}));
}

// --- what is looked for ---

TEST_F(verify_test, enabled) {
    check({
        {"off", {{"control/enabled", "0"}}, {}},
        {"missing", {}, {"control/enabled: info: missing, so the engine is off"}},
        {"a word",
         {{"control/enabled", "yes\r\n"}},
         {"control/enabled:1: error: \"yes\" is neither 0 nor 1; the engine reads 0 and is off"}},
        {"a number and more",
         {{"control/enabled", "1 # on"}},
         {"control/enabled:1: error: \"1 # on\" is neither 0 nor 1; the engine reads 1 and is "
          "on"}},
        {"another number",
         {{"control/enabled", "2"}},
         {"control/enabled:1: error: \"2\" is neither 0 nor 1; the engine reads 2 and is off"}},
    });
}

TEST_F(verify_test, names_of_rules) {
    check({
        {"no such rule",
         {{"control/rules.enabled", "valid_ptr\nno_such_rule\n"}},
         {"control/rules.enabled:2: error: there is no rule \"no_such_rule\""}},
        {"other letter case",
         {{"control/rules.enabled", "Valid_PTR"}},
         {"control/rules.enabled:1: error: there is no rule of this name; names are compared "
          "exactly, write valid_ptr"}},
        {"CR at line ends",
         {{"control/rules.enabled", "valid_ptr\r\nrequire_helo\r\n"}},
         {"control/rules.enabled:1: error: ends in CR, which the engine takes for a part of the "
          "name; end lines with LF alone",
          "control/rules.enabled:2: error: ends in CR, which the engine takes for a part of the "
          "name; end lines with LF alone"}},
        {"blanks around",
         {{"control/rules.enabled", "valid_ptr \n\trequire_helo\n"}},
         {"control/rules.enabled:1: error: has white space around the name, which the engine takes "
          "for a part of it",
          "control/rules.enabled:2: error: has white space around the name, which the engine takes "
          "for a part of it"}},
        {"a comment",
         {{"control/rules.enabled", "# rules\n"}},
         {"control/rules.enabled:1: error: there are no comments in this file; the line counts as "
          "a "
          "name"}},
        {"a NUL",
         {{"control/rules.enabled", std::string("v\0a\0", 4)}},
         {"control/rules.enabled:1: error: holds a NUL; is this a text file?"}},
        {"a byte order mark",
         {{"control/rules.enabled", "\xEF\xBB\xBFvalid_ptr\n"}},
         {"control/rules.enabled:1: error: begins with a byte order mark, which the engine takes "
          "for a part of the name"}},
        {"twice",
         {{"control/rules.enabled", "valid_ptr\n\nvalid_ptr\n"}},
         {"control/rules.enabled:3: warning: the same as line 1"}},
        {"empty",
         {{"control/rules.enabled", ""}},
         {"control/rules.enabled: warning: is empty, so nothing is switched on by it"}},
    });
}

// A zone of so many characters, in parts of 39.
std::string zone_of(size_t size) {
    std::string zone;
    while (zone.size() < size) {
        zone += std::string(39, 'a') + '.';
    }
    return zone.substr(0, size);
}

TEST_F(verify_test, names_of_maps_and_hosts) {
    check({
        {"no such map",
         {{"control/bms.enabled", "a.bms\nb.bms\n"}},
         {"control/bms.enabled:2: error: there is no block map bms/b.bms"}},
        {"no name of a file",
         {{"control/bms.enabled", "../a.bms\na b.bms\nM\xC3\xA4rz.bms\n"}},
         {"control/bms.enabled:1: error: \"../a.bms\" is no name of a file in bms/: take letters, "
          "digits, - _ and .",
          "control/bms.enabled:2: error: \"a b.bms\" is no name of a file in bms/: take letters, "
          "digits, - _ and .",
          "control/bms.enabled:3: error: \"M\\xc3\\xa4rz.bms\" is no name of a file in bms/: take "
          "letters, "
          "digits, - _ and ."}},
        {"a zone that can't be asked",
         {{"rbl.enabled", "rbl.example.org.\n.rbl.example.org\nrbl..example.org\n" +
                              std::string(64, 'a') + ".example.org\n"}},
         {"rbl.enabled:1: error: \"rbl.example.org.\" can't be asked: the engine adds the final "
          "dot; write the zone without it",
          "rbl.enabled:2: error: \".rbl.example.org\" can't be asked: a part between its dots is "
          "empty",
          "rbl.enabled:3: error: \"rbl..example.org\" can't be asked: a part between its dots is "
          "empty",
          "rbl.enabled:4: error: \"" + std::string(60, 'a') +
              "...\" can't be asked: a part "
              "between its dots has more than 63 characters"}},
        {"a zone as long as can be, and a longer one",
         {{"rbl.enabled", zone_of(237) + "\n" + zone_of(238) + "\n"}},
         {"rbl.enabled:2: error: \"" + zone_of(60) +
          "...\" can't be asked for every client: has "
          "more than 237 characters"}},
        {"names that are asked",
         {{"rbl.enabled", "rbl.example.org\n" + std::string(63, 'a') +
                              ".example.org\n"
                              "rbl_x.example\n_rbl._x.example\nRBL-2.EXAMPLE\n"}},
         {}},
        {"unusual zones",
         {{"rbl.enabled", "rbl\n192.0.2.1\nrbl/x.example\n"}},
         {"rbl.enabled:1: warning: \"rbl\" has no dot: only a name server of your own has such a "
          "zone",
          "rbl.enabled:2: warning: \"192.0.2.1\" is no domain name as block lists have them",
          "rbl.enabled:3: warning: \"rbl/x.example\" is no domain name as block lists have "
          "them"}},
        {"two lists of maps",
         {{"bms/control/lists_to_update", "a.bms\n"}},
         {"bms/control/lists_to_update: info: is not read as long as bms/lists_to_update is "
          "there"}},
        {"a map that nobody names",
         {{"bms/c.bms", std::string(1024, '\0')}},
         {"bms/c.bms: info: no list of block maps names this file"}},
    });
}

TEST_F(verify_test, missing_list_of_maps) {
    constexpr char finding[] =
        "bms/lists_to_update: error: missing or empty, and so is bms/control/lists_to_update: a "
        "replay fails without a list of block maps";
    drive.remove("c:/quillfence/bms/a.bms");
    drive.remove("c:/quillfence/bms/lists_to_update");
    EXPECT_EQ(findings(), lines{finding});
    put("bms/lists_to_update", "");
    EXPECT_EQ(findings(),
              (lines{"bms/lists_to_update: warning: is empty, so nothing is switched on by it",
                     finding}));
    put("bms/control/lists_to_update", "");
    EXPECT_EQ(findings().back(), finding);
}

TEST_F(verify_test, the_other_list_of_maps_will_do) {
    drive.remove("c:/quillfence/bms/lists_to_update");
    put("bms/control/lists_to_update", "a.bms\n");
    EXPECT_EQ(findings(), lines{});
}

TEST_F(verify_test, declared_domains) {
    const std::string file = "control/valid_domain_ips";
    check({
        {"host bits",
         {{file, "example.org : 192.0.2.1/24, 198.51.100.7\n"}},
         {file + ":1: error: \"192.0.2.1/24\" has bits set behind its prefix; write "
                 "192.0.2.0/24"}},
        {"no colon",
         {{file, "# own\nexample.org 192.0.2.1\n"}},
         {file + ":2: error: not of the form \"domain : network, network\": the line is ignored"}},
        {"an IPv6 address",
         {{file, "example.org : 2001:db8::1\n"}},
         {file + ":1: error: not of the form \"domain : network, network\": the line is ignored"}},
        {"no domain",
         {{file, "localhost : 192.0.2.1\n : 192.0.2.1\n"}},
         {file + ":1: error: \"localhost\" is no domain name: the line is ignored",
          file + ":2: error: \"\" is no domain name: the line is ignored"}},
        {"no networks",
         {{file, "example.org : \n"}},
         {file + ":1: error: no networks: the line is ignored"}},
        {"no address",
         {{file, "example.org : 192.0.2, 192.0.2.0 /24, ,192.0.2.1/24/3\n"}},
         {file + ":1: error: \"192.0.2\" is no IPv4 address or network",
          file + ":1: error: \"192.0.2.0 /24\" is no IPv4 address or network",
          file + ":1: error: \"\" is no IPv4 address or network",
          file + ":1: error: \"192.0.2.1/24/3\" has no prefix from 0 to 32"}},
        {"a prefix out of bounds",
         {{file, "example.org : 192.0.2.1/33, 192.0.2.1/-1, 192.0.2.1/\n"}},
         {file + ":1: error: \"192.0.2.1/33\" has no prefix from 0 to 32",
          file + ":1: error: \"192.0.2.1/-1\" has no prefix from 0 to 32",
          file + ":1: error: \"192.0.2.1/\" has no prefix from 0 to 32"}},
        {"prefix 0",
         {{file, "example.org : 0.0.0.0/0\n"}},
         {file + ":1: error: \"0.0.0.0/0\" holds the address 0.0.0.0 alone, not every address"}},
        {"twice",
         {{file, "Example.org : 192.0.2.1\nexample.ORG : 192.0.2.2\n"}},
         {file + ":2: warning: example.org is declared in line 1 already, and the first line "
                 "counts"}},
    });
}

// What verify takes for a usable network is what the engine keeps.
TEST_F(verify_test, declared_domains_as_the_engine_reads_them) {
    static constexpr const char *items[] = {"192.0.2.1",      "192.0.2.1/32",   "192.0.2.0/24",
                                            "192.0.2.1/24",   "0.0.0.0",        "10.0.0.0/8",
                                            "10.0.0.0/7",     "192.0.2.1/33",   "192.0.2",
                                            "192.0.2.0/ 24",  "192.0.2.0 /24",  "a",
                                            "192.0.2.1/24/3", "255.255.255.255"};
    for (const char *const item : items) {
        put("control/valid_domain_ips", std::string("example.org:") + item + "\n");
        ksf_domain_set *const set = ksf_load_list("c:/quillfence/control/valid_domain_ips");
        ASSERT_TRUE(set) << item;
        EXPECT_EQ(findings().empty(), set->domain_count == 1) << item;
        ksf_free_list(set);
    }
}

TEST_F(verify_test, entries_that_never_match) {
    const std::string long_line(1023, 'a');
    check({
        {"a trailing blank",
         {{"from_whitelist", "a@example.org \n*@example.org\t\n"}, {"blocked_ips", "192.0.2.1 \n"}},
         {"blocked_ips:1: error: \"192.0.2.1 \" ends in white space, which belongs to the entry",
          "from_whitelist:1: error: \"a@example.org \" ends in white space, which belongs to the "
          "entry",
          "from_whitelist:2: error: \"*@example.org\\x09\" ends in white space, which belongs to "
          "the entry"}},
        {"no address",
         {{"exempt_ips", "mail.example.org\n192.0.2.01\n"}},
         {"exempt_ips:1: error: \"mail.example.org\" never matches: no IP address",
          "exempt_ips:2: error: \"192.0.2.01\" never matches: no IP address"}},
        {"a network",
         {{"exempt_ips", "192.0.2.0/24\n192.0.2.1-192.0.2.9\n192.0.2.*\n"}},
         {"exempt_ips:1: error: \"192.0.2.0/24\" never matches: one address a line; networks go "
          "into the list's range file (quillfence-data range add)",
          "exempt_ips:2: error: \"192.0.2.1-192.0.2.9\" never matches: one address a line; "
          "networks go into the list's range file (quillfence-data range add)",
          "exempt_ips:3: error: \"192.0.2.*\" never matches: one address a line; networks go into "
          "the list's range file (quillfence-data range add)"}},
        {"another spelling of an IPv6 address",
         {{"exempt_ips", "2001:DB8::1\n2001:db8:0:0::2\n"}},
         {"exempt_ips:2: error: \"2001:db8:0:0::2\" never matches: this client is known as "
          "2001:db8::2"}},
        {"an IPv4 address in IPv6",
         {{"blocked_ips", "::ffff:c000:207\n::ffff:192.0.2.7\n::FFFF:192.0.2.7\n::192.0.2.4\n"
                          "::ffff:0:192.0.2.1\n::1\n"}},
         {"blocked_ips:1: error: \"::ffff:c000:207\" never matches: this client is known as "
          "192.0.2.7",
          "blocked_ips:2: error: \"::ffff:192.0.2.7\" never matches: this client is known as "
          "192.0.2.7",
          "blocked_ips:3: error: \"::FFFF:192.0.2.7\" never matches: this client is known as "
          "192.0.2.7",
          "blocked_ips:3: warning: \"::FFFF:192.0.2.7\" stands in line 2 already",
          "blocked_ips:4: error: \"::192.0.2.4\" never matches: this client is known as "
          "192.0.2.4"}},
        {"does not compile",
         {{"exempt_users", "(*@example.org\n"}},
         {"exempt_users:1: error: \"(*@example.org\" never matches: the engine says \"failed to "
          "find "
          "expected character [)]\""}},
        {"compiles, and is refused when it matches",
         {{"exempt_users", "a{3,1}*\n"}},
         {"exempt_users:1: error: \"a{3,1}*\" never matches: the engine says \"greedy operator "
          "range 3 - 1 is invalid\""}},
        {"longer than a line",
         {{"exempt_users", "x@example.org\n" + long_line + "\n"}},
         {"exempt_users:2: error: has 1023 characters; the engine reads it in pieces of 1022, each "
          "a line of its own"}},
        {"a NUL",
         {{"exempt_users", std::string("a@b\0c\n", 6)}},
         {"exempt_users:1: error: \"a@b\" holds a NUL, where the entry ends"}},
        {"a byte order mark",
         {{"exempt_users", "\xEF\xBB\xBF*@example.org\n"}},
         {"exempt_users:1: error: begins with a byte order mark, which belongs to the first "
          "line"}},
    });
}

TEST_F(verify_test, odd_entries) {
    check({
        {"a domain alone",
         {{"from_blacklist", "example.org\n"}},
         {"from_blacklist:1: warning: \"example.org\" holds neither @ nor *, so it matches no mail "
          "address; for a whole domain write *@domain"}},
        {"no addresses as they come",
         {{"from_blacklist", "@dom.example\n<bob@x.example>\nBob <bob@x.example>\n"
                             "a@b.example, c@d.example\n\"a b\"@x.example\nbounce message\n"}},
         {"from_blacklist:1: warning: \"@dom.example\" matches no address; for a whole domain "
          "write "
          "*@dom.example",
          "from_blacklist:2: warning: \"<bob@x.example>\" matches no address, as they come without "
          "angle brackets; write bob@x.example",
          "from_blacklist:3: warning: \"Bob <bob@x.example>\" matches no address, as they come "
          "without angle brackets; write bob@x.example",
          "from_blacklist:4: warning: \"a@b.example, c@d.example\" matches no address; write one "
          "entry a line"}},
        {"everybody",
         {{"from_whitelist", "*\n"}, {"exempt_users", "**\n"}},
         {"exempt_users:1: warning: \"**\" matches everybody: nothing is refused any more",
          "from_whitelist:1: warning: \"*\" matches everybody: nothing is refused any more"}},
        {"everybody is refused",
         {{"from_blacklist", "*\n"}},
         {"from_blacklist:1: warning: \"*\" matches everybody: all mail is refused"}},
        {"a plus that repeats",
         {{"from_blacklist", "user+tag*@example.org\nuser\\+tag*@example.com\n"}},
         {"from_blacklist:1: warning: \"user+tag*@example.org\" in an entry with a * the + repeats "
          "the character before it; write \\+ for a plus sign"}},
        {"a comment that lookups match",
         {{"from_blacklist", "a@example.org\n\tb@example.org\n"},
          {"blocked_ips", "192.0.2.1\n\t192.0.2.2\n"}},
         {"blocked_ips:2: warning: is a comment for the list editor, but lookups take "
          "\"192.0.2.2\" for an entry",
          "from_blacklist:2: warning: is a comment for the list editor, but lookups take "
          "\"b@example.org\" for an entry"}},
    });
}

// Each alone in a list, and what is said of it; "" for nothing.
TEST_F(verify_test, operators_that_defeat_an_entry) {
    const std::string plus = "in an entry with a * the + repeats the character before it; write "
                             "\\+ for a plus sign";
    const std::string expression =
        "is written as an expression, but in an entry * alone stands for any text and . for a dot";
    const std::string brackets = "takes the brackets for a class, any one character of it";
    const std::string halves = "is cut in two by the |, and neither part stands for a whole "
                               "address; write each as an entry of its own";
    const std::string no_end = "never matches: ^ is an address's beginning, and $ its end";
    const struct {
        const char *entry;
        std::string said;
    } cases[] = {
        {"*@[192.0.2.1]", brackets + "; write *@\\[192.0.2.1\\]"},
        {"*@[IPv6:2001:db8::*]", brackets + "; write *@\\[IPv6:2001:db8::*\\]"},
        {"a[bc]*@[192.0.2.1]", brackets},
        {"*@\\[192.0.2.1\\]", ""},
        {"*@a.example|*@b.example", halves},
        {"a|b*@x.example", halves},
        {"a\\|b*@x.example", ""},
        {"bob$*@a.example", "takes the $ for an operator; write bob\\$*@a.example"},
        {"a^b*@x.example", "takes the ^ for an operator; write a\\^b*@x.example"},
        {"a^b$*@x.example", "takes the ^ for an operator; write a\\^b\\$*@x.example"},
        {"bob?@*.example", "takes the ? for an operator; write bob\\?@*.example"},
        {"a{2}*@x.example", "takes the { for an operator; write a\\{2\\}*@x.example"},
        {"*@x.example\\", "takes the \\ for an operator; write *@x.example\\\\"},
        {"bob\\$*@a.example", ""},
        {"^*@x.example$", ""},    // as it is without them
        {"user+*@x.example", ""}, // the * takes what the + does not
        {"user+tag*@x.example", plus},
        {"user+tag?*@x.example", plus},
        {"user+*a$b@x.example", "takes the $ for an operator; write user\\+*a\\$b@x.example"},
        {"user\\+tag*@x.example", ""},
        {"/.*@x\\.example$/", expression + "; write *@x.example"},
        {".*@q.example", expression + "; write *@q.example"},
        {"^.*@q\\.example$", expression + "; write *@q.example"},
        {"*@x\\.example", expression + "; write *@x.example"},
        {"/*@x.example/", expression + "; write *@x.example"},
        {"bob\\*@x.example", expression},
        {".*", expression},
        {".*@[a-c]x\\.example", expression},
        {"[a-c]*@x.example", ""},
        {"[a-c]+*@x.example", ""},
        {"(bob|al)*@x.example", ""},
        {"(bob|al)+@*.x.example", ""},
        {"\\d+*@x.example", ""},
        {"[a\\]$]*@x.example", ""},
        {"[a-c]$*@x.example", no_end},
        {"user+tag*@[a-c]*.example", plus},
        {"*@x.example", ""},
        {"*.x.example", ""},
        {"a*@b.example", ""},
        {"bob.*@x.example", ""},
        {"a}]*@x.example", ""},
        {"o'neil#!%&-/=_`~*@x.example", ""},
        {"bob$|^?{}@x.example", ""}, // without a * all of them are letters
    };
    for (const auto &one : cases) {
        const std::string entry = one.entry;
        put("from_blacklist", entry + "\n");
        const lines want = one.said.empty()
                               ? lines{}
                               : lines{"from_blacklist:1: warning: \"" + entry + "\" " + one.said};
        EXPECT_EQ(findings(), want) << entry;
    }
}

// What a finding says to write matches what the entry says, and this one does not.
TEST_F(verify_test, what_to_write_instead_agrees_with_the_engine) {
    const struct {
        const char *entry;
        const char *address;
    } cases[] = {
        {"*@[192.0.2.1]", "x@[192.0.2.1]"},   {"bob$*@a.example", "bob$y@a.example"},
        {"bob?@*.example", "bob?@x.example"}, {"/.*@x\\.example$/", "bob@x.example"},
        {".*@q.example", "bob@q.example"},    {"*@x\\.example", "bob@x.example"},
    };
    for (const auto &one : cases) {
        put("from_blacklist", std::string(one.entry) + "\n");
        const lines found = findings();
        ASSERT_EQ(found.size(), 1U) << one.entry;
        const std::string better = found[0].substr(found[0].rfind("; write ") + 8);
        EXPECT_NE(__wildcardmatch(one.entry, one.address), 0) << one.entry;
        EXPECT_EQ(__wildcardmatch(better.c_str(), one.address), 0) << better;
    }
}

// The editor keeps an entry's comment in the very line below it.
TEST_F(verify_test, which_line_is_the_comment_of_an_entry) {
    const auto taken = [](unsigned line, const std::string &entry) {
        return "from_blacklist:" + std::to_string(line) +
               ": warning: is a comment for the list editor, but lookups take \"" + entry +
               "\" for an entry";
    };
    check({
        {"below",
         {{"from_blacklist", "# x\n\na@example.org\n\tb@example.org\n"}},
         {taken(4, "b@example.org")}},
        {"behind an empty line", {{"from_blacklist", "a@example.org\n\n\tb@example.org\n"}}, {}},
        {"behind a line with #", {{"from_blacklist", "a@example.org\n# x\n\tb@example.org\n"}}, {}},
        {"without an entry", {{"from_blacklist", "\tb@example.org\n"}}, {}},
        {"the second",
         {{"from_blacklist", "a@example.org\n\tb@example.org\n\tc@example.org\n"}},
         {taken(2, "b@example.org")}},
    });
}

TEST_F(verify_test, duplicate_and_shadowed_lines) {
    check({
        {"duplicates",
         {{"from_whitelist", "a@example.org\n# x\n  A@Example.org\n"},
          {"exempt_ips", "192.0.2.1\r\n192.0.2.1\r\n"}},
         {"exempt_ips:2: warning: \"192.0.2.1\" stands in line 1 already",
          "from_whitelist:3: warning: \"A@Example.org\" stands in line 1 already"}},
        {"a wildcard before",
         {{"from_whitelist", "*@example.org\na@Example.org\n*@*\nb@example.com\n*@example.net\n"}},
         {"from_whitelist:2: warning: \"a@Example.org\" is covered by line 1, \"*@example.org\"",
          "from_whitelist:3: warning: \"*@*\" matches every address but that of a bounce: nothing "
          "is "
          "refused any more",
          "from_whitelist:4: warning: \"b@example.com\" is covered by line 3, \"*@*\"",
          "from_whitelist:5: warning: \"*@example.net\" is covered by line 3, \"*@*\""}},
        {"a wildcard behind is no matter",
         {{"from_whitelist", "a@example.org\n*@example.org\n"}},
         {}},
        {"the earliest of several",
         {{"from_whitelist", "*.org\n*@example.org\na*\na@example.org\n"}},
         {"from_whitelist:2: warning: \"*@example.org\" is covered by line 1, \"*.org\"",
          "from_whitelist:4: warning: \"a@example.org\" is covered by line 1, \"*.org\""}},
        {"operators are not compared as letters",
         {{"from_whitelist", "[ab]*@example.org\n[*@example.org\n[ab]c*@example.org\n"
                             "ax@example.org\n"}},
         {"from_whitelist:2: error: \"[*@example.org\" never matches: the engine says "
          "\"failed to find expected character []]\"",
          "from_whitelist:4: warning: \"ax@example.org\" is covered by line 1, "
          "\"[ab]*@example.org\""}},
    });
}

TEST_F(verify_test, opposite_lists) {
    check({
        {"the same entry",
         {{"from_whitelist", "a@example.org\n"},
          {"from_blacklist", "b@example.org\nA@example.org\n"}},
         {"from_blacklist:2: warning: \"A@example.org\" stands in the opposite list as well: "
          "from_whitelist, line 1"}},
        {"a black entry that a white wildcard matches",
         {{"from_whitelist", "*@example.org\n"}, {"from_blacklist", "a@example.org\n"}},
         {"from_blacklist:1: warning: \"a@example.org\" is matched by the opposite list, which "
          "comes first: from_whitelist, line 1, \"*@example.org\""}},
        {"a white exception from a black wildcard",
         {{"from_whitelist", "a@example.org\n"}, {"from_blacklist", "*@example.org\n"}},
         {}},
        {"addresses",
         {{"exempt_ips", "192.0.2.1\n"}, {"blocked_ips", "192.0.2.1\n"}},
         {"blocked_ips:1: warning: \"192.0.2.1\" stands in the opposite list as well: exempt_ips, "
          "line 1"}},
        {"addresses in range files",
         {{"exempt_ips.range", header(2, 1) + record({192, 0, 2, 0}, {192, 0, 2, 9})},
          {"blocked_ips.range", header(2, 1) + record({192, 0, 2, 4}, {192, 0, 2, 20})},
          {"blocked_ips", "192.0.2.8\n192.0.2.15\n"}},
         {"blocked_ips:1: warning: \"192.0.2.8\" is in the list's range file as well: "
          "blocked_ips.range, record 1",
          "blocked_ips:1: warning: \"192.0.2.8\" is in the opposite list's range file, which comes "
          "first: exempt_ips.range, record 1",
          "blocked_ips:2: warning: \"192.0.2.15\" is in the list's range file as well: "
          "blocked_ips.range, record 1"}},
        {"the other pair",
         {{"rl_whitelist.lst", "x\n"}, {"ra_whitelist.lst", "X\n"}},
         {"ra_whitelist.lst:1: warning: \"X\" stands in the opposite list as well: "
          "rl_whitelist.lst, line 1"}},
    });
}

TEST_F(verify_test, range_files) {
    const std::string file = "exempt_ips.range";
    const std::string one = record({10, 1, 2, 0}, {10, 1, 2, 255});
    std::string endless = record({10, 9, 0, 0}, {10, 9, 0, 1});
    std::fill(endless.begin() + 8, endless.end(), 'x');
    check({
        {"empty", {{file, ""}}, {}},
        {"less than a header",
         {{file, std::string(15, 'x')}},
         {file + ": error: is corrupt: 15 bytes are less than a header"}},
        {"another file",
         {{file, std::string(280, 'x')}},
         {file + ": error: is corrupt: no header of a range file"}},
        {"version 3",
         {{file, header(3, 0)}},
         {file + ": error: is corrupt: no header of a range file"}},
        {"the legacy version",
         {{file, header(1, 1) + legacy_record({10, 1, 2, 0}, {10, 1, 2, 255})}},
         {file + ": error: is of the legacy version, which lookups misread; run quillfence-data "
                 "range convert"}},
        {"cut off",
         {{file, header(2, 3) + one + one.substr(0, 100)}},
         {file + ": error: is corrupt: the header counts 3 records, the file holds 1"}},
        {"more than counted",
         {{file, header(2, 1) + one + "x"}},
         {file + ": warning: is longer than its records by 1 byte, which lookups ignore"}},
        {"no range",
         {{file, header(2, 3) + one + record({10, 1, 0, 0}, {10, 2, 0, 0}) + one}},
         {file + ": error: record 2, 10.1.0.0-10.2.0.0, is no range inside one /16: lookups stop "
                 "here and find nothing"}},
        {"a comment without an end",
         {{file, header(2, 1) + endless}},
         {file + ": error: record 1, 10.9.0.0-10.9.0.1, has a comment without an end"}},
        {"covered",
         {{file, header(2, 4) + record({10, 1, 2, 9}, {10, 1, 2, 10}) + one + one +
                     record({10, 1, 2, 200}, {10, 1, 3, 0})}},
         {file + ": warning: record 1, 10.1.2.9-10.1.2.10, is covered by record 2, "
                 "10.1.2.0-10.1.2.255",
          file + ": warning: record 3, 10.1.2.0-10.1.2.255, is covered by record 2, "
                 "10.1.2.0-10.1.2.255"}},
        {"covered by the opposite file",
         {{file, header(2, 1) + one},
          {"blocked_ips.range", header(2, 2) + record({10, 1, 2, 255}, {10, 1, 3, 0}) +
                                    record({10, 1, 2, 7}, {10, 1, 2, 7})}},
         {"blocked_ips.range: warning: record 2, 10.1.2.7-10.1.2.7, is covered by the opposite "
          "range file, which comes first: exempt_ips.range, record 1, 10.1.2.0-10.1.2.255"}},
    });
}

TEST_F(verify_test, a_file_in_the_place_of_a_folder) {
    check({{"no folder",
            {{"dynaregex", "abcdef"}},
            {"dynaregex: error: can't be listed: Not a directory",
             "dynaregex: info: the engine reads no file of this name"}}});
}

TEST_F(verify_test, pattern_files) {
    const std::string file = "dynaregex/dyna.cregexes";
    std::vector<int32_t> bad_nodes = sound_nodes;
    bad_nodes[1] = 7;
    check({
        {"the magic alone", {{file, pattern_magic}}, {}},
        {"another kind of file", {{"dynaregex/notes.txt", "abcdef"}}, {}},
        {"another file", {{file, "abcdef"}}, {file + ": error: is no file of compiled patterns"}},
        {"empty", {{file, ""}}, {file + ": error: is no file of compiled patterns"}},
        {"no nodes",
         {{file, pattern_magic + block_of(sound_nodes) + little_endian(0)}},
         {file + ": error: pattern 2 is damaged, and so is all that follows: the engine says "
                 "\"node count size of zero read: invalid regex\""}},
        {"cut off",
         {{file, pattern_magic + block_of(sound_nodes).substr(0, 30)}},
         {file + ": error: pattern 1 is damaged, and so is all that follows: the engine says "
                 "\"short read when attempting to read node #1\""}},
        {"a link out of bounds",
         {{file, pattern_magic + block_of(bad_nodes) + block_of(sound_nodes)}},
         {file +
          ": error: pattern 1 can fail to match: the engine says \"corrupt regex: node->left "
          "is out of range 7 > 2\""}},
        {"patterns that do not do what they say",
         {{file, pattern_magic + block_of("[\\[a-c]") + block_of("^(.*b)$")}},
         {file + ": warning: pattern 2, ^(.*b)$: the pattern matches nothing: a .* inside "
                 "parentheses needs a $ behind it there; write ^.*b$"}},
        {"a name that is not asked",
         {{"dynaregex/mine.cregexes", pattern_magic}},
         {"dynaregex/mine.cregexes: info: the engine asks no file of this name"}},
    });
}

TEST_F(verify_test, block_maps) {
    std::string second = map_with_entry(10, 1024, 2048 + 8192);
    second.replace(1024 + 4 * 7, 4, little_endian(2049));
    std::string sound = map_with_entry(10, 1024, 2048 + 8192);
    sound.replace(1024 + 4 * 7, 4, little_endian(2048));
    std::string all_wrong;
    for (int a = 0; a < 256; ++a) {
        all_wrong += little_endian(1);
    }
    all_wrong += std::string(1024, '\0');
    const auto behind = [](const std::string &network) {
        return "bms/a.bms: error: is corrupt: the entry of " + network +
               " points behind the end of the file";
    };
    check(
        {{"three levels", {{"bms/a.bms", sound}}, {}},
         {"everything listed", {{"bms/a.bms", std::string(1024, '\xFF')}}, {}},
         {"cut off",
          {{"bms/a.bms", std::string(1023, '\0')}},
          {"bms/a.bms: error: is corrupt: 1023 bytes are less than its first table"}},
         {"a second table behind the end",
          {{"bms/a.bms", map_with_entry(10, 1025, 2048)}},
          {behind("10.0.0.0/8")}},
         {"a bitmap behind the end", {{"bms/a.bms", second}}, {behind("10.7.0.0/16")}},
         {"a table over the first one",
          {{"bms/a.bms", map_with_entry(255, 4, 2048)}},
          {"bms/a.bms: error: is corrupt: the entry of 255.0.0.0/8 points into the first table"}}});
    put("bms/a.bms", all_wrong);
    const lines found = findings();
    ASSERT_EQ(found.size(), 11u);
    EXPECT_EQ(found.back(), "bms/a.bms: error: is corrupt: 246 more such entries");
}

// A map of two tables and a bitmap: its tables are read one after the other.
TEST_F(verify_test, a_table_of_a_block_map_that_can_not_be_read) {
    std::string map = map_with_entry(10, 1024, 2048 + 8192);
    map.replace(1024 + 4 * 7, 4, little_endian(2048));
    put("bms/a.bms", map);
    call_watch counting;
    EXPECT_EQ(findings(), lines{});
    const int reads = counting.count("file_read");
    ASSERT_GE(reads, 2);
    for (const int table : {reads - 1, reads}) {
        SCOPED_TRACE(table);
        counting.fail("file_read", table, platform::error_io_device);
        const lines found = findings();
        ASSERT_EQ(found.size(), 1u);
        EXPECT_TRUE(found[0].starts_with("bms/a.bms: error: can't be read: ")) << found[0];
    }
}

TEST_F(verify_test, counter_files) {
    std::string reserved = "\x02" + std::string(996, '\0');
    reserved[4] = 1;
    check({
        {"another size",
         {{"log/.counterv2.dat.01", std::string(996, '\x02')}, {"log/.counterv2.dat.hourly", ""}},
         {"log/.counterv2.dat.01: error: has 996 bytes instead of 997: the next count starts it "
          "anew",
          "log/.counterv2.dat.hourly: error: has 0 bytes instead of 773: the next count starts it "
          "anew"}},
        {"another version",
         {{"log/.counterv2.dat.hourly", std::string(773, '\x01')}},
         {"log/.counterv2.dat.hourly: error: has no header of a counter file: the next count "
          "starts it anew"}},
        {"reserved bytes",
         {{"log/.counterv2.dat.12", reserved}},
         {"log/.counterv2.dat.12: error: has no header of a counter file: the next count starts it "
          "anew"}},
    });
}

TEST_F(verify_test, other_files) {
    check({
        {"unknown names",
         {{"notes.txt", ""}, {"control/rules", ""}, {"users/anything", ""}},
         {"control/rules: info: the engine reads no file of this name",
          "notes.txt: info: the engine reads no file of this name"}},
        {"in the wrong folder",
         {{"rules.enabled", "valid_ptr\n"}, {"control/from_whitelist", "a@example.org\n"}},
         {"control/from_whitelist: warning: lies in the wrong folder: the engine reads "
          "from_whitelist",
          "rules.enabled: warning: lies in the wrong folder: the engine reads "
          "control/rules.enabled"}},
    });
}

TEST_F(verify_test, texts_in_utf16) {
    const std::string text("\xFF\xFE"
                           "1\0\n\0",
                           6);
    const std::string said =
        ": error: is a text in UTF-16, of which the engine makes nothing; save it "
        "as UTF-8 without a byte order mark";
    for (const char *const file : {"control/valid_domain_ips", "exempt_users", "control/enabled"}) {
        check({{file, {{file, text}}, {file + said}}});
    }
}

TEST_F(verify_test, leftovers_of_edits) {
    const std::string range = header(2, 0);
    check({
        {"of a list",
         {{"from_whitelist", "a@example.org\n"},
          {"from_whitelist.tmp", "*"},
          {"exempt_users.tmp", ""}},
         {"exempt_users.tmp: error: was left by an edit of exempt_users that did not end; that "
          "file "
          "was never there, make the edit again and delete this one",
          "from_whitelist.tmp: error: was left by an edit of from_whitelist that did not end; that "
          "file is whole, delete this one"}},
        {"of a range file",
         {{"exempt_ips.range", range},
          {"exempt_ips.range.new", ""},
          {"exempt_ips.range.bak", range}},
         {"exempt_ips.range.bak: error: was left by an edit of exempt_ips.range, which is whole; "
          "delete this one",
          "exempt_ips.range.new: error: was left by an edit of exempt_ips.range that did not end; "
          "that file is whole, delete this one"}},
        {"all that is left of one",
         {{"blocked_ips.range.bak", range}},
         {"blocked_ips.range.bak: error: is what is left of blocked_ips.range, which is missing; "
          "rename it to that name"}},
        {"of what is compiled",
         {{"dynaregex/dyna.cregexes.tmp", ""}},
         {"dynaregex/dyna.cregexes.tmp: error: was left by an edit of dynaregex/dyna.cregexes that "
          "did not end; that file was never there, make the edit again and delete this one"}},
        {"of nobody's file",
         {{"notes.bak", ""}},
         {"notes.bak: info: the engine reads no file of this name"}},
    });
}

TEST_F(verify_test, a_folder_in_the_place_of_a_file) {
    put("from_whitelist/x", "");
    EXPECT_EQ(findings(),
              lines{"from_whitelist: error: is a folder, where the engine looks for a file"});
}

TEST_F(verify_test, a_name_in_other_letters) {
    check({{"alone",
            {{"From_Whitelist", "a@example.org\n"}},
            {"From_Whitelist: info: is read for from_whitelist"}}});
}

TEST_F(verify_test, lines_of_another_version) {
    const std::string file = "dynaregex/dyna.cregexes";
    const std::string head = "# quillfence pattern lines 1\n# sha256 ";
    check({
        {"stale",
         {{file, pattern_magic}, {file + ".lines", head + std::string(64, '0') + "\n"}},
         {file +
          ".lines: warning: speaks of another version of the pattern file, so that no line of "
          "the list can be named; compile the list again"}},
        {"current",
         {{file, pattern_magic},
          {file + ".lines", head + data_files::digest_of(pattern_magic) + "\n"}},
         {}},
    });
}

// A large list is looked over with the same answers as by comparing every pair.
TEST_F(verify_test, shadowing_agrees_with_the_engine) {
    static constexpr const char *entries[] = {"*",
                                              "*@a.example",
                                              "*a.example",
                                              "x*",
                                              "*x*",
                                              "x@a.example",
                                              "*@*",
                                              "x@b.example",
                                              "y@a.example",
                                              "*.example",
                                              "x*@a.example",
                                              "y*",
                                              "xx@b.example",
                                              "*@b.example",
                                              "*b*e",
                                              "yx@a.example"};
    for (size_t first = 0; first < std::size(entries); ++first) {
        for (size_t second = 0; second < std::size(entries); ++second) {
            const std::string pattern = entries[first];
            const std::string later = entries[second];
            put("exempt_users", pattern + "\n" + later + "\n");
            const bool covered = pattern.find('*') != std::string::npos &&
                                 __wildcardmatch(pattern.c_str(), later.c_str()) == 0;
            lines found = findings();
            std::erase_if(found, [](const std::string &line) {
                return line.find(" matches every") != std::string::npos;
            });
            EXPECT_EQ(!found.empty(), first == second || covered) << pattern << " " << later;
        }
    }
}

} // namespace
} // namespace quillfence::data_tool
