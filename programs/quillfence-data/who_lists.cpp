#include "who_lists.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <span>

#include "address_text.h"
#include "block_map.h"
#include "configuration.h"
#include "engine_messages.h"
#include "file_digest.h"
#include "is_local_domain.h"
#include "known_sender_forgery_funcs.h"
#include "list_search.h"
#include "lookup.h"
#include "me_ip_whitelist.h"
#include "me_sender_whitelist.h"
#include "pattern_lines.h"
#include "qfd-packet.h"
#include "quillfence-checks.h"
#include "quillfence-file.h"
#include "quillfence-spam-hooks.h"
#include "quillfence.h"
#include "smtp_state.h"
#include "text.h"
#include "vc_nulltermlist.h"
#include "vc_rfc.h"
#include "vcspamrule.h"

namespace quillfence::data_tool {

// --- sessions and rules ---

namespace {

using session = std::unique_ptr<smtp_state, decltype(&free_smtp_state)>;

// A list that goes with its scope; its data only where a release function is given.
struct list_releaser {
    vc_release_function release = nullptr;
    void operator()(vc_list_entry *list) const {
        vc_destroy_list(&list, release);
    }
};
using owned_list = std::unique_ptr<vc_list_entry, list_releaser>;

using rule_names = std::span<const char *const>;

// One place of a session in which a value is met: the session, and the rules that ask lists there.
struct place {
    const char *as;
    rule_names rules; // in the engine's table
    std::string sender{};
    std::string recipient{};
    std::string client{};
    std::string ptr_name{};
    std::string listed{};                   // asked of lists that no rule asks
    std::string base = quillfence_base_dir; // of the lists, with its final slash
};

} // namespace

// A client that rules may ask about when only its name is given: it has no file's attention.
static constexpr char some_client[] = "192.0.2.1";

static char *heap_copy(const std::string &text) {
    char *const copy = text.empty() ? nullptr : strdup(text.c_str());
    if (!copy && !text.empty()) {
        throw std::bad_alloc();
    }
    return copy;
}

static session session_of(const place &where) {
    session made(new_smtp_state(), free_smtp_state);
    if (!made) {
        throw std::bad_alloc();
    }
    made->base_dir = heap_copy(where.base);
    made->mail_from = heap_copy(where.sender);
    made->rcpt_to = heap_copy(where.recipient);
    made->ip = heap_copy(where.ptr_name.empty() ? where.client : some_client);
    if (made->ip) {
        made->localhost = static_cast<uint8_t>(is_localhost(made->ip));
        made->ipv6 = vc_is_ip(made->ip) == vc_family_ipv6;
        made->routable = vc_is_unroutable_ip(made->ip) == 0;
    }
    if (!where.ptr_name.empty()) { // as if they had been looked up
        made->routable = 1;
        made->rdns_resolves = resolves_yes;
        char *const name = heap_copy(where.ptr_name);
        if (!vc_lstcat(&made->ptr_results, name)) {
            std::free(name);
            throw std::bad_alloc();
        }
    }
    return made;
}

// Borrows the data.
static void append(owned_list *list, const void *data, size_t size) {
    vc_list_entry *head = list->release();
    const bool appended = vc_append_list_entry(&head, data, size, 0) > 0;
    list->reset(head);
    if (!appended) {
        throw std::bad_alloc();
    }
}

// The rules of these names, in the order of the engine's table, which lends them.
static owned_list rules_named(rule_names names) {
    owned_list chosen;
    for (const vc_list_entry *entry = quillfence_rules(); entry; entry = entry->next) {
        const auto *const rule = static_cast<const spam_rule *>(entry->data);
        if (std::any_of(names.begin(), names.end(),
                        [&](const char *name) { return rule_name_compare(rule, name) == 0; })) {
            append(&chosen, rule, sizeof *rule);
        }
    }
    return chosen;
}

// --- what an entry does ---

namespace {

// Which rules exempt, and which are enabled, as the drivers tell it of sessions without anything.
class rule_switches {
  public:
    explicit rule_switches(std::vector<look_problem> *problems);
    bool exempts(const std::string &rule) const {
        return exempting_.contains(rule);
    }
    bool is_enabled(const std::string &rule) const {
        return enabled_.contains(rule);
    }
    bool asks_map(const std::string &name) const {
        return maps_.contains(name);
    }

