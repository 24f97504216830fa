#include "case_redactor.h"

#include <algorithm>
#include <optional>

#include "case_texts.h"
#include "json_reader.h"
#include "json_writer.h"
#include "words.h"

namespace quillfence::decision {

// --- parts of texts ---

// Behind the type of a DNS record.
static std::string_view data_of_record(std::string_view record) {
    const size_t blank = record.find(' ');
    return blank == std::string_view::npos ? "" : record.substr(blank);
}

// What a destination of the address map names: "[SF:example.com/alice]".
static std::string_view mailbox_of(std::string_view destination) {
    const size_t slash = destination.find('/');
    return slash == std::string_view::npos ? "" : destination.substr(slash + 1);
}

// --- learning ---

namespace {

class learning_visitor {
  public:
    explicit learning_visitor(personal_names &names) : names_(names) {}

    void text(const text_place &place, const std::string &text) {
        switch (place.is) {
        case text_kind::fixed:
            break;
        case text_kind::fact:
            names_.learn_fact(text);
            break;
        case text_kind::domain:
            names_.learn_text(text);
            names_.learn_domain(text);
            break;
        case text_kind::records:
            names_.learn_text(data_of_record(text));
            learn_last_word(text);
            break;
        case text_kind::destination:
            names_.learn_name(mailbox_of(text));
            break;
        case text_kind::text:
        case text_kind::path:
            names_.learn_text(text);
            break;
        }
    }

    void extra(const extra_member &member) {
        names_.learn_text(member.first);
        json_problem problem;
        const json_document document(member.second, &problem);
        for (uint32_t node = 0; !document.empty() && node < document[0].end; ++node) {
            names_.learn_text(document[node].name);
            names_.learn_text(document[node].text);
        }
    }

  private:
    // The domain in a DNS record stands at its end: "MX 10 mail.example.org."
    void learn_last_word(std::string_view record) {
        names_.learn_domain(record.substr(record.rfind(' ') + 1));
    }

    personal_names &names_;
};

} // namespace

static void keep_zones(personal_names *names, const decision_record &of) {
    for (const dns_block_list_record &list : of.dns_block_lists) {
        names->keep_zone(list.zone);
    }
    names->keep_zone(of.decision.zone);
}

// A HELO of one label is the name of somebody's computer.
static bool is_computer(const std::optional<std::string> &helo) {
    return helo && helo->find_first_of(".@") == std::string::npos &&
           lower_case(*helo) != "localhost";
}

case_redactor::case_redactor(const test_case &which, const decision_record &decided,
                             std::string key, bool domains)
    : original_(which), names_(std::move(key), domains) {
    visit_texts(learning_visitor(names_), which);
    keep_zones(&names_, which.record);
    keep_zones(&names_, decided);
    if (domains && is_computer(which.record.transaction.helo)) {
        names_.learn_name(*which.record.transaction.helo);
    }
    names_.settle();
}

// The parts of a path.
template <class Function>
static void for_each_part(std::string_view path, const Function &take) {
    for (size_t at = 0; at <= path.size();) {
        const size_t end = std::min(path.find_first_of("/\\", at), path.size());
        take(path.substr(at, end - at));
        at = end + 1;
    }
}

namespace {

class saying_visitor {
  public:
    explicit saying_visitor(std::unordered_set<std::string> &said) : said_(said) {}
    void text(const text_place &place, const std::string &text) {
        if (is_derived(place) && place.is != text_kind::fixed) {
            said_.insert(text);
        }
        if (place.top == "registry" && place.member == "key") {
            for_each_part(text, [this](std::string_view part) { said_.emplace(part); });
        }
    }
    void extra(const extra_member &) {}

  private:
    std::unordered_set<std::string> &said_;
};

} // namespace

void case_redactor::learn_said(const decision_record &by_itself, const server_answers &asked) {
    visit_texts(saying_visitor(said_), by_itself);
    visit_server_texts(saying_visitor(said_), asked);
}

// --- replacing ---

namespace {

class replacing_visitor {
  public:
    replacing_visitor(personal_names &names, const std::unordered_set<std::string> &said)
        : names_(names), said_(said) {}

    void text(const text_place &place, std::string &text) {
        const bool said = is_derived(place) && said_.contains(text);
        text = said ? names_.in_addresses(text) : replaced(place.is, text);
    }

    void extra(extra_member &member) {
        json_problem problem;
        const json_document document(member.second, &problem);
        member.first = names_.in_text(member.first);
        std::string made;
        json_writer json(made, json_layout::one_line);
        if (!document.empty()) {
            write(json, document, 0);
        }
        json.finish();
        member.second = document.empty() ? "null" : made;
    }

  private:
    std::string replaced(text_kind is, std::string_view text) {
        switch (is) {
        case text_kind::fixed:
            return std::string(text);
        case text_kind::path:
            return names_.in_path(text);
        case text_kind::records: {
            const std::string_view data = data_of_record(text);
            return std::string(text.substr(0, text.size() - data.size())) += names_.in_text(data);
        }
        case text_kind::destination: {
            const std::string_view mailbox = mailbox_of(text);
            return names_.in_addresses(text.substr(0, text.size() - mailbox.size())) +=
                   names_.in_name(mailbox);
        }
        case text_kind::text:
        case text_kind::fact:
        case text_kind::domain:
            break;
        }
        return names_.in_text(text);
    }

