// SPDX-License-Identifier: MIT
#pragma once

/// Opens /dev/null for each of standard input, output and error that is closed. Call this before the process opens any
/// other descriptor. Otherwise a socket could get one of these numbers and receive the log lines.
void openStandardDescriptors();

/// Makes glibc map every block of 128 KiB and more separately, such as the backlog of a slow client. A mapping takes
/// memory only as it fills and returns all of it to the system when the block is freed. By default glibc raises its
/// threshold when the first such block is freed. Later blocks then go on the heap, where a block allocated after them
/// can keep their memory until the process ends. Does nothing with other C libraries.
void mapLargeBlocks();
