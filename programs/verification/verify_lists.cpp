// The white and black lists.
#include "verify.h"

#include <algorithm>
#include <map>
#include <optional>
#include <unordered_map>

#include "address_text.h"
#include "entry_operators.h"
#include "list_files.h"
#include "list_line.h"
#include "progress.h"
#include "range_records.h"
#include "text.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence::verification {

namespace {

struct entry {
    uint32_t line;
    std::string text;
    bool usable = true; // nothing wrong with it by itself
};

struct list {
    const configuration_file *file;
    std::vector<entry> entries;
};

bool has_star(const std::string &text) {
    return text.find('*') != std::string::npos;
}

// Finds the first of a list's wildcard entries that matches a text. Those of the form "*end"
// without operators, nearly all, are looked up by their end.
class wildcards {
  public:
    void add(const entry &pattern) {
        const std::string &text = pattern.text;
        const bool is_end = text.find_last_of('*') == 0 && is_plain_pattern(text);
        if (is_end) {
            ends_.emplace(lower(text.substr(1)), &pattern);
        } else {
            others_.push_back(&pattern);
        }
    }
    // An entry with "*" stands for all that it matches, if it and the found one are plain.
    const entry *find(const std::string &text) const {
        const entry *found = nullptr;
        const std::string lowered = lower(text);
        for (size_t i = 0; i <= lowered.size(); ++i) {
            const auto at = ends_.find(lowered.substr(i));
            if (at != ends_.end() && (!found || at->second->line < found->line)) {
                found = at->second;
            }
        }
        for (const entry *pattern : others_) {
            if (found && found->line < pattern->line) {
                break;
            }
            if ((!has_star(text) || is_plain_pattern(pattern->text)) &&
                __wildcardmatch(pattern->text.c_str(), text.c_str()) == 0) {
                return pattern;
            }
        }
        return found;
    }

  private:
    std::unordered_map<std::string, const entry *> ends_;
    std::vector<const entry *> others_;
};

// --- lines by themselves ---

// The address in "<a@b>" or "Somebody <a@b>"; "" for other texts.
std::string address_in_brackets(const std::string &text) {
    const size_t begin = text.find('<');
    const size_t end = text.find('>', begin == std::string::npos ? 0 : begin);
    return begin == std::string::npos || end == std::string::npos
               ? std::string()
               : text.substr(begin + 1, end - begin - 1);
}

// Why an entry matches no address as mail servers pass them on; "" when it may.
std::string why_no_address(const std::string &text) {
    if (const std::string address = address_in_brackets(text); !address.empty()) {
        return "matches no address, as they come without angle brackets; write " +
               printable(address);
    }
    if (text.front() == '@') {
        return "matches no address; for a whole domain write *" + printable(text);
    }
    const bool is_quoted = text.find('"') != std::string::npos; // a local part may hold anything
    if (!is_quoted && text.find_first_of(",; \t") != std::string::npos) {
        return "matches no address; write one entry a line";
    }
    return has_star(text) || text.find('@') != std::string::npos
               ? std::string()
               : "holds neither @ nor *, so it matches no mail address; for a whole domain write "
                 "*@domain";
}

// What an entry of wildcards alone does.
std::string why_everybody(const configuration_file &list, const std::string &literal) {
    if (!literal.empty() && literal != "@") {
        return {};
    }
    const std::string who = literal.empty() ? "everybody" : "every address but that of a bounce";
    return "matches " + who + ": " +
           (list.decides || !list.opposite ? "nothing is refused any more" : "all mail is refused");
}

// What is odd about an entry that works.
std::optional<problem> why_odd(const configuration_file &list, const std::string &text) {
    if (list.kind != file_kind::addresses || text == "bounce message") {
        return {};
    }
    if (const std::string why = why_no_address(text); !why.empty()) {
        return problem{"entry-matches-no-address", why};
    }
    if (!has_star(text)) {
        return {};
    }
    std::string literal = text;
    literal.erase(std::remove(literal.begin(), literal.end(), '*'), literal.end());
    if (const std::string why = why_everybody(list, literal); !why.empty()) {
        return problem{"entry-matches-everybody", why};
    }
    return why_defeated(text);
}

// What kind of finding an entry is that why_useless() has something to say about.
finding_id id_of_useless(file_kind kind, const std::string &text) {
    if (!text.empty() && is_space(text.back())) {
        return "entry-ends-in-white-space";
    }
    if (kind == file_kind::addresses) {
        return "entry-does-not-compile";
    }
    return "entry-no-client-address";
}

// The line below an entry that begins with a TAB is its comment for the editor, but an entry for
// lookups.
bool is_comment_that_matches(file_kind kind, const std::string &text) {
    if (std::any_of(text.begin(), text.end(), is_space)) {
        return false;
    }
    return kind == file_kind::addresses ? text.find_first_of("@*") != std::string::npos
                                        : kind == file_kind::ips && vc_is_ip(text.c_str()) != 0;
}

class list_reader {
  public:
    list_reader(tree &in, const configuration_file &file) : in_(in), list_{&file, {}} {}

