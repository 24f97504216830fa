// The sender whitelists of Mail Enable's mailboxes.
#pragma once

namespace quillfence {

// Whether the recipient's mailbox whitelists the sender: 1, else 0. The mailbox is what the address
// map says (me_address_map.h). Its whitelist is a directory below the configuration directory,
//     %s\Postoffices\%s\MAILBOXES\%s\Senders\Whitelist
// with the postoffice and the mailbox; each file in it is an entry, named after the address, or the
// domain, with ".LST" behind it. Entries are compared as __wildcardmatch does, a domain as
// "*@domain".
// Kept on purpose: the search ends, with 0, at the first file that is not an entry: whose name has
// no ".", or does not end exactly in ".LST", in capitals. Such a file hides the entries behind it
// in the directory's order. Folders in the directory are passed over.
// Without Mail Enable: 0, without a line.
// ERROR lines of "w32_common/me_sender_whitelist": EINVAL for an empty argument, ENOMEM.
int is_mailenable_sender_whitelist(const char *sender, const char *recipient);

} // namespace quillfence
