// The facts of a transaction as a command line gives them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "input.h"

namespace quillfence::programs {

// As they were given; nothing for those that were not.
struct named_facts {
    std::optional<std::string> ip;
    std::optional<std::string> port;
    std::optional<std::string> tls;
    std::optional<std::string> authuser;
    std::optional<std::string> mua;
    std::optional<std::string> helo;
    std::optional<std::string> sender;
    std::optional<std::string> recipient;

    bool any() const;
};

// The transaction that the names describe. Of a server that delivers mail without more ado the rest
// is told by default: port 25, no TLS, no user, no mail user agent. Who sends, from where, to whom
// and as what is unknown when it is not given. Throws a failure that says what is wrong with a fact
// and how it is written: an address that is none, a flag that is neither yes nor no, a port that is
// no number from 0 to 65535. The sender "<>" is the empty one, as SMTP writes it: some shells can't
// give an empty value.
decision::transaction transaction_of_facts(const named_facts &facts);

// The replayer's nine values, as the replayer takes them: nothing is refused but another number of
// them or another letter than R in front.
decision::transaction transaction_of_values(const std::vector<std::string> &values);

// The transaction in a text of any format that input.h knows; format "" tells by the look. number
// chooses among several, from 1; with 0 there must be one alone. Throws a failure that names the
// line, behind the name of the text.
decision::input_transaction transaction_of_text(const std::string &text, const std::string &name,
                                                const std::string &format, uint64_t number);

} // namespace quillfence::programs
