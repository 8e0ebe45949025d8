// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <optional>
#include <sys/stat.h>

namespace doctor {

/// The user whom the service's unit names, and the group whose members may use the service.
inline constexpr char ServiceUser[] = "kado-bt";

/// The name, or the number of one who has none.
QString userName(uid_t user);
QString groupName(gid_t group);

std::optional<uid_t> userNamed(const char *name);

/// Whether the user is root, or a member of the group of this name.
bool isMember(uid_t user, const char *group);

enum class Access : mode_t { Read = S_IROTH, Write = S_IWOTH, ReadWrite = S_IROTH | S_IWOTH };

/// Whether owner, group and mode of a file let the user do this with it; the folders on the way are not looked at.
bool mayUse(uid_t user, const struct stat &file, Access access);

/// Owner, group and mode, for a person.
QString ownership(const struct stat &file);

} // namespace doctor
