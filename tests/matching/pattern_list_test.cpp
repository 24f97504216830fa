// The format page and a public list of patterns: what the page says is tried, and the list is
// compiled, stored and asked about names that were made to fit it. The expected answers are the
// slow matcher's and, where PCRE2 was found when this was built, PCRE2's.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include "drive_c.h"
#include "platform/file.h"
#include "slow_matcher.h"
#include "tiny_rex_storage.h"

#ifdef QF_WITH_PCRE2
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>
#endif

namespace quillfence::testing {
namespace {

constexpr char path[] = "c:/quillfence/dynaregex/dyna.cregexes";

trex_ptr compiled(const std::string &pattern) {
    return trex_ptr(trex_compile_ex(pattern.c_str(), trex_fold_case));
}

std::vector<std::string> lines_of(const char *file) {
    std::ifstream stream(file);
    EXPECT_TRUE(stream.is_open()) << file;
    std::vector<std::string> all;
    for (std::string line; std::getline(stream, line);) {
        line.erase(std::find(line.begin(), line.end(), '\r'), line.end());
        all.push_back(line);
    }
    return all;
}

void write_file(const std::vector<std::string> &patterns) {
    const platform::stream_ptr stream(platform::stream_open(path, "w+b"));
    ASSERT_NE(stream, nullptr);
    ASSERT_EQ(trs_set_header(stream.get()), 1);
    for (const std::string &pattern : patterns) {
        ASSERT_EQ(trs_store(stream.get(), compiled(pattern).get()), 1) << pattern;
    }
}

// "match", "no" or "refused".
std::string answer_here(const std::string &pattern, const std::string &subject) {
    const trex_ptr expression = compiled(pattern);
    return !expression ? "refused" : trex_match(expression.get(), subject.c_str()) ? "match" : "no";
}

#ifdef QF_WITH_PCRE2
class pcre2_pattern {
  public:
    explicit pcre2_pattern(const std::string &pattern) {
        int number;
        PCRE2_SIZE offset;
        code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.c_str()), pattern.size(),
                              PCRE2_CASELESS, &number, &offset, nullptr);
        data_ = pcre2_match_data_create(32, nullptr);
    }
    ~pcre2_pattern() {
        pcre2_match_data_free(data_);
        pcre2_code_free(code_);
    }
    pcre2_pattern(const pcre2_pattern &) = delete;
    pcre2_pattern &operator=(const pcre2_pattern &) = delete;

    std::string answer(const std::string &subject) const {
        if (!code_) {
            return "refused";
        }
        return pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(subject.c_str()), subject.size(), 0,
                           0, data_, nullptr) >= 0
                   ? "match"
                   : "no";
    }

  private:
    pcre2_code *code_;
    pcre2_match_data *data_;
};
#endif

class pattern_list : public drive_test {
  protected:
    pattern_list() {
        drive.make_folder("c:/quillfence/dynaregex");
    }
};

// --- The format page ---

TEST_F(pattern_list, the_sample_of_the_page_is_a_file) {
    std::string bytes;
    for (const std::string &line : lines_of(QF_FORMAT_PAGE)) {
        if (line.starts_with("    0")) {
            std::istringstream hex(line.substr(12, 47));
            for (std::string byte; hex >> byte;) {
                bytes += static_cast<char>(std::stoi(byte, nullptr, 16));
            }
        }
    }
    drive.write(path, bytes);
    EXPECT_EQ(compiled_regex_match(path, "a192.b"), 1);
    EXPECT_EQ(compiled_regex_match(path, "xfooy"), 1);
    EXPECT_EQ(compiled_regex_match(path, "a.b"), 0);
    EXPECT_EQ(compiled_regex_match(path, "fo"), 0);
    write_file({"^a[0-9]+\\.b$", "foo"});
    EXPECT_EQ(drive.read(path), bytes);
}

