// A registry of the test's own. On Linux it is a fresh export named by QUILLFENCE_REGISTRY; on
// Windows it is the keys "SOFTWARE\Mail Enable" and "SOFTWARE\Quillfence-test" of the local machine
// in both views, which must not exist before (leftovers of a test that broke off are known by the
// second one). All of it goes away with the object.
#pragma once

#include <cstdint>
#include <string>

#include "platform/registry.h"

namespace quillfence::testing {

class test_registry {
  public:
    test_registry();
    // One in an export in both systems, named by platform/surroundings.h.
    struct exported {};
    explicit test_registry(exported);
    ~test_registry();
    test_registry(const test_registry &) = delete;
    test_registry &operator=(const test_registry &) = delete;

    // Keys are paths below HKEY_LOCAL_MACHINE, below the two named above; view is 0 or one of the
    // seam's view flags. Missing keys are made.
    void create(const std::string &key, uint32_t view = 0) const;
    void set(const std::string &key, const std::string &name, uint32_t type,
             const std::string &bytes, uint32_t view = 0) const;
    void set_text(const std::string &key, const std::string &name, const std::string &text,
                  uint32_t view = 0) const;
    void set_dword(const std::string &key, const std::string &name, uint32_t number,
                   uint32_t view = 0) const;
    void remove(const std::string &key, uint32_t view = 0) const; // with all below it

    // The export, empty without one.
    const std::string &file() const {
        return file_;
    }

  private:
    std::string file_;
    bool is_named_ = false; // by platform/surroundings.h
};

// A key for tests that are not about Mail Enable.
inline constexpr char test_key[] = "SOFTWARE\\Quillfence-test";

} // namespace quillfence::testing
