#include "web/Assets.h"

#include <array>
#include <fstream>
#include <iterator>
#include <string_view>

#include "client/Failure.h"

namespace tavrik {

namespace {

/// The plots' library of the distribution.
constexpr const char* kPlotFolder = "/usr/share/javascript/dygraphs/";

struct File {
    std::string_view path;  // of the request
    std::string_view name;
    std::string_view type;
    bool isOwn = true;
};

constexpr std::string_view kHtml = "text/html; charset=utf-8";
constexpr std::string_view kScript = "text/javascript; charset=utf-8";
constexpr std::string_view kStyle = "text/css; charset=utf-8";

constexpr std::array kFiles{
    File{"/", "index.html", kHtml},
    File{"/icon.svg", "icon.svg", "image/svg+xml"},
    File{"/style.css", "style.css", kStyle},
    File{"/main.js", "main.js", kScript},
    File{"/cell.js", "cell.js", kScript},
    File{"/gripper.js", "gripper.js", kScript},
    File{"/control.js", "control.js", kScript},
    File{"/findings.js", "findings.js", kScript},
    File{"/log.js", "log.js", kScript},
    File{"/motions.js", "motions.js", kScript},
    File{"/settings.js", "settings.js", kScript},
    File{"/plots.js", "plots.js", kScript},
    File{"/history.js", "history.js", kScript},
    File{"/source.js", "source.js", kScript},
    File{"/stream.js", "stream.js", kScript},
    File{"/stream-worker.js", "stream-worker.js", kScript},
    File{"/words.js", "words.js", kScript},
    File{"/dom.js", "dom.js", kScript},
    File{"/dygraph.js", "dygraph.min.js", kScript, false},
    File{"/dygraph.css", "dygraph.min.css", kStyle, false},
};

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw Failure(ExitStatus::Failed, "cannot read " + path);
    }
    return content;
}

}  // namespace

Assets::Assets(const std::string& folder) {
    for (const File& file : kFiles) {
        HttpResponse response;
        response.type = file.type;
        response.body = std::make_shared<const std::string>(
            ReadFile((file.isOwn ? folder + "/" : kPlotFolder) + std::string(file.name)));
        response.headers.emplace_back("Cache-Control", "no-cache");
        files.emplace(file.path, std::move(response));
    }
}

std::optional<HttpResponse> Assets::Find(const std::string& path) const {
    const auto place = files.find(path);
    return place == files.end() ? std::nullopt : std::optional(place->second);
}

}  // namespace tavrik
