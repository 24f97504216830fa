// The document's members, each named once: the writer and the reader walk the same lists, in the
// document's order.
//
// A visitor has these functions; a record may be const for it:
//
//   required(name, value)        always there
//   recorded(name, value)        as required, but optional in what was written by hand
//   optional(name, value)        left out when empty: no value, "", 0, false, no element
//   optional(name, value, there) left out unless `there`; when read, there or not
//   whole(name, value)           as required, but left out of the short form
//   whole_optional(name, value)  as optional, but left out of the short form
//   empty_in_whole(name, value)  as required in the whole form, as optional in the short one
//
// The visitor knows what to do with a text, a number, a flag, a word of an enumeration, a list of
// any of them, and a record, for which it calls visit_members() in turn.
#pragma once

#include <concepts>
#include <type_traits>

#include "decision_record.h"

namespace quillfence::decision {

// A record of this type, const or not.
template <class Given, class Record>
concept record_of = std::same_as<std::remove_const_t<Given>, Record>;

void transaction_facts(auto &v, record_of<transaction> auto &of) {
    v.optional("ip", of.ip);
    v.optional("port", of.port);
    v.optional("tls", of.tls);
    v.optional("authuser", of.authuser);
    v.optional("mua", of.mua);
    v.optional("helo", of.helo);
    v.optional("sender", of.sender);
    v.optional("recipient", of.recipient);
}

void visit_members(auto &v, record_of<transaction> auto &of) {
    v.recorded("stage", of.stage);
    transaction_facts(v, of);
}

void visit_members(auto &v, record_of<session_facts> auto &of) {
    v.required("localhost", of.localhost);
    v.required("ipv6", of.ipv6);
    v.required("routable", of.routable);
    v.required("bounce", of.bounce);
    v.required("ptr", of.ptr);
    v.optional("ptr_left_out", of.ptr_left_out);
}

void visit_members(auto &v, record_of<engine_build> auto &of) {
    v.required("version", of.version);
    v.required("build", of.build);
}

void visit_members(auto &v, record_of<config_file> auto &of) {
    v.required("path", of.path);
    v.optional("missing", of.missing);
    v.optional("bytes", of.bytes);
    v.optional("sha256", of.sha256);
    v.optional("time", of.time);
}

void visit_members(auto &v, record_of<configuration> auto &of) {
    v.recorded("base", of.base);
    v.optional("user_dir", of.user_dir);
    v.optional("revision", of.revision);
    v.whole("files", of.files);
}

// --- sources: told apart by the member that only their kind has ---

void visit_members(auto &v, record_of<list_source> auto &of) {
    v.required("file", of.file);
    v.required("line", of.line);
    v.required("entry", of.entry);
    v.required("how", of.how);
}

void visit_members(auto &v, record_of<range_source> auto &of) {
    v.required("file", of.file);
    v.required("record", of.record);
    v.required("low", of.low);
    v.required("high", of.high);
    v.optional("comment", of.comment);
}

void visit_members(auto &v, record_of<expression_source> auto &of) {
    v.required("file", of.file);
    v.required("expression", of.expression);
    v.optional("pattern", of.pattern);
    v.optional("list", of.list);
    v.optional("list_line", of.list_line);
}

void visit_members(auto &v, record_of<block_map_source> auto &of) {
    v.required("map", of.map);
    v.required("level", of.level);
    v.required("network", of.network);
}

void visit_members(auto &v, record_of<sender_network_source> auto &of) {
    v.required("file", of.file);
    v.required("line", of.line);
    v.required("domain", of.domain);
}

void visit_members(auto &v, record_of<registry_source> auto &of) {
    v.required("key", of.key);
    v.required("value", of.value);
}

void visit_members(auto &v, record_of<folder_source> auto &of) {
    v.required("folder", of.folder);
    v.required("name", of.name);
}

void visit_members(auto &v, record_of<address_map_source> auto &of) {
    v.required("library", of.library);
}

// Its "file" is built_in_file.
void visit_members(auto &v, record_of<built_in_source> auto &of) {
    v.optional("pattern", of.pattern);
    v.optional("selection", of.selection);
}

void visit_members(auto &v, record_of<file_source> auto &of) {
    v.required("file", of.file);
    v.optional("line", of.line);
}

// --- the decision ---

void visit_members(auto &v, record_of<decision> auto &of) {
    v.required("verdict", of.is);
    v.required("by", of.by);
    v.optional("rule", of.rule);
    v.optional("where", of.where);
    v.optional("maps", of.maps);
    v.optional("zone", of.zone);
    v.optional("hit_name", of.hit_name);
    v.optional("notice", of.notice);
}

// A report that failed has no lists.
void visit_members(auto &v, record_of<report> auto &of) {
    v.optional("failed", of.failed);
    v.optional("spam_hits", of.spam_hits, of.failed.empty());
    v.optional("bms_hits", of.bms_hits, of.failed.empty());
}

void visit_members(auto &v, record_of<near_miss> auto &of) {
    v.required("what", of.what);
    v.required("text", of.text);
    v.optional("source", of.from);
}

void visit_members(auto &v, record_of<name_match> auto &of) {
    v.required("name", of.name);
    v.optional("source", of.matched);
    v.optional("exempted_by", of.exempted_by);
}

void visit_members(auto &v, record_of<rule_record> auto &of) {
    v.required("n", of.n);
    v.required("rule", of.rule);
    v.required("decision", of.decision);
    v.optional("report", of.report);
    v.optional("would", of.would);
    v.optional("kind", of.kind);
    v.optional("reason", of.reason);
    v.optional("fact", of.fact);
    v.optional("value", of.value, !of.fact.empty() || !of.value.empty());
    v.optional("source", of.from);
    v.optional("looked_at", of.looked_at);
    v.optional("exempted_by", of.exempted_by);
    v.optional("names", of.names);
    v.optional("near_misses", of.near_misses);
    v.optional("dns", of.dns);
    v.whole_optional("us", of.us);
}

void visit_members(auto &v, record_of<block_map_record> auto &of) {
    v.required("map", of.map);
    v.required("outcome", of.is);
    v.optional("network", of.network);
    v.optional("level", of.level);
    v.optional("missing", of.missing);
}

void visit_members(auto &v, record_of<dns_block_list_record> auto &of) {
    v.required("zone", of.zone);
    v.required("outcome", of.is);
    v.optional("answer", of.answer);
    v.optional("records", of.records);
    v.optional("dns", of.dns);
}

void visit_members(auto &v, record_of<dns_record> auto &of) {
    v.required("n", of.n);
    v.required("name", of.name);
    v.required("type", of.type);
    v.optional("transport", of.transport);
    v.optional("server", of.server);
    v.required("status", of.status);
    v.optional("rcode", of.rcode);
    v.required("class", of.is);
    v.required("records", of.records);
    v.required("attempt", of.attempt);
    v.optional("tries", of.tries);
    v.optional("ms", of.ms);
    v.required("used_by", of.used_by);
}

void visit_members(auto &v, record_of<missing_item> auto &of) {
    v.required("what", of.what);
    v.optional("name", of.name);
    v.optional("type", of.type);
    v.optional("fact", of.fact);
}

void visit_members(auto &v, record_of<note> auto &of) {
    v.required("severity", of.severity);
    v.required("text", of.text);
}

void visit_members(auto &v, record_of<error_line> auto &of) {
    v.required("module", of.module);
    v.required("function", of.function);
    v.required("text", of.text);
}

// --- the whole, all but "schema", which stands first ---

void members_up_to_the_transaction(auto &v, record_of<decision_record> auto &of) {
    v.recorded("id", of.id);
    v.optional("time", of.time);
    v.recorded("engine", of.engine);
    v.recorded("config", of.config);
    v.required("transaction", of.transaction);
    v.optional("extra", of.extra);
}

void members_behind_the_transaction(auto &v, record_of<decision_record> auto &of) {
    v.required("facts", of.facts);
    v.required("decision", of.decision);
    v.optional("report", of.report);
    v.required("rules", of.rules);
    v.required("block_maps", of.block_maps);
    v.required("dns_block_lists", of.dns_block_lists);
    v.required("dns", of.dns);
    v.required("missing", of.missing);
    v.required("notes", of.notes);
    v.empty_in_whole("errors", of.errors);
}

void visit_members(auto &v, record_of<decision_record> auto &of) {
    members_up_to_the_transaction(v, of);
    members_behind_the_transaction(v, of);
}

} // namespace quillfence::decision
