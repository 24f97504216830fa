// Keeps a stand-in's own allocations out of a test that makes allocations fail or counts them.
#pragma once

namespace quillfence::testing {

inline bool allocations_paused = false;

// While one lives, allocations neither count nor fail. For stand-ins that are called by the code
// under test.
class allocation_pause {
  public:
    allocation_pause() : before_(allocations_paused) {
        allocations_paused = true;
    }
    ~allocation_pause() {
        allocations_paused = before_;
    }
    allocation_pause(const allocation_pause &) = delete;
    allocation_pause &operator=(const allocation_pause &) = delete;

  private:
    bool before_;
};

} // namespace quillfence::testing
