#include "step_count.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "allocation_pause.h"

extern "C" size_t __real_strlen(const char *text);

namespace quillfence::testing {

namespace {

uint64_t steps;
uint64_t read_from_streams;

// What a stand-in does is none of the product's work.
void note(uint64_t work) {
    steps += allocations_paused ? 0 : work;
}

// From a text's start to the place that was found, or to its end.
size_t searched(const char *text, const char *found) {
    return found ? static_cast<size_t>(found - text) : __real_strlen(text);
}

// How far two texts are the same.
size_t common_length(const char *one, const char *other, size_t most) {
    size_t length = 0;
    while (length < most && one[length] && one[length] == other[length]) {
        ++length;
    }
    return length;
}

} // namespace

uint64_t steps_taken() {
    return steps;
}

uint64_t stream_bytes_read() {
    return read_from_streams;
}

} // namespace quillfence::testing

// The compiler puts a call of the first function into every basic block of the counted objects; the
// linker sends the C library's functions here (option --wrap).
extern "C" {

void __sanitizer_cov_trace_pc();
void __sanitizer_cov_trace_pc() {
    ++quillfence::testing::steps;
}

#define QF_COUNTED(result, name, parameters, arguments, work)                                      \
    result __real_##name parameters;                                                               \
    result __wrap_##name parameters;                                                               \
    result __wrap_##name parameters {                                                              \
        using namespace quillfence::testing;                                                       \
        const auto outcome = __real_##name arguments;                                              \
        note(work);                                                                                \
        return outcome;                                                                            \
    }

QF_COUNTED(void *, memmove, (void *to, const void *from, size_t size), (to, from, size), size)
QF_COUNTED(void *, memcpy, (void *to, const void *from, size_t size), (to, from, size), size)
QF_COUNTED(void *, memset, (void *to, int byte, size_t size), (to, byte, size), size)
QF_COUNTED(int, memcmp, (const void *one, const void *other, size_t size), (one, other, size), size)
QF_COUNTED(void *, memchr, (const void *from, int byte, size_t size), (from, byte, size),
           outcome
               ? static_cast<size_t>(static_cast<char *>(outcome) - static_cast<const char *>(from))
               : size)
QF_COUNTED(size_t, strlen, (const char *text), (text), outcome)
QF_COUNTED(size_t, strnlen, (const char *text, size_t most), (text, most), outcome)
QF_COUNTED(char *, strchr, (const char *text, int c), (text, c), searched(text, outcome))
QF_COUNTED(char *, strrchr, (const char *text, int c), (text, c), __real_strlen(text))
QF_COUNTED(char *, strstr, (const char *text, const char *part), (text, part),
           searched(text, outcome))
QF_COUNTED(size_t, strspn, (const char *text, const char *set), (text, set), outcome)
QF_COUNTED(size_t, strcspn, (const char *text, const char *set), (text, set), outcome)
QF_COUNTED(int, strcmp, (const char *one, const char *other), (one, other),
           common_length(one, other, SIZE_MAX))
QF_COUNTED(int, strncmp, (const char *one, const char *other, size_t most), (one, other, most),
           common_length(one, other, most))
QF_COUNTED(size_t, fread, (void *to, size_t size, size_t count, FILE *stream),
           (to, size, count, stream), (read_from_streams += outcome * size, outcome *size))
QF_COUNTED(char *, fgets, (char *line, int size, FILE *stream), (line, size, stream),
           (read_from_streams += outcome ? __real_strlen(line) : 0,
            outcome ? __real_strlen(line) : 0))

#undef QF_COUNTED
}
