#pragma once

/// Opens standard input, output and error on /dev/null where they are closed. Otherwise a tty or
/// socket could get one of these numbers and receive log lines. Call before any other file is
/// opened. Errors are ignored.
/// @param access for open(): O_RDWR discards what is written, O_RDONLY makes writes fail
void KeepStandardDescriptors(int access);
