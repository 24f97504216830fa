#include "evidence_watch.h"

#include <cstring>
#include <utility>

#include "allocation_pause.h"
#include "byte_cursor.h"
#include "vc_list.h"

namespace quillfence::testing {
namespace {

// A line in the making. What is null, 0, false or "" is left out.
class line {
  public:
    explicit line(const char *word) : text(word) {}
    line &add(const char *name, const char *value) {
        if (value) {
            text += std::string(" ") + name + "=" + value;
        }
        return *this;
    }
    line &add(const char *name, uint32_t value) {
        return value ? add(name, std::to_string(value).c_str()) : *this;
    }
    line &flag(const char *name, bool set) {
        if (set) {
            text += std::string(" ") + name;
        }
        return *this;
    }
    std::string text;
};

std::string dotted(uint32_t address) {
    unsigned char octet[4];
    std::memcpy(octet, &address, sizeof octet);
    return std::to_string(octet[0]) + "." + std::to_string(octet[1]) + "." +
           std::to_string(octet[2]) + "." + std::to_string(octet[3]);
}

line shown(const path_look &fact) {
    return line("path")
        .add("", fact.path)
        .flag("there", fact.existed)
        .flag("folder", fact.directory);
}
line shown(const list_search &fact) {
    return line("list")
        .add("path", fact.path)
        .add("value", fact.value)
        .flag("missing", !fact.existed)
        .flag("wildcards", fact.wildcards)
        .add("entries", fact.entries)
        .add("line", fact.line)
        .add("entry", fact.entry)
        .flag("by_wildcard", fact.by_wildcard)
        .flag("broken_off", !fact.to_end);
}
line shown(const range_lookup &fact) {
    line made("ranges");
    made.add("path", fact.path).add("value", fact.value).flag("missing", !fact.existed);
    made.add("records", fact.records).add("record", fact.record);
    if (fact.record) {
        made.add("low", dotted(fact.low).c_str()).add("high", dotted(fact.high).c_str());
    }
    return made.add("comment", fact.comment);
}
line shown(const pattern_search &fact) {
    return line("patterns")
        .add("path", fact.path)
        .add("subject", fact.subject)
        .flag("missing", !fact.existed)
        .add("expressions", fact.expressions)
        .add("expression", fact.expression)
        .flag("with_nodes", fact.nodes && fact.node_count > 0)
        .add("pattern", fact.pattern);
}
line shown(const map_lookup &fact) {
    return line("map")
        .add("path", fact.path)
        .flag("missing", !fact.existed)
        .flag("listed", fact.listed)
        .add("address", dotted(fact.address).c_str())
        .add("level", fact.level);
}
line shown(const sender_network_search &fact) {
    return line("sender_networks")
        .add("path", fact.path)
        .add("domain", fact.domain)
        .add("domains", fact.domains)
        .add("line", fact.line)
        .flag("inside", fact.inside);
}
line shown(const selection_load &fact) {
    line made("selection");
    made.add("what", fact.what).add("path", fact.path).flag("built_in", fact.built_in);
    std::string names;
    for (const vc_list_entry *entry = fact.names; entry; entry = entry->next) {
        names += std::string(names.empty() ? "" : ",") + static_cast<const char *>(entry->data);
    }
    return made.add("names", names.c_str());
}
line shown(const domain_table_search &fact) {
    return line("domain_table")
        .add("path", fact.path)
        .add("domain", fact.domain)
        .add("lines", fact.lines)
        .add("line", fact.line);
}
line shown(const registry_look &fact) {
    line made("registry");
    made.add("key", fact.key).add("value", fact.value);
    made.flag("missing", !fact.found);
    if (fact.found) {
        made.add("type", fact.type);
    }
    if (!fact.data) {
        return made.flag("decided", fact.decided);
    }
    if (fact.type == platform::registry_text) {
        made.add("data", static_cast<const char *>(fact.data));
    } else if (fact.type == platform::registry_dword) {
        made.add("data", std::to_string(load_le32(fact.data)).c_str());
    } else {
        made.add("size", fact.size);
    }
    return made.flag("decided", fact.decided);
}
line shown(const folder_entry &fact) {
    return line("folder_entry").add("folder", fact.folder).add("name", fact.name);
}
line shown(const folder_search &fact) {
    return line("folder")
        .add("folder", fact.folder)
        .add("value", fact.value)
        .flag("missing", !fact.existed)
        .add("entries", fact.entries)
        .add("name", fact.name);
}
line shown(const address_map_look &fact) {
    return line("address_map")
        .add("library", fact.library)
        .add("address", fact.address)
        .add("destination", fact.destination);
}
line shown(const dns_question &fact) {
    return line("dns")
        .add("name", fact.name)
        .add("type", fact.type)
        .add("attempt", fact.attempt)
        .add("status", fact.status)
        .add("code", static_cast<uint32_t>(fact.code))
        .flag("with_details", fact.details);
}
line shown(const zone_look &fact) {
    return line("zone")
        .add("zone", fact.zone)
        .add("name", fact.name)
        .add("code", static_cast<uint32_t>(fact.code));
}
line shown(const country_look &fact) {
    return line("country").add("database", fact.database).add("ip", fact.ip).add("code", fact.code);
}
line shown(const cache_answer &fact) {
    return line("cache").add("cache", fact.cache).add("value", fact.value);
}
line shown(const rule_fact &fact) {
    static constexpr const char *steps[] = {"began", "ended", "not_enabled", "skipped", "never"};
    line made("rule");
    made.add("rule", fact.rule).flag(steps[static_cast<int>(fact.step)], true);
    if (fact.step == rule_step::ended) {
        made.add("result", std::to_string(fact.result).c_str());
    }
    return made.add("kind", fact.kind);
}
line shown(const empty_hook &fact) {
    return line("empty_hook").add("rule", fact.rule);
}
line shown(const reason_fact &fact) {
    return line("reason").add("text", fact.text);
}
line shown(const hit_fact &fact) {
    return line("hit")
        .add("rule", fact.rule)
        .add("name", fact.hit_name)
        .flag("with_notice", fact.notice);
}
line shown(const look_failure &fact) {
    return line("failure")
        .add("what", fact.what)
        .add("error", fact.error)
        .add("reason", fact.reason);
}
line shown(const error_line_fact &fact) {
    return line("error")
        .add("module", fact.module)
        .add("function", fact.function)
        .add("text", fact.text);
}

// The slot that keeps a fact's line.
template <class Fact>
void keep(void *context, const Fact *fact) noexcept {
    const allocation_pause ours;
    static_cast<std::vector<std::string> *>(context)->push_back(shown(*fact).text);
}

} // namespace

evidence_watch::evidence_watch()
    : sink{.context = &told,
           .looked_at_path = keep,
           .searched_list = keep,
           .searched_ranges = keep,
           .searched_patterns = keep,
           .asked_map = keep,
           .searched_sender_networks = keep,
           .loaded_selection = keep,
           .searched_domain_table = keep,
           .looked_at_registry = keep,
           .saw_folder_entry = keep,
           .searched_folder = keep,
           .asked_address_map = keep,
           .dns_answered = keep,
           .asked_zone = keep,
           .looked_up_country = keep,
           .cache_answered = keep,
           .rule_went = keep,
           .found_empty_hook = keep,
           .gave_reason = keep,
           .recorded_hit = keep,
           .could_not_look = keep,
           .wrote_error = keep},
      context{.evidence = &sink, .dns = nullptr, .configuration = nullptr}, scope(&context) {}

static bool begins_with_word(const std::string &text, const std::string &word) {
    return text.compare(0, word.size() + 1, word + " ") == 0;
}

std::vector<std::string> evidence_watch::take() {
    std::erase_if(told, [](const std::string &text) { return begins_with_word(text, "path"); });
    return std::exchange(told, {});
}

std::vector<std::string> evidence_watch::take(const std::string &word) {
    std::erase_if(told, [&](const std::string &text) { return !begins_with_word(text, word); });
    return std::exchange(told, {});
}

} // namespace quillfence::testing
