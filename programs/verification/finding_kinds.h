// What verify can find: each kind of finding by its id, in one table. Ids are stable: scripts and
// the boards of findings that read SARIF know a finding by them, so one is never given to anything
// else. docs/findings.md has the same table, which a test compares.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace quillfence::verification {

enum class severity : uint8_t {
    error,   // the file or line does not do what it is there for
    warning, // redundant, contradictory, or probably meant differently
    info,    // worth knowing; is no finding as far as the exit status goes
};

struct finding_kind {
    const char *id; // words with dashes between them
    severity level;
    const char *what; // of all findings of the kind
    const char *mend; // what to do about them; null where nothing is wrong
};

// clang-format off
inline constexpr finding_kind finding_kinds[] = {
    // any file
    {"unreadable-file", severity::error, "a file can't be read",
     "Look at the file's rights, and at what the system says."},
    {"unreadable-folder", severity::error, "a folder can't be listed",
     "Look at the folder's rights, and whether it is one."},
    {"text-in-utf-16", severity::error, "a text is in UTF-16, of which the engine makes nothing",
     "Save it as UTF-8 without a byte order mark."},
    {"byte-order-mark", severity::error, "a byte order mark belongs to the first line",
     "Save the file as UTF-8 without a byte order mark."},
    {"folder-in-place-of-file", severity::error, "a folder has the name of a file of the engine",
     "Move the folder away, and put the file in its place."},
    {"edit-leftover", severity::error, "an edit that did not end, or its backup, has left a file",
     "Delete the leftover; if the file itself was never there, make the edit again."},
    {"edit-leftover-is-all", severity::error, "a backup is all that is left of a file",
     "Rename the backup to the file's name."},
    {"file-in-wrong-folder", severity::warning, "a file of the engine lies in another folder",
     "Move it to the folder in which the engine reads it."},
    {"name-in-other-letters", severity::warning,
     "a file differs in letter case alone from one that is read in its place",
     "Bring the two together under the exact name."},
    {"name-taken-in-other-letters", severity::info,
     "a file is read although its name differs in letter case", nullptr},
    {"unknown-file", severity::info, "the engine reads no file of this name", nullptr},

    // control/enabled
    {"engine-off", severity::info, "control/enabled is missing, so the engine is off", nullptr},
    {"switch-not-0-or-1", severity::error, "control/enabled holds neither 0 nor 1",
     "Write 1 for on or 0 for off, and nothing else."},

    // files of one name a line
    {"name-ends-in-cr", severity::error, "a CR at the end of a line becomes a part of the name",
     "End lines with LF alone."},
    {"name-holds-nul", severity::error, "a name holds a NUL", "Write the file as a text."},
    {"name-is-comment", severity::error, "a line with # counts as a name in this file",
     "Remove the comment."},
    {"name-has-white-space", severity::error, "white space around a name becomes a part of it",
     "Remove the white space."},
    {"name-repeated", severity::warning, "a name stands in an earlier line already",
     "Remove one of the lines."},
    {"names-empty", severity::warning, "a list of names is empty and switches nothing on",
     "Write a name a line, or remove the file."},
    {"rule-unknown", severity::error, "there is no rule of this name",
     "Correct the name; docs/rules.md has them all."},
    {"rule-in-other-letters", severity::error, "a rule's name is written in other letter case",
     "Write the name exactly as it is."},
    {"map-name-odd", severity::error, "a name can't be that of a block map",
     "Take letters, digits, - _ and . for the name of a map."},
    {"map-missing", severity::error, "a list names a block map that is not in bms/",
     "Put the map into bms/, or remove its name."},
    {"zone-no-domain", severity::error, "a DNS block list's zone can't be asked",
     "Write the zone's domain name, as in rbl.example.org, without a final dot."},
    {"zone-odd", severity::warning, "a DNS block list's zone is an unusual name",
     "Write the zone's whole domain name, as in rbl.example.org."},
    {"maps-unlisted", severity::error, "there is no list of block maps, without which a replay fails",
     "Write the names of the maps into bms/lists_to_update."},
    {"maps-listed-elsewhere", severity::info,
     "bms/control/lists_to_update is not read as long as bms/lists_to_update is there", nullptr},

    // control/valid_domain_ips
    {"declaration-malformed", severity::error, "a line is no declaration, and is ignored",
     "Write domain : network, network."},
    {"declaration-no-domain", severity::error, "a declaration's domain is none; the line is ignored",
     "Write a domain name in front of the colon."},
    {"declaration-no-networks", severity::error, "a declaration has no networks, and is ignored",
     "Write the networks behind the colon, with commas between them."},
    {"declaration-repeated", severity::warning, "a domain is declared in an earlier line, which counts",
     "Bring the networks together in one line."},
    {"network-no-address", severity::error, "a network is no IPv4 address or network",
     "Write an address, or a network as in 192.0.2.0/24."},
    {"network-no-prefix", severity::error, "a network's prefix is no number from 0 to 32",
     "Write the prefix as in 192.0.2.0/24."},
    {"network-bits-behind-prefix", severity::error, "a network has bits set behind its prefix",
     "Write the network's first address in front of the slash."},
    {"network-prefix-0", severity::error, "a prefix of 0 holds the address 0.0.0.0 alone",
     "Write the networks that are meant, each with a prefix of at least 1."},

    // white and black lists
    {"entry-too-long", severity::error, "a line is read in pieces, each an entry of its own",
     "Keep lines to 1022 characters."},
    {"entry-holds-nul", severity::error, "an entry holds a NUL, where it ends",
     "Write the file as a text."},
    {"entry-ends-in-white-space", severity::error, "white space at an entry's end belongs to it",
     "Remove the white space."},
    {"entry-does-not-compile", severity::error, "the engine can't use an entry with a *",
     "Correct the pattern; \\ in front of a character takes it for itself."},
    {"entry-no-client-address", severity::error, "an entry is no address that a client can have",
     "Write one address a line; networks go into the list's range file."},
    {"entry-matches-no-address", severity::warning,
     "an entry matches no address as mail servers pass them on",
     "Write user@domain, one a line and without brackets, or *@domain for a whole domain."},
    {"entry-matches-everybody", severity::warning, "an entry matches everybody",
     "Write *@domain, or remove the entry."},
    {"entry-plus-repeats", severity::warning, "in an entry with a * the + repeats what is before it",
     "Write \\+ for a plus sign."},
    {"entry-says-otherwise", severity::warning,
     "an operator in an entry with a * does something else than the entry says",
     "Write * for any text and . for a dot; \\ in front of an operator takes it for itself."},
    {"entry-repeated", severity::warning, "an entry stands in an earlier line already",
     "Remove one of the lines."},
    {"entry-covered", severity::warning, "an earlier entry matches all that this one does",
     "Remove the entry, or the earlier one if it says too much."},
    {"entry-in-opposite-list", severity::warning, "an entry stands in the opposite list, which comes first",
     "Remove the entry from one of the lists."},
    {"entry-covered-by-opposite-list", severity::warning,
     "the opposite list comes first and matches all that an entry does",
     "Remove the entry, or the one of the opposite list."},
    {"entry-in-range-file", severity::warning, "an address is in the list's range file as well",
     "Remove the entry."},
    {"entry-in-opposite-range-file", severity::warning,
     "an address is in the opposite list's range file, which comes first",
     "Remove the entry, or the range."},
    {"comment-matches", severity::warning, "a comment of the list editor is an entry for lookups",
     "Say it in other words, or behind a #."},

    // range files
    {"range-file-corrupt", severity::error, "a range file is damaged",
     "Put a backup in its place, or make it anew with quillfence-data range add."},
    {"range-file-legacy", severity::error, "a range file is of the legacy version, which lookups misread",
     "Run quillfence-data range convert."},
    {"range-file-longer", severity::warning, "a range file is longer than its records",
     "Add or remove a range; that writes the file anew."},
    {"range-invalid", severity::error, "a record is no range inside one /16, and stops every lookup",
     "Make the file anew with quillfence-data range add."},
    {"range-comment-endless", severity::error, "a record's comment has no end",
     "Remove the range and add it again."},
    {"range-covered", severity::warning, "another range of the file covers this one",
     "Remove the range."},
    {"range-covered-by-opposite", severity::warning,
     "the opposite range file comes first and covers a range",
     "Remove one of the two ranges."},

    // compiled patterns
    {"patterns-no-such-file", severity::error, "a file is no file of compiled patterns",
     "Compile the list again with quillfence-data regex compile."},
    {"pattern-damaged", severity::error, "a compiled pattern is damaged, and so is all that follows",
     "Compile the list again with quillfence-data regex compile."},
    {"pattern-can-fail", severity::error, "the engine refuses a part of a compiled pattern",
     "Compile the list again with quillfence-data regex compile, and heed its warnings."},
    {"pattern-says-otherwise", severity::warning,
     "a compiled pattern does not do here what it says, as ^(.*b)$ does not",
     "Write it in the list as the finding tells, and compile the list again."},
    {"patterns-not-asked", severity::info, "the engine asks no file of compiled patterns of this name",
     nullptr},
    {"pattern-lines-stale", severity::warning,
     "a .lines file speaks of another version of its pattern file",
     "Compile the list again, which writes both."},
    {"pattern-lines-wrong", severity::warning, "a .lines file is none",
     "Compile the list again, which writes both."},

    // block maps
    {"map-corrupt", severity::error, "a block map is damaged",
     "Fetch the map again, or make it with quillfence-data blockmap build."},
    {"map-unlisted", severity::info, "no list of block maps names a file in bms/", nullptr},

    // counters
    {"counter-size", severity::error, "a counter file has another size; the next count starts it anew",
     "Put a backup in its place, or leave it to the next count."},
    {"counter-header", severity::error, "a counter file has no header; the next count starts it anew",
     "Put a backup in its place, or leave it to the next count."},
};
// clang-format on

// The row of an id; behind the last one for an id that the table has not. A row and not its
// address, since g++ 12 with the sanitizers compares no addresses while it compiles.
constexpr size_t row_of_finding(std::string_view id) {
    size_t row = 0;
    while (row < std::size(finding_kinds) && id != finding_kinds[row].id) {
        ++row;
    }
    return row;
}

void the_table_has_no_such_id(); // is not defined: what calls it does not compile

// A kind by its id, written as a literal that the table holds, which the compiler sees to.
class finding_id {
  public:
    consteval finding_id(const char *id) : row_(row_of_finding(id)) {
        if (row_ == std::size(finding_kinds)) {
            the_table_has_no_such_id();
        }
    }
    const finding_kind &kind() const {
        return finding_kinds[row_];
    }
    bool operator==(const finding_id &) const = default;

  private:
    size_t row_;
};

} // namespace quillfence::verification
