#include "collected_registry.h"

#include <memory>

#include "me_settings.h"
#include "platform/error_numbers.h"
#include "platform/registry.h"
#include "platform/registry_export.h"
#include "registry.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::programs {

namespace {

struct asked_key {
    const char *path;
    uint32_t access;
    const char *value; // null: all of them
};

// As the engine opens them.
constexpr asked_key asked_keys[] = {
    {me_key, platform::registry_read, me_configuration_value},
    {me_key_32, platform::registry_read, me_configuration_value},
    {me_connector_key, vc_regkey_read_32, me_white_list_status},
    {me_white_list_key, vc_regkey_read_32, nullptr},
};

struct key_closer {
    void operator()(platform::registry_key *key) const {
        platform::registry_close(key);
    }
};
using key_ptr = std::unique_ptr<platform::registry_key, key_closer>;

// Makes the export, value by value.
class exporter {
  public:
    void add_key(const asked_key &asked) {
        platform::registry_key *opened = nullptr;
        const uint32_t error = platform::registry_open(platform::registry_root::local_machine,
                                                       asked.path, asked.access, &opened);
        const key_ptr key(opened);
        if (error) {
            note(asked.path, error);
        } else if (asked.value) {
            add_value(asked, key.get(), asked.value);
        } else {
            add_all(asked, key.get());
        }
    }
    collected_registry take() {
        return std::move(made_);
    }

  private:
    void add_all(const asked_key &asked, platform::registry_key *key) {
        uint32_t longest = 0;
        uint32_t values = 0;
        if (const uint32_t error = platform::registry_count(key, &values, &longest)) {
            note(asked.path, error);
            return;
        }
        std::vector<char> name(longest + 1);
        for (uint32_t i = 0;; ++i) {
            auto size = static_cast<uint32_t>(name.size());
            const uint32_t error = platform::registry_enumerate(key, i, name.data(), &size);
            if (error) {
                note(asked.path, error == platform::error_no_more_items ? 0 : error);
                return;
            }
            add_value(asked, key, name.data());
        }
    }

    void add_value(const asked_key &asked, platform::registry_key *key, const char *name) {
        uint32_t type = 0;
        uint32_t size = 0;
        uint32_t error = platform::registry_query(key, name, &type, nullptr, &size);
        std::string data(size, '\0');
        error = error ? error : platform::registry_query(key, name, &type, data.data(), &size);
        if (error) {
            note(asked.path, error);
            return;
        }
        data.resize(size);
        append(asked, {.name = const_cast<char *>(name), // only read
                       .data = reinterpret_cast<const unsigned char *>(data.data()),
                       .type = type,
                       .size = size,
                       .order = 0});
    }

    void append(const asked_key &asked, const platform::exported_value &value) {
        const heap_string path(platform::registry_export_path(
            platform::registry_root::local_machine, asked.path, asked.access));
        unsigned char *addition = nullptr;
        size_t size = 0;
        const uint32_t error =
            path
                ? platform::registry_export_addition(made_.bytes.data(), made_.bytes.size(),
                                                     path.get(), platform::export_change::set_value,
                                                     &value, &addition, &size)
                : static_cast<uint32_t>(platform::error_not_enough_memory);
        if (error == platform::error_not_enough_memory) {
            throw std::bad_alloc();
        }
        note(asked.path, error);
        if (!error) {
            made_.bytes.append(reinterpret_cast<const char *>(addition), size);
            ++made_.values;
        }
        std::free(addition);
    }

    // What is missing is nothing to tell.
    void note(const char *path, uint32_t error) {
        if (error && !data_files::is_missing(error)) {
            made_.failures.push_back("HKEY_LOCAL_MACHINE\\" + std::string(path) +
                                     ": could not be collected: " + data_files::system_text(error));
        }
    }

    collected_registry made_;
};

} // namespace

collected_registry collect_registry() {
    exporter all;
    for (const asked_key &asked : asked_keys) {
        all.add_key(asked);
    }
    return all.take();
}

} // namespace quillfence::programs
