#include "mail_journal.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <new>

#include "quillfence-log.h"
#include "vc_list.h"
#include "vc_w32.h"

namespace quillfence::service {

using decision::decided_by;
using decision::verdict;

static uint8_t log_type_of(const smtp_state &state, const decision::decision &made) {
    if (made.is == verdict::reject) {
        return log_type_spam;
    }
    if (made.is == verdict::accept && made.by == decided_by::exempt) {
        return log_type_exempt;
    }
    return state.ndr ? log_type_ndr : log_type_ham;
}

namespace {

// Keeps the first ERROR line that its thread writes.
class first_error : private vc_log_listener {
  public:
    first_error() : vc_log_listener{keep}, before_(vc_thread_log_listener()) {
        vc_set_thread_log_listener(this);
    }
    ~first_error() {
        vc_set_thread_log_listener(before_);
    }
    first_error(const first_error &) = delete;
    first_error &operator=(const first_error &) = delete;
    const char *text() const {
        return text_;
    }

  private:
    static int keep(int priority, const char *format, ...) {
        auto *const self = static_cast<first_error *>(vc_thread_log_listener());
        if (priority <= priority_error && !self->text_[0]) {
            va_list arguments;
            va_start(arguments, format);
            vsnprintf(self->text_, sizeof self->text_, format, arguments);
            va_end(arguments);
        }
        return 0;
    }

    vc_log_listener *const before_;
    char text_[512] = "";
};

} // namespace

std::string mail_journal::note(smtp_state *state, const decision::decision &made) {
    if (!user_dir_.empty() &&
        vc_append_list_entry(&state->user_dirs, user_dir_.c_str(), user_dir_.size() + 1, 1) <= 0) {
        throw std::bad_alloc();
    }
    const char *const rule = made.hit_name.empty() ? nullptr : made.hit_name.c_str();
    const std::lock_guard guard(lock_);
    const first_error errors;
    log_message(state, rule, log_type_of(*state, made));
    return errors.text();
}

} // namespace quillfence::service
