// A server's answers between their two forms: what the engine tells and reads, and the texts of a
// case (server_answers.h).
#pragma once

#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "call_context.h"
#include "evidence.h"
#include "server_answers.h"

namespace quillfence::decision {

// Writes down what the engine tells, each thing once, in the order in which it was asked.
class answer_keeper {
  public:
    // Borrowed.
    explicit answer_keeper(server_answers *to) : kept(to) {}

    void on(const registry_look &fact);
    void on(const address_map_look &fact);
    // A folder's entries come before the end of its search.
    void on(const folder_entry &fact);
    void on(const folder_search &fact);

  private:
    server_answers *kept;
    // Where each value is kept; and each key, whose value is "\\".
    std::map<std::pair<std::string, std::string>, size_t> values;
    std::set<std::string> addresses;
    std::vector<std::string> names; // of the folder that is being searched
};

// Answers as the rows that the engine reads in place of the system's.
class answer_rows {
  public:
    // Borrows the texts of the answers.
    explicit answer_rows(const server_answers &from);
    answer_rows(const answer_rows &) = delete;
    answer_rows &operator=(const answer_rows &) = delete;

    // For a call context, as long as this lives.
    const server_rows *rows() const {
        return &all;
    }

  private:
    void add(const registry_answer &answer);
    void add(const folder_answer &answer);

    std::vector<registry_row> registry;
    std::vector<address_map_row> address_map;
    std::vector<folder_row> folders;
    std::deque<std::string> data;                // of the registry's values, as stored
    std::deque<std::vector<const char *>> names; // of the folders' files
    server_rows all{};
};

} // namespace quillfence::decision
