// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// The file whose first line is the speaker's name, written by the speaker's software.
inline constexpr char SpeakerNameFile[] = "/var/data/player_name";

/// The suffix after the speaker's name in the name that phones see.
inline constexpr char SpeakerNameSuffix[] = " BT";

/// Returns the first line of SpeakerNameFile, read as Latin-1, up to a zero byte and without the line feed. White space
/// is not trimmed. Returns an empty string if the file cannot be read or has no name. A line longer than 64 KiB is cut.
QString readSpeakerName();
