// SPDX-License-Identifier: MIT
#pragma once

#include "sim/waiting.h"

#include <QTest>

/// Waits until the condition holds, and fails the test when it does not within 5 s.
#define WAIT_UNTIL(condition) QVERIFY2(sim::waitFor([&] { return (condition); }), "never true: " #condition)
