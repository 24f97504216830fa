// A program short of memory. STARVE=n makes its n-th allocation fail; STARVE=n+ that one and all
// later ones, but for the event log's own buffers, so that the last lines still arrive. Linked with
// the program's main and with every malloc, calloc, realloc and strdup of the product sent here.
// Allocations are counted from main on: a program whose static objects find no memory never starts.
#include <cstddef>
#include <cstdlib>

namespace {

constexpr size_t event_buffer = 1024;

struct shortage {
    unsigned long from = 0; // counted from 1; 0: none
    bool lasts = false;
};

shortage wanted_shortage() {
    const char *const text = getenv("STARVE");
    if (!text) {
        return {};
    }
    char *end = nullptr;
    const unsigned long from = strtoul(text, &end, 10);
    return {from, *end == '+'};
}

bool started = false;

bool fails_now(size_t size) {
    if (!started) {
        return false;
    }
    static const shortage wanted = wanted_shortage();
    static unsigned long asked = 0;
    ++asked;
    return wanted.lasts ? asked >= wanted.from && size != event_buffer : asked == wanted.from;
}

} // namespace

// The linker sends every call of malloc here (option --wrap) and calls the real one __real_malloc.
extern "C" {

int __real_main(int argc, char **argv);
int __wrap_main(int argc, char **argv);
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
char *__real_strdup(const char *text);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *block, size_t size);
char *__wrap_strdup(const char *text);

int __wrap_main(int argc, char **argv) {
    started = true;
    return __real_main(argc, argv);
}

void *__wrap_malloc(size_t size) {
    return fails_now(size) ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size) {
    return fails_now(count * size) ? nullptr : __real_calloc(count, size);
}

void *__wrap_realloc(void *block, size_t size) {
    return fails_now(size) ? nullptr : __real_realloc(block, size);
}

char *__wrap_strdup(const char *text) {
    return fails_now(0) ? nullptr : __real_strdup(text);
}
}
