// Who wants to know what a check looks at and what it finds.
//
// A module tells each fact in one statement, where it learns it:
//
//     tell(&evidence_sink::searched_list, {.path = path, .entries = 12, .line = 7, .entry = line});
//
// Nobody asks unless the calling thread's call context (call_context.h) has a sink; a statement
// then costs one look at the thread's slot: no allocation, no system call, no log line. Telling
// never changes a result. What a fact points to is lent for the call alone; an empty text is
// "", an absent one null. Numbers of lines, records and expressions count from 1; 0 is "none".
//
// QF_REASON writes a DEBUG line and tells the same words as the reason for what a rule does.
#pragma once

#include <cstdint>
#include <type_traits>

#include "call_context.h"
#include "platform/error_numbers.h"
#include "vc_log.h"

namespace quillfence {

struct TRexNode;
struct vc_list_entry;
struct evidence_sink;

// --- files ---

// A path was looked at, to see whether it is there as a file or directory.
struct path_look {
    const char *path = nullptr;
    bool existed = false; // and is of the kind that was asked for
    bool directory = false;
};

// A list file was searched for a value.
struct list_search {
    const char *path = nullptr;
    const char *value = nullptr;
    bool existed = false;
    bool wildcards = false;      // whether "*" has a meaning there
    uint32_t entries = 0;        // looked at, comments and blank lines left out
    uint32_t line = 0;           // of the entry that matched; 0 for none
    const char *entry = nullptr; // its text, without leading white space; null for none
    bool by_wildcard = false;    // whether a "*" matched, or the whole text
    bool to_end = true;          // false when reading failed before
};

// A range file was searched for an address. Addresses are in network byte order.
struct range_lookup {
    const char *path = nullptr;
    const char *value = nullptr;
    bool existed = false;
    uint32_t records = 0; // looked at
    uint32_t record = 0;  // that contains the address; 0 for none
    uint32_t low = 0;
    uint32_t high = 0;
    const char *comment = nullptr; // up to 255 characters; "" for none
};

// A compiled pattern file, or a pattern that is built in, was tried on a text.
struct pattern_search {
    const char *path = nullptr; // null: built in
    const char *subject = nullptr;
    bool existed = false;
    uint32_t expressions = 0;        // looked at
    uint32_t expression = 0;         // that matched; 0 for none
    const TRexNode *nodes = nullptr; // of the one that matched
    int32_t node_count = 0;
    const char *pattern = nullptr; // built in: its text
};

// A block map was asked for an address.
struct map_lookup {
    const char *path = nullptr;
    bool existed = false;
    bool listed = false;
    uint32_t address = 0; // network byte order
    uint32_t level = 0;   // that decided, 1 to 3; 0 when the file is missing or could not be read
};

// The declarations of sender networks were searched for a domain.
struct sender_network_search {
    const char *path = nullptr;
    const char *domain = nullptr;
    uint32_t domains = 0; // declared in the file
    uint32_t line = 0;    // of the declaration; 0: the domain is not declared
    bool inside = false;  // whether one of its networks holds the client
};

// A selection of names was loaded: the enabled rules, the block maps, the DNS block lists.
struct selection_load {
    const char *what = nullptr; // "rules", "block maps", "dns block lists"
    const char *path = nullptr;
    bool built_in = false; // there is no such file, and these names stand in its place
    const vc_list_entry *names = nullptr; // texts, one a line of the file
};

// The mail server's table of its domains was searched.
struct domain_table_search {
    const char *path = nullptr;
    const char *domain = nullptr;
    uint32_t lines = 0; // looked at
    uint32_t line = 0;  // of the domain; 0 for none
};

// --- the mail server ---

struct registry_look {
    const char *key = nullptr;   // below HKEY_LOCAL_MACHINE
    const char *value = nullptr; // null: the key itself was looked for
    bool found = false;
    uint32_t type = 0; // of what was found, and its bytes as stored; 0 when only its name counts
    const void *data = nullptr;
    uint32_t size = 0;
    bool decided = false; // whether this value is why the rule applies
};

// A file of a folder that is searched for an entry, in the system's order.
struct folder_entry {
    const char *folder = nullptr;
    const char *name = nullptr;
};

struct folder_search {
    const char *folder = nullptr;
    const char *value = nullptr;
    bool existed = false;
    uint32_t entries = 0;
    const char *name = nullptr; // that matched; null for none
};

struct address_map_look {
    const char *library = nullptr;
    const char *address = nullptr;
    const char *destination = nullptr; // null: there is none, or no such library
};

// --- the world outside ---

// A DNS question of the engine and its answer; each attempt is a question of its own.
struct dns_question {
    const char *name = nullptr; // with its final dot
    uint16_t type = 0;
    uint32_t attempt = 0; // from 1
    uint32_t status = 0;
    int code = 0; // what the engine makes of it: vc_dns_found, vc_dns_no_name or vc_dns_failed
    const platform::dns_details *details = nullptr;
};

// A DNS block list was asked for the client, by the questions told just before.
struct zone_look {
    const char *zone = nullptr;
    const char *name = nullptr; // that was asked for
    int code = 0;               // as in dns_question
};

struct country_look {
    const char *database = nullptr;
    const char *ip = nullptr;
    const char *code = nullptr; // null: not found
};

// --- the session ---

// A cache of the session answered in place of a look-up.
struct cache_answer {
    const char *cache = nullptr; // "rdns_resolves", "helo_resolves", "mail_resolves", "rfc"
    uint32_t value = 0;
};

enum class rule_step : uint8_t {
    began,       // its check function is called
    ended,       // and has answered
    not_enabled, // the selection does not name it
    skipped,     // not for this kind of session
    never,       // it has no check function
};

struct rule_fact {
    const char *rule = nullptr;
    rule_step step = rule_step::began;
    uint8_t result = 0;         // ended: 0 or 1
    const char *kind = nullptr; // skipped: "localhost", "ipv6", "mua" or "bounce"
};

// The hook through which a rule would look something up is empty.
struct empty_hook {
    const char *rule = nullptr; // the check function's name
};

// Why, in words: a whole sentence.
struct reason_fact {
    const char *text = nullptr;
};

struct hit_fact {
    const char *rule = nullptr;
    const char *hit_name = nullptr; // each null without memory
    const char *notice = nullptr;
};

// --- what went wrong ---

// Something could not be looked at, so that an answer that builds on it is not certain.
struct look_failure {
    const char *what =
        nullptr; // a path, a name, the operation that had no memory; null: the path looked at last
    uint32_t error = 0;           // Win32's number; 0 when there is none
    const char *reason = nullptr; // in words; null: what the number says
};

// An ERROR line, whether or not the process has a log function.
struct error_line_fact {
    const char *module = nullptr;
    const char *function = nullptr;
    const char *text = nullptr;
};

// Whoever asks: a record of slots, of which any may be null. They throw nothing.
struct evidence_sink {
    template <class Fact>
    using slot = void (*)(void *context, const Fact *fact) noexcept;

