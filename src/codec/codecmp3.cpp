// SPDX-License-Identifier: MIT
#include "codec/codecmp3.h"

#include <QtGlobal>

CodecMP3::CodecMP3()
{
    qDebug("CodecMP3");
}

CodecMP3::~CodecMP3()
{
    qDebug("~CodecMP3");
}

QByteArray CodecMP3::capabilities()
{
    return QByteArray("\x3F\xFF\x02\x40", 4);
}

QByteArray CodecMP3::selectConfiguration(const QByteArray &peerCapabilities)
{
    return peerCapabilities;
}

void CodecMP3::setConfiguration(const QByteArray & /*configuration*/)
{
    sampleRate = 44100;
    bitDepth = 16;
    channels = 2;
}

void CodecMP3::prepare(int /*readMtu*/) {}

void CodecMP3::processPacket(const char * /*packet*/, int /*length*/, QIODevice * /*out*/) {}
