// SPDX-License-Identifier: MIT
#pragma once

class QIODevice;

/// The file in which the firmware describes the speaker's hardware (XML).
inline constexpr char DeviceInfoFile[] = "/etc/kado_info.xml";

/// The hardware description of the speaker, read from DeviceInfoFile.
class kadoInfo {
public:
    /// Reads the file. Ends the process with status 1 if the file cannot be opened.
    kadoInfo();

    /// Returns true if the speaker has an external Bluetooth module, false if it has a BlueZ adapter.
    bool isMelody() const { return btModuleIsMelody_; }

    /// Returns true if `xml`, an open device, selects the external module. This is the case if a "bt" element after the
    /// start of the first "settings" element contains exactly the text "melody". The first token after the "settings"
    /// start tag, normally white space, is skipped. Reading stops at the first syntax error without a message, and the
    /// part before the error counts. In a small file no part counts if any byte is invalid in the file's encoding
    /// (UTF-8 by default).
    static bool selectsMelody(QIODevice &xml);

private:
    bool btModuleIsMelody_ = false;
};
