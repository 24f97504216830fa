// quillfence-data who-lists: everything in the configuration that says something about an address,
// a name or a client, and what the engine makes of it.
//
// Nothing is judged here: the lists and range files are compared by what "list find" uses, all else
// is what the engine tells while its rules, its block-map lookup and its drivers are asked about a
// session that holds the value and nothing more.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "data_program.h"
#include "witness.h"

namespace quillfence::data_tool {

enum class value_kind { address, name, client };

// What an entry does.
enum class entry_effect {
    accepts,  // its rule exempts
    refuses,  // its rule rejects
    spares,   // takes a name out of the rules that ask pattern files
    declares, // ties a domain to networks
    nothing,  // no rule asks
};

struct listing {
    found_entry entry;
    entry_effect does = entry_effect::nothing;
    bool enabled = true;  // its rule
    bool decides = false; // for a session that holds the value and nothing more
};

// A value may be met in several places of a session, and is judged for each by itself.
struct met_value {
    std::string as; // "a sender"
    std::vector<listing> listings;
    std::string rule{};    // that decides; "" when none does
    bool accepted = false; // by it; else refused
    bool spared = false;   // no rule hits, because an entry spares the value
};

struct lists_answer {
    std::string value; // as the engine gets it
    value_kind kind = value_kind::name;
    bool engine_is_on = true; // by control/enabled
    std::vector<met_value> met;
    std::vector<look_problem> problems; // what could not be looked at
};

// Throws a failure for a value that is neither a mail address, nor a name, nor a client's address.
//   recipient  of mail from an address, whose mailbox's own whitelist is asked, too; "" for none
//   user_dir   the recipient's own folder of lists, likewise
lists_answer ask_all_lists(const std::string &value, const std::string &recipient,
                           const std::string &user_dir);

void write_listings(const lists_answer &answer, std::ostream &out); // 80 columns
void write_listings_json(const lists_answer &answer, std::ostream &out);

struct who_lists_arguments {
    std::string value;
    std::string recipient;
    std::string drive_c;  // "" for this system's own
    std::string registry; // likewise
    bool json = false;
    std::string user_dir{}; // the recipient's own; "" for none
};
// exit_status::no when nothing lists the value; failed when something could not be looked at, which
// is complained about, and the rest is written.
exit_status who_lists(const who_lists_arguments &arguments, std::ostream &out);

} // namespace quillfence::data_tool
