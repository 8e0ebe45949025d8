#pragma once

/// Opens /dev/null in the place of standard input, output and error where they are closed. To be called before
/// anything else is opened: a socket that got such a number would get the log lines as well.
void occupyStandardDescriptors();
