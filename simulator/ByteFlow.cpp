#include "simulator/ByteFlow.h"

#include <unistd.h>

namespace simulator {

std::string_view ByteFlow::Fill(int descriptor) {
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    begin = 0;
    end = count > 0 ? static_cast<std::size_t>(count) : 0U;
    return {buffer.data(), end};
}

void ByteFlow::Drain(int descriptor) {
    while (IsWaiting()) {
        const ssize_t count = write(descriptor, &buffer[begin], end - begin);
        if (count <= 0) {
            return;
        }
        begin += static_cast<std::size_t>(count);
    }
}

}  // namespace simulator
