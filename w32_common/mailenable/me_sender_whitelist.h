// The sender whitelists of Mail Enable's mailboxes.
#pragma once

namespace quillfence {

int is_mailenable_sender_whitelist(const char *sender, const char *recipient);

} // namespace quillfence
