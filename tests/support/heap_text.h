// Heap strings between a test and the code under test.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string>

namespace quillfence::testing {

// A heap string as the product makes them.
inline char *heap_text(const std::string &text) {
    char *copy = static_cast<char *>(malloc(text.size() + 1));
    memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

// What a slot holds, null as "(none)". The slot keeps it.
inline std::string shown(const char *text) {
    return text ? text : "(none)";
}

// A slot that frees what it holds in the end.
struct text_slot {
    char *text = nullptr;
    text_slot() = default;
    explicit text_slot(const std::string &initial) : text(heap_text(initial)) {}
    ~text_slot() {
        free(text);
    }
    text_slot(const text_slot &) = delete;
    text_slot &operator=(const text_slot &) = delete;
    char **slot() {
        return &text;
    }
    std::string str() const {
        return shown(text);
    }
};

} // namespace quillfence::testing
