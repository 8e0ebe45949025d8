// SPDX-License-Identifier: MIT
#include "bluez/adaptermanager.h"
#include "board/kadoinfo.h"
#include "commandline.h"
#include "eventloop/eventdispatcher.h"
#include "eventloop/filedescriptor.h"
#include "eventloop/processsetup.h"
#include "log/log.h"
#include "module/csr8675manager.h"
#include "player/playerrequests.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkProxy>

#include <cstdio>
#include <cstdlib>
#include <memory>

#ifdef KADO_SANITIZED
#include <QSocketNotifier>

#include <csignal>
#include <sanitizer/lsan_interface.h>
#include <sys/signalfd.h>

namespace {

/// Returns a descriptor that becomes readable on SIGTERM and stops SIGTERM from ending the process. Call before any
/// thread starts.
FileDescriptor openSigtermDescriptor()
{
    sigset_t signal;
    ::sigemptyset(&signal);
    ::sigaddset(&signal, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &signal, nullptr);
    return FileDescriptor(::signalfd(-1, &signal, SFD_CLOEXEC));
}

} // namespace
#endif

int main(int argc, char **argv)
{
    openStandardDescriptors();
    mapLargeBlocks();
#ifdef KADO_SANITIZED
    // The release binary ends at once on SIGTERM. This build destroys every object first, so that LeakSanitizer can
    // report leaks.
    const FileDescriptor sigterm = openSigtermDescriptor();
#endif

    // Qt's bus and HTTP threads run event loops of their own. Qt's event loop costs less than GLib's.
    qputenv("QT_NO_GLIB", "1");

    // Copy the arguments before QCoreApplication removes Qt's own options from argv.
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);

    QCoreApplication::setEventDispatcher(new EventDispatcher); // takes ownership
    QCoreApplication app(argc, argv);
    // Load no Qt plugins. The daemon needs none, and some of Qt 5 would query NetworkManager and ConnMan on the bus.
    QCoreApplication::setLibraryPaths({});
    QCoreApplication::setApplicationName(QStringLiteral("kado-bt"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KADO_VERSION));
    const QString name = QCoreApplication::applicationName();
    const QString version = QCoreApplication::applicationVersion();

    const CommandLine commandLine = CommandLine::parse(arguments);
    switch (commandLine.action) {
    case CommandLine::Action::PrintVersion:
        std::printf("%s %s\n", qUtf8Printable(name), qUtf8Printable(version));
        return EXIT_SUCCESS;
    case CommandLine::Action::PrintUsage:
        std::printf("%s", qUtf8Printable(CommandLine::usage(name, version)));
        return -1;
    case CommandLine::Action::Run:
        break;
    }

    installLogOutput(commandLine.log);
    qDebug("0start %s %s", qUtf8Printable(name), qUtf8Printable(version));

    const kadoInfo info;

    // Ignore a proxy of the environment, because the player runs on this board.
    QNetworkAccessManager theNetworkManager;
    theNetworkManager.setProxy(QNetworkProxy::NoProxy);
    PlayerRequests player(theNetworkManager);

    std::unique_ptr<AbstractManager> theManager;
    if (info.isMelody())
        theManager = std::make_unique<csr8675Manager>(player);
    else
        theManager = std::make_unique<AdapterManager>(commandLine.aacDisabled, player);

#ifdef KADO_SANITIZED
    const QSocketNotifier termination(sigterm.get(), QSocketNotifier::Read);
    QObject::connect(&termination, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    const int status = QCoreApplication::exec();
    theManager.reset();
    __lsan_do_leak_check(); // now, while Qt still references queued events and objects to be deleted
    return status;
#else
    return QCoreApplication::exec();
#endif
}
