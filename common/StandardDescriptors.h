#pragma once

/// Opens what is missing of standard input, output and error on /dev/null, so that no tty and no
/// socket gets their numbers and with them what is written there.
/// @param access as for open(): O_RDWR drops what is written, O_RDONLY makes writing fail
void KeepStandardDescriptors(int access);