// The cells of a table row, without code marks; "\|" is a bar.
std::vector<std::string> cells_of(std::string row) {
    for (size_t at; (at = row.find("\\|")) != std::string::npos;) {
        row.replace(at, 2, "\x01");
    }
    std::vector<std::string> cells;
    std::istringstream stream(row.substr(1));
    for (std::string cell; std::getline(stream, cell, '|');) {
        std::replace(cell.begin(), cell.end(), '\x01', '|');
        const size_t first = cell.find_first_not_of(" `");
        const size_t last = cell.find_last_not_of(" `");
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    return cells;
}

TEST_F(pattern_list, the_differences_on_the_page_are_real) {
    size_t rows = 0;
    bool in_table = false;
    for (const std::string &line : lines_of(QF_FORMAT_PAGE)) {
        in_table = line.starts_with("| pattern | subject |") || (in_table && line.starts_with("|"));
        if (!in_table || !line.starts_with("| `")) {
            continue;
        }
        const std::vector<std::string> cells = cells_of(line);
        ASSERT_EQ(cells.size(), 5u) << line;
        EXPECT_EQ(answer_here(cells[0], cells[1]), cells[2]) << line;
        EXPECT_EQ(log.errors().size(), cells[2] == "refused" ? 1u : 0u) << line;
        EXPECT_NE(cells[2], cells[3]) << line;
#ifdef QF_WITH_PCRE2
        EXPECT_EQ(pcre2_pattern(cells[0]).answer(cells[1]), cells[3]) << line;
#endif
        ++rows;
    }
    EXPECT_GT(rows, 25u);
}

// --- The list ---

// The patterns of the lines "/pattern/ ACTION text".
std::vector<std::string> listed_patterns() {
    std::vector<std::string> patterns;
    for (const std::string &line : lines_of(QF_PATTERN_LIST)) {
        const size_t slash = line.find('/', 1);
        if (line.starts_with("/") && slash != std::string::npos) {
            patterns.push_back(line.substr(1, slash - 1));
        }
    }
    return patterns;
}

// Host names that a pattern was probably written for: a walk over its nodes by chance.
class name_maker {
  public:
    std::string name_for(const slow_nodes &nodes) {
        std::string name;
        chain(nodes, 0, name);
        return name;
    }
    // The same with a character or two dropped, doubled or replaced.
    std::string near(std::string name) {
        for (size_t n = 1 + roll(2); n > 0 && !name.empty(); --n) {
            const size_t at = roll(name.size());
            switch (roll(3)) {
            case 0:
                name.erase(at, 1);
                break;
            case 1:
                name.insert(at, 1, name[at]);
                break;
            default:
                name[at] = "a1-.z"[roll(5)];
                break;
            }
        }
        return name;
    }

  private:
    size_t roll(size_t sides) {
        return std::uniform_int_distribution<size_t>(0, sides - 1)(dice_);
    }

    void chain(const slow_nodes &nodes, int64_t index, std::string &name) {
        for (; index >= 0; index = nodes[static_cast<size_t>(index)].next) {
            one(nodes, nodes[static_cast<size_t>(index)], name);
        }
    }

    void item_of(const slow_nodes &nodes, const slow_node &node, std::string &name) {
        std::vector<slow_node> items;
        for (int64_t i = node.left; i >= 0; i = nodes[static_cast<size_t>(i)].next) {
            items.push_back(nodes[static_cast<size_t>(i)]);
        }
        const slow_node &item = items[roll(items.size())];
        const int64_t code =
            item.type == 264
                ? item.left +
                      static_cast<int64_t>(roll(static_cast<size_t>(item.right - item.left) + 1))
                : item.type;
        name += static_cast<char>(code);
    }

    void one(const slow_nodes &nodes, const slow_node &node, std::string &name) {
        switch (node.type) {
        case 256: {
            const auto low = static_cast<size_t>(node.right >> 16 & 0xFFFF);
            const size_t high = std::min<size_t>(static_cast<size_t>(node.right & 0xFFFF), low + 3);
            for (size_t n = low + roll(high - low + 1); n > 0; --n) {
                one(nodes, nodes[static_cast<size_t>(node.left)], name);
            }
            break;
        }
        case 257:
            chain(nodes, roll(2) ? node.left : node.right, name);
            break;
        case 258:
        case 259:
            chain(nodes, node.left, name);
            break;
        case 261:
            item_of(nodes, node, name);
            break;
        case 260:
        case 263:
            name += "aq7"[roll(3)];
            break;
        case 269:
            name += roll(2) ? "host-" : "";
            break;
        default:
            if (node.type < 256) {
                name += static_cast<char>(node.type);
            }
        }
    }

    std::mt19937 dice_{1528};
};

class public_list : public pattern_list {
  protected:
    public_list() {
        for (const std::string &pattern : patterns) {
            slow.push_back(slow_parse(pattern).value_or(slow_nodes{}));
        }
    }
    const std::vector<std::string> patterns = listed_patterns();
    std::vector<slow_nodes> slow;
};

TEST_F(public_list, every_pattern_compiles) {
    EXPECT_EQ(patterns.size(), 1528u);
    for (const std::string &pattern : patterns) {
        EXPECT_NE(compiled(pattern), nullptr) << pattern;
    }
}

TEST_F(public_list, names_are_answered_as_the_slow_matcher_does) {
    write_file(patterns);
    name_maker make;
    std::vector<std::string> names = {"mail.example.org",
                                      "localhost",
                                      "192.0.2.1",
                                      "a:b",
                                      "host-192-0-2-33.dynamic.isp.example.net",
                                      std::string(255, '1')};
    for (size_t i = 0; i < slow.size(); i += 20) {
        names.push_back(make.name_for(slow[i]));
        names.push_back(make.near(names.back()));
    }
    size_t hits = 0;
    for (const std::string &name : names) {
        bool want = false;
        lines want_lines; // one pattern of the list holds a \t
        for (size_t i = 0; i < slow.size() && !want; ++i) {
            const slow_answer found = slow_match(slow[i], name, true);
            ASSERT_FALSE(found.endless);
            want = found.matched;
            if (!found.line.empty()) {
                want_lines.push_back(found.line);
            }
        }
        EXPECT_EQ(compiled_regex_match(path, name.c_str()), want) << name;
        EXPECT_EQ(log.errors(), want_lines) << name;
        hits += want;
    }
    EXPECT_GT(hits, names.size() / 4);
    EXPECT_LT(hits, names.size() * 9 / 10);
}

#ifdef QF_WITH_PCRE2
// Each pattern by itself, on names made for it and near those. All but five patterns match every
// name that they match for PCRE2.
TEST_F(public_list, what_pcre2_makes_of_it) {
    const std::set<std::string> want_missed = {
        R"(\.dynamic\.\telesat\.net\.co$)", // \t
        R"(^([012]?[0-9]{1,3}){4}\.[a-z-]{4,60}\.vectranet\.pl$)",
        R"(^cab-([12]?[0-9]{1,2}){2}\.calixo\.net$)",
        R"(^host([12]|[0-9]{1,2}-){3}[12]?[0-9]{1,2}\.range[12]|)" // a bar outside of groups
        R"([0-9]{1,2}-[12]?[0-9]{1,2}\.btcentralplus\.com$)",
        R"(^net(-[12]?[0-9]{1,2}){4}.cust.vodafonedsl.it$)",
    };
    name_maker make;
    std::set<std::string> missed; // patterns that match fewer names here
    std::set<std::string> wider;  // and those that match more
    size_t both = 0;
    for (size_t i = 0; i < patterns.size(); ++i) {
        const trex_ptr expression = compiled(patterns[i]);
        const pcre2_pattern peer(patterns[i]);
        for (int n = 0; n < 60; ++n) {
            const std::string made = make.name_for(slow[i]);
            for (const std::string &name : {made, make.near(made)}) {
                const bool here = trex_match(expression.get(), name.c_str()) == 1;
                const bool there = peer.answer(name) == "match";
                both += here && there;
                if (here != there) {
                    (here ? wider : missed).insert(patterns[i]);
                }
            }
        }
    }
    EXPECT_EQ(missed, want_missed);
    EXPECT_GT(both, patterns.size() * 60);
    // What is wider has a maximum inside a group, or a letter escape that is a literal here.
    EXPECT_GT(wider.size(), 800u);
    for (const std::string &pattern : wider) {
        EXPECT_TRUE(
            (pattern.find('(') != std::string::npos && pattern.find('{') != std::string::npos) ||
            pattern.find("\\e") != std::string::npos)
            << pattern;
    }
    for (const std::string &line : log.errors()) {
        EXPECT_EQ(line, "__trex_node_is_valid: non-printable character 9 found");
    }
}
#endif

} // namespace
} // namespace quillfence::testing
