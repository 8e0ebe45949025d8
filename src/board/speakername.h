// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// The file in which the speaker's software keeps its name, in the first line.
inline constexpr char SpeakerNameFile[] = "/var/data/player_name";

/// What is added to the speaker's name to make the name that phones see.
inline constexpr char SpeakerNameSuffix[] = " BT";

/// The speaker's name: the first line of "/var/data/player_name", read byte by byte as Latin-1 up to a zero byte,
/// without the line feed. Nothing else is trimmed. Empty when the file cannot be read or has no name. Of a line beyond
/// 64 KiB the beginning counts.
QString readSpeakerName();
