// Stands in for the mail server's address map. It knows every address that has an "@": mailbox and
// domain become "[SF:domain/mailbox]". A few mailboxes are answered in other ways.
#include <cstdio>
#include <cstring>
#include <string>

namespace {

struct request {
    char source[1024];
    char destination[1024];
};

struct odd_answer {
    const char *mailbox, *destination;
};
constexpr odd_answer odd_answers[] = {
    {"no-colon", "[SFexample.com/alice]"},
    {"no-slash", "[SF:example.com]"},
    {"no-bracket", "[SF:example.com/alice"},
    {"no-separator", "example.com"},
    {"nothing", ""},
    {"more", "[SF:a:b/c/d]e]f"},
};

// Takes "[SMTP:mailbox@domain]" apart.
bool take_apart(const std::string &source, std::string *mailbox, std::string *domain) {
    const size_t at = source.find('@');
    if (!source.starts_with("[SMTP:") || !source.ends_with("]") || at == std::string::npos) {
        return false;
    }
    *mailbox = source.substr(6, at - 6);
    *domain = source.substr(at + 1, source.size() - at - 2);
    return true;
}

} // namespace

extern "C" int AddressMapGet(request *asked);
extern "C" int AddressMapGet(request *asked) {
    std::string mailbox;
    std::string domain;
    if (!take_apart(asked->source, &mailbox, &domain) || mailbox == "unknown") {
        strcpy(asked->destination, "[SF:not/used]");
        return 0;
    }
    if (mailbox == "full") { // every byte is used, so that there is no room for a NUL
        memset(asked->destination, 'x', sizeof asked->destination);
        return 1;
    }
    for (const odd_answer &odd : odd_answers) {
        if (mailbox == odd.mailbox) {
            strcpy(asked->destination, odd.destination);
            return 1;
        }
    }
    snprintf(asked->destination, sizeof asked->destination, "[SF:%s/%s]", domain.c_str(),
             mailbox.c_str());
    return -1; // any number but 0 is success
}
