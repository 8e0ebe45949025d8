// SPDX-License-Identifier: MIT
#pragma once

#include "sim/waiting.h"

#include <QTest>

/// Waits until the condition is true. Fails the test when it is still false after 10 s.
#define WAIT_UNTIL(condition) QVERIFY2(sim::waitFor([&] { return (condition); }), "never true: " #condition)