  private:
    std::set<std::string> exempting_;
    std::set<std::string> enabled_;
    std::set<std::string> maps_;
};

} // namespace

static constexpr char block_maps_rule[] = "block_lists";

static constexpr const char *sender_rules[] = {"to_whitelist", "from_whitelist", "from_blacklist",
                                               "local_require_auth"};
static constexpr const char *recipient_rules[] = {"to_whitelist"};
static constexpr const char *client_rules[] = {"ip_whitelist", block_maps_rule, "ip_blacklist"};
static constexpr const char *name_rules[] = {"check_dynamic_reverse_dns_default",
                                             "check_dynamic_reverse_dns", "check_reverse_dns_list",
                                             "check_confirmed_dyna"};
static constexpr const char *domain_rules[] = {"local_require_auth"};
static constexpr char forgery_rule[] = "known_sender_forgery"; // asks for sender and client at once

static std::vector<const char *> all_rules() {
    std::vector<const char *> all = {forgery_rule};
    for (const rule_names rules :
         {rule_names(sender_rules), rule_names(client_rules), rule_names(name_rules)}) {
        all.insert(all.end(), rules.begin(), rules.end());
    }
    return all;
}

rule_switches::rule_switches(std::vector<look_problem> *problems) {
    const std::vector<const char *> names = all_rules();
    const owned_list rules = rules_named(names);
    const place nothing = {.as = "", .rules = names};
    {
        const witness told(problems);
        is_exempt_r(session_of(nothing).get(), nullptr, rules.get());
        std::copy_if(names.begin(), names.end(), std::inserter(exempting_, exempting_.end()),
                     [&](const char *name) { return told.was_asked(name); });
    }
    const witness told(problems);
    global_spam_hit_r(session_of(nothing).get(), rules.get());
    std::copy_if(names.begin(), names.end(), std::inserter(enabled_, enabled_.end()),
                 [&](const char *name) { return told.was_asked(name) || exempts(name); });
    // Of the local host the maps are loaded, but not asked.
    const place local = {.as = "", .rules = names, .client = "127.0.0.1"};
    global_bms_r(session_of(local).get(), rules.get());
    for (const std::string &name : told.names_of("block maps")) {
        maps_.insert(name);
    }
    enabled_.insert(block_maps_rule);
}

static listing listing_of(found_entry entry, const rule_switches &switches) {
    listing made = {.entry = std::move(entry)};
    const std::string &rule = made.entry.rule;
    if (!rule.empty()) {
        made.does = switches.exempts(rule) ? entry_effect::accepts : entry_effect::refuses;
        made.enabled = switches.is_enabled(rule);
    }
    return made;
}

// Adds an entry unless it is there already.
static void add_listing(met_value *to, listing one) {
    if (std::none_of(to->listings.begin(), to->listings.end(),
                     [&](const listing &other) { return same_entry(other.entry, one.entry); })) {
        to->listings.push_back(std::move(one));
    }
}

// --- the rules, one by one ---

// Calls something that may find a file unreadable; then that is kept, and the run goes on.
template <class Function>
static void try_file(const std::string &path, std::vector<look_problem> *problems,
                     Function function) {
    try {
        function();
    } catch (const failure &why) {
        add_problem(problems, path, why.what());
    }
}

// Every entry of a list below a folder and of its range file that matches, not the first alone, at
// which a lookup ends.
static void add_list(const configuration_file &list, const std::string &base,
                     const std::string &value, const std::string &rule,
                     const rule_switches &switches, std::vector<look_problem> *problems,
                     met_value *to) {
    std::vector<list_match> matches;
    const std::string path_of_list = base + path_in_base(list);
    try_file(path_of_list, problems, [&] { find_in_list(path_of_list, list, value, &matches); });
    if (list.range_file) {
        const std::string path = base + list.range_file;
        try_file(path, problems, [&] {
            const std::string problem = find_in_ranges(path, value, &matches);
            if (!problem.empty()) {
                throw failure(problem);
            }
        });
    }
    for (const list_match &match : matches) {
        add_listing(to, listing_of({.file = match.file,
                                    .unit = match.record ? "record" : "line",
                                    .number = match.record ? match.record : match.line,
                                    .text = match.entry,
                                    .comment = match.comment,
                                    .how = match.how,
                                    .rule = rule},
                                   switches));
    }
}

// Lists that the engine edits, and that no rule asks.
static void add_other_lists(const std::string &value, const rule_switches &switches,
                            std::vector<look_problem> *problems, met_value *to) {
    for (const configuration_file &list : list_files()) {
        if (list.kind == file_kind::other_list && !value.empty()) {
            add_list(list, quillfence_base_dir, value, "", switches, problems, to);
        }
    }
}

static const configuration_file *list_at(const std::string &path, const std::string &base) {
    const std::vector<std::reference_wrapper<const configuration_file>> lists = list_files();
    const auto found =
        std::find_if(lists.begin(), lists.end(), [&](const configuration_file &list) {
            return path == base + path_in_base(list);
        });
    return found == lists.end() ? nullptr : &found->get();
}

// What one rule searches and finds, whether or not it is enabled.
static void add_rule(const char *name, const place &where, const rule_switches &switches,
                     std::vector<look_problem> *problems, met_value *to) {
    const owned_list rule = rules_named({&name, 1});
    owned_list enabled;
    append(&enabled, name, std::strlen(name) + 1);
    witness told(problems);
    run_spam_checks_r(session_of(where).get(), enabled.get(), rule.get());
    std::vector<found_entry> found = told.take_found();
    for (const searched_list &searched : told.take_searches()) {
        if (const configuration_file *const list = list_at(searched.path, where.base)) {
            add_list(*list, where.base, searched.value, name, switches, problems, to);
        }
    }
    for (found_entry &entry : found) {
        if (entry.file == exempt_regex_file) {
            entry.rule.clear();
        }
        add_listing(to, listing_of(std::move(entry), switches));
    }
}

// --- the drivers ---

static void mark(met_value *to, const found_entry &entry) {
    for (listing &one : to->listings) {
        one.decides = one.decides || same_entry(one.entry, entry);
    }
}

// A driver stops at the first hit; what it found last is why.
static bool take_decision(witness *told, bool accepted, met_value *to) {
    const std::vector<found_entry> found = told->take_found();
    to->rule = told->hit();
    to->accepted = accepted;
    if (to->rule.empty()) {
        for (const found_entry &entry : found) {
            to->spared = to->spared || entry.file == exempt_regex_file;
        }
    }
    for (const found_entry &entry : found) {
        const bool is_map = to->rule == block_maps_rule && entry.rule.empty();
        if (to->spared ? entry.file == exempt_regex_file : is_map || entry.rule == to->rule) {
            mark(to, entry);
        }
    }
    return !to->rule.empty();
}

// As a mail server asks: exemptions, rules, block maps.
static void decide(const place &where, const std::string &user_dir,
                   std::vector<look_problem> *problems, met_value *to) {
    const owned_list rules = rules_named(where.rules);
    const session asked = session_of(where);
    {
        witness told(problems);
        is_exempt_r(asked.get(), user_dir.c_str(), rules.get());
        if (take_decision(&told, true, to)) {
            return;
        }
    }
    {
        witness told(problems);
        global_spam_hit_r(asked.get(), rules.get());
        if (take_decision(&told, false, to)) {
            return;
        }
    }
    const bool was_spared = to->spared;
    if (!where.client.empty()) {
        witness told(problems);
        global_bms_r(asked.get(), rules.get());
        take_decision(&told, false, to);
    }
    to->spared = to->spared || was_spared;
}

// --- what rules don't say by themselves ---

static std::string line_of_file(const std::string &path, uint32_t number) {
    std::string bytes;
    if (read_file(path, &bytes)) {
        return {};
    }
    for (const text_line &line : lines_of(bytes)) {
        if (line.number == number) {
            return std::string(line.text.substr(0, line.text.find_last_not_of(" \t\r") + 1));
        }
    }
    return {};
}

static constexpr const char *declarations = configured("control/valid_domain_ips").path;

static void add_declaration(uint32_t line, const rule_switches &switches, met_value *to) {
    add_listing(to, {.entry = {.file = declarations,
                               .unit = "line",
                               .number = line,
                               .text = line_of_file(declarations, line),
                               .how = "declaration",
                               .rule = forgery_rule},
                     .does = entry_effect::declares,
                     .enabled = switches.is_enabled(forgery_rule)});
}

// The declaration of a domain.
static void add_declared_domain(const std::string &domain, const rule_switches &switches,
                                std::vector<look_problem> *problems, met_value *to) {
    if (domain.empty() || !may_be_file(declarations)) {
        return;
    }
    const engine_messages silent;
    witness told(problems);
    ksf_check_domain_to_ip_restriction(some_client, domain.c_str(), declarations);
    for (const found_entry &entry : told.take_found()) {
        add_declaration(entry.number, switches, to);
    }
}

// The declarations whose networks hold a client; of each domain the first counts.
static void add_declared_networks(const std::string &client, const rule_switches &switches,
                                  std::vector<look_problem> *problems, met_value *to) {
    if (vc_is_ip(client.c_str()) != vc_family_ipv4 || !may_be_file(declarations)) {
        return;
    }
    const engine_messages silent;
    const witness told(problems);
    const std::unique_ptr<ksf_domain_set, decltype(&ksf_free_list)> set(ksf_load_list(declarations),
                                                                        ksf_free_list);
    std::set<std::string> seen;
    for (size_t i = 0; set && i < set->domain_count; ++i) {
        const ksf_domain &domain = set->domains[i];
        if (seen.insert(domain.name).second && ksf_may_send(&domain, client.c_str())) {
            add_declaration(domain.line, switches, to);
        }
    }
}

static void add_mail_servers_whitelists(const place &where, const rule_switches &switches,
                                        std::vector<look_problem> *problems, met_value *to) {
    const engine_messages silent;
    witness told(problems);
    if (!where.client.empty()) {
        is_mailenable_ip_whitelist(where.client.c_str());
    }
    if (!where.sender.empty() && !where.recipient.empty()) {
        is_mailenable_sender_whitelist(where.sender.c_str(), where.recipient.c_str());
    }
    for (found_entry &entry : told.take_found()) {
        entry.rule = where.client.empty() ? "from_whitelist" : "ip_whitelist";
        add_listing(to, listing_of(std::move(entry), switches));
    }
}

// --- block maps ---

static std::vector<std::string> names_in(const configuration_file &file) {
    const owned_list lines(vc_file_to_list(quillfence_base_dir, path_in_base(file)), {std::free});
    std::vector<std::string> names;
    for (const vc_list_entry *line = lines.get(); line; line = line->next) {
        names.emplace_back(static_cast<const char *>(line->data));
    }
    return names;
}

// All that some list of maps names, each once.
static std::vector<std::string> map_names() {
    std::vector<std::string> all;
    for (const configuration_file &file : configuration_files) {
        if (file.kind != file_kind::map_names) {
            continue;
        }
        for (std::string &name : names_in(file)) {
            if (!name.empty() && std::find(all.begin(), all.end(), name) == all.end()) {
                all.push_back(std::move(name));
            }
        }
    }
    return all;
}

// The widest network around the client that the map answers alike.
static std::string network_around(const std::string &path, uint32_t address) {
    const map_answer answer = block_map(path).ask(address);
    if (!answer.listed) {
        throw failure("the engine's answer is another one; has the file changed meanwhile?");
    }
    return network_text(address & 0xFFFFFFFF << (32 - answer.prefix), answer.prefix);
}

static void add_map(const std::string &name, const std::string &client, uint32_t address,
                    const rule_switches &switches, std::vector<look_problem> *problems,
                    met_value *to) {
    owned_list one;
    append(&one, name.c_str(), name.size() + 1);
    witness told(problems);
    lookupMaps(quillfence_block_maps_dir, one.get(), client.c_str(), nullptr);
    for (found_entry &entry : told.take_found()) {
        entry.rule = block_maps_rule;
        try_file(entry.file, problems, [&] { entry.text = network_around(entry.file, address); });
        listing made = listing_of(std::move(entry), switches);
        made.enabled = switches.asks_map(name);
        add_listing(to, std::move(made));
    }
}

static void add_block_maps(const std::string &client, const rule_switches &switches,
                           std::vector<look_problem> *problems, met_value *to) {
    const std::optional<uint32_t> address = parse_address(client);
    if (!address) {
        return;
    }
    const engine_messages silent;
    for (const std::string &name : map_names()) {
        add_map(name, client, *address, switches, problems, to);
    }
}

// --- pattern files ---

// The line of the list that an expression was made from, where that is known.
static std::string source_of(const found_entry &entry) {
    std::string digest;
    if (entry.file.empty() || digest_of_file(entry.file, &digest)) {
        return {};
    }
    const pattern_lines lines = read_pattern_lines(entry.file, digest);
    if (lines.is != pattern_lines::state::current || entry.number > lines.origins.size()) {
        return {};
    }
    const pattern_origin &origin = lines.origins[entry.number - 1];
    return origin.list + ':' + std::to_string(origin.line);
}

static void finish_patterns(const std::string &name, std::vector<look_problem> *problems,
                            met_value *to) {
    {
        const engine_messages silent;
        witness told(problems);
        is_exempt_ptr_name(name.c_str());
        for (found_entry &entry : told.take_found()) {
            add_listing(to, {.entry = std::move(entry)});
        }
    }
    for (listing &one : to->listings) {
        if (one.entry.unit == "expression") {
            one.does = one.entry.file == exempt_regex_file ? entry_effect::spares : one.does;
            one.entry.source = source_of(one.entry);
        }
    }
}

// --- the whole ---

// The recipient's own lists only exempt.
static void add_users_rules(place where, const std::string &user_dir, const rule_switches &switches,
                            std::vector<look_problem> *problems, met_value *to) {
    where.base = user_dir + (user_dir.ends_with('/') ? "" : "/");
    for (const char *const name : where.rules) {
        if (switches.exempts(name)) {
            add_rule(name, where, switches, problems, to);
        }
    }
}

static met_value meet(const place &where, const std::string &user_dir,
                      const rule_switches &switches, std::vector<look_problem> *problems) {
    met_value met = {.as = where.as, .listings = {}};
    const engine_messages silent;
    for (const char *const name : where.rules) {
        add_rule(name, where, switches, problems, &met);
    }
    if (!user_dir.empty()) {
        add_users_rules(where, user_dir, switches, problems, &met);
    }
    add_other_lists(where.listed, switches, problems, &met);
    add_mail_servers_whitelists(where, switches, problems, &met);
    if (!where.client.empty()) {
        add_block_maps(where.client, switches, problems, &met);
        add_declared_networks(where.client, switches, problems, &met);
    }
    if (!where.ptr_name.empty()) {
        finish_patterns(where.ptr_name, problems, &met);
    }
    if (!where.sender.empty()) {
        add_declared_domain(where.sender.substr(where.sender.rfind('@') + 1), switches, problems,
                            &met);
    }
    decide(where, user_dir, problems, &met);
    engine_messages::require_memory();
    return met;
}

static bool has_only(std::string_view text, std::string_view characters) {
    return text.find_first_not_of(characters) == std::string_view::npos;
}

static bool is_host_name(const std::string &text) {
    const bool has_letter = !has_only(text, "0123456789.");
    return !text.empty() && text.size() <= 255 && has_letter && text.front() != '.' &&
           text.find("..") == std::string::npos &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) {
               return std::isalnum(c) || c == '-' || c == '.' || c == '_';
           });
}

