#include "failing_memory.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace quillfence::testing {

namespace {

unsigned countdown; // 0: nothing will fail
bool has_fired;
bool keep_failing; // those after the first failure, too
long live;
unsigned long made;
unsigned long long asked; // bytes

// Counts a block of that size among those asked for, unless a stand-in did.
void note(const void *block, size_t size) {
    if (block && !allocations_paused) {
        ++made;
        asked += size;
    }
}

// Counts a block of that size that was handed out.
template <class Block>
Block *counted(Block *block, size_t size) {
    live += block != nullptr;
    note(block, size);
    return block;
}

bool fails_now() {
    if (allocations_paused || countdown == 0 || --countdown != 0) {
        return false;
    }
    if (keep_failing) {
        countdown = 1;
    }
    has_fired = true;
    errno = ENOMEM;
    return true;
}

} // namespace

failing_allocation::failing_allocation(unsigned n, bool all_after) {
    has_fired = false;
    keep_failing = all_after;
    countdown = n;
}

failing_allocation::~failing_allocation() {
    countdown = 0;
}

bool failing_allocation::fired() const {
    return has_fired;
}

long live_allocations() {
    return live;
}

unsigned long allocations_made() {
    return made;
}

unsigned long long bytes_asked_for() {
    return asked;
}

} // namespace quillfence::testing

// The linker sends every call of malloc here (option --wrap) and calls the real one __real_malloc.
extern "C" {

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
char *__real_strdup(const char *text);
void __real_free(void *block);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *block, size_t size);
char *__wrap_strdup(const char *text);
void __wrap_free(void *block);

void *__wrap_malloc(size_t size) {
    using namespace quillfence::testing;
    return fails_now() ? nullptr : counted(__real_malloc(size), size);
}

void *__wrap_calloc(size_t count, size_t size) {
    using namespace quillfence::testing;
    return fails_now() ? nullptr : counted(__real_calloc(count, size), count * size);
}

void *__wrap_realloc(void *block, size_t size) {
    using namespace quillfence::testing;
    if (fails_now()) {
        return nullptr;
    }
    void *const grown = __real_realloc(block, size);
    if (!block) {
        return counted(grown, size);
    }
    if (grown && !allocations_paused) {
        asked += size;
    }
    return grown;
}

char *__wrap_strdup(const char *text) {
    using namespace quillfence::testing;
    return fails_now() ? nullptr : counted(__real_strdup(text), strlen(text) + 1);
}

void __wrap_free(void *block) {
    quillfence::testing::live -= block != nullptr;
    __real_free(block);
}
}
