// SPDX-License-Identifier: MIT
#include "board/filefollower.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// Long enough for a writer to truncate, write and rename a file, so that one check covers these changes.
constexpr int CheckDelayMs = 100;

// The kernel's own limit (path_resolution(7)).
constexpr int MaxLinks = 40;

} // namespace

FileFollower::FileFollower(const QString &path, QObject *parent)
    : QObject(parent), path_(path), mountInfo_(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC))
{
    checkTimer_.setSingleShot(true);
    checkTimer_.setInterval(CheckDelayMs);
    connect(&checkTimer_, &QTimer::timeout, this, &FileFollower::check);
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, &FileFollower::scheduleCheck);
    connect(&watcher_, &QFileSystemWatcher::fileChanged, this, [this] {
        changePending_ = true;
        scheduleCheck();
    });
    if (mountInfo_.isValid()) { // QFileSystemWatcher does not report mounts
        mountNotifier_ = std::make_unique<QSocketNotifier>(mountInfo_.get(), QSocketNotifier::Exception);
        connect(mountNotifier_.get(), &QSocketNotifier::activated, this, &FileFollower::scheduleCheck);
    }
    check();
}

/// Returns the existing components of `path`: its directories, the directories that its links lead through, and the
/// file.
FileFollower::Components FileFollower::componentsOf(const QString &path)
{
    const auto namesIn = [](const QString &text) { return text.split(QLatin1Char('/'), Qt::SkipEmptyParts); };
    Components components;
    QStringList names = namesIn(path);
    QString place = QStringLiteral("/");
    struct stat status = {};
    for (int links = 0; ::stat(QFile::encodeName(place).constData(), &status) == 0;) {
        const bool readable = ::access(QFile::encodeName(place).constData(), R_OK) == 0;
        components.insert(place, {status.st_dev, status.st_ino, readable});
        if (names.isEmpty())
            break;
        place = QDir(place).filePath(names.takeFirst());
        const QFileInfo info(place);
        if (info.isSymLink() && ++links <= MaxLinks) {
            names = namesIn(info.symLinkTarget()) + names;
            place = QStringLiteral("/");
        }
    }
    return components;
}

void FileFollower::scheduleCheck()
{
    if (!checkTimer_.isActive())
        checkTimer_.start();
}

void FileFollower::check()
{
    const Components components = componentsOf(path_);
    const QStringList watched = watcher_.files() + watcher_.directories();
    // QFileSystemWatcher keeps watching components that left the path, and drops removed ones.
    if (components != components_ || watched.size() != watchedCount_) {
        if (!watched.isEmpty())
            watcher_.removePaths(watched);
        watcher_.addPaths(components.keys());
        watchedCount_ = watcher_.files().size() + watcher_.directories().size();
        components_ = components;
        changePending_ = true;
        checkTimer_.start(); // a component may have changed before its watch was added
    }
    if (std::exchange(changePending_, false))
        Q_EMIT changed();
}
