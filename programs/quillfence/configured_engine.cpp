#include "configured_engine.h"

#include "quillfence.h"

namespace quillfence::programs {

option_group configuration_options(configuration_arguments *to) {
    return {
        "The configuration",
        {{"--drive-c",
          &to->drive_c,
          "The folder that holds the server's quillfence/, or a copy of it",
          {.value = "DIR", .check = not_empty()}},
         {"--registry",
          &to->registry,
          "An export of the server's registry (.reg)",
          {.value = "FILE", .check = not_empty()}},
         {"--user-dir",
          &to->user_dir,
          "The recipient's own folder of lists; below c: it is looked for in --drive-c",
          {.value = "DIR", .check = not_empty()}},
         {"--with-list",
          &to->with_list,
          "What if LIST had this LINE? As in --with-list from_blacklist '*@x.example'",
          {.value = "LIST LINE", .values_at_once = 2}},
         {"--without-list",
          &to->without_list,
          "What if LIST had no such LINE?",
          {.value = "LIST LINE", .values_at_once = 2}}},
    };
}

void check_folders(const std::string &user_dir) {
    require_directory(quillfence_base_dir,
                      "name the folder that holds the server's quillfence/ with --drive-c");
    if (!user_dir.empty()) {
        require_directory(user_dir, "--user-dir is a user's own folder of lists");
    }
}

void change_lists(const configuration_arguments &arguments, what_if *changed) {
    for (size_t i = 0; i + 1 < arguments.with_list.size(); i += 2) {
        changed->add(arguments.with_list[i], arguments.with_list[i + 1]);
    }
    for (size_t i = 0; i + 1 < arguments.without_list.size(); i += 2) {
        changed->remove(arguments.without_list[i], arguments.without_list[i + 1]);
    }
}

configured_engine::configured_engine(const configuration_arguments &arguments,
                                     const std::string &user_dir)
    : chosen_(arguments.drive_c, arguments.registry), changed_(user_dir) {
    check_folders(arguments.user_dir);
    change_lists(arguments, &changed_);
    engine_.emplace();
}

} // namespace quillfence::programs
