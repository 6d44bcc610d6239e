#include "doctor/Account.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace tavrik {

namespace {

// Only the doctor asks, which has no other thread.
// NOLINTBEGIN(concurrency-mt-unsafe)

std::string GroupName(gid_t group) {
    const ::group* const entry = getgrgid(group);
    return entry == nullptr ? std::to_string(group) : entry->gr_name;
}

}  // namespace

std::string UserName(uid_t user) {
    const passwd* const entry = getpwuid(user);
    return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

Account::Account(uid_t userId, std::vector<gid_t> groupIds)
    : user(userId), groups(std::move(groupIds)), name(UserName(userId)) {}

std::optional<Account> Account::OfProcess(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    std::optional<uid_t> user;
    std::vector<gid_t> groups;
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        std::string title;
        id_t real = 0;
        id_t effective = 0;
        words >> title;
        if (title == "Uid:" && words >> real >> effective) {
            user = effective;
        } else if (title == "Gid:" && words >> real >> effective) {
            groups.push_back(effective);
        } else if (title == "Groups:") {
            while (words >> real) {
                groups.push_back(real);
            }
        }
    }
    return user ? std::optional(Account(*user, groups)) : std::nullopt;
}

std::optional<Account> Account::OfUser(const std::string& name) {
    constexpr int kMostGroups = 1024;
    const passwd* const entry = getpwnam(name.c_str());
    if (entry == nullptr) {
        return std::nullopt;
    }
    int count = kMostGroups;
    std::vector<gid_t> groups(kMostGroups);
    if (getgrouplist(name.c_str(), entry->pw_gid, groups.data(), &count) < 0) {
        return std::nullopt;
    }
    groups.resize(static_cast<std::size_t>(count));
    return Account(entry->pw_uid, groups);
}
// NOLINTEND(concurrency-mt-unsafe)

bool Account::MayReadAndWrite(const struct stat& file) const {
    const bool isInGroup = std::find(groups.begin(), groups.end(), file.st_gid) != groups.end();
    const mode_t wanted = file.st_uid == user ? S_IRUSR | S_IWUSR
                          : isInGroup         ? S_IRGRP | S_IWGRP
                                              : S_IROTH | S_IWOTH;
    return user == 0 || (file.st_mode & wanted) == wanted;
}

std::string PermissionText(const struct stat& file) {
    std::array<char, 8> mode{};
    std::snprintf(mode.data(), mode.size(), "%04o", file.st_mode & 0777U);
    return UserName(file.st_uid) + ":" + GroupName(file.st_gid) + " " + mode.data();
}

}  // namespace tavrik
