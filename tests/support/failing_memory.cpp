#include "failing_memory.h"

#include <cerrno>
#include <cstddef>

namespace quillfence::testing {

namespace {

unsigned countdown; // 0: nothing will fail
bool has_fired;
bool keep_failing; // those after the first failure, too
long live;
unsigned long made;

// Counts a block that was handed out.
template <class Block>
Block *counted(Block *block) {
    live += block != nullptr;
    made += block != nullptr;
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
    return fails_now() ? nullptr : counted(__real_malloc(size));
}

void *__wrap_calloc(size_t count, size_t size) {
    using namespace quillfence::testing;
    return fails_now() ? nullptr : counted(__real_calloc(count, size));
}

void *__wrap_realloc(void *block, size_t size) {
    using namespace quillfence::testing;
    if (fails_now()) {
        return nullptr;
    }
    return block ? __real_realloc(block, size) : counted(__real_realloc(block, size));
}

char *__wrap_strdup(const char *text) {
    using namespace quillfence::testing;
    return fails_now() ? nullptr : counted(__real_strdup(text));
}

void __wrap_free(void *block) {
    quillfence::testing::live -= block != nullptr;
    __real_free(block);
}
}
