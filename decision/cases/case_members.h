// The members of a case, each named once, for its reader and its writer: record_members.h tells
// how. Their visitors have two functions more, for what no record holds:
//
//   zone(name, value)      the DNS by hand
//   expected(name, value)  what ought to come
#pragma once

#include "case_file.h"
#include "record_members.h"

namespace quillfence::decision {

void visit_members(auto &v, record_of<registry_answer> auto &of) {
    v.required("key", of.key);
    v.optional("value", of.value);
    v.optional("type", of.type);
    v.optional("data", of.data, !of.type.empty());
    v.optional("missing", of.missing);
}

void visit_members(auto &v, record_of<address_map_answer> auto &of) {
    v.required("address", of.address);
    v.optional("destination", of.destination, !of.missing);
    v.optional("missing", of.missing);
}

void visit_members(auto &v, record_of<folder_answer> auto &of) {
    v.required("folder", of.folder);
    v.optional("names", of.names, !of.missing);
    v.optional("missing", of.missing);
}

void members_of_the_server(auto &v, record_of<server_answers> auto &of) {
    v.optional("registry", of.registry);
    v.optional("address_map", of.address_map);
    v.optional("folders", of.folders);
}

// All but "schema", which stands first.
void visit_members(auto &v, record_of<test_case> auto &of) {
    v.optional("description", of.description);
    members_up_to_the_transaction(v, of.record);
    v.zone("zonedata", of.zonedata);
    if (of.captured) {
        members_behind_the_transaction(v, of.record);
    } else {
        v.optional("dns", of.record.dns);
    }
    members_of_the_server(v, of.server);
    v.expected("expect", of.expect);
}

} // namespace quillfence::decision
