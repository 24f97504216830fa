// Where mail servers will ask: whether it can be listened to, and whether they get there.
#include <cstring>

#include "listeners.h"
#include "platform/user_rights.h"
#include "policyd_check.h"

namespace quillfence::programs {

static constexpr std::string_view local_prefix = "unix:";
static constexpr std::string_view postfix_queue = "/var/spool/postfix/";

static constexpr char postfix_user[] = "postfix";

const std::vector<const char *> &mail_server_users() {
    static const std::vector<const char *> users = {postfix_user, "Debian-exim", "exim"};
    return users;
}

check_line postfix_line(const std::string &place) {
    const std::string_view path = std::string_view(place).substr(local_prefix.size());
    if (path.starts_with(postfix_queue)) {
        return {check_result::ok, place,
                "in Postfix's main.cf this is unix:" +
                    std::string(path.substr(postfix_queue.size()))};
    }
    return {check_result::warning, place,
            "Postfix's services can't see it from a chroot, in which Debian's run; for them listen "
            "on unix:/var/spool/postfix/private/quillfence"};
}

static check_line reach_line(const std::string &place, const char *path, const char *user) {
    char obstacle[4096];
    if (platform::user_can_connect(user, path, obstacle, sizeof obstacle)) {
        return {check_result::ok, place, "the user " + std::string(user) + " can connect"};
    }
    return {
        check_result::error, place,
        "the user " + std::string(user) + " can't connect, as " + obstacle +
            " does not let him in; give the folder and the socket a group that he is in, or the "
            "socket other rights with --socket-mode"};
}

static void check_reach(const std::string &place, const std::vector<const char *> &users,
                        check_report *report) {
    for (const char *const user : users) {
        if (platform::user_exists(user)) {
            report->push_back(reach_line(place, place.c_str() + local_prefix.size(), user));
            if (std::strcmp(user, postfix_user) == 0) {
                report->push_back(postfix_line(place));
            }
        }
    }
}

// What the service would say, without the place in front; "" when it would listen.
static std::string try_to_listen(const std::string &place, uint32_t mode, service::listeners *all) {
    const auto wrong = all->open(place, mode);
    return wrong ? wrong->substr(place.size() + 2) : "";
}

static const char *advice_about(std::string_view wrong) {
    return wrong.ends_with("No such file or directory") ? "; make its folder" : "";
}

void check_listening(const std::vector<std::string> &places, uint32_t mode,
                     const std::vector<const char *> &users, check_report *report) {
    service::listeners all;
    for (const std::string &place : places) {
        const std::string wrong = try_to_listen(place, mode, &all);
        const bool is_taken = wrong == "another program listens there";
        const check_result is = wrong.empty() ? check_result::ok
                                : is_taken    ? check_result::warning
                                              : check_result::error;
        report->push_back({is, place,
                           wrong.empty() ? "can be listened to"
                           : is_taken    ? wrong + "; if that is the service itself, all is well"
                                         : "can't be listened to: " + wrong + advice_about(wrong)});
        if (is != check_result::error && place.starts_with(local_prefix)) {
            check_reach(place, users, report);
        }
    }
}

} // namespace quillfence::programs
