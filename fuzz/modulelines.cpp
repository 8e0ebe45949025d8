// SPDX-License-Identifier: MIT
// What the serial line brings: bytes into lines, lines into the conversation with the module, and after whatever came a
// module that answers in order, whose settings must end up right.
//
// An input: the speaker's name, then name, audio mode, I2S mode and codec as the module has them, each as length
// (1 byte) and bytes; one byte of manners (see below); then what comes in, as a row of records: length (1 byte), how
// often more (1 byte, of which four bits count), bytes.

#include "fuzz/fuzzing.h"
#include "module/linereader.h"
#include "module/moduleprotocol.h"
#include "module/serialline.h"

#include <QRegularExpression>

#include <array>
#include <sanitizer/allocator_interface.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

// What the reader and the conversation may keep: the line begun, the phone's name, and some room to grow into.
constexpr std::size_t MaxKeptBytes = 64 * 1024;

constexpr int ReadBytes = 1024; // of one read of the line

// What one input brings at most: every line length and state is reached with less, and longer ones take their time.
constexpr int MaxInputBytes = 8 * LineReader::MaxLineLength;

constexpr int Settings = 4; // name, audio mode, I2S mode, codec

// Bits of a module's manners: it keeps the first 16 bytes of a name; from the second on, it takes no other value of
// each of its settings.
constexpr unsigned NameShortened = 1;
constexpr unsigned FirstFixed = 2;
constexpr unsigned AnyFixed = 0x1E;

/// A setting cannot hold what ends a line, or reading.
QByteArray asSetting(QByteArray bytes)
{
    return bytes.replace('\r', "").replace('\n', "").replace('\0', "");
}

/// A module that knows the commands of the check and answers each.
class Module {
public:
    explicit Module(fuzzing::Input &input)
    {
        for (QByteArray &setting : running_)
            setting = asSetting(input.bytes(input.byte()));
        saved_ = running_;
        manners_ = input.byte();
    }

    QByteArray answer(const QByteArray &command)
    {
        static const std::array<QByteArray, Settings> keys{"name", "audio", "i2s", "codec"};
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (command == "get " + keys[i])
                return keys[i].toUpper() + '=' + running_[i] + "\r\n";
            const QByteArray set = "set " + keys[i] + '=';
            if (command.startsWith(set) && (manners_ & FirstFixed << i) == 0)
                running_[i] = command.mid(set.size());
        }
        if ((manners_ & NameShortened) != 0)
            running_[0].truncate(16);
        if (command == "write")
            saved_ = running_;
        if (command != "reset")
            return "OK\r\n";
        ++resets;
        running_ = saved_;
        return "Ready\r\n";
    }

    bool takesEverything() const { return (manners_ & AnyFixed) == 0; }
    const QByteArray &running(std::size_t setting) const { return running_[setting]; }

    int resets = 0;

private:
    std::array<QByteArray, Settings> running_;
    std::array<QByteArray, Settings> saved_;
    unsigned manners_ = 0;
};

/// The daemon's side of the line.
class Daemon {
public:
    explicit Daemon(const QString &speakerName) : protocol_([speakerName] { return speakerName; }) {}

    /// Takes what one read brought, and returns the commands that it sets off, without their ends.
    QList<QByteArray> take(const QByteArray &bytes)
    {
        QList<QByteArray> commands;
        int characters = 0;
        for (const QString &line : reader_.feed(bytes)) {
            PROMISED(line.size() <= LineReader::MaxLineLength);
            for (const QChar character : line)
                PROMISED(character != '\r' && character != '\n' && !character.isNull() && character.unicode() < 0x100);
            characters += static_cast<int>(line.size()) + 1;
            commands += react(line);
        }
        PROMISED(characters <= LineReader::MaxLineLength + bytes.size());
        return commands;
    }

private:
    QList<QByteArray> react(const QString &line)
    {
        const ModuleReaction reaction = protocol_.process(line);
        PROMISED(reaction.command.size() <= SerialLine::MaxUnsentBytes); // else it could never be sent
        PROMISED(!reaction.queryStatus || protocol_.isConnected());
        if (reaction.command.isEmpty())
            return {};
        PROMISED(reaction.command.endsWith('\r'));
        QList<QByteArray> commands = reaction.command.split('\r');
        commands.removeLast();
        for (const QByteArray &command : commands)
            PROMISED(isCommand(command));
        return commands;
    }

    static bool isCommand(const QByteArray &command)
    {
        static const QRegularExpression all(
            QRegularExpression::anchoredPattern("get (name|audio|i2s|codec)|set name=[^\n]* BT|set audio=3|set "
                                                "i2s=0202|set codec=7 44100 1|write|reset|status"
                                                "|name [^ \n]*|DISCOVERABLE ON"));
        return all.match(QString::fromLatin1(command)).hasMatch() && !command.contains('\0');
    }

    LineReader reader_;
    ModuleProtocol protocol_;
};

/// Lets the two talk, beginning with a command, until both are silent; returns the last command.
QByteArray talk(Daemon &daemon, Module &module, const QByteArray &first)
{
    QList<QByteArray> commands{first};
    QByteArray last;
    for (int i = 0; !commands.isEmpty(); ++i) {
        PROMISED(i < 100); // a check has at most ten commands
        last = commands.takeFirst();
        commands += daemon.take(module.answer(last));
    }
    return last;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzzing::Input input(data, size);
    const QByteArray name = input.bytes(input.byte()).replace('\n', "").replace('\0', "");
    const QString speakerName = QString::fromLatin1(name);
    Module module(input);
    const std::size_t before = __sanitizer_get_current_allocated_bytes();
    Daemon daemon(speakerName);

    int taken = 0;
    while (!input.atEnd() && taken < MaxInputBytes) {
        const unsigned length = input.byte();
        const unsigned more = input.byte() & 0xF;
        const QByteArray bytes = input.bytes(length).repeated(static_cast<int>(1 + more));
        taken += static_cast<int>(bytes.size());
        for (int at = 0; at < bytes.size(); at += ReadBytes)
            daemon.take(bytes.mid(at, ReadBytes));
    }
    PROMISED(__sanitizer_get_current_allocated_bytes() <= before + MaxKeptBytes);

    daemon.take("\r\n");
    talk(daemon, module, "get name"); // its name may be taken for that of a phone that was asked for
    const QByteArray last = talk(daemon, module, "get name");
    PROMISED(module.resets <= 3);  // for what was left over, for this module's settings, for those found wrong after it
    if (asSetting(name).isEmpty()) // no check without a name
        return 0;
    PROMISED(last == "status");
    if (module.takesEverything()) {
        PROMISED(module.running(1).split(' ').constFirst() == "3");
        PROMISED(module.running(2).split(' ').constFirst() == "0202");
        PROMISED(module.running(3).startsWith("7 44100") || module.running(3).startsWith("7=44100"));
    }
    return 0;
}