    // A number that is a name becomes a text: a pseudonym may begin with 0.
    void write_number(json_writer &json, std::string_view number) {
        if (names_.holds_name(number)) {
            json.text(names_.in_text(number));
        } else {
            json.raw(number);
        }
    }

    void write(json_writer &json, const json_document &document, uint32_t node) {
        const json_node &value = document[node];
        switch (value.is) {
        case json_kind::text:
            json.text(names_.in_text(value.text));
            break;
        case json_kind::number:
            write_number(json, value.text);
            break;
        case json_kind::array:
            json.begin_array();
            for (uint32_t i = node + 1; i < value.end; i = document[i].end) {
                write(json, document, i);
            }
            json.end_array();
            break;
        case json_kind::object:
            json.begin_object();
            for (uint32_t i = node + 1; i < value.end; i = document[i].end) {
                json.name_text(names_.in_text(document[i].name));
                write(json, document, i);
            }
            json.end_object();
            break;
        case json_kind::null:
        case json_kind::boolean:
            json.raw(value.text);
            break;
        }
    }

    personal_names &names_;
    const std::unordered_set<std::string> &said_;
};

} // namespace

test_case case_redactor::made() {
    test_case made = original_;
    visit_texts(replacing_visitor(names_, said_), made);
    return made;
}

// --- the proof ---

namespace {

// Looks at a document, without knowing how its texts were made.
class leak_search {
  public:
    leak_search(const json_document &document, const personal_names &names,
                const std::unordered_set<std::string> &said)
        : document_(document), names_(names), said_(said) {}

    std::string run() {
        for (uint32_t i = 1; found_.empty() && i < document_[0].end; i = document_[i].end) {
            top_ = document_[i].name;
            depth_ = 0;
            look_at(i, top_);
        }
        return found_;
    }

  private:
    void look_at(uint32_t node, std::string_view member) {
        const json_node &value = document_[node];
        if (is_named_by_the_case()) {
            judge(node, {top_, member, text_kind::text}, value.name);
        }
        if (value.is == json_kind::text || (value.is == json_kind::number && top_ == "extra")) {
            look_at_text(node, member);
        }
        ++depth_;
        for (uint32_t i = node + 1; found_.empty() && i < value.end; i = document_[i].end) {
            if (top_ != "expect" || document_[i].name != "rules") { // rules, and their outcomes
                look_at(i, value.is == json_kind::object ? document_[i].name : member);
            }
        }
        --depth_;
    }

    // Members whose names are no words of ours.
    bool is_named_by_the_case() const {
        return (top_ == "extra" && depth_ > 0) || (top_ == "zonedata" && depth_ == 1);
    }

    void look_at_text(uint32_t node, std::string_view member) {
        constexpr std::string_view bytes = "_bytes";
        std::string text(document_[node].text);
        if (top_ != "extra" && member.ends_with(bytes)) {
            member.remove_suffix(bytes.size());
            text = bytes_of(text);
        }
        const text_place place{top_, member, kind_of_text(top_, member)};
        if (place.is == text_kind::records) {
            text = data_of_record(text);
        }
        if (place.is != text_kind::fixed && !is_ours(node, place, text)) {
            judge(node, place, text);
        }
    }

    // Numbers of the registry, and words in place of DNS answers.
    bool is_ours(uint32_t node, const text_place &place, std::string_view text) const {
        if (top_ == "registry" && place.member == "data") {
            return type_beside(node) == "REG_DWORD";
        }
        return top_ == "zonedata" && dns_sources::answer_of_word(text);
    }
    // The member "type" of the object that a node is a member of, which stands before the node.
    std::string_view type_beside(uint32_t node) const {
        while (node && document_[node].name != "type" && document_[node].is == json_kind::text) {
            --node;
        }
        return document_[node].text;
    }

    static std::string bytes_of(std::string_view hexadecimal) {
        std::string made;
        for (size_t i = 0; i + 1 < hexadecimal.size(); i += 2) {
            made += static_cast<char>(digit(hexadecimal[i]) << 4 | digit(hexadecimal[i + 1]));
        }
        return made;
    }
    static int digit(char c) {
        return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
    }

    bool is_said(std::string_view text) const {
        return said_.contains(std::string(text));
    }

    bool holds_name(const text_place &place, std::string_view text) const {
        if (is_derived(place) && is_said(text)) {
            return false;
        }
        if (place.is != text_kind::path) {
            return names_.holds_name(text);
        }
        bool found = false;
        for_each_part(text, [&](std::string_view part) {
            found |= names_.holds_name(part) && !is_said(part);
        });
        return found;
    }

    void judge(uint32_t node, const text_place &place, std::string_view text) {
        const char *const what = names_.holds_address(text)  ? "a mail address"
                                 : names_.holds_domain(text) ? "a domain"
                                 : holds_name(place, text)   ? "a name"
                                                             : nullptr;
        if (what) {
            found_ = document_.path_of(node) + " still holds " + what + " of the original case";
        }
    }

    const json_document &document_;
    const personal_names &names_;
    const std::unordered_set<std::string> &said_;
    std::string_view top_; // the document's member that is looked at
    unsigned depth_ = 0;   // below it
    std::string found_;
};

} // namespace

std::string case_redactor::leak_in(std::string_view written) const {
    json_problem problem;
    const json_document document(written, &problem);
    if (document.empty()) {
        return "what was written can't be read again: " + problem.text;
    }
    return leak_search(document, names_, said_).run();
}

} // namespace quillfence::decision
