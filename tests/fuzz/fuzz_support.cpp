#include "fuzz_support.h"

#include <cstdarg>
#include <cstdio>

#include "platform/format.h"
#include "platform/process.h"
#include "vc_w32.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size);

namespace quillfence::testing {

void promise_broken(const char *condition, const char *file, int line) {
    std::fprintf(stderr, "%s:%d: broken promise: %s\n", file, line, condition);
    std::fflush(stderr);
    std::abort();
}

exact_bytes::exact_bytes(const std::string &bytes)
    : bytes_(static_cast<char *>(malloc(bytes.size()))), size_(bytes.size()) {
    if (size_ > 0) {
        memcpy(bytes_, bytes.data(), size_);
    }
}

exact_bytes::~exact_bytes() {
    free(bytes_);
}

fuzz_input::fuzz_input(const uint8_t *bytes, size_t size) : left_(bytes, bytes + size) {}

uint8_t fuzz_input::byte() {
    if (left_.empty()) {
        return 0;
    }
    const auto taken = static_cast<uint8_t>(left_.front());
    left_.erase(0, 1);
    return taken;
}

uint16_t fuzz_input::number16() {
    const uint8_t low = byte();
    return static_cast<uint16_t>(low | byte() << 8);
}

uint32_t fuzz_input::number32() {
    const uint32_t low = number16();
    return low | static_cast<uint32_t>(number16()) << 16;
}

std::string fuzz_input::line() {
    const size_t end = left_.find('\n');
    const std::string taken = left_.substr(0, end);
    left_.erase(0, end == std::string::npos ? end : end + 1);
    return taken.substr(0, taken.find('\0'));
}

std::string fuzz_input::bytes(size_t size) {
    const std::string taken = left_.substr(0, size);
    left_.erase(0, size);
    return taken;
}

std::string fuzz_input::rest() {
    std::string taken;
    taken.swap(left_);
    return taken;
}

const drive_c &fuzz_drive() {
    static const drive_c drive;
    return drive;
}

std::string file_bytes(const std::string &path) {
    return fuzz_drive().exists(path) ? fuzz_drive().read(path) : std::string();
}

int drop_line(int, const char *format, ...) {
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    platform::vformat_text(line, sizeof line, format, arguments);
    va_end(arguments);
    return 0;
}

static void set_debug_lines(bool on) {
    platform::environment_set("VERBOSEDEBUG", on ? "1" : nullptr);
    __vc_forget_verbosedebug();
}

void without_debug_lines() {
    set_debug_lines(false);
}

namespace {

// Whether an input runs with DEBUG lines: its own bytes decide, so that it does the same each time.
bool traced(const uint8_t *bytes, size_t size) {
    unsigned sum = 0;
    for (size_t i = 0; i < size; ++i) {
        sum += bytes[i];
    }
    return sum % 2 != 0;
}

} // namespace
} // namespace quillfence::testing

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    namespace fuzzing = quillfence::testing;
    static const bool once = [] {
        GTEST_FLAG_SET(break_on_failure, true); // the drive reports its own troubles that way
        return true;
    }();
    static_cast<void>(once);
    fuzzing::set_debug_lines(fuzzing::traced(bytes, size));
    quillfence::vc_set_log_function(fuzzing::drop_line);
    fuzzing::fuzz_input input(bytes, size);
    fuzzing::fuzz_one(input);
    return 0;
}
