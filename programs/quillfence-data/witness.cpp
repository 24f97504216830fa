#include "witness.h"

#include <algorithm>
#include <new>

#include "address_text.h"
#include "pattern_text.h"
#include "text.h"
#include "vc_list.h"
#include "vc_text.h"

namespace quillfence::data_tool {

bool same_entry(const found_entry &a, const found_entry &b) {
    return a.file == b.file && a.unit == b.unit && a.number == b.number &&
           (a.number || a.text.empty() || b.text.empty() || a.text == b.text);
}

// The engine joins a map's name with "/" even behind a folder that ends in one.
static std::string plain_path(std::string path) {
    for (size_t at; (at = path.find("//")) != std::string::npos;) {
        path.erase(at, 1);
    }
    return path;
}

void add_problem(std::vector<look_problem> *to, const std::string &file,
                 const std::string &reason) {
    if (std::none_of(to->begin(), to->end(),
                     [&](const look_problem &one) { return one.file == file; })) {
        to->push_back({file, reason});
    }
}

// --- the slots ---

// What there is no memory for is told to whoever asks next.
template <class Fact>
void witness::slot(void *context, const Fact *fact) noexcept {
    auto *const self = static_cast<witness *>(context);
    const call_scope quiet(nullptr); // what is looked at from here is nobody's business
    try {
        self->on(*fact);
    } catch (const std::bad_alloc &) {
        self->broken_ = true;
    }
}

witness::witness(std::vector<look_problem> *problems)
    : problems_(problems), scope_((sink_.context = this, context_.evidence = &sink_, &context_)) {
    sink_.looked_at_path = slot;
    sink_.searched_list = slot;
    sink_.searched_ranges = slot;
    sink_.searched_patterns = slot;
    sink_.asked_map = slot;
    sink_.searched_sender_networks = slot;
    sink_.loaded_selection = slot;
    sink_.searched_domain_table = slot;
    sink_.looked_at_registry = slot;
    sink_.searched_folder = slot;
    sink_.rule_went = slot;
    sink_.recorded_hit = slot;
    sink_.could_not_look = slot;
}

void witness::on(const path_look &fact) {
    last_path_ = fact.path;
}

void witness::add_line(const char *path, uint32_t line, const char *text) {
    found_.push_back({.file = path, .unit = "line", .number = line, .text = text, .rule = rule_});
}

void witness::on(const list_search &fact) {
    searches_.push_back({fact.path, fact.value});
    if (fact.line) {
        add_line(fact.path, fact.line, fact.entry);
    }
}

void witness::on(const range_lookup &fact) {
    if (fact.record) {
        found_.push_back({.file = fact.path,
                          .unit = "record",
                          .number = fact.record,
                          .text = address_text(in_network_order(fact.low)) + '-' +
                                  address_text(in_network_order(fact.high)),
                          .rule = rule_});
    }
}

static std::string text_of(const pattern_search &fact) {
    if (fact.pattern) {
        return fact.pattern;
    }
    TRex expression{};
    expression.nodes = const_cast<TRexNode *>(fact.nodes); // only read
    expression.nallocated = fact.node_count;
    std::string why;
    return pattern_of_nodes(expression, &why);
}

void witness::on(const pattern_search &fact) {
    if (fact.expression) {
        found_.push_back({.file = fact.path ? fact.path : "",
                          .unit = "expression",
                          .number = fact.expression,
                          .text = text_of(fact),
                          .how = "pattern",
                          .rule = rule_});
    }
}

void witness::on(const map_lookup &fact) {
    if (fact.listed) {
        found_.push_back({.file = plain_path(fact.path),
                          .unit = "",
                          .text = "",
                          .how = "level " + std::to_string(fact.level)});
    }
}

void witness::on(const sender_network_search &fact) {
    if (fact.line) {
        add_line(fact.path, fact.line, fact.domain);
    }
}

void witness::on(const selection_load &fact) {
    std::vector<std::string> &names = selections_[fact.what];
    for (const vc_list_entry *name = fact.names; name; name = name->next) {
        names.emplace_back(static_cast<const char *>(name->data));
    }
}

void witness::on(const domain_table_search &fact) {
    if (fact.line) {
        add_line(fact.path, fact.line, fact.domain);
    }
}

void witness::on(const registry_look &fact) {
    if (fact.decided) {
        found_.push_back({.file = std::string("HKEY_LOCAL_MACHINE\\") + fact.key,
                          .unit = "",
                          .text = text_or_null(fact.value),
                          .rule = rule_});
    }
}

void witness::on(const folder_search &fact) {
    if (fact.name) {
        found_.push_back({.file = fact.folder, .unit = "", .text = fact.name, .rule = rule_});
    }
}

void witness::on(const rule_fact &fact) {
    switch (fact.step) {
    case rule_step::began:
        rule_ = fact.rule;
        asked_[rule_] = true;
        break;
    case rule_step::ended:
        rule_.clear();
        break;
    case rule_step::skipped:
    case rule_step::never:
        asked_[fact.rule] = true;
        break;
    case rule_step::not_enabled:
        break;
    }
}

void witness::on(const hit_fact &fact) {
    hit_ = fact.rule;
}

void witness::on(const look_failure &fact) {
    add_problem(problems_, plain_path(fact.what ? fact.what : last_path_),
                fact.reason ? fact.reason : system_text(fact.error));
}

// --- what was told ---

void witness::require_memory() const {
    if (broken_) {
        throw std::bad_alloc();
    }
}

std::vector<found_entry> witness::take_found() {
    require_memory();
    std::vector<found_entry> taken;
    taken.swap(found_);
    return taken;
}

std::vector<searched_list> witness::take_searches() {
    require_memory();
    std::vector<searched_list> taken;
    taken.swap(searches_);
    return taken;
}

std::vector<std::string> witness::names_of(const std::string &selection) const {
    require_memory();
    const auto found = selections_.find(selection);
    return found == selections_.end() ? std::vector<std::string>() : found->second;
}

bool witness::was_asked(const std::string &rule) const {
    require_memory();
    return asked_.contains(rule);
}

const std::string &witness::hit() const {
    require_memory();
    return hit_;
}

} // namespace quillfence::data_tool
