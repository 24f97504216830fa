// Watches the calls of the platform seam: keeps their names in order, and makes chosen ones fail.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/observer.h"

namespace quillfence::testing {

// While one lives, it is the process's call observer. Only one at a time.
class call_watch {
  public:
    call_watch() {
        current() = this;
        platform::set_call_observer(on_call);
    }
    ~call_watch() {
        platform::set_call_observer(nullptr);
        current() = nullptr;
    }
    call_watch(const call_watch &) = delete;
    call_watch &operator=(const call_watch &) = delete;

    // Makes the n-th call of that name from now on fail with a Win32 error number; with all_after
    // also every later one.
    void fail(const std::string &name, int n, uint32_t error, bool all_after = false) {
        failing_name_ = name;
        failing_in_ = n;
        error_ = error;
        all_after_ = all_after;
    }
    // The same for the n-th call of any name but those that look at the environment or the clock.
    void fail_any(int n, uint32_t error, bool all_after = false) {
        fail("", n, error, all_after);
    }
    // How many of the chosen calls have failed.
    int failed() const {
        return failed_;
    }
    // The names of the calls so far, in order; forgotten here.
    std::vector<std::string> take() {
        std::vector<std::string> taken;
        taken.swap(calls_);
        return taken;
    }
    int count(const std::string &name) const {
        return static_cast<int>(std::count(calls_.begin(), calls_.end(), name));
    }

  private:
    static call_watch *&current() {
        static call_watch *watch;
        return watch;
    }
    static uint32_t on_call(const char *call, const char *) {
        return current()->record(call);
    }
    uint32_t record(const char *call) {
        calls_.emplace_back(call);
        if (!is_chosen(call) || --failing_in_ > 0 || (failing_in_ < 0 && !all_after_)) {
            return 0;
        }
        ++failed_;
        return error_;
    }

    bool is_chosen(const std::string &call) const {
        return failing_name_.empty() ? !call.starts_with("environment_") && call != "clock_now" &&
                                           !call.ends_with("local_time")
                                     : failing_name_ == call;
    }

    std::vector<std::string> calls_;
    std::string failing_name_;
    int failing_in_ = 0;
    uint32_t error_ = 0;
    bool all_after_ = false;
    int failed_ = 0;
};

} // namespace quillfence::testing
