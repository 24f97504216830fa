// The decision record: one document tells one decision whole. The driver and its collector fill it
// from what the engine itself did, the writer makes JSON of it, the reader takes it back.
// docs/decision-record.md describes the document; the members here have its names and its order.
//
// Texts are raw bytes as the engine had them; the writer shows what is not UTF-8 twice (the text
// with U+FFFD, and "..._bytes" in hexadecimal). An absent member is an empty optional, an empty
// vector where the document allows leaving it out, or an empty text where it says so.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace quillfence::decision {

inline constexpr std::string_view record_schema = "quillfence.decision/1";
inline constexpr std::string_view built_in_file = "<built-in>";

// --- what was judged ---------------------------------------------------------------------------

struct transaction {
    std::string stage = "RCPT";
    // Each may be unknown: a mail log holds no HELO, for one. An empty text is known to be empty.
    std::optional<std::string> ip;
    std::optional<std::string> port;
    std::optional<bool> tls;
    std::optional<std::string> authuser;
    std::optional<bool> mua;
    std::optional<std::string> helo;
    std::optional<std::string> sender;
    std::optional<std::string> recipient;
    bool operator==(const transaction &) const = default;
};

// The engine keeps all PTR names of a client and matches no more than these against patterns.
inline constexpr size_t most_names_told = 100;

// What the session's completion made of it.
struct session_facts {
    bool localhost = false;
    bool ipv6 = false;
    bool routable = false;
    bool bounce = false;
    std::vector<std::string> ptr;
    std::optional<uint32_t> ptr_left_out; // of the short form: how many there are besides
    bool operator==(const session_facts &) const = default;
};

// A member of the input that is not ours, handed through: its name and its value as JSON text.
using extra_member = std::pair<std::string, std::string>;

// --- where things come from --------------------------------------------------------------------

struct engine_build {
    std::string version;
    std::string build; // "linux-x86_64", "windows-x86_64"
    bool operator==(const engine_build &) const = default;
};

// A consulted file; path as the engine names it. Of a large file time stands in place of sha256.
struct config_file {
    std::string path;
    bool missing = false;
    std::optional<uint64_t> bytes;
    std::string sha256; // 64 hexadecimal digits; "" when it was not computed
    std::string time;   // of the last change, RFC 3339; "" unless it replaces the digest
    bool operator==(const config_file &) const = default;
};

struct configuration {
    std::string base;
    std::string user_dir; // "" for none
    std::string revision; // "sha256:..."; "" when no configuration was loaded as a whole
    std::vector<config_file> files;
    bool operator==(const configuration &) const = default;
};

// The one entry that decided, in the form of its kind.
struct list_source {
    std::string file;
    uint32_t line = 0;
    std::string entry;
    std::string how; // "wildcard" or "whole text"
    bool operator==(const list_source &) const = default;
};
struct range_source {
    std::string file;
    uint32_t record = 0; // from 1
    std::string low;
    std::string high;
    std::string comment; // "" for none
    bool operator==(const range_source &) const = default;
};
struct expression_source {
    std::string file;
    uint32_t expression = 0; // from 1
    std::string pattern;     // as text; "" when the nodes have none
    std::string list;        // the list that it was compiled from; "" when that is not known
    uint32_t list_line = 0;
    bool operator==(const expression_source &) const = default;
};
struct block_map_source {
    std::string map;
    uint32_t level = 0;  // 1 to 3
    std::string network; // the covering network, "10.11.0.0/16"
    bool operator==(const block_map_source &) const = default;
};
struct sender_network_source {
    std::string file;
    uint32_t line = 0;
    std::string domain;
    bool operator==(const sender_network_source &) const = default;
};
struct registry_source {
    std::string key;
    std::string value;
    bool operator==(const registry_source &) const = default;
};
struct folder_source {
    std::string folder;
    std::string name;
    bool operator==(const folder_source &) const = default;
};
struct address_map_source {
    std::string library;
    bool operator==(const address_map_source &) const = default;
};
// "<built-in>", with the pattern or the selection that is built in; either may be "".
struct built_in_source {
    std::string pattern;
    std::string selection;
    bool operator==(const built_in_source &) const = default;
};
// A file as a whole: what a control file says, or that it does not say something.
struct file_source {
    std::string file;
    uint32_t line = 0; // 0: none of its lines
    bool operator==(const file_source &) const = default;
};

using source = std::variant<std::monostate, list_source, range_source, expression_source,
                            block_map_source, sender_network_source, registry_source, folder_source,
                            address_map_source, built_in_source, file_source>;

// --- what was decided --------------------------------------------------------------------------

enum class verdict : uint8_t { accept, reject, undecided };
enum class decided_by : uint8_t {
    engine_off,
    exempt,
    rule,
    block_map,
    rbl,
    nothing, // nothing objected
    error,   // a function of the engine failed
    missing, // a fact or an answer
};

