#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tavrik {

/// A user with all groups, as the kernel judges permissions.
class Account {
public:
    /// The one as which a process runs.
    static std::optional<Account> OfProcess(pid_t pid);

    /// The one that will run as user `name`.
    static std::optional<Account> OfUser(const std::string& name);

    const std::string& Name() const { return name; }

    /// By owner, group and mode; an access control list may let in more.
    bool MayReadAndWrite(const struct stat& file) const;

private:
    Account(uid_t userId, std::vector<gid_t> groupIds);

    uid_t user;
    std::vector<gid_t> groups;
    std::string name;
};

/// The name of a user, or the number of one without a name.
std::string UserName(uid_t user);

/// Owner, group and mode of a file: "root:dialout 0660".
std::string PermissionText(const struct stat& file);

}  // namespace tavrik
