#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tavrikctl {

/// A user with all groups, as the kernel judges permissions.
class Account {
public:
    /// The one as which a process runs.
    static std::optional<Account> OfProcess(pid_t pid);

    /// The one that will run as user `name`.
    static std::optional<Account> OfUser(const std::string& name);

    const std::string& Name() const { return name; }

    /// By owner, group and mode; access control lists are not looked at.
    bool MayReadAndWrite(const struct stat& file) const;

private:
    Account(uid_t userId, std::vector<gid_t> groupIds);

    uid_t user;
    std::vector<gid_t> groups;
    std::string name;
};

/// Owner, group and mode of a file: "root:dialout 0660".
std::string PermissionText(const struct stat& file);

}  // namespace tavrikctl
