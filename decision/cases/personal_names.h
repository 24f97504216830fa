// Whom a case is about: the local parts of its mail addresses, on request its domains too, found in
// its texts and replaced by pseudonyms.
//
//     personal_names names(key, /*domains*/ false);
//     names.learn_fact("Bob.Smith+news@mail.example.org");     all texts are learned first
//     names.learn_text("see bob.smith@example.org");
//     names.settle();
//     names.in_text("To Bob.Smith: gone")  ->  "To Qpl.Vhwxk: gone"
//
// A local part is replaced word by word (pseudonym.h): what stands between its words, as "+" and
// "=", stays, so that bob.smith+news and bob.smith have a word in common. Each word is a name from
// then on. In texts
// - the local part of every mail address is replaced, whatever its length;
// - elsewhere a name is replaced where it stands as a whole word, whatever its letter case, when it
//   has at least three bytes: "is" and "a" are names as well as words of every other sentence.
// A domain that stands inside a local part beside a "=", as in list+bob=x.example@list.example, is
// the domain that it is, when the case holds it elsewhere; else it is replaced like any other word.
//
// Domains are replaced label by label, with all that are above and below them but for the last
// label. DNS block lists' zones stay, the names that addresses have in the DNS, and
// "localhost.localdomain". A name of one label counts as a domain nowhere.
//
// IP addresses are never replaced, not even where one stands for a local part.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "pseudonym.h"

namespace quillfence::decision {

// Where a mail address stands in a text.
struct address_place {
    size_t at;     // of the local part
    size_t sign;   // of the "@"
    size_t behind; // of the domain, which may be empty
};

// The addresses in a text, in their order. A local part is what stands before an "@" without white
// space, brackets, quotes, "/", "\", ",", ";" and ":"; or a text of at most 320 bytes in double
// quotes. It is not empty.
std::vector<address_place> addresses_in(std::string_view text);

class personal_names {
  public:
    personal_names(std::string key, bool domains)
        : pseudonyms_(std::move(key)), with_domains_(domains) {}

    // --- learning ---

    // A text that is a mail address, or a local part, as a whole: all before the last "@", or all.
    void learn_fact(std::string_view text);
    // Any text, for the addresses in it.
    void learn_text(std::string_view text);
    // A name of the DNS.
    void learn_domain(std::string_view name);
    // A local part alone: a mailbox.
    void learn_name(std::string_view text);
    // A domain that stays, with all below it.
    void keep_zone(std::string_view zone);
    // Ends the learning.
    void settle();

    // --- replacing ---

    std::string in_text(std::string_view text);
    // A folder or a registry key. Between its separators only mail addresses are replaced, and what
    // holds nothing but names, of any length: a word of "Mail Server" is no mailbox.
    std::string in_path(std::string_view path);
    // A local part, or what learn_name() took.
    std::string in_name(std::string_view local);
    // What in_text() does, without the names outside of addresses.
    std::string in_addresses(std::string_view text);

    // --- checking ---

    // Whether a text still holds one of the learned addresses.
    bool holds_address(std::string_view text) const;
    // Whether it holds a domain that is to go.
    bool holds_domain(std::string_view text) const;
    // Whether it holds one of the names, of at least three bytes, as a whole word or several.
    bool holds_name(std::string_view text) const;

    // How many words and domains there are to replace, and how many pseudonyms were computed.
    size_t size() const {
        return names_.size() + domains_.size();
    }
    size_t computed() const {
        return pseudonyms_.computed();
    }

  private:
    enum class scope : uint8_t { addresses, words };

    void learn_address(std::string_view local, std::string_view domain);
    bool is_domain(const std::string &word) const;
    bool goes_as_domain(const std::string &word) const;
    bool is_kept(const std::string &word) const;
    bool stands_for_domain(std::string_view local, word_place place) const;
    std::string in_fact(std::string_view text);
    void learn_phrase(std::string_view local);
    size_t phrase_at(std::string_view text, size_t at) const;
    std::string in_word(std::string_view word, scope which);
    std::string in_words(std::string_view text, scope which);
    std::string in_found_addresses(std::string_view text, scope which);
    std::string in_component(std::string_view component);
    bool has_only_names(std::string_view text) const;
    bool is_learned_around(std::string_view text, size_t sign) const;

    pseudonyms pseudonyms_;
    const bool with_domains_;
    // All in lower case.
    std::vector<std::string> locals_;         // as they were learned
    std::unordered_set<std::string> facts_;   // texts that are addresses as a whole
    std::unordered_set<std::string> names_;   // words of local parts
    std::unordered_set<std::string> domains_; // with their parents of two labels or more
    std::unordered_set<std::string> zones_;   // that stay
    std::vector<std::string> phrases_;   // sorted: words of a local part and what is between them
    std::vector<std::string> addresses_; // sorted: the local part from its end on, "@", the domain
};

} // namespace quillfence::decision
