#include "common/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

void KeepStandardDescriptors(int access) {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) == -1) {
            ::open("/dev/null", access);  // open() takes the lowest free number, which is this one
        }
    }
}
