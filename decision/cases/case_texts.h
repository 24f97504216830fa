// All texts of a case, each with what it is, for who has to change some of them.
#pragma once

#include <string>
#include <string_view>

#include "case_file.h"
#include "record_members.h"

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

// What a member's text is, by the names of the document's member and of its own. All that stands in
// "extra" is text.
text_kind kind_of_text(std::string_view top, std::string_view member);

// Whether what stands in that member of the document was made from the rest: by a program, not by
// the client, the DNS or the person who wrote the case.
bool is_derived(const text_place &place);

// --- the walk ---

// Walks the members of a record. The visitor has text(place, text) and extra(member); the record
// may be const for it.
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
    void empty_in_whole(std::string_view name, auto &value) {
        member(name, value);
    }

    // One text outside of a record.
    void text(std::string_view top, std::string_view name, auto &value) {
        visitor_.text(text_place{top, name, kind_of_text(top, name)}, value);
    }
    void texts(std::string_view top, std::string_view name, auto &values) {
        for (auto &value : values) {
            text(top, name, value);
        }
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
            text(top_, name, value);
        } else if constexpr (std::is_same_v<plain, source>) {
            std::visit([this](auto &kind) { walk_source(kind); }, value);
        } else if constexpr (std::is_same_v<plain, extra_member>) {
            visitor_.extra(value);
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

    Visitor &visitor_;
    std::string_view top_;
    unsigned depth_ = 0;
};

void walk_server_texts(auto &walk, auto &server) {
    for (auto &answer : server.registry) {
        walk.text("registry", "key", answer.key);
        if (answer.value) {
            walk.text("registry", "value", *answer.value);
        }
        if (answer.type != "REG_DWORD") {
            walk.text("registry", "data", answer.data);
        }
    }
    for (auto &answer : server.address_map) {
        walk.text("address_map", "address", answer.address);
        walk.text("address_map", "destination", answer.destination);
    }
    for (auto &answer : server.folders) {
        walk.text("folders", "folder", answer.folder);
        walk.texts("folders", "names", answer.names);
    }
}

// Visits the texts of a record, or of a whole case; either may be const.
void visit_record_texts(auto &&visitor, auto &record) {
    text_walk walk(visitor);
    visit_members(walk, record);
}

void visit_texts(auto &&visitor, auto &which) {
    text_walk walk(visitor);
    walk.text("description", "description", which.description);
    visit_members(walk, which.record);
    if (which.zonedata) {
        for (auto &name : *which.zonedata) {
            walk.text("zonedata", "name", name.name);
            for (auto &entry : name.entries) {
                if (!entry.type.empty()) { // else a word
                    walk.text("zonedata", "data", entry.data);
                }
            }
        }
    }
    walk_server_texts(walk, which.server);
    walk.texts("expect", "notice", which.expect.notice);
    walk.texts("expect", "file", which.expect.file);
    walk.texts("expect", "entry", which.expect.entry);
}

} // namespace quillfence::decision
