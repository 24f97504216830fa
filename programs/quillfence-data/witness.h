// Listens to what the engine tells while it is asked: which entries it found, which rules it asked,
// what it could not look at.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "data_program.h"
#include "evidence.h"

namespace quillfence::data_tool {

// An entry that says something about a value.
struct found_entry {
    std::string file;    // as the engine names it; a registry key, a mailbox's folder; "" for what
                         // is built in
    std::string unit;    // what the number counts: "line", "record", "expression"; "" for none
    uint32_t number = 0; // from 1
    std::string text;
    std::string comment{};
    std::string how{};    // it was compared: "plain", "wildcard", "range", "pattern"
    std::string source{}; // of an expression its list and line: "dyna.list:12"
    std::string rule{};   // that asks for it; "" for none
};

// A list that was searched for a value, whether or not it is there.
struct searched_list {
    std::string path;
    std::string value;
};

// Whether two are one and the same entry; one without a text has that of the other.
bool same_entry(const found_entry &a, const found_entry &b);

// What could not be looked at, and why.
struct look_problem {
    std::string file;
    std::string reason;
};

// While one lives, the calling thread's context tells it everything. Only one at a time.
class witness {
  public:
    // Problems are added to *problems, each file once; borrowed.
    explicit witness(std::vector<look_problem> *problems);
    witness(const witness &) = delete;
    witness &operator=(const witness &) = delete;

    // All that follow throw std::bad_alloc when there was no memory for what was told.

    // The entries that matched, in the order in which they were told; forgotten here.
    std::vector<found_entry> take_found();
    // The lists that were searched, likewise.
    std::vector<searched_list> take_searches();
    // The names that a selection holds, by what it is: "rules", "block maps".
    std::vector<std::string> names_of(const std::string &selection) const;
    // Whether the driver asked a rule, or passed over it for the kind of session; false when it was
    // not enabled, or not come to.
    bool was_asked(const std::string &rule) const;
    // The rule whose hit was recorded; "" for none.
    const std::string &hit() const;

  private:
    template <class Fact>
    static void slot(void *context, const Fact *fact) noexcept;
    void on(const path_look &fact);
    void on(const list_search &fact);
    void on(const range_lookup &fact);
    void on(const pattern_search &fact);
    void on(const map_lookup &fact);
    void on(const sender_network_search &fact);
    void on(const selection_load &fact);
    void on(const domain_table_search &fact);
    void on(const registry_look &fact);
    void on(const folder_search &fact);
    void on(const rule_fact &fact);
    void on(const hit_fact &fact);
    void on(const look_failure &fact);
    void add_line(const char *path, uint32_t line, const char *text);
    void require_memory() const;

    std::vector<look_problem> *const problems_;
    std::vector<found_entry> found_;
    std::vector<searched_list> searches_;
    std::map<std::string, std::vector<std::string>> selections_;
    std::map<std::string, bool> asked_; // by rule
    std::string rule_;                  // whose check goes on
    std::string hit_;
    std::string last_path_;
    bool broken_ = false;
    evidence_sink sink_{};
    call_context context_{};
    call_scope scope_;
};

// Adds a problem, unless there is one with this file already.
void add_problem(std::vector<look_problem> *to, const std::string &file, const std::string &reason);

} // namespace quillfence::data_tool
