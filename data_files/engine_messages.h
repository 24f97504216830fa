// What the engine has to say about the data that it is given.
#pragma once

#include <string>
#include <vector>

#include "vc_w32.h"

namespace quillfence::data_files {

// While one lives it keeps the engine's ERROR lines, without the place in the source where they
// come from; an outer one hears nothing meanwhile. Other lines go to the program's log function.
class engine_messages {
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
    static engine_messages *current;
    static bool memory_ran_out;
    static vc_log_function otherwise;
    engine_messages *outer_;
    std::vector<std::string> texts_;
};

} // namespace quillfence::data_files