struct decision {
    verdict is = verdict::undecided;
    decided_by by = decided_by::error;
    std::string rule;              // by rule, exempt, block_map and rbl; else ""
    std::string where;             // exempt: "base" or "user"
    std::vector<std::string> maps; // block_map
    std::string zone;              // rbl
    std::string hit_name;          // the engine's own; "" without a hit
    std::string notice;            // of a reject
    bool operator==(const decision &) const = default;
};

// The replayer's two lists for the same session, or why it has none.
struct report {
    std::string failed; // "" when the lists are the answer
    std::vector<std::string> spam_hits;
    std::vector<std::string> bms_hits;
    bool operator==(const report &) const = default;
};

enum class outcome : uint8_t {
    hit,
    exempt,
    no_hit,
    skipped,
    not_enabled,
    not_reached,
    never,
    hit_unreported,
    undecided,
};

// A source that might have been meant, and why it does not count.
struct near_miss {
    std::string what; // a stable word: "parent_domain", "trailing_blank", ...
    std::string text; // for people
    source from;
    bool operator==(const near_miss &) const = default;
};

// What one PTR name met in a pattern rule.
struct name_match {
    std::string name;
    source matched;     // std::monostate: nothing
    source exempted_by; // what saved it all the same
    bool operator==(const name_match &) const = default;
};

struct rule_record {
    uint32_t n = 0; // place in the running order, from 1
    std::string rule;
    outcome decision = outcome::not_reached;
    std::optional<outcome> report; // absent when no report was asked for
    std::optional<outcome> would;  // what a rule behind the decision would have done
    std::string kind;              // of a skip: "localhost", "ipv6", "mua" or "bounce"
    std::string reason;
    std::string fact;  // the transaction's member that was judged
    std::string value; // and its text, as the rule saw it
    source from;       // "source" in the document
    std::optional<uint32_t> looked_at;
    source exempted_by;
    std::vector<name_match> names;
    std::vector<near_miss> near_misses;
    std::vector<uint32_t> dns; // numbers of dns_record
    std::optional<uint32_t> us;
    bool operator==(const rule_record &) const = default;
};

struct block_map_record {
    std::string map;
    outcome is = outcome::no_hit; // "outcome" in the document
    std::string network;          // of a hit
    uint32_t level = 0;
    bool missing = false; // there is no such file
    bool operator==(const block_map_record &) const = default;
};

// What a DNS block list said, by RFC 5782.
enum class block_list_answer : uint8_t { listed, not_listed, refused, no_listing, failed };

struct dns_block_list_record {
    std::string zone;
    outcome is = outcome::no_hit; // "outcome" in the document: what the engine made of it
    std::optional<block_list_answer> answer;
    std::vector<std::string> records;
    std::vector<uint32_t> dns;
    bool operator==(const dns_block_list_record &) const = default;
};

// --- what was asked ----------------------------------------------------------------------------

enum class answer_class : uint8_t { found, no_name, failure, missing };

struct dns_record {
    uint32_t n = 0;
    std::string name; // with its final dot
    std::string type;
    std::string transport; // "tcp", "udp"; "" when the system does not tell
    std::string server;    // "192.0.2.53:53"; likewise
    uint32_t status = 0;
    std::string rcode;                       // "NOERROR", "NXDOMAIN"; "" when there was no answer
    answer_class is = answer_class::failure; // "class" in the document
    std::vector<std::string> records;        // "CNAME x.", "PTR mail.example.org."
    uint32_t attempt = 1;                    // of the engine
    std::optional<uint32_t> tries;           // of the resolver
    std::optional<double> ms;
    std::vector<std::string> used_by;
    bool operator==(const dns_record &) const = default;
};

struct missing_item {
    std::string what; // "dns" or "fact"
    std::string name; // dns
    std::string type; // dns
    std::string fact; // fact
    bool operator==(const missing_item &) const = default;
};

struct note {
    std::string severity; // "info", "warning"
    std::string text;
    bool operator==(const note &) const = default;
};

struct error_line {
    std::string module;
    std::string function;
    std::string text;
    bool operator==(const error_line &) const = default;
};

// --- the whole ---------------------------------------------------------------------------------

// Whoever reads logs takes no line for one that is longer. One of policyd has some 2 KB, a whole
// one of batch some 20 KB; but a thousand names a DNS answer, which a client may have, are more.
inline constexpr size_t longest_record = size_t{8} << 20;

struct decision_record {
    std::string id;
    std::string time; // RFC 3339 in UTC; "" for absent
    engine_build engine;
    configuration config;
    struct transaction transaction;
    std::vector<extra_member> extra;
    session_facts facts;
    struct decision decision;
    std::optional<struct report> report;
    std::vector<rule_record> rules; // all of the table, in running order
    std::vector<block_map_record> block_maps;
    std::vector<dns_block_list_record> dns_block_lists;
    std::vector<dns_record> dns;
    std::vector<missing_item> missing;
    std::vector<note> notes;
    std::vector<error_line> errors;
    bool operator==(const decision_record &) const = default;
};

} // namespace quillfence::decision
