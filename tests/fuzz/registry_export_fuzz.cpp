// Registry exports: reading a key, and changing it.
//
//     the file
#include "fuzz_support.h"
#include "platform/error_numbers.h"
#include "platform/registry_export.h"

namespace quillfence::testing {

namespace {

using namespace platform;

constexpr char mail_key[] = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Mail";
constexpr const char *keys[] = {mail_key, "HKEY_LOCAL_MACHINE\\SOFTWARE", "HKEY_LOCAL_MACHINE",
                                "HKEY_CURRENT_USER\\M\xC3\xBCller"};

// The values are sorted, each is found by its name, and none belongs to a key that is not there.
void check_values(const exported_key &key) {
    QF_PROMISE(key.exists || key.count == 0);
    for (size_t i = 0; i < key.count; ++i) {
        const exported_value &value = key.values[i];
        QF_PROMISE(registry_export_find(&key, value.name) == &value);
        unsigned sum = 0;
        for (uint32_t at = 0; at < value.size; ++at) {
            sum += value.data[at];
        }
        QF_PROMISE(sum <= 255U * value.size);
    }
}

exported_key read(const std::string &file, const char *path) {
    const exact_bytes bytes(file);
    exported_key key;
    QF_PROMISE(registry_export_read(bytes.begin(), file.size(), path, &key) == 0);
    check_values(key);
    return key;
}

// A file that ends in half a unit takes no change.
bool takes_changes(const std::string &file) {
    return !file.starts_with("\xFF\xFE") || file.size() % 2 == 0;
}

// The file with a change; the file itself where it takes none.
std::string changed(const std::string &file, export_change change, const exported_value *value) {
    unsigned char *addition = nullptr;
    size_t size = 0;
    const uint32_t error = registry_export_addition(file.data(), file.size(), mail_key, change,
                                                    value, &addition, &size);
    QF_PROMISE(error == (takes_changes(file) ? 0U : uint32_t{error_not_registry_file}));
    QF_PROMISE(!error || !addition);
    const std::string whole = file + std::string(reinterpret_cast<char *>(addition), size);
    free(addition);
    return whole;
}

constexpr unsigned char new_data[] = "C:\\\"quoted\"";
constexpr exported_value new_value = {"a new name", new_data, registry_text, sizeof new_data, 0};

// A value that is set is there afterwards, and no other one has come or gone.
void set_value(const std::string &file) {
    exported_key key = read(file, mail_key);
    const size_t count = key.count + !registry_export_find(&key, new_value.name);
    registry_export_release(&key);
    key = read(changed(file, export_change::set_value, &new_value), mail_key);
    QF_PROMISE(key.exists && key.count == count);
    const exported_value *const found = registry_export_find(&key, new_value.name);
    QF_PROMISE(found && found->type == registry_text && found->size == sizeof new_data &&
               memcmp(found->data, new_data, sizeof new_data) == 0);
    registry_export_release(&key);
}

void delete_key(const std::string &file) {
    exported_key key = read(changed(file, export_change::delete_key, nullptr), mail_key);
    QF_PROMISE(!key.exists);
    registry_export_release(&key);
}

} // namespace

void fuzz_one(fuzz_input &input) {
    const std::string file = input.rest();
    const exact_bytes bytes(file);
    exported_key key;
    const uint32_t error = registry_export_read(bytes.begin(), file.size(), mail_key, &key);
    registry_export_release(&key);
    if (error) {
        return;
    }
    for (const char *path : keys) {
        key = read(file, path);
        registry_export_release(&key);
    }
    if (takes_changes(file)) {
        set_value(file);
        delete_key(file);
    } else {
        QF_PROMISE(changed(file, export_change::set_value, &new_value) == file);
    }
}

} // namespace quillfence::testing