    list read(std::string_view bytes) {
        static constexpr std::string_view mark = "\xEF\xBB\xBF";
        if (bytes.substr(0, mark.size()) == mark) {
            add(1, "byte-order-mark",
                "begins with a byte order mark, which belongs to the first line");
            bytes.remove_prefix(mark.size());
        }
        for (const text_line &line : lines_of(bytes)) {
            read_line(line);
        }
        return std::move(list_);
    }

  private:
    void add(uint32_t line, finding_id id, std::string text) {
        in_.add(path_in_base(*list_.file), line, id, std::move(text));
    }

    void read_line(const text_line &line) {
        std::string_view text = line.text;
        if (!text.empty() && text.back() == '\r') {
            text.remove_suffix(1); // CR LF is a line end in these files
        }
        if (text.size() > longest_entry) {
            add(line.number, "entry-too-long",
                "has " + std::to_string(text.size()) +
                    " characters; the engine reads it in pieces of " +
                    std::to_string(longest_entry) + ", each a line of its own");
            below_entry_ = false;
            return;
        }
        const std::string whole(text); // to its first NUL as the engine sees it
        const std::string pattern = pattern_of_line(whole.c_str());
        if (is_comment(pattern.c_str())) {
            below_entry_ = false;
            return;
        }
        if (whole.front() == '\t' && below_entry_) {
            read_comment(line.number, pattern);
        } else {
            read_entry(line.number, pattern, whole.size() != std::strlen(whole.c_str()));
        }
    }

    void read_comment(uint32_t line, const std::string &text) {
        if (is_comment_that_matches(list_.file->kind, text)) {
            add(line, "comment-matches",
                "is a comment for the list editor, but lookups take " + quoted(text) +
                    " for an entry");
        }
        below_entry_ = false;
    }

    void read_entry(uint32_t line, const std::string &text, bool has_nul) {
        entry read = {line, text, true};
        if (const std::optional<problem> useless = why_unusable(text, has_nul)) {
            add(line, useless->id, quoted(text) + ' ' + useless->text);
            read.usable = false;
        } else if (const std::optional<problem> odd = why_odd(*list_.file, text)) {
            add(line, odd->id, quoted(text) + ' ' + odd->text);
        }
        list_.entries.push_back(read);
        below_entry_ = true;
    }

    std::optional<problem> why_unusable(const std::string &text, bool has_nul) const {
        if (has_nul) {
            return problem{"entry-holds-nul", "holds a NUL, where the entry ends"};
        }
        const std::string why = why_useless(list_.file->kind, text);
        if (why.empty()) {
            return {};
        }
        return problem{id_of_useless(list_.file->kind, text), why};
    }

