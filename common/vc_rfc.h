// Judges the strings that an SMTP client hands over: addresses, domains, mail addresses.
//
// The answers are strict, and the reason for every refusal is one DEBUG line, the only account of
// why a text was refused. Character classes are ASCII: a byte from 0x80 up is neither printable
// nor a letter. "Empty" means a null pointer or "".
//
// Quoted phrases run from one double quote to the next; comments run from a parenthesis to the
// one that closes it, and nest. Inside either a backslash makes the next character an ordinary
// one. A backslash that ends the text leaves the phrase or comment open, and comments that nest
// deeper than 1000 levels count as not closed.
//
// vc_is_ip, vc_is_ipv6, vc_is_unroutable_ip, is_localhost, vc_valid_domain and
// vc_valid_email_address allocate nothing.
#pragma once

#include <cstdint>

#include "platform/net.h"
#include "vc_list.h"

namespace quillfence {

// The families' numbers: 2 and 23.
inline constexpr int vc_family_ipv4 = platform::family_ipv4;
inline constexpr int vc_family_ipv6 = platform::family_ipv6;

// The family of an address text: vc_family_ipv4, vc_family_ipv6, or 0 when it is neither. An IPv4
// address is a strict dotted quad. ERROR lines: EINVAL for an empty text.
int vc_is_ip(const char *text);

// 1 when text is an IPv6 address, else 0. ERROR lines: EINVAL for an empty text.
int vc_is_ipv6(const char *text);

// 1 when text is a private or reserved address, else 0, also when it is no address at all.
// ERROR lines: "Address [%s] is not a valid ipv4 or ipv6 address" (after vc_is_ip's own line when
// the text is empty), "Failed to convert address [%s] to binary buffer".
// Kept on purpose: 100.64.0.0/10, 192.0.2.0/24, 198.18.0.0/15 and 224.0.0.0/4 count as routable,
// and every IPv4-mapped IPv6 address as unroutable, whatever its IPv4 part.
int vc_is_unroutable_ip(const char *text);

// 1 for exactly "127.0.0.1" or "::1", else 0 (also for null).
int is_localhost(const char *text);

// 1 when text is a well-formed domain name, else 0 (also for null): at least 3 characters, a dot
// somewhere but not first, last or doubled, letters, digits, '-' and '.' only, no IP address.
// Kept on purpose: label lengths, the total length and the place of hyphens are not judged.
int vc_valid_domain(const char *text);

// 1 when text is a well-formed mail address, user@domain with the first '@' as the border, else
// 0. ERROR lines: EINVAL for an empty text. The length of the user part is not judged.
int vc_valid_email_address(const char *text);

// 1 when text is acceptable as the argument of MAIL FROM, else 0. *bracketed (may be null) is set
// to 1 when the address came in angle brackets, and is left alone otherwise.
// Kept on purpose: an empty text is accepted, as the sender of a bounce, and so is any text when
// there is no memory to judge it with (ERROR: ENOMEM).
int vc_rfc822_email_address(const char *text, uint8_t *bracketed);

// Skips the quoted phrase whose opening quote is at text. Returns the position behind its closing
// quote, or null when the phrase isn't closed, holds a character that isn't printable, or is the
// last thing in the text: something must follow it. ERROR lines: EINVAL when no quote is at text.
char *__vc_parse_quotes(char *text);

// Removes the comment whose opening parenthesis is at text, in place, and sets *out to where the
// text goes on, which is where the comment began. 1, or 0 when it isn't closed; then the text is
// as it was. ERROR lines: EINVAL when no parenthesis is at text or out is null.
int __vc_parse_comment(char *text, char **out);

// Judges the bracketed address whose '<' is at text. 1 when it is acceptable, with *out behind
// the '>', else 0. The text is not changed. ERROR lines: EINVAL when no '<' is at text or out is
// null; ENOMEM, which accepts the address.
// Kept on purpose: nothing, white space or any single character between the brackets is accepted
// as the empty address of a bounce.
int __vc_parse_rfc_address(char *text, char **out);

// The parts of a header's address list, split at every comma outside quotes and comments, each
// with its white space simplified (vc_simplify_whitespace). A last part without text is not
// added; other parts may be empty. A quote or comment that isn't closed reaches to the end.
// Returns a new list of heap strings (size: length + 1), released with vc_destroy_list(&l, free),
// or null. ERROR lines: EINVAL for an empty header, ENOMEM.
vc_list_entry *vc_split_addresses(const char *header);

// The bare address of one mailbox, as in "Some Name <user@domain> (comment)": what stands between
// the first '<' and the next '>', or the whole mailbox without its comments when there is no '<'.
// Returns a new string, lower-cased and trimmed, that the caller frees; or null, when a quoted
// phrase or comment before the address is broken, a character there or in the address isn't
// printable, the '>' is missing, or nothing is left. ERROR lines: EINVAL for an empty mailbox,
// "zero length address", ENOMEM.
char *vc_extract_address_from_mailbox(const char *mailbox);

// The bare addresses of a header's address list: every part of vc_split_addresses through
// vc_extract_address_from_mailbox. A part without an address is passed over. Returns a new list
// of heap strings, released with vc_destroy_list(&l, free); null when there is no address, or on
// failure. ERROR lines: "Unable to split address list", ENOMEM, and those of the two operations.
vc_list_entry *vc_parse_addresses_from_header(const char *header);

} // namespace quillfence
