#include "tavrikctl/Options.h"

#include <cmath>

namespace tavrik {

std::string CheckDecimal(const std::string& text) {
    const bool isDecimal = text.find_first_not_of("0123456789") == std::string::npos;
    if (isDecimal && (text == "0" || !text.starts_with('0'))) {
        return "";
    }
    return "invalid number '" + text + "': " + (isDecimal ? "leading zero" : "not decimal");
}

std::string CheckNotEmpty(const std::string& text) {
    return text.empty() ? "must not be empty" : "";
}

CLI::Option* AddTimeOption(CLI::App& app, const std::string& name, std::chrono::milliseconds& time,
                           const std::string& description) {
    const auto take = [name, &time](double seconds) {
        constexpr double kShortest = 0.001;
        constexpr double kLongest = 3600;
        if (!(seconds >= kShortest && seconds <= kLongest)) {  // so that NaN is refused too
            throw CLI::ValidationError(name, "must be 0.001 to 3600 seconds");
        }
        time = std::chrono::milliseconds(std::llround(seconds * std::milli::den));
    };
    return app.add_option_function<double>(name, take, description)->option_text("SECONDS");
}

}  // namespace tavrik