    void *context; // handed to every slot
    slot<path_look> looked_at_path;
    slot<list_search> searched_list;
    slot<range_lookup> searched_ranges;
    slot<pattern_search> searched_patterns;
    slot<map_lookup> asked_map;
    slot<sender_network_search> searched_sender_networks;
    slot<selection_load> loaded_selection;
    slot<domain_table_search> searched_domain_table;
    slot<registry_look> looked_at_registry;
    slot<folder_entry> saw_folder_entry;
    slot<folder_search> searched_folder; // behind its entries
    slot<address_map_look> asked_address_map;
    slot<dns_question> dns_answered;
    slot<zone_look> asked_zone;
    slot<country_look> looked_up_country;
    slot<cache_answer> cache_answered;
    slot<rule_fact> rule_went;
    slot<empty_hook> found_empty_hook;
    slot<reason_fact> gave_reason;
    slot<hit_fact> recorded_hit;
    slot<look_failure> could_not_look;
    slot<error_line_fact> wrote_error;
};

// The sink of the calling thread; null when nobody asks.
inline const evidence_sink *asked() {
    const call_context *const context = current_call_context();
    return context ? context->evidence : nullptr;
}

// Tells a fact to whoever asks.
template <class Fact>
void tell(evidence_sink::slot<Fact> evidence_sink::*where, const std::type_identity_t<Fact> &fact) {
    const evidence_sink *const sink = asked();
    if (sink && sink->*where) {
        (sink->*where)(sink->context, &fact);
    }
}

// Tells that something could not be looked at. what may be null: the path that was looked at last.
inline void tell_failure(const char *what, uint32_t error, const char *reason = nullptr) {
    tell(&evidence_sink::could_not_look, {.what = what, .error = error, .reason = reason});
}

// The same of a lack of memory, in the operation of that name.
inline void tell_no_memory(const char *operation) {
    tell_failure(operation, platform::error_not_enough_memory, "no memory");
}

// Tells a reason of up to 2,047 bytes; a longer one is cut.
void tell_reason(const char *format, ...) QF_PRINTF_LIKE(1, 2);

} // namespace quillfence

// The arguments are evaluated a second time when somebody asks.
#define QF_REASON_AS(function, ...)                                                                \
    do {                                                                                           \
        QF_DEBUG_AS(function, __VA_ARGS__);                                                        \
        if (::quillfence::asked()) {                                                               \
            ::quillfence::tell_reason(__VA_ARGS__);                                                \
        }                                                                                          \
    } while (false)
#define QF_REASON_AT(place, ...)                                                                   \
    do {                                                                                           \
        QF_DEBUG_AT(place, __VA_ARGS__);                                                           \
        if (::quillfence::asked()) {                                                               \
            ::quillfence::tell_reason(__VA_ARGS__);                                                \
        }                                                                                          \
    } while (false)
#define QF_REASON(...) QF_REASON_AS(__func__, __VA_ARGS__)
