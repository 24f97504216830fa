// What the tests of the rules over PTR names have in common.
#pragma once

#include <string>

#include "dns_script.h"
#include "drive_c.h"
#include "reverse_dns.h"
#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {

inline constexpr char client_arpa[] = "1.2.0.192.in-addr.arpa.";

// A routable client whose PTR names have not been asked for yet; no hooks, DNS option 1.
class ptr_test : public traced_drive_test {
  protected:
    ptr_test() {
        put_dns_option(1);
        session::put(&state->ip, "192.0.2.1");
        state->routable = 1;
        log.take();
    }
    ~ptr_test() override {
        set_ptr_lookup_stand_in(nullptr);
        put_dns_option(0);
    }
    static void put_hooks(session_hook dynamic, session_hook spam, session_hook confirmed) {
        set_hooks({.dns_option = 1,
                   .dynamic_names = dynamic,
                   .spam_names = spam,
                   .confirmed_names = confirmed});
    }
    dns_script dns;
    session state;
};

} // namespace quillfence::testing
