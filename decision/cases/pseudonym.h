// Pseudonyms: texts of the same shape in place of people's names, which only the holder of the key
// can make again.
//
//     bob.smith     ->  qpl.vhwxk          letters become letters, digits digits
//     Bob.Smith     ->  Qpl.Vhwxk          of the same case
//     müller42      ->  qākwpe71           other letters become such of as many bytes of UTF-8
//
// Under one key a text has one pseudonym wherever it stands, whatever the case of its letters, so
// that several cases of one person can be compared; under another key it has another one. Two texts
// of one shape may meet in one pseudonym; a text never keeps its own.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>

namespace quillfence::decision {

// --- words ---

// What has a pseudonym as a whole: letters, digits, all bytes outside ASCII, and ".", "-" and "_"
// between them, as many as stand together. A "." or "-" at either end does not belong to it, and an
// IP address is no word.
//
//     <bob.smith+news@mail.example.org>.     bob.smith, news, mail.example.org
struct word_place {
    size_t at;
    size_t size;
};

bool is_word_byte(char c);

// Finds the next word that begins at or behind a place. False when there is none.
bool next_word(std::string_view text, size_t from, word_place *found);

// The text with what `replaced` makes of each of its words, given as (text, place of the word).
template <class Function>
std::string with_words(std::string_view text, const Function &replaced) {
    std::string made;
    size_t at = 0;
    for (word_place word{}; next_word(text, at, &word); at = word.at + word.size) {
        made += text.substr(at, word.at - at);
        made += replaced(text, word);
    }
    return made += text.substr(at);
}

// ASCII letters in lower case; all other bytes as they are.
std::string lower_case(std::string_view text);

// --- pseudonyms ---

class pseudonyms {
  public:
    explicit pseudonyms(std::string key) : key_(std::move(key)) {}

    // Of any text. Its ASCII letters and digits are replaced, its letters of UTF-8, and its bytes
    // that are no UTF-8 by such bytes; what is else in it stays.
    std::string of(std::string_view text);

    // Of a domain: label by label, so that a domain and its parents stay so. The last label stays,
    // and so a name of one label.
    std::string of_domain(std::string_view name);

    // How many texts it had to compute one for.
    size_t computed() const {
        return known_.size();
    }

  private:
    std::string key_;
    std::unordered_map<std::string, std::string> known_; // in lower case
};

} // namespace quillfence::decision
