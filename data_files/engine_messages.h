// What the engine has to say about the data that it is given.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "vc_w32.h"

namespace quillfence::data_files {

// While one lives it keeps the engine's ERROR lines of its thread, without the place in the source
// where they come from; an outer one hears nothing meanwhile. Other lines go to the program's log
// function. Other threads' lines are none of its business; it is made and ends on one thread.
class engine_messages : private vc_log_listener {
  public:
    engine_messages();
    ~engine_messages();
    engine_messages(const engine_messages &) = delete;
    engine_messages &operator=(const engine_messages &) = delete;

    // All since the last call, joined with "; "; empty when there were none. Throws as
    // require_memory() does.
    std::string take();

    // An engine without memory answers as if there were nothing to find. Throws std::bad_alloc
    // when its memory has run out since the program began.
    static void require_memory();
    // For a program's start: its log function, which hears all that nobody keeps. Installs the
    // out-of-memory function, too.
    static void begin(vc_log_function otherwise);

  private:
    static int log(int priority, const char *format, ...);
    static int note_no_memory();
    static std::atomic<bool> memory_ran_out;
    static vc_log_function otherwise;
    vc_log_listener *const outer_;
    std::vector<std::string> texts_;
};

} // namespace quillfence::data_files
