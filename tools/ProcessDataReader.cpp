#include "tools/ProcessDataReader.h"

namespace tavrikctl {

namespace {
constexpr std::chrono::seconds kExcerptPause(1);
}

ProcessData ProcessDataReader::Read() {
    const auto now = std::chrono::steady_clock::now();
    const bool isTime = now - lastExcerpt >= kExcerptPause;
    if (last.certain || isTime || !StillZero()) {
        last = source.ReadProcessData();
        lastExcerpt = now;
    }
    return last;
}

bool ProcessDataReader::StillZero() const {
    return source.Get<int>("GetState") == 0 && source.Get<double>("GetPos") == 0;
}

}  // namespace tavrikctl
