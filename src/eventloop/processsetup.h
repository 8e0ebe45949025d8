// SPDX-License-Identifier: MIT
#pragma once

/// Opens /dev/null in the place of standard input, output and error where they are closed. To be called before
/// anything else is opened: a socket that got such a number would get the log lines as well.
void occupyStandardDescriptors();

/// Has the C library give every large block, such as the backlog of a slow client, a mapping of its own, which takes
/// memory as it is filled and gives it back when it is freed. Left to itself it does so only until the first such block
/// is freed: the next ones lie on the heap, and what lies behind them may keep all that for the rest of the run.
void giveLargeBlocksBack();
