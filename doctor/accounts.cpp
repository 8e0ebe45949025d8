// SPDX-License-Identifier: MIT
#include "doctor/accounts.h"

#include <algorithm>
#include <grp.h>
#include <pwd.h>
#include <vector>

namespace doctor {

namespace {

constexpr mode_t Permissions = S_IRWXU | S_IRWXG | S_IRWXO;

std::vector<gid_t> groupsOf(uid_t user)
{
    const passwd *entry = ::getpwuid(user);
    if (!entry)
        return {};
    int count = 0;
    ::getgrouplist(entry->pw_name, entry->pw_gid, nullptr, &count);
    std::vector<gid_t> groups(static_cast<size_t>(count));
    ::getgrouplist(entry->pw_name, entry->pw_gid, groups.data(), &count);
    return groups;
}

bool isAmong(gid_t group, const std::vector<gid_t> &groups)
{
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

} // namespace

QString userName(uid_t user)
{
    const passwd *entry = ::getpwuid(user);
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(user);
}

QString groupName(gid_t group)
{
    const ::group *entry = ::getgrgid(group);
    return entry ? QString::fromLocal8Bit(entry->gr_name) : QString::number(group);
}

std::optional<uid_t> findUser(const char *name)
{
    if (const passwd *entry = ::getpwnam(name))
        return entry->pw_uid;
    return {};
}

bool isMember(uid_t user, const char *group)
{
    if (user == 0)
        return true;
    const ::group *entry = ::getgrnam(group);
    return entry && isAmong(entry->gr_gid, groupsOf(user));
}

bool hasAccess(uid_t user, const struct stat &file, Access access)
{
    constexpr int GroupShift = 3;
    constexpr int OwnerShift = 6;
    if (user == 0)
        return true;
    int shift = 0;
    if (file.st_uid == user)
        shift = OwnerShift;
    else if (isAmong(file.st_gid, groupsOf(user)))
        shift = GroupShift;
    const auto wanted = static_cast<mode_t>(access);
    return ((file.st_mode >> shift) & wanted) == wanted;
}

QString ownership(const struct stat &file)
{
    constexpr int Octal = 8;
    return QString("%1:%2, mode 0%3")
        .arg(userName(file.st_uid), groupName(file.st_gid), QString::number(file.st_mode & Permissions, Octal));
}

} // namespace doctor
