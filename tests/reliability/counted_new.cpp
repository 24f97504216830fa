// An operator new that is the tests' malloc, so that what the standard library allocates is counted
// and fails like all else. In a file of its own, so that nobody sees into it.
#include <cstdlib>
#include <new>

void *operator new(size_t size) {
    if (void *const block = std::malloc(size ? size : 1)) {
        return block;
    }
    throw std::bad_alloc();
}

// The sanitizers have one of their own, which does not come to the one above.
void *operator new(size_t size, const std::nothrow_t &) noexcept {
    return std::malloc(size ? size : 1);
}

void operator delete(void *block) noexcept {
    std::free(block);
}

void operator delete(void *block, size_t) noexcept {
    std::free(block);
}

void operator delete(void *block, const std::nothrow_t &) noexcept {
    std::free(block);
}
