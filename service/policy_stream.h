// One client on a pair of streams, as Postfix's spawn and inetd start a program for each: one
// request after the other, until its stream ends.
#pragma once

#include <functional>

#include "connection.h"
#include "platform/file.h"

namespace quillfence::service {

enum class stream_end : unsigned char {
    done,         // the client has ended, or an interruption was noted
    within,       // he has ended within a request
    too_long,     // a request was beyond the bounds; an event tells which
    read_failed,  // *error is a Win32 error number
    write_failed, // likewise; he may have gone
};

// Blocks; interruptions and hang-ups must be listened to. The one that is judged when an
// interruption comes gets its reply.
//   reopen  called for a hang-up; may be empty
stream_end serve_stream(platform::file_handle in, platform::file_handle out,
                        const request_handler &judge, const std::function<void()> &reopen,
                        uint32_t *error);

} // namespace quillfence::service
