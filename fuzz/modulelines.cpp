// SPDX-License-Identifier: MIT
// Input from the serial line: bytes become lines, lines go to the module protocol. After any input, a module that
// answers correctly must end with the right settings.
//
// An input has these parts:
//   speaker's name, then the module's name, audio mode, I2S mode and codec: each length (1 byte) and bytes
//   the module's faults (1 byte, see below)
//   received data, a sequence of records: length (1 byte), number of repetitions (1 byte, the lower four bits), bytes

#include "fuzz/fuzzing.h"
#include "module/linereader.h"
#include "module/moduleprotocol.h"
#include "module/serialline.h"

#include <QRegularExpression>

#include <array>
#include <sanitizer/allocator_interface.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

// Memory limit of reader and protocol: the unfinished line, the phone's name, and reserve capacity.
constexpr std::size_t MaxKeptBytes = 64 * 1024;

constexpr int ReadBytes = 1024; // of one read of the line

// Limit of received data per input. Less is enough for every line length and state, and more costs time.
constexpr int MaxInputBytes = 8 * LineReader::MaxLineLength;

constexpr int Settings = 4; // name, audio mode, I2S mode, codec

// Fault bits of a module. Bit 0: it keeps only the first 16 bytes of a name. Bits 1 to 4: it ignores commands that set
// setting 0 to 3.
constexpr unsigned NameShortened = 1;
constexpr unsigned FirstFixed = 2;
constexpr unsigned AnyFixed = 0x1E;

/// Removes the bytes that end a line, and zero bytes, because LineReader drops the rest of a read after one.
QByteArray asSetting(QByteArray bytes)
{
    return bytes.replace('\r', "").replace('\n', "").replace('\0', "");
}

/// A module that answers each command of the settings check.
class Module {
public:
    explicit Module(fuzzing::Input &input)
    {
        for (QByteArray &setting : running_)
            setting = asSetting(input.bytes(input.byte()));
        saved_ = running_;
        faults_ = input.byte();
    }

    QByteArray answer(const QByteArray &command)
    {
        static const std::array<QByteArray, Settings> keys{"name", "audio", "i2s", "codec"};
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (command == "get " + keys[i])
                return keys[i].toUpper() + '=' + running_[i] + "\r\n";
            const QByteArray set = "set " + keys[i] + '=';
            if (command.startsWith(set) && (faults_ & FirstFixed << i) == 0)
                running_[i] = command.mid(set.size());
        }
        if ((faults_ & NameShortened) != 0)
            running_[0].truncate(16);
        if (command == "write")
            saved_ = running_;
        if (command != "reset")
            return "OK\r\n";
        ++resets;
        running_ = saved_;
        return "Ready\r\n";
    }

    bool acceptsAllSettings() const { return (faults_ & AnyFixed) == 0; }
    const QByteArray &running(std::size_t setting) const { return running_[setting]; }

    int resets = 0;

private:
    std::array<QByteArray, Settings> running_;
    std::array<QByteArray, Settings> saved_;
    unsigned faults_ = 0;
};

/// The daemon's side of the line.
class Daemon {
public:
    explicit Daemon(const QString &speakerName) : protocol_([speakerName] { return speakerName; }) {}

    /// Processes the bytes of one read. Returns the resulting commands, without their line ends.
    QList<QByteArray> take(const QByteArray &bytes)
    {
        QList<QByteArray> commands;
        int characters = 0;
        for (const QString &line : reader_.feed(bytes)) {
            REQUIRE(line.size() <= LineReader::MaxLineLength);
            for (const QChar character : line)
                REQUIRE(character != '\r' && character != '\n' && !character.isNull() && character.unicode() < 0x100);
            characters += static_cast<int>(line.size()) + 1;
            commands += react(line);
        }
        REQUIRE(characters <= LineReader::MaxLineLength + bytes.size());
        return commands;
    }

private:
    QList<QByteArray> react(const QString &line)
    {
        const ModuleReaction reaction = protocol_.process(line);
        REQUIRE(reaction.command.size() <= SerialLine::MaxUnsentBytes); // SerialLine drops longer commands
        REQUIRE(!reaction.queryStatus || protocol_.isConnected());
        if (reaction.command.isEmpty())
            return {};
        REQUIRE(reaction.command.endsWith('\r'));
        QList<QByteArray> commands = reaction.command.split('\r');
        commands.removeLast();
        for (const QByteArray &command : commands)
            REQUIRE(isCommand(command));
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

/// Sends `first` to the module, then passes answers and commands until none is left. Returns the last command.
QByteArray runDialogue(Daemon &daemon, Module &module, const QByteArray &first)
{
    QList<QByteArray> commands{first};
    QByteArray last;
    for (int i = 0; !commands.isEmpty(); ++i) {
        REQUIRE(i < 100); // one check has at most ten commands
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
    REQUIRE(__sanitizer_get_current_allocated_bytes() <= before + MaxKeptBytes);

    daemon.take("\r\n");
    runDialogue(daemon, module, "get name"); // the daemon may take this answer as the name of a phone that it asked for
    const QByteArray last = runDialogue(daemon, module, "get name");
    REQUIRE(module.resets <= 3);   // for earlier corrections, for this module's settings, for those wrong after a reset
    if (asSetting(name).isEmpty()) // no check without a name
        return 0;
    REQUIRE(last == "status");
    if (module.acceptsAllSettings()) {
        REQUIRE(module.running(1).split(' ').constFirst() == "3");
        REQUIRE(module.running(2).split(' ').constFirst() == "0202");
        REQUIRE(module.running(3).startsWith("7 44100") || module.running(3).startsWith("7=44100"));
    }
    return 0;
}
