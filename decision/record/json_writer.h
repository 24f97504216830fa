// Writes JSON into a std::string: fast, and valid UTF-8 whatever the texts hold.
//
//     std::string line;
//     json_writer json(line, json_layout::one_line);
//     json.begin_object();
//     json.name("ip");
//     json.text("192.0.2.1");
//     json.end_object();
//     json.finish();
//
// Commas, line ends and indentation are the writer's; what may stand where is the caller's: a name
// before each member's value, an end for each begin. The buffer is the writer's own between the
// constructor and finish().
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace quillfence::decision {

enum class json_layout : uint8_t {
    one_line, // without any white space
    indented, // two blanks a level; what is begun flat stays on its line
};

class json_writer {
  public:
    // Appends to the text that is there.
    json_writer(std::string &out, json_layout layout);
    ~json_writer();
    json_writer(const json_writer &) = delete;
    json_writer &operator=(const json_writer &) = delete;

    void begin_object();
    void end_object();
    void begin_array();
    void end_array();
    // The same for short ones: indented, they and all in them stand on one line.
    void begin_flat_object();
    void begin_flat_array();

    // A member's name that holds no quote, no backslash and only printable ASCII.
    void name(std::string_view plain);
    // The same with a suffix behind it.
    void name(std::string_view plain, std::string_view suffix);
    // Any name.
    void name_text(std::string_view raw);

    // The text, escaped. Every byte that does not belong to well-formed UTF-8, and NUL, is shown as
    // U+FFFD. False when there was one.
    bool text(std::string_view raw);
    // A text that a name could be.
    void word(std::string_view plain);
    void hexadecimal(std::string_view bytes); // as a text of two digits a byte
    void boolean(bool value);
    void null();
    void number(uint64_t value);
    // The shortest text that reads as the same number; null for an infinity or no number.
    void number(double value);
    // A value that is JSON already, on one line.
    void raw(std::string_view json);

    // Gives the buffer back, as long as what was written; nothing is written behind it. The
    // destructor does it, too, unless it was done: a text that is returned has to be finished.
    void finish();

  private:
    void begin(char bracket, bool flat);
    void end(char bracket);
    void separate();
    void lay_out(bool first);
    void new_line();
    bool quoted(std::string_view raw);
    bool escaped(std::string_view raw);
    char *room(size_t bytes);
    void grow(size_t bytes);
    void put(char c);
    void put(std::string_view plain);

    std::string &out_;
    char *at_;
    char *end_;
    const bool indented_;
    bool first_ = true; // nothing stands in the innermost bracket
    bool behind_name_ = false;
    unsigned depth_ = 0;
    unsigned flat_ = 0; // how many of the innermost brackets are flat
};

// Whether a text can be shown as it is: well-formed UTF-8 without a NUL.
bool is_plain_text(std::string_view text);

// --- what runs for every member, in the header so that lengths of literals are known ---

// Room for so many bytes at the returned place, where the writing stands.
inline char *json_writer::room(size_t bytes) {
    if (static_cast<size_t>(end_ - at_) < bytes) {
        grow(bytes);
    }
    return at_;
}

// What stands between one value or name and the one before it.
inline void json_writer::separate() {
    const bool first = first_;
    if (behind_name_) {
        behind_name_ = false;
        return;
    }
    first_ = false;
    if (!first) {
        *room(1) = ',';
        ++at_;
    }
    if (indented_ && depth_) {
        lay_out(first);
    }
}

inline void json_writer::name(std::string_view plain) {
    separate();
    char *to = room(plain.size() + 4);
    *to++ = '"';
    std::memcpy(to, plain.data(), plain.size());
    to += plain.size();
    *to++ = '"';
    *to++ = ':';
    if (indented_) {
        *to++ = ' ';
    }
    at_ = to;
    behind_name_ = true;
}

} // namespace quillfence::decision
