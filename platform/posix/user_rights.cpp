#include "platform/user_rights.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/format.h"

namespace quillfence::platform {

static constexpr int most_groups = 256; // of a user; what he is in beyond does not count

namespace {

struct account {
    uid_t user;
    gid_t groups[most_groups];
    int count;
};

} // namespace

static bool find_account(const char *name, account *found) {
    char texts[4096];
    struct passwd entry;
    struct passwd *known = nullptr;
    if (!name || getpwnam_r(name, &entry, texts, sizeof texts, &known) != 0 || !known) {
        return false;
    }
    found->user = known->pw_uid;
    found->count = most_groups;
    if (getgrouplist(name, known->pw_gid, found->groups, &found->count) < 0) {
        found->count = most_groups;
    }
    return true;
}

bool user_exists(const char *name) {
    account found;
    return find_account(name, &found);
}

// right is one of others, as in S_IXOTH.
static bool has_right(const account &who, const char *path, mode_t right) {
    struct stat facts;
    if (stat(path, &facts) != 0) {
        return false;
    }
    if (who.user == 0) {
        return true;
    }
    if (facts.st_uid == who.user) {
        return facts.st_mode & (right << 6);
    }
    const gid_t *const end = who.groups + who.count;
    const bool is_in_group = std::find(who.groups, end, facts.st_gid) != end;
    return facts.st_mode & (is_in_group ? right << 3 : right);
}

// The length of the path's next beginning that names something, from one that was looked at on.
static size_t next_end(const char *path, size_t from) {
    const char *const slash = strchr(path + from + 1, '/');
    return slash ? static_cast<size_t>(slash - path) : strlen(path);
}

bool user_can_connect(const char *user, const char *path, char *obstacle, size_t size) {
    format_text(obstacle, size, "%s", path ? path : "");
    account who;
    char whole[PATH_MAX];
    if (!path || !realpath(path, whole) || !find_account(user, &who)) {
        return false;
    }
    const size_t length = strlen(whole);
    char part[PATH_MAX];
    for (size_t end = next_end(whole, 0);; end = next_end(whole, end)) {
        memcpy(part, whole, end);
        part[end] = '\0';
        if (!has_right(who, part, end == length ? S_IWOTH : S_IXOTH)) {
            format_text(obstacle, size, "%s", part);
            return false;
        }
        if (end == length) {
            format_text(obstacle, size, "%s", "");
            return true;
        }
    }
}

} // namespace quillfence::platform
