// All texts of a case, each with what it is, for who has to change some of them.
#pragma once

#include <string>
#include <string_view>

#include "case_members.h"

namespace quillfence::decision {

enum class text_kind : uint8_t {
    fixed,       // a word of ours, a rule, a map, a zone, a digest, an IP address
    text,        // may hold anything
    fact,        // a mail address or a local part: of the transaction
    domain,      // a name of the DNS
    path,        // a file, a folder, a registry key
    records,     // a DNS record: its type, a blank, its data
    destination, // "[SF:example.com/alice]"
};

struct text_place {
    std::string_view top;    // the member of the document in which it stands: "rules"
    std::string_view member; // its own: "entry"
    text_kind is;
};

// What a member's text is, by the names of the document's member and of its own. A member that
// nothing is known of may hold anything, and so may all in "extra".
text_kind kind_of_text(std::string_view top, std::string_view member);

// Whether what stands in that member of the document was made from the rest: by a program, not by
// the client, the DNS, the mail server or the person who wrote the case. Questions to the mail
// server are, but its answers are not.
bool is_derived(const text_place &place);

// --- the walk ---

// Walks the members of a record or a case. The visitor has text(place, text) and extra(member); the
// record may be const for it.
template <class Visitor>
class text_walk {
  public:
    explicit text_walk(Visitor &visitor) : visitor_(visitor) {}

    void required(std::string_view name, auto &value) {
        member(name, value);
    }
    void optional(std::string_view name, auto &value, bool = true) {
        member(name, value);
    }
    void whole(std::string_view name, auto &value) {
        member(name, value);
    }
    void whole_optional(std::string_view name, auto &value) {
        member(name, value);
    }
    void recorded(std::string_view name, auto &value) {
        member(name, value);
    }
    void empty_in_whole(std::string_view name, auto &value) {
        member(name, value);
    }

    void zone(std::string_view name, auto &value) {
        top_ = name;
        if (value) {
            for (auto &one : *value) {
                zone_texts(one);
            }
        }
    }
    void expected(std::string_view name, auto &value) {
        top_ = name;
        walk("notice", value.notice);
        walk("file", value.file);
        walk("entry", value.entry);
    }

  private:
    void member(std::string_view name, auto &value) {
        if (!depth_) {
            top_ = name;
        }
        ++depth_;
        walk(name, value);
        --depth_;
    }

    template <class Value>
    void walk(std::string_view name, Value &value) {
        using plain = std::remove_const_t<Value>;
        if constexpr (std::is_same_v<plain, std::string>) {
            visitor_.text(text_place{top_, name, kind_of_text(top_, name)}, value);
        } else if constexpr (std::is_same_v<plain, source>) {
            std::visit([this](auto &kind) { this->walk_source(kind); }, value);
        } else if constexpr (std::is_same_v<plain, extra_member>) {
            visitor_.extra(value);
        } else if constexpr (std::is_same_v<plain, registry_answer>) {
            registry_texts(value);
        } else if constexpr (requires { value.has_value(); }) {
            if (value) {
                walk(name, *value);
            }
        } else if constexpr (requires { value.begin(); }) {
            for (auto &one : value) {
                walk(name, one);
            }
        } else if constexpr (std::is_class_v<plain>) {
            visit_members(*this, value);
        }
    }
    template <class Kind>
    void walk_source(Kind &kind) {
        if constexpr (!std::is_same_v<std::remove_const_t<Kind>, std::monostate>) {
            visit_members(*this, kind);
        }
    }

    void registry_texts(auto &answer) {
        walk("key", answer.key);
        walk("value", answer.value);
        if (answer.type != "REG_DWORD") {
            walk("data", answer.data);
        }
    }
    void zone_texts(auto &of) {
        walk("name", of.name);
        for (auto &entry : of.entries) {
            if (!entry.type.empty()) { // else a word
                walk("data", entry.data);
            }
        }
    }

    Visitor &visitor_;
    std::string_view top_;
    unsigned depth_ = 0;
};

// Visits the texts of a record, or of a case; either may be const.
void visit_texts(auto &&visitor, auto &of) {
    text_walk walk(visitor);
    visit_members(walk, of);
}

void visit_server_texts(auto &&visitor, auto &of) {
    text_walk walk(visitor);
    members_of_the_server(walk, of);
}

} // namespace quillfence::decision
