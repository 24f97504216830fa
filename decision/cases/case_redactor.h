// A case with pseudonyms in place of names, and the proof that no name is left in it. What redact()
// does besides deciding the case again.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

#include "case_file.h"
#include "personal_names.h"

namespace quillfence::decision {

class case_redactor {
  public:
    // Learns all names of the case, which must stay. `decided` is the record of a decision of the
    // case, which knows the zones of DNS block lists also when the case is a short one.
    case_redactor(const test_case &which, const decision_record &decided, std::string key,
                  bool domains);

    // What the redacted case says by itself when it is decided again: its texts know pseudonyms
    // only, and so a word in them is no name but one of the program's or of the configuration's:
    // "mail is taken from whitelists only", although somebody is called mail@example.org. made()
    // leaves such texts as they are, where they stand in members that a program makes. Likewise
    // what it asks of the mail server: that somebody is called mail@example.org says nothing about
    // the "Mail Server" in a registry key, nor in a folder that the registry names.
    void learn_said(const decision_record &by_itself, const server_answers &asked);

    test_case made();

    // Looks into the case as it is written, as JSON. Returns "" when it holds no mail address of
    // the original case, no local part of at least three bytes as a whole word, and none of the
    // domains that were to go; else what it holds and where:
    // "rules[3].reason still holds a name of the original case".
    // Not looked into: what is_derived() and was learned as said, except for addresses; and what
    // is no text of somebody else's (text_kind::fixed).
    std::string leak_in(std::string_view written) const;

    const personal_names &names() const {
        return names_;
    }

  private:
    const test_case &original_;
    personal_names names_;
    std::unordered_set<std::string> said_; // texts, and the parts of registry keys
};

} // namespace quillfence::decision
