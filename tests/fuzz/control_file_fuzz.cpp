// Control files as maps: loaded, asked, copied, written out again and changed.
//
//     separator, most entries   a byte each
//     a key
//     the file
#include "fuzz_support.h"
#include "map_checks.h"

namespace quillfence::testing {

namespace {

constexpr char given[] = "c:/quillfence/control/given";
constexpr char written[] = "c:/quillfence/control/written";

// A control file of the map's entries reads as the same map.
void write_again(const vc_hashmap *map, char separator) {
    std::string text;
    vc_map_iterator *iterator = vc_map_iterator_start_ex(map, 0);
    const char *key = nullptr;
    void *value = nullptr;
    while (vc_map_iterator_next(iterator, &key, &value)) {
        text += std::string(key) + separator + static_cast<const char *>(value) + "\n";
    }
    vc_map_iterator_free(iterator);
    if (text.empty()) {
        return;
    }
    fuzz_drive().write(written, text);
    vc_hashmap *again = nullptr;
    QF_PROMISE(vc_map_load_control_file(written, 0, separator, &again) == 1);
    check_equal(map, again);
    vc_map_destroy(again);
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const char separator = static_cast<char>(input.byte());
    const uint32_t maximum = input.byte();
    const std::string key = input.line();
    const std::string bytes = input.rest();
    fuzz_drive().write(given, bytes);
    vc_hashmap *map = nullptr;
    const int result = vc_map_load_control_file(given, maximum, separator, &map);
    QF_PROMISE(result >= -1 && result <= 1);
    QF_PROMISE((result == 1) == (map != nullptr));
    QF_PROMISE(file_bytes(given) == bytes);
    if (!map) {
        return;
    }
    const map_ptr owner(map);
    QF_PROMISE(maximum == 0 || vc_map_count(map) <= maximum);
    QF_PROMISE(is_sound(map));
    read_map(map);
    write_source(map);
    check_copies(map, "c:/quillfence/saved");
    write_again(map, separator);
    change_map(map, key.c_str());
}

} // namespace quillfence::testing
