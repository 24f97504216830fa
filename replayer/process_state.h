// Completing a session before the checks, as the engine's daemon would.
#pragma once

#include "smtp_state.h"

namespace quillfence {

// Marks a bounce, classes the client's address, looks its PTR names up once when it is routable,
// and sets the base directory "c:/quillfence/". 1, or 0 when the run can't go on.
//   sender "", absent, or "(null)" in any case   ndr is set, mail_from becomes "bounce message"
//   PTR lookup                                   0 found, 2 or -2 TEMPFAIL, anything else NO
// A null session gives 0.
// ERROR line: ENOMEM.
// Kept on purpose: a PTR lookup that succeeds without a name is a failure.
int __process_state(smtp_state *state);

} // namespace quillfence
