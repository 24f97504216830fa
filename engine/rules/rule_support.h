// Small steps that several identity rules have in common.
#pragma once

namespace quillfence {

// Trims white space off both ends of a session's HELO or sender when it begins or ends with a
// blank, so that later rules see the trimmed text. The slot's string may be replaced: read the
// field again afterwards. Only a blank (0x20) starts this; a text framed in tabs alone stays.
// A null or empty text is left as it is. Log lines are those of vc_trim.
void trim_session_text(char **slot);

} // namespace quillfence
