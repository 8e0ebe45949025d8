// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>
#include <sys/stat.h>

namespace doctor {

/// The user in the shipped unit of the service, and the group whose members may use the service.
inline constexpr char ServiceUser[] = "kado-bt";

/// Returns the name of a user, or the number when the account is unknown.
QString userName(uid_t user);
/// Returns the name of a group, or the number when the group is unknown.
QString groupName(gid_t group);

/// Returns the id of the user of this name, or nothing when the account is unknown.
std::optional<uid_t> findUser(const char *name);

/// Returns true for root and for a member of the group of this name.
bool isMember(uid_t user, const char *group);

enum class Access : mode_t { Read = S_IROTH, Write = S_IWOTH, ReadWrite = S_IROTH | S_IWOTH };

/// Returns whether owner, group and mode of `file` grant `access` to `user`. Does not check the folders of its path.
bool hasAccess(uid_t user, const struct stat &file, Access access);

/// Returns owner, group and mode as text: "root:dialout, mode 0660".
QString ownership(const struct stat &file);

} // namespace doctor
