// SPDX-License-Identifier: MIT
#pragma once

class QIODevice;

/// The file in which the firmware describes the speaker's hardware.
inline constexpr char DeviceInfoFile[] = "/etc/kado_info.xml";

/// The speaker's hardware as its firmware describes it in "/etc/kado_info.xml".
class kadoInfo {
public:
    /// Reads the file; one that cannot be opened ends the process with status 1.
    kadoInfo();

    /// Whether an external Bluetooth module is to be driven instead of a BlueZ adapter.
    bool isMelody() const { return btModuleIsMelody_; }

    /// Reads a description from an open device: true when a "bt" element after the start of the first "settings"
    /// element holds exactly the text melody. The token right after the "settings" start tag, normally white space, is
    /// passed over. Reading stops quietly at the first syntax error; what was found before it stands. Bytes that do not
    /// belong to the file's encoding (UTF-8, when it names none) hide all of a small file.
    static bool selectsMelody(QIODevice &xml);

private:
    bool btModuleIsMelody_ = false;
};
