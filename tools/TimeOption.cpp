#include "tools/TimeOption.h"

#include <cmath>

namespace tavrikctl {

CLI::Option* AddTimeOption(CLI::App& app, const std::string& name, std::chrono::milliseconds& time,
                           const std::string& description) {
    const auto take = [name, &time](double seconds) {
        constexpr double kShortest = 0.001;
        constexpr double kLongest = 3600;
        if (!(seconds >= kShortest && seconds <= kLongest)) {  // so that NaN is refused too
            throw CLI::ValidationError(name, "takes 0.001 to 3600 seconds");
        }
        time = std::chrono::milliseconds(std::llround(seconds * std::milli::den));
    };
    return app.add_option_function<double>(name, take, description)->option_text("SECONDS");
}

}  // namespace tavrikctl