// The value as the engine gets it, and what it is.
static value_kind kind_of(std::string *value) {
    if (!value->empty() && vc_is_ip(value->c_str())) {
        const std::unique_ptr<char, decltype(&std::free)> client(__process_ip_arg(value->c_str()),
                                                                 std::free);
        if (!client) {
            throw failure(quoted(*value) + ": can't be taken as a client's address");
        }
        *value = client.get();
        return value_kind::client;
    }
    if (value->find('/') != std::string::npos) {
        throw failure(quoted(*value) + " is a network; ask about one address in it");
    }
    if (value->find('@') != std::string::npos) {
        if (!vc_valid_email_address(value->c_str())) {
            throw failure(quoted(*value) + " is no mail address");
        }
        return value_kind::address;
    }
    if (value->size() > 1 && value->back() == '.') {
        value->pop_back(); // as the engine gets names from the DNS
    }
    if (!is_host_name(*value)) {
        throw failure(quoted(*value) + " is no mail address, no host name and no client's address");
    }
    return value_kind::name;
}

lists_answer ask_all_lists(const std::string &value, const std::string &recipient,
                           const std::string &user_dir) {
    lists_answer answer;
    answer.value = value;
    answer.kind = kind_of(&answer.value);
    if (!recipient.empty() &&
        (answer.kind != value_kind::address || !vc_valid_email_address(recipient.c_str()))) {
        throw failure(answer.kind != value_kind::address
                          ? "--recipient goes with a sender's mail address"
                          : quoted(recipient) + " is no mail address");
    }
    const engine_messages silent;
    {
        const witness told(&answer.problems);
        answer.engine_is_on = quillfence_enabled() != 0;
    }
    const rule_switches switches(&answer.problems);
    std::vector<place> places;
    const std::string &text = answer.value;
    switch (answer.kind) {
    case value_kind::address:
        places = {{.as = "a sender",
                   .rules = sender_rules,
                   .sender = text,
                   .recipient = recipient,
                   .listed = text},
                  {.as = "a recipient", .rules = recipient_rules, .recipient = text}};
        break;
    case value_kind::client:
        places = {{.as = "a client", .rules = client_rules, .client = text, .listed = text}};
        break;
    case value_kind::name:
        places = {
            {.as = "a client's PTR name", .rules = name_rules, .ptr_name = text},
            {.as = "a sender's domain", .rules = domain_rules, .sender = "postmaster@" + text}};
        break;
    }
    for (const place &where : places) {
        answer.met.push_back(meet(where, user_dir, switches, &answer.problems));
    }
    return answer;
}

} // namespace quillfence::data_tool
