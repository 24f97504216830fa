#include "smtp_state.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "failing_memory.h"
#include "log_capture.h"
#include "owned_session.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {

namespace {

struct printed_line {
    int level;
    std::string format;
    std::string text;
};
std::vector<printed_line> printed;

int collect(int level, const char *format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    printed.push_back({level, format, text});
    return length;
}

lines texts() {
    lines result;
    for (const printed_line &line : printed) {
        result.push_back(line.text);
    }
    return result;
}

class smtp_state_test : public logged_test {
  protected:
    void SetUp() override {
        printed.clear();
    }
    lines dump(int newline = 0) {
        printed.clear();
        print_state(collect, 6, state, newline);
        return texts();
    }
    session state;
};

using smtp_state_trace_test = traced_test;

} // namespace

TEST_F(smtp_state_test, a_fresh_record_is_at_init_and_knows_nothing) {
    EXPECT_EQ(state->state, 1u);
    EXPECT_EQ(state->rfc, 0);
    EXPECT_EQ(state->mua, 0);
    EXPECT_EQ(state->ndr, 0);
    EXPECT_EQ(state->helo_resolves, 0u);
    EXPECT_EQ(state->mail_resolves, 0u);
    EXPECT_EQ(state->rdns_resolves, 0u);
    for (const uint8_t flag :
         {state->tls, state->localhost, state->ipv6, state->routable, state->notice_flag}) {
        EXPECT_EQ(flag, 0);
    }
    for (const char *text :
         {state->ip, state->port, state->rdns, state->helo, state->mail_from, state->rcpt_to,
          state->auth_user, state->ip_country, state->helo_country, state->mail_country,
          state->base_dir, state->hit_name, state->rejection_notice, state->extra}) {
        EXPECT_EQ(text, nullptr);
    }
    EXPECT_EQ(state->ptr_results, nullptr);
    EXPECT_EQ(state->user_dirs, nullptr);
}

TEST_F(smtp_state_trace_test, creating_a_record_leaves_a_debug_line) {
    free_smtp_state(new_smtp_state());
    EXPECT_EQ(log.debugs(), lines{"new_smtp_state: Creating new smtp_state structure"});
}

TEST_F(smtp_state_test, a_fresh_record_prints_its_twelve_lines) {
    EXPECT_EQ(dump(), (lines{
                          "== BEGIN STATE STRUCTURE ==",
                          "IP[(null)] COUNTRY[(null)] PORT[0] TLS[no]",
                          "RDNS[(null)] (resolves: UNKNOWN)",
                          "HELO[(null)] (country: (null)) (resolves: UNKNOWN)",
                          "MAIL[(null)] (country: (null)) (resolves: UNKNOWN)",
                          "RCPT[(null)]",
                          "AUTH[(null)]",
                          "RFC[no]",
                          "NDR[no]",
                          "MUA->MTA[no]",
                          "STATE[INIT]",
                          "=== END STATE STRUCTURE ===",
                      }));
}

TEST_F(smtp_state_test, a_full_record_prints_its_values) {
    state->ip = strdup("192.0.2.1");
    state->ip_country = strdup("US");
    state->tls = 1;
    vc_lstcat(&state->ptr_results, strdup("mx.example.org"));
    state->rdns = state->ptr_results[0];
    state->rdns_resolves = resolves_yes;
    state->helo = strdup("mx.example.org");
    state->helo_country = strdup("CA");
    state->helo_resolves = resolves_no;
    state->mail_from = strdup("a@example.org");
    state->mail_country = strdup("DE");
    state->mail_resolves = resolves_tempfail;
    state->rcpt_to = strdup("b@example.net");
    state->auth_user = strdup("carol");
    state->rfc = sender_format_invalid; // any non-zero value prints "yes"
    state->mua = 1;
    state->state = stage_rcpt;
    EXPECT_EQ(dump(), (lines{
                          "== BEGIN STATE STRUCTURE ==",
                          "IP[192.0.2.1] COUNTRY[US] PORT[0] TLS[yes]",
                          "RDNS[mx.example.org] (resolves: YES)",
                          "HELO[mx.example.org] (country: CA) (resolves: NO)",
                          "MAIL[a@example.org] (country: DE) (resolves: TEMPFAIL)",
                          "RCPT[b@example.net]",
                          "AUTH[carol]",
                          "RFC[yes]",
                          "NDR[yes]",
                          "MUA->MTA[yes]",
                          "STATE[RCPT]",
                          "=== END STATE STRUCTURE ===",
                      }));
}

TEST_F(smtp_state_test, the_formats_are_fixed) {
    dump();
    lines formats;
    for (const printed_line &line : printed) {
        formats.push_back(line.format);
    }
    EXPECT_EQ(formats, (lines{
                           "== BEGIN STATE STRUCTURE ==%s",
                           "IP[%s] COUNTRY[%s] PORT[%d] TLS[%s]%s",
                           "RDNS[%s] (resolves: %s)%s",
                           "HELO[%s] (country: %s) (resolves: %s)%s",
                           "MAIL[%s] (country: %s) (resolves: %s)%s",
                           "RCPT[%s]%s",
                           "AUTH[%s]%s",
                           "RFC[%s]%s",
                           "NDR[%s]%s",
                           "MUA->MTA[%s]%s",
                           "STATE[%s]%s",
                           "=== END STATE STRUCTURE ===%s",
                       }));
}

