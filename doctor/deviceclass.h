// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace doctor {

/// Returns whether the major device class is audio/video (Bluetooth Assigned Numbers, 2.8).
inline bool isAudioClass(const uint &deviceClass)
{
    constexpr uint MajorMask = 0x1F00;
    constexpr uint AudioVideo = 0x0400;
    return (deviceClass & MajorMask) == AudioVideo;
}

inline QString deviceClassText(const uint &deviceClass)
{
    return QString("0x%1%2")
        .arg(deviceClass, 6, 16, QChar('0'))
        .arg(isAudioClass(deviceClass) ? ", audio" : ", not audio");
}

} // namespace doctor
