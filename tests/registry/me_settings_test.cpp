#include "me_settings.h"

#include <string>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "test_registry.h"
#include "vc_text.h"

namespace quillfence::testing {
namespace {

class me_settings : public logged_test {
  protected:
    test_registry store;

    static std::string directory(const char *key = me_key) {
        const heap_string found(me_configuration_directory(key));
        return found ? found.get() : "(none)";
    }
};

TEST_F(me_settings, no_mail_enable_is_no_error) {
    EXPECT_EQ(directory(), "(none)");
    store.create(me_key);
    EXPECT_EQ(directory(), "(none)");
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(me_settings, the_configuration_directory) {
    store.set_text(me_key, "Configuration Directory", "C:\\Mail Enable\\Config");
    store.set_text(me_key_32, "Configuration Directory", std::string(512, 'x'));
    EXPECT_EQ(directory(), "C:\\Mail Enable\\Config");
    EXPECT_EQ(directory(me_key_32), std::string(512, 'x'));
}

TEST_F(me_settings, a_value_that_can_not_be_used) {
    store.set_dword(me_key, "Configuration Directory", 1);
    EXPECT_EQ(directory(), "(none)");
    store.set_text(me_key, "Configuration Directory", std::string(513, 'x'));
    EXPECT_EQ(directory(), "(none)");
    EXPECT_EQ(
        log.errors(),
        (lines{"vc_regkey_get_ex: error: expected key SOFTWARE\\Mail Enable\\Mail Enable value "
               "Configuration Directory to be type REG_SZ",
               "vc_regkey_get_ex: error: unable to query key SOFTWARE\\Mail Enable\\Mail Enable "
               "Configuration Directory"}));
}

} // namespace
} // namespace quillfence::testing