TEST_F(smtp_state_test, the_printed_port_is_the_low_half_of_its_pointer) {
    state->port = strdup("25");
    const auto low = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(state->port));
    int32_t shown;
    memcpy(&shown, &low, sizeof shown);
    EXPECT_EQ(dump()[1], "IP[(null)] COUNTRY[(null)] PORT[" + std::to_string(shown) + "] TLS[no]");
}

TEST_F(smtp_state_test, each_flag_shows_on_its_own_line) {
    state->tls = 1;
    EXPECT_EQ(dump()[1], "IP[(null)] COUNTRY[(null)] PORT[0] TLS[yes]");
    EXPECT_EQ(dump()[7], "RFC[no]");
    state->tls = 0;
    state->rfc = sender_format_valid;
    EXPECT_EQ(dump()[1], "IP[(null)] COUNTRY[(null)] PORT[0] TLS[no]");
    EXPECT_EQ(dump()[7], "RFC[yes]");
    EXPECT_EQ(dump()[9], "MUA->MTA[no]");
}

TEST_F(smtp_state_test, a_stage_without_a_name_prints_as_unknown) {
    state->state = stage_auth;
    EXPECT_EQ(dump()[10], "STATE[UNKNOWN]");
}

TEST_F(smtp_state_test, the_ndr_line_shows_mua) {
    state->ndr = 1;
    EXPECT_EQ(dump()[8], "NDR[no]");
    state->ndr = 0;
    state->mua = 1;
    EXPECT_EQ(dump()[8], "NDR[yes]");
}

TEST_F(smtp_state_test, the_level_is_passed_on_and_lines_end_when_asked) {
    print_state(collect, 42, state, 1);
    ASSERT_EQ(printed.size(), 12u);
    for (const printed_line &line : printed) {
        EXPECT_EQ(line.level, 42);
        EXPECT_EQ(line.text.find('\n'), line.text.size() - 1) << line.text;
    }
    for (const std::string &text : dump(0)) {
        EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    }
}

TEST_F(smtp_state_test, a_null_printer_or_record_prints_nothing) {
    print_state(nullptr, 6, state, 1);
    EXPECT_EQ(log.errors(), lines{"print_state: Invalid argument"});
    print_state(collect, 6, nullptr, 1);
    EXPECT_EQ(log.errors(), lines{"print_state: Invalid argument"});
    EXPECT_TRUE(printed.empty());
}

TEST(smtp_state_names, stages) {
    static const struct {
        uint32_t stage;
        const char *want;
    } cases[] = {
        {0, "UNKNOWN"}, {1, "INIT"},    {2, "UNKNOWN"},
        {3, "HELO"},    {4, "MAIL"},    {5, "RCPT"},
        {6, "DATA"},    {7, "UNKNOWN"}, {0xFFFFFFFF, "UNKNOWN"},
    };
    for (const auto &c : cases) {
        EXPECT_STREQ(state_name(c.stage), c.want) << "stage " << c.stage;
    }
}

TEST(smtp_state_names, dns_results) {
    static const struct {
        uint32_t code;
        const char *want;
    } cases[] = {
        {0, "UNKNOWN"},  {1, "YES"},     {2, "NO"},
        {3, "TEMPFAIL"}, {4, "UNKNOWN"}, {0xFFFFFFFF, "UNKNOWN"},
    };
    for (const auto &c : cases) {
        EXPECT_STREQ(resolves_name(c.code), c.want) << "code " << c.code;
    }
}

TEST(smtp_state_release, null_is_accepted) {
    free_smtp_state(nullptr);
}

// Under the address sanitizer this also shows that rdns is not released twice.
TEST(smtp_state_release, everything_owned_goes_once) {
    const long before = live_allocations();
    smtp_state *state = new_smtp_state();
    ASSERT_NE(state, nullptr);
    for (char **text :
         {&state->ip, &state->port, &state->helo, &state->mail_from, &state->rcpt_to,
          &state->auth_user, &state->ip_country, &state->helo_country, &state->mail_country,
          &state->base_dir, &state->hit_name, &state->rejection_notice, &state->extra}) {
        *text = strdup("text");
    }
    vc_lstcat(&state->ptr_results, strdup("one.example.org"));
    vc_lstcat(&state->ptr_results, strdup("two.example.org"));
    state->rdns = state->ptr_results[0];
    ASSERT_EQ(vc_append_list_entry(&state->user_dirs, "c:/users/a", 11, 1), 1);
    ASSERT_EQ(vc_append_list_entry(&state->user_dirs, "c:/users/b", 11, 1), 2);
    free_smtp_state(state);
    EXPECT_EQ(live_allocations() - before, 0);
}

} // namespace quillfence::testing