    tree &in_;
    list list_;
    bool below_entry_ = false;
};

// --- lines together ---

using first_lines = std::map<std::string, const entry *>;

first_lines first_lines_of(const list &in) {
    first_lines firsts;
    for (const entry &read : in.entries) {
        firsts.emplace(lower(read.text), &read);
    }
    return firsts;
}

std::string line_text(const entry &read) {
    return "line " + std::to_string(read.line);
}

void find_duplicates(tree &in, const list &of) {
    const first_lines firsts = first_lines_of(of);
    wildcards earlier;
    progress bar(path_in_base(*of.file), of.entries.size());
    uint64_t done = 0;
    for (const entry &read : of.entries) {
        bar.show(done++);
        const entry *const first = firsts.at(lower(read.text));
        if (first != &read) {
            in.add(path_in_base(*of.file), read.line, "entry-repeated",
                   quoted(read.text) + " stands in " + line_text(*first) + " already");
            continue;
        }
        if (!read.usable || of.file->kind != file_kind::addresses) {
            continue;
        }
        const bool comparable = !has_star(read.text) || is_plain_pattern(read.text);
        const entry *const covering = comparable ? earlier.find(read.text) : nullptr;
        if (covering) {
            in.add(path_in_base(*of.file), read.line, "entry-covered",
                   quoted(read.text) + " is covered by " + line_text(*covering) + ", " +
                       quoted(covering->text));
        }
        if (has_star(read.text)) {
            earlier.add(read);
        }
    }
}

// A list whose entries are asked only after those of its opposite.
void compare_with_opposite(tree &in, const list &of, const list &opposite) {
    const first_lines firsts = first_lines_of(opposite);
    wildcards patterns;
    for (const entry &read : opposite.entries) {
        if (read.usable && opposite.file->kind == file_kind::addresses && has_star(read.text)) {
            patterns.add(read);
        }
    }
    for (const entry &read : of.entries) {
        const auto same = firsts.find(lower(read.text));
        if (same != firsts.end()) {
            in.add(path_in_base(*of.file), read.line, "entry-in-opposite-list",
                   quoted(read.text) + " stands in the opposite list as well: " +
                       path_in_base(*opposite.file) + ", " + line_text(*same->second));
            continue;
        }
        const bool comparable =
            read.usable && (!has_star(read.text) || is_plain_pattern(read.text));
        if (const entry *const found = comparable ? patterns.find(read.text) : nullptr) {
            in.add(path_in_base(*of.file), read.line, "entry-covered-by-opposite-list",
                   quoted(read.text) + " is matched by the opposite list, which comes first: " +
                       path_in_base(*opposite.file) + ", " + line_text(*found) + ", " +
                       quoted(found->text));
        }
    }
}

// Addresses that a range file holds already.
void compare_with_ranges(tree &in, const list &of, const std::string &file, finding_id id,
                         const char *relation) {
    const range_records ranges = in.ranges(file);
    const range_cover cover(ranges.records);
    for (const entry &read : of.entries) {
        const std::optional<uint32_t> address = parse_address(read.text);
        const range_record *const found = address ? cover.find(*address, *address) : nullptr;
        if (found) {
            in.add(path_in_base(*of.file), read.line, id,
                   quoted(read.text) + ' ' + relation + ": " + file + ", record " +
                       std::to_string(found->number));
        }
    }
}

const list *find_list(const std::vector<list> &lists, std::string_view name) {
    const auto at = std::find_if(lists.begin(), lists.end(), [name](const list &one) {
        return name == path_in_base(*one.file);
    });
    return at == lists.end() ? nullptr : &*at;
}

void compare_lists(tree &in, const list &of, const std::vector<list> &lists) {
    find_duplicates(in, of);
    const char *const opposite_name = of.file->opposite;
    const list *const opposite =
        opposite_name && !of.file->decides ? find_list(lists, opposite_name) : nullptr;
    if (opposite) {
        compare_with_opposite(in, of, *opposite);
    }
    if (of.file->range_file) {
        compare_with_ranges(in, of, of.file->range_file, "entry-in-range-file",
                            "is in the list's range file as well");
        if (!of.file->decides) {
            compare_with_ranges(in, of, find_list_file(opposite_name)->range_file,
                                "entry-in-opposite-range-file",
                                "is in the opposite list's range file, which comes first");
        }
    }
}

} // namespace

void verify_lists(tree &in) {
    std::vector<list> lists;
    for (const configuration_file &file : list_files()) {
        std::string bytes;
        if (in.has(path_in_base(file)) && in.read(path_in_base(file), &bytes)) {
            lists.push_back(list_reader(in, file).read(bytes));
        }
    }
    for (const list &of : lists) {
        compare_lists(in, of, lists);
    }
}

} // namespace quillfence::verification
