#include "odd_world.h"

#include <algorithm>

#include "configuration.h"

namespace quillfence::testing {
namespace {

size_t below(random_numbers &random, size_t count) {
    return std::uniform_int_distribution<size_t>(0, count - 1)(random);
}
bool chance(random_numbers &random, unsigned percent) {
    return below(random, 100) < percent;
}

// Lines that a list may hold and hardly ever does.
const char *const odd_lines[] = {
    "*",
    "**",
    "*@*",
    "*.*",
    "*@bad.exampl[e]",
    "*@(bad|good).example",
    "bob@*.?example",
    "*@[bad.example", // does not compile
    "*(@bad.example", // likewise
    "*@BAD.example",
    "BOB@Bad.Example",
    "b*b@bad.ex*ple",
    "*bad*",
    "a*",
    "*e",
    "192.0.2.*",
    "\t a@good.example",
    "\v#a@good.example",
    "a@good.example\r",
    "\x80@good.example",
    "*\x80*",
    "#*",
    "\xEF\xBB\xBF*@good.example",
};

// A line of about as many characters as one may have, which ends in what may match.
std::string long_line(random_numbers &random) {
    static const char *const endings[] = {"*@bad.example", "a@good.example", "*", "192.0.2.1", "e"};
    const size_t length = 1015 + below(random, 16);
    const std::string ending = endings[below(random, std::size(endings))];
    return std::string(length - ending.size(), chance(random, 50) ? ' ' : '*') + ending;
}

void insert_lines(random_numbers &random, std::string *bytes) {
    for (size_t n = 1 + below(random, 4); n; --n) {
        const std::string line =
            chance(random, 20) ? long_line(random) : odd_lines[below(random, std::size(odd_lines))];
        size_t at = bytes->find('\n', below(random, bytes->size() + 1));
        at = at == std::string::npos ? bytes->size() : at + 1;
        bytes->insert(at, line + (chance(random, 20) ? "" : chance(random, 30) ? "\r\n" : "\n"));
    }
}

void use_crlf(random_numbers &, std::string *bytes) {
    for (size_t at = 0; (at = bytes->find('\n', at)) != std::string::npos; at += 2) {
        bytes->insert(at, "\r");
    }
}

void cut(random_numbers &random, std::string *bytes) {
    bytes->resize(below(random, bytes->size() + 1));
}

void change_bytes(random_numbers &random, std::string *bytes) {
    static constexpr char values[] = {0, 1, '\n', '\r', '*', -1, 127, 'a'};
    for (size_t n = 1 + below(random, 3); n && !bytes->empty(); --n) {
        (*bytes)[below(random, bytes->size())] = values[below(random, std::size(values))];
    }
}

void change_near_the_beginning(random_numbers &random, std::string *bytes) {
    if (!bytes->empty()) {
        (*bytes)[below(random, std::min<size_t>(bytes->size(), 24))] ^=
            static_cast<char>(1 << below(random, 8));
    }
}

void append_bytes(random_numbers &random, std::string *bytes) {
    bytes->append(1 + below(random, 300), static_cast<char>(below(random, 256)));
}

void repeat(random_numbers &, std::string *bytes) {
    *bytes += *bytes;
}

void empty(random_numbers &, std::string *bytes) {
    bytes->clear();
}

constexpr void (*changes[])(random_numbers &, std::string *) = {insert_lines,
                                                                insert_lines,
                                                                insert_lines,
                                                                use_crlf,
                                                                cut,
                                                                change_bytes,
                                                                change_near_the_beginning,
                                                                append_bytes,
                                                                repeat,
                                                                empty};

void make_file_odd(random_numbers &random, const drive_c &drive, const std::string &path) {
    if (!drive.exists(path)) {
        return;
    }
    if (chance(random, 4)) {
        drive.remove(path);
        if (chance(random, 50)) {
            drive.make_folder(path);
        }
        return;
    }
    std::string bytes = drive.read(path);
    for (size_t n = 1 + below(random, 2); n; --n) {
        changes[below(random, std::size(changes))](random, &bytes);
    }
    drive.write(path, bytes);
}

} // namespace

void make_odd(random_numbers &random, const drive_c &drive, const world &of) {
    for (const configuration_file &file : configuration_files) {
        if (chance(random, 35)) {
            make_file_odd(random, drive, file.path);
        }
    }
    for (const auto &[name, map] : of.maps) {
        if (chance(random, 35)) {
            make_file_odd(random, drive, "c:/quillfence/bms/" + name);
        }
    }
    if (chance(random, 25)) {
        make_file_odd(random, drive, "c:/quillfence/mail/DOMAIN.TAB");
    }
}

} // namespace quillfence::testing
